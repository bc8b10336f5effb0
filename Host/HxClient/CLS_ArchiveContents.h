#pragma once

#include <QMap>
#include <QString>

// What a backup archive holds, per top-level folder, read from its zip directory without unpacking.
class CLS_ArchiveContents
{
public:
    struct STRUCT_Folder
    {
        int iFiles = 0;
        qint64 iBytes = 0;
    };

    // False, with the reason, for a missing, unreadable, broken or empty archive.
    bool Read(const QString& _qstrArchive, QString& _qstrError);

    // Top-level folder name -> files and unpacked bytes; top-level files count under "".
    const QMap<QString, STRUCT_Folder>& Folders() const { return m_mapFolders; }
    int FileCount() const { return m_iFiles; }

private:
    QMap<QString, STRUCT_Folder> m_mapFolders;
    int m_iFiles = 0;
};
