#include "ArchiveCheck.h"

#include <QFile>
#include <QFileInfo>
#include <private/qzipreader_p.h>

#include "CLS_ZipDirectory.h"
#include "FunctionUtil.h"
#include "ZipRules.h"

QStringList PackableEntryNames(const QString& _qstrFolder)
{
    const QString qstrBase = QFileInfo(_qstrFolder).absoluteFilePath();
    QStringList lstNames;
    for (const QFileInfo& info : FunctionUtil::GetFileList(QStringList(), qstrBase, false)) {
        QFile file(info.filePath());
        if (!info.isDir() && file.open(QIODevice::ReadOnly)) {
            lstNames << ZipRules::EntryName(info.filePath(), qstrBase);
        }
    }
    return lstNames;
}

n_ArchiveCheck CheckPackedArchive(const QString& _qstrZipPath, const QStringList& _lstEntryNames,
                                  QString& _qstrDetail)
{
    const qint64 iSize = QFileInfo(_qstrZipPath).size();
    if (iSize > ZipRules::kMaxArchiveBytes) {
        _qstrDetail = QString("archive of %1 bytes, over %2").arg(iSize).arg(ZipRules::kMaxArchiveBytes);
        return ARCHIVE_TOO_LARGE;
    }
    CLS_ZipDirectory directory;
    if (!directory.Read(_qstrZipPath)) {
        _qstrDetail = directory.ErrorText();
        return ARCHIVE_INCOMPLETE;
    }
    const QVector<STRUCT_ZipEntry>& vecEntries = directory.Entries();
    // The reader rejects an archive without entries outright; the directory has said all there is.
    if (vecEntries.isEmpty() && _lstEntryNames.isEmpty()) {
        return ARCHIVE_COMPLETE;
    }
    QZipReader reader(_qstrZipPath, QIODevice::ReadOnly);
    if (vecEntries.size() != _lstEntryNames.size() || reader.count() != _lstEntryNames.size()) {
        _qstrDetail = QString("%1 files packed, %2 entries in the directory, %3 listed by the reader")
                          .arg(_lstEntryNames.size())
                          .arg(vecEntries.size())
                          .arg(reader.count());
        return ARCHIVE_INCOMPLETE;
    }
    for (int i = 0; i < vecEntries.size(); ++i) {
        const QString& qstrExpected = _lstEntryNames.at(i);
        if (vecEntries.at(i).qstrName != qstrExpected ||
            reader.entryInfoAt(i).filePath != ZipRules::ReaderListedName(qstrExpected)) {
            _qstrDetail = QString("entry %1 is %2 (listed as %3), packed as %4")
                              .arg(i)
                              .arg(vecEntries.at(i).qstrName, reader.entryInfoAt(i).filePath, qstrExpected);
            return ARCHIVE_INCOMPLETE;
        }
    }
    return ARCHIVE_COMPLETE;
}
