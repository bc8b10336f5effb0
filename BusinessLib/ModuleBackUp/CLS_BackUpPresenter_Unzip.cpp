#include "CLS_BackUpPresenter.h"

#include <vector>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QPair>
#include <private/qzipreader_p.h>
#include <zlib.h>

#include "CLS_ZipDirectory.h"
#include "Logger.h"
#include "ZipRules.h"

namespace {

// Every entry passes through buffers of this size, whatever its own size.
constexpr qint64 kBlockBytes = qint64(1) << 20;

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
    CLS_EntryUnpacker(QFile& _archive, const QString& _qstrRoot)
        : m_archive(_archive), m_qstrRoot(_qstrRoot), m_qstrCanonicalRoot(QDir(_qstrRoot).canonicalPath()),
          m_vecIn(kBlockBytes), m_vecOut(kBlockBytes)
    {}

    // _qstrDetail is set for what the caller should log; an unwritable target passes over silently.
    n_EntryOutcome Unpack(const STRUCT_ZipEntry& _entry, QString& _qstrDetail)
    {
        const QString& qstrName = _entry.qstrName;
        // Qt's reader finds data by name: a later entry of a name reads back as the first one's data.
        auto itFirst = m_hashFirstByName.constFind(_entry.qstrLookupName);
        if (itFirst == m_hashFirstByName.cend()) {
            itFirst = m_hashFirstByName.insert(_entry.qstrLookupName, {_entry.iSize, _entry.iCrc});
        }
        if (!ZipRules::IsSafeEntryName(qstrName)) {
            _qstrDetail = "name leads out of the unpack root";
            return ENTRY_PASSED_OVER;
        }
        if (qstrName.endsWith('/')) {
            return MakeFolder(m_qstrRoot + "/" + qstrName, _qstrDetail) ? ENTRY_WRITTEN : ENTRY_PASSED_OVER;
        }
        if (itFirst->first != _entry.iSize || itFirst->second != _entry.iCrc) {
            _qstrDetail = CrcFailed(itFirst->first, _entry.iSize);
            return ENTRY_FAILED;
        }
        // Data behind a target that cannot be written is read all the same: damage fails the archive.
        QFile file(m_qstrRoot + "/" + qstrName);
        const bool blWritable = OpenTarget(qstrName, file, _qstrDetail);
        if (!ReadChecked(_entry, blWritable ? &file : nullptr, _qstrDetail)) {
            // A short file would later be copied over live data as if it were whole.
            if (blWritable) {
                file.remove();
            }
            return ENTRY_FAILED;
        }
        return blWritable ? ENTRY_WRITTEN : ENTRY_PASSED_OVER;
    }

private:
    static QString CrcFailed(qint64 _iRead, qint64 _iRecorded)
    {
        return QString("CRC-32 check failed: %1 bytes read, %2 recorded").arg(_iRead).arg(_iRecorded);
    }

    bool OpenTarget(const QString& _qstrName, QFile& _file, QString& _qstrDetail)
    {
        QStringList lstParts = _qstrName.split('/');
        lstParts.removeLast();
        if (!MakeFolder(m_qstrRoot + "/" + lstParts.join('/'), _qstrDetail)) {
            return false;
        }
        if (QFileInfo(_file.fileName()).isSymLink()) {
            _qstrDetail = "target is a symbolic link";
            return false;
        }
        return _file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered);
    }

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

    // Streams the entry's data into _pTarget (nowhere when null) and holds it to the recorded size and
    // CRC-32; _qstrDetail says why not.
    bool ReadChecked(const STRUCT_ZipEntry& _entry, QFile* _pTarget, QString& _qstrDetail)
    {
        m_pTarget = _pTarget;
        m_qstrWriteError.clear();
        m_iRead = 0;
        m_iCrc = crc32(0L, Z_NULL, 0);
        bool blRead = m_archive.seek(_entry.iDataOffset);
        if (blRead) {
            blRead = _entry.iMethod == 0 ? CopyStored(_entry.iSize) : Inflate(_entry);
        }
        if (blRead && _pTarget && !_pTarget->flush()) {
            m_qstrWriteError = _pTarget->errorString();
        }
        if (!m_qstrWriteError.isEmpty()) {
            _qstrDetail = "write failed: " + m_qstrWriteError;
            return false;
        }
        if (_entry.iMethod != 0 && (!blRead || m_iRead != _entry.iSize)) {
            _qstrDetail =
                QString("compressed data does not inflate to the recorded %1 bytes").arg(_entry.iSize);
            return false;
        }
        if (!blRead || m_iRead != _entry.iSize || m_iCrc != _entry.iCrc) {
            _qstrDetail = CrcFailed(m_iRead, _entry.iSize);
            return false;
        }
        return true;
    }

    bool CopyStored(qint64 _iSize)
    {
        for (qint64 iLeft = _iSize; iLeft > 0;) {
            const qint64 iRead = m_archive.read(m_vecIn.data(), qMin(iLeft, kBlockBytes));
            if (iRead <= 0 || !Emit(m_vecIn.data(), iRead)) {
                return false;
            }
            iLeft -= iRead;
        }
        return true;
    }

    // The stream must end exactly at its compressed size; output past the recorded size stops it at once,
    // so that no archive can fill the disk or memory.
    bool Inflate(const STRUCT_ZipEntry& _entry)
    {
        z_stream stream{};
        if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
            return false;
        }
        qint64 iLeft = _entry.iCompressedSize;
        int iResult = Z_OK;
        while (iResult == Z_OK) {
            if (stream.avail_in == 0) {
                const qint64 iRead = iLeft > 0 ? m_archive.read(m_vecIn.data(), qMin(iLeft, kBlockBytes)) : 0;
                if (iRead <= 0) {
                    break;
                }
                iLeft -= iRead;
                stream.next_in = reinterpret_cast<Bytef*>(m_vecIn.data());
                stream.avail_in = static_cast<uInt>(iRead);
            }
            // One byte of room past the recorded size shows that the data goes on.
            const qint64 iRoom = qMin(kBlockBytes, _entry.iSize - m_iRead + 1);
            stream.next_out = reinterpret_cast<Bytef*>(m_vecOut.data());
            stream.avail_out = static_cast<uInt>(iRoom);
            iResult = inflate(&stream, Z_NO_FLUSH);
            const qint64 iProduced = iRoom - stream.avail_out;
            if ((iResult != Z_OK && iResult != Z_STREAM_END) || m_iRead + iProduced > _entry.iSize ||
                !Emit(m_vecOut.data(), iProduced)) {
                iResult = Z_DATA_ERROR;
            }
        }
        inflateEnd(&stream);
        return iResult == Z_STREAM_END && iLeft == 0 && stream.avail_in == 0;
    }

    bool Emit(const char* _pData, qint64 _iSize)
    {
        m_iCrc = crc32(m_iCrc, reinterpret_cast<const Bytef*>(_pData), static_cast<uInt>(_iSize));
        m_iRead += _iSize;
        if (m_pTarget && m_pTarget->write(_pData, _iSize) != _iSize) {
            m_qstrWriteError = m_pTarget->errorString();
            return false;
        }
        return true;
    }

    QFile& m_archive;
    const QString m_qstrRoot;
    const QString m_qstrCanonicalRoot;
    std::vector<char> m_vecIn;
    std::vector<char> m_vecOut;
    // The recorded size and CRC-32 of the first entry of each name.
    QHash<QString, QPair<qint64, quint32>> m_hashFirstByName;
    // The entry being read.
    QFile* m_pTarget = nullptr;
    QString m_qstrWriteError;
    qint64 m_iRead = 0;
    uLong m_iCrc = 0;
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
    // The directory is read and checked apart before anything gets near the data.
    const QString qstrZipPath = zipInfo.absoluteFilePath();
    CLS_ZipDirectory directory;
    QFile archive(qstrZipPath);
    if (!directory.Read(qstrZipPath) || !archive.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive unreadable [_qstrZipName " << qstrZipPath << "] "
            << directory.ErrorText();
        return false;
    }
    if (directory.Entries().isEmpty()) {
        return true;
    }
    // Only what Qt's reader lists whole is unpacked, so that a backup stays readable without us.
    QZipReader reader(qstrZipPath, QIODevice::ReadOnly);
    if (reader.count() != directory.Entries().size()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive unreadable [_qstrZipName " << qstrZipPath << "] "
            << reader.count() << " entries listed of " << directory.Entries().size();
        return false;
    }
    reader.close();
    CLS_EntryUnpacker unpacker(archive, qstrRoot);
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
    return true;
}

qint64 CLS_BackUpPresenter::GetZipSize(const QString& _qstrZipName)
{
    const QFileInfo zipInfo(_qstrZipName);
    if (!zipInfo.exists()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "GetZipSize failed Zip didn't exist [_qstrZipName " << _qstrZipName;
        return 0;
    }
    QZipReader reader(zipInfo.absoluteFilePath(), QIODevice::ReadOnly);
    qint64 iTotal = 0;
    for (const QZipReader::FileInfo& entry : reader.fileInfoList()) {
        iTotal += entry.size;
    }
    return iTotal;
}
