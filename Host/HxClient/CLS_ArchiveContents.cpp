#include "CLS_ArchiveContents.h"

#include <QFile>
#include <QFileInfo>
#include <QtGui/private/qzipreader_p.h>

bool CLS_ArchiveContents::Read(const QString& _qstrArchive, QString& _qstrError)
{
    m_mapFolders.clear();
    m_iFiles = 0;
    const QFileInfo info(_qstrArchive);
    if (!info.exists()) {
        _qstrError = "no such archive: " + _qstrArchive;
        return false;
    }
    if (!info.isFile()) {
        _qstrError = "not a file: " + _qstrArchive;
        return false;
    }
    QFile file(_qstrArchive);
    if (!file.open(QIODevice::ReadOnly)) {
        _qstrError = "cannot read the archive " + _qstrArchive + ": " + file.errorString();
        return false;
    }
    file.close();

    QZipReader reader(_qstrArchive);
    if (reader.status() != QZipReader::NoError || !reader.isReadable()) {
        _qstrError = "cannot read the zip archive " + _qstrArchive;
        return false;
    }
    const QVector<QZipReader::FileInfo> vecEntries = reader.fileInfoList();
    for (const QZipReader::FileInfo& entry : vecEntries) {
        if (!entry.isFile) {
            continue;
        }
        const int iSlash = entry.filePath.indexOf('/');
        STRUCT_Folder& folder = m_mapFolders[iSlash > 0 ? entry.filePath.left(iSlash) : QString()];
        ++folder.iFiles;
        folder.iBytes += entry.size;
        ++m_iFiles;
    }
    // The reader reports no error for a file that is no zip at all; it only finds no entries.
    if (m_iFiles == 0) {
        _qstrError = "not a zip archive, or one without files: " + _qstrArchive;
        return false;
    }
    return true;
}
