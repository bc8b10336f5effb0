#include "CLS_ArchiveContents.h"

#include <QFile>
#include <QFileInfo>
#include <zip.h>

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

    int iError = 0;
    zip_t* pZip = zip_open(QFile::encodeName(_qstrArchive).constData(), ZIP_RDONLY, &iError);
    if (pZip == nullptr) {
        zip_error_t error;
        zip_error_init_with_code(&error, iError);
        _qstrError = (iError == ZIP_ER_NOZIP ? "not a zip archive: " : "cannot read the zip archive ") +
                     _qstrArchive + " (" + QString::fromUtf8(zip_error_strerror(&error)) + ")";
        zip_error_fini(&error);
        return false;
    }
    const zip_int64_t iEntries = zip_get_num_entries(pZip, 0);
    for (zip_int64_t i = 0; i < iEntries; ++i) {
        zip_stat_t stat;
        if (zip_stat_index(pZip, static_cast<zip_uint64_t>(i), 0, &stat) != 0 ||
            (stat.valid & ZIP_STAT_NAME) == 0) {
            continue;
        }
        const QString qstrName = QString::fromUtf8(stat.name);
        if (qstrName.endsWith('/')) {
            continue;
        }
        const int iSlash = qstrName.indexOf('/');
        STRUCT_Folder& folder = m_mapFolders[iSlash > 0 ? qstrName.left(iSlash) : QString()];
        ++folder.iFiles;
        folder.iBytes += (stat.valid & ZIP_STAT_SIZE) != 0 ? static_cast<qint64>(stat.size) : 0;
        ++m_iFiles;
    }
    zip_discard(pZip);
    if (m_iFiles == 0) {
        _qstrError = "the archive holds no files: " + _qstrArchive;
        return false;
    }
    return true;
}
