#include "CLS_DemoData.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include "DemoContent.h"

CLS_DemoData::CLS_DemoData(const QString& _qstrDataPath)
    : m_qstrDataPath(QDir::cleanPath(_qstrDataPath)),
      m_qstrUserPath(QDir::cleanPath(_qstrDataPath + "/../DemoUser"))
{}

bool CLS_DemoData::Create(int _iBulkMiB, QString& _qstrError)
{
    m_vecParts.clear();
    if (!QDir().mkpath(m_qstrDataPath)) {
        _qstrError = "cannot create the data folder " + m_qstrDataPath;
        return false;
    }
    return WriteConfiguration(_qstrError) && WriteDatabases(_qstrError) && WriteFacePictures(_qstrError) &&
           WriteElectronicMap(_qstrError) && WriteDownloads(_iBulkMiB, _qstrError) &&
           WritePictures(_qstrError);
}

bool CLS_DemoData::WriteConfiguration(QString& _qstrError)
{
    BeginPart("configuration", m_qstrDataPath);
    const QByteArray qbaClient = R"({
    "client": {"name": "Orvella Client", "version": "5.2.0", "language": "en"},
    "startup": {"restoreLayout": true, "autoLogin": false},
    "video": {"decoder": "hardware", "bufferMs": 300, "aspect": "keep"}
}
)";
    const QByteArray qbaLayout = R"({
    "layouts": [
        {"name": "Lobby", "panes": 4, "channels": ["cam-01", "cam-02", "cam-03", "cam-04"]},
        {"name": "Parking", "panes": 1, "channels": ["cam-05"]}
    ]
}
)";
    const QByteArray qbaNetwork = "[Server]\nAddress=192.168.10.2\nPort=7000\n\n[Proxy]\nEnabled=0\n";
    const QByteArray qbaVideo = "[Playback]\nSpeed=1\nSkipIdle=1\n\n[Snapshot]\nFormat=png\n";
    // Not a configuration file: the backup leaves it out.
    const QByteArray qbaCrash = "client crash dump placeholder\n";
    return WriteFile(m_qstrDataPath + "/ClientConfig.json", qbaClient, _qstrError) &&
           WriteFile(m_qstrDataPath + "/Layout.json", qbaLayout, _qstrError) &&
           WriteFile(m_qstrDataPath + "/Network.ini", qbaNetwork, _qstrError) &&
           WriteFile(m_qstrDataPath + "/Video.ini", qbaVideo, _qstrError) &&
           WriteFile(m_qstrDataPath + "/LastCrash.dmp", qbaCrash, _qstrError);
}

bool CLS_DemoData::WriteFacePictures(QString& _qstrError)
{
    const QString qstrFolder = m_qstrDataPath + "/FacePicture";
    BeginPart("face pictures", qstrFolder);
    for (int i = 1; i <= 24; ++i) {
        const QString qstrName = QString("%1/face_%2.png").arg(qstrFolder).arg(i, 3, 10, QChar('0'));
        if (!WriteFile(qstrName, DemoContent::Png(DemoContent::FacePicture(i)), _qstrError)) {
            return false;
        }
    }
    return WriteFile(qstrFolder + "/Library.json",
                     R"({"library": "Staff", "faces": 24, "threshold": 0.82})"
                     "\n",
                     _qstrError);
}

bool CLS_DemoData::WriteElectronicMap(QString& _qstrError)
{
    const QString qstrFolder = m_qstrDataPath + "/ElectronicMap";
    BeginPart("electronic map", qstrFolder);
    const QByteArray qbaMap = R"({
    "map": "Building A",
    "floors": [
        {"name": "Ground floor", "image": "Floors/Floor_0.png"},
        {"name": "First floor", "image": "Floors/Floor_1.png"}
    ],
    "hotspots": [
        {"channel": "cam-01", "floor": 0, "x": 120, "y": 90},
        {"channel": "cam-05", "floor": 1, "x": 640, "y": 410}
    ]
}
)";
    return WriteFile(qstrFolder + "/Map.json", qbaMap, _qstrError) &&
           WriteFile(qstrFolder + "/Floors/Floor_0.png", DemoContent::Png(DemoContent::FloorPlan(0)),
                     _qstrError) &&
           WriteFile(qstrFolder + "/Floors/Floor_1.png", DemoContent::Png(DemoContent::FloorPlan(1)),
                     _qstrError);
}

bool CLS_DemoData::WriteDownloads(int _iBulkMiB, QString& _qstrError)
{
    const QString qstrFolder = DownloadFolder();
    BeginPart("downloads", qstrFolder);
    constexpr int kMiB = 1024 * 1024;
    for (int i = 1; i <= 3; ++i) {
        const QString qstrName = QString("%1/cam-0%2_2024-01-31_08-0%3.mp4").arg(qstrFolder).arg(i).arg(i);
        if (!WriteFile(qstrName, DemoContent::NoiseBytes(static_cast<quint32>(i), kMiB), _qstrError)) {
            return false;
        }
    }
    const QString qstrExport = qstrFolder + "/Export_2024-01-31";
    if (!WriteFile(qstrExport + "/alarm_clip.avi", DemoContent::NoiseBytes(11, kMiB / 2), _qstrError) ||
        !WriteFile(qstrExport + "/alarms.csv",
                   "time,channel,event\n2024-01-31 08:01:12,cam-01,motion\n2024-01-31 08:03:40,cam-02,line "
                   "crossing\n",
                   _qstrError)) {
        return false;
    }
    for (int i = 1; i <= _iBulkMiB; ++i) {
        const QString qstrName =
            QString("%1/Bulk/recording_%2.mp4").arg(qstrFolder).arg(i, 5, 10, QChar('0'));
        if (!WriteFile(qstrName, DemoContent::NoiseBytes(static_cast<quint32>(100000 + i), kMiB),
                       _qstrError)) {
            return false;
        }
    }
    return true;
}

bool CLS_DemoData::WritePictures(QString& _qstrError)
{
    const QString qstrFolder = PictureFolder();
    BeginPart("pictures", qstrFolder);
    for (int i = 1; i <= 8; ++i) {
        const QString qstrName = QString("%1/snapshot_cam-0%2.png").arg(qstrFolder).arg(i);
        if (!WriteFile(qstrName, DemoContent::Png(DemoContent::Snapshot(i)), _qstrError)) {
            return false;
        }
    }
    return true;
}

bool CLS_DemoData::WriteFile(const QString& _qstrPath, const QByteArray& _qbaContent, QString& _qstrError)
{
    if (_qbaContent.isEmpty()) {
        _qstrError = "no content for " + _qstrPath;
        return false;
    }
    if (!QDir().mkpath(QFileInfo(_qstrPath).absolutePath())) {
        _qstrError = "cannot create the folder " + QFileInfo(_qstrPath).absolutePath();
        return false;
    }
    QSaveFile file(_qstrPath);
    if (!file.open(QIODevice::WriteOnly) || file.write(_qbaContent) != _qbaContent.size() || !file.commit()) {
        _qstrError = "cannot write " + _qstrPath + ": " + file.errorString();
        return false;
    }
    if (!m_vecParts.isEmpty()) {
        ++m_vecParts.last().iFiles;
        m_vecParts.last().iBytes += _qbaContent.size();
    }
    return true;
}

void CLS_DemoData::BeginPart(const QString& _qstrWhat, const QString& _qstrFolder)
{
    STRUCT_Part stPart;
    stPart.qstrWhat = _qstrWhat;
    stPart.qstrFolder = _qstrFolder;
    m_vecParts.append(stPart);
}
