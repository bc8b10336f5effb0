#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// A sample client data folder, so that a first backup has something real in it: configuration files
// at the top, the client database with the personal configuration that names a download folder and a
// picture folder (both outside the data folder), face pictures, an electronic map, downloads and
// snapshots. Everything is deterministic; files of the same names are overwritten.
class CLS_DemoData
{
public:
    // One part of the demo data, for the summary.
    struct STRUCT_Part
    {
        QString qstrWhat;
        QString qstrFolder;
        int iFiles = 0;
        qint64 iBytes = 0;
    };

    explicit CLS_DemoData(const QString& _qstrDataPath);

    // _iBulkMiB adds that many MiB of extra recordings to the download folder. False with the reason.
    bool Create(int _iBulkMiB, QString& _qstrError);

    const QVector<STRUCT_Part>& Parts() const { return m_vecParts; }
    QString DataPath() const { return m_qstrDataPath; }
    QString DownloadFolder() const { return m_qstrUserPath + "/Downloads"; }
    QString PictureFolder() const { return m_qstrUserPath + "/Pictures"; }

private:
    bool WriteConfiguration(QString& _qstrError);
    bool WriteDatabases(QString& _qstrError);
    bool WriteFacePictures(QString& _qstrError);
    bool WriteElectronicMap(QString& _qstrError);
    bool WriteDownloads(int _iBulkMiB, QString& _qstrError);
    bool WritePictures(QString& _qstrError);

    // Writes one file of the current part, creating its folder.
    bool WriteFile(const QString& _qstrPath, const QByteArray& _qbaContent, QString& _qstrError);
    void BeginPart(const QString& _qstrWhat, const QString& _qstrFolder);

    const QString m_qstrDataPath;
    const QString m_qstrUserPath;
    QVector<STRUCT_Part> m_vecParts;
};
