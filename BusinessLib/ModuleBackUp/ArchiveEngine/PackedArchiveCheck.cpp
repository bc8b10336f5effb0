#include "PackedArchiveCheck.h"

#include "CLS_ZipReader.h"

n_ArchiveCheck CheckPackedArchive(const QString& _qstrZipPath, const QStringList& _lstEntryNames,
                                  QString& _qstrDetail)
{
    CLS_ZipReader reader;
    if (!reader.Open(_qstrZipPath)) {
        _qstrDetail = reader.ErrorText();
        return ARCHIVE_INCOMPLETE;
    }
    const QVector<STRUCT_ZipEntryPlace>& vecEntries = reader.Entries();
    if (vecEntries.size() != _lstEntryNames.size()) {
        _qstrDetail = QString("%1 files packed, %2 entries in the archive")
                          .arg(_lstEntryNames.size())
                          .arg(vecEntries.size());
        return ARCHIVE_INCOMPLETE;
    }
    for (int i = 0; i < vecEntries.size(); ++i) {
        const QString qstrListed = CLS_ZipReader::EntryName(vecEntries[i]);
        if (qstrListed != _lstEntryNames[i]) {
            _qstrDetail = QString("entry %1 is %2, packed as %3").arg(i).arg(qstrListed, _lstEntryNames[i]);
            return ARCHIVE_INCOMPLETE;
        }
    }
    return ARCHIVE_COMPLETE;
}
