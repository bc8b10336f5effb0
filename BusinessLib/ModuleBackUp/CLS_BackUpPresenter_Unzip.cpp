#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <private/qzipreader_p.h>

#include "CLS_ZipDirectory.h"
#include "Crc32.h"
#include "InflateScan.h"
#include "Logger.h"
#include "ZipRules.h"

namespace {

enum n_EntryOutcome
{
    ENTRY_WRITTEN,
    ENTRY_PASSED_OVER, // nothing written; the unpack goes on
    ENTRY_FAILED       // the archive cannot be trusted; the unpack stops
};

// Writes the entries of one archive below its unpack root.
class CLS_EntryUnpacker
{
public:
    CLS_EntryUnpacker(QZipReader& _reader, QFile& _archive, const QString& _qstrRoot)
        : m_reader(_reader), m_archive(_archive), m_qstrRoot(_qstrRoot),
          m_qstrCanonicalRoot(QDir(_qstrRoot).canonicalPath())
    {}

    // _qstrDetail is set for what the caller should log; an unwritable target passes over silently.
    n_EntryOutcome Unpack(const STRUCT_ZipEntry& _entry, QString& _qstrDetail)
    {
        const QString& qstrName = _entry.qstrName;
        if (!ZipRules::IsSafeEntryName(qstrName)) {
            _qstrDetail = "name leads out of the unpack root";
            return ENTRY_PASSED_OVER;
        }
        if (qstrName.endsWith('/')) {
            return MakeFolder(m_qstrRoot + "/" + qstrName, _qstrDetail) ? ENTRY_WRITTEN : ENTRY_PASSED_OVER;
        }
        QByteArray qbaData;
        if (!ReadChecked(_entry, qbaData, _qstrDetail)) {
            return ENTRY_FAILED;
        }
        QStringList lstParts = qstrName.split('/');
        lstParts.removeLast();
        if (!MakeFolder(m_qstrRoot + "/" + lstParts.join('/'), _qstrDetail)) {
            return ENTRY_PASSED_OVER;
        }
        const QString qstrTarget = m_qstrRoot + "/" + qstrName;
        if (QFileInfo(qstrTarget).isSymLink()) {
            _qstrDetail = "target is a symbolic link";
            return ENTRY_PASSED_OVER;
        }
        QFile file(qstrTarget);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
            return ENTRY_PASSED_OVER;
        }
        // A short file would later be copied over live data as if it were whole.
        if (file.write(qbaData) != qbaData.size() || !file.flush()) {
            file.remove();
            _qstrDetail = "write failed: " + file.errorString();
            return ENTRY_FAILED;
        }
        return ENTRY_WRITTEN;
    }

private:
    // The folder exists afterwards and lies below the root, links resolved.
    bool MakeFolder(const QString& _qstrFolder, QString& _qstrDetail)
    {
        if (!QDir(_qstrFolder).exists()) {
            QDir().mkpath(_qstrFolder);
        }
        const QString qstrCanonical = QDir(_qstrFolder).canonicalPath();
        if (qstrCanonical.isEmpty()) {
            return false;
        }
        if (qstrCanonical != m_qstrCanonicalRoot && !qstrCanonical.startsWith(m_qstrCanonicalRoot + "/")) {
            _qstrDetail = "folder leads out of the unpack root through a link";
            return false;
        }
        return true;
    }

    bool ReadChecked(const STRUCT_ZipEntry& _entry, QByteArray& _qbaData, QString& _qstrDetail)
    {
        if (_entry.iMethod != 0) {
            qint64 iLength = 0;
            if (!m_archive.seek(_entry.iDataOffset) ||
                !InflatedLength(m_archive, _entry.iCompressedSize, _entry.iSize, iLength) ||
                iLength != _entry.iSize) {
                _qstrDetail =
                    QString("compressed data does not inflate to the recorded %1 bytes").arg(_entry.iSize);
                return false;
            }
        }
        _qbaData = m_reader.fileData(_entry.qstrLookupName);
        if (_qbaData.size() != _entry.iSize || Crc32(_qbaData) != _entry.iCrc) {
            _qstrDetail = QString("CRC-32 check failed: %1 bytes read, %2 recorded")
                              .arg(_qbaData.size())
                              .arg(_entry.iSize);
            return false;
        }
        return true;
    }

    QZipReader& m_reader;
    QFile& m_archive;
    const QString m_qstrRoot;
    const QString m_qstrCanonicalRoot;
};

} // namespace

bool CLS_BackUpPresenter::ZipToDir(const QString& _qstrZipName, const QString& _qstrDirDestination)
{
    const QFileInfo zipInfo(_qstrZipName);
    if (!zipInfo.exists()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed Zip didn't exist [_qstrZipName " << _qstrZipName;
        return false;
    }
    const QString qstrRoot = _qstrDirDestination + "/" + zipInfo.baseName();
    // Without a base name the root would be the destination itself, which callers remove afterwards.
    if (zipInfo.baseName().isEmpty()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive name without base name [_qstrZipName " << _qstrZipName;
        return false;
    }
    if (!QDir(qstrRoot).exists() && !QDir().mkpath(qstrRoot)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed dirDestination create failed [_qstrDirPath "
            << _qstrDirDestination;
        return false;
    }
    // The reader checks nothing itself; the directory is read and checked apart before it gets near the data.
    const QString qstrZipPath = zipInfo.absoluteFilePath();
    CLS_ZipDirectory directory;
    QFile archive(qstrZipPath);
    if (!directory.Read(qstrZipPath) || !archive.open(QIODevice::ReadOnly)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive unreadable [_qstrZipName " << qstrZipPath << "] "
            << directory.ErrorText();
        return false;
    }
    if (directory.Entries().isEmpty()) {
        return true;
    }
    QZipReader reader(qstrZipPath, QIODevice::ReadOnly);
    if (reader.count() != directory.Entries().size()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive unreadable [_qstrZipName " << qstrZipPath << "] "
            << reader.count() << " entries listed of " << directory.Entries().size();
        return false;
    }
    CLS_EntryUnpacker unpacker(reader, archive, qstrRoot);
    for (const STRUCT_ZipEntry& entry : directory.Entries()) {
        QString qstrDetail;
        const n_EntryOutcome outcome = unpacker.Unpack(entry, qstrDetail);
        if (outcome == ENTRY_FAILED) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "ZipToDir failed entry [" << entry.qstrName << "] " << qstrDetail
                << " [_qstrZipName " << qstrZipPath;
            return false;
        }
        if (!qstrDetail.isEmpty()) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "ZipToDir passed over entry [" << entry.qstrName << "] " << qstrDetail;
        }
    }
    reader.close();
    return true;
}
