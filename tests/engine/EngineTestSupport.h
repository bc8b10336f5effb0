#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QDateTime>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace EngineTest {

inline bool WriteFile(const QString& _qstrPath, const QByteArray& _qbaData)
{
    QDir().mkpath(QFileInfo(_qstrPath).absolutePath());
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(_qbaData) == _qbaData.size();
}

inline QByteArray ReadFile(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Sets the modification time of a file or folder (QFile cannot open a folder to do it).
inline bool SetModified(const QString& _qstrPath, qint64 _iSecondsSinceEpoch)
{
    struct timespec arrTimes[2];
    arrTimes[0].tv_sec = _iSecondsSinceEpoch;
    arrTimes[0].tv_nsec = 0;
    arrTimes[1] = arrTimes[0];
    return utimensat(AT_FDCWD, QFile::encodeName(_qstrPath).constData(), arrTimes, AT_SYMLINK_NOFOLLOW) == 0;
}

// Every file and link below a folder with its content, by path relative to the folder.
inline QMap<QString, QByteArray> Snapshot(const QString& _qstrFolder)
{
    QMap<QString, QByteArray> mapFiles;
    QDirIterator it(_qstrFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString qstrPath = it.next();
        const QFileInfo info(qstrPath);
        const QString qstrRelative = QDir(_qstrFolder).relativeFilePath(qstrPath);
        if (info.isSymLink()) {
            mapFiles.insert(qstrRelative, "link:" + QFile::encodeName(info.symLinkTarget()));
        } else if (info.isDir()) {
            mapFiles.insert(qstrRelative + "/", QByteArray());
        } else {
            mapFiles.insert(qstrRelative, ReadFile(qstrPath));
        }
    }
    return mapFiles;
}

inline QStringList LogLines(const QString& _qstrDataPath)
{
    return QString::fromUtf8(ReadFile(_qstrDataPath + "/Log/hx.log")).split('\n', Qt::SkipEmptyParts);
}

inline int CountLogLines(const QString& _qstrDataPath, const QString& _qstrNeedle)
{
    int iCount = 0;
    for (const QString& qstrLine : LogLines(_qstrDataPath)) {
        iCount += qstrLine.contains(_qstrNeedle) ? 1 : 0;
    }
    return iCount;
}

// Info-ZIP's unzip, a reader independent of Qt's.
struct STRUCT_UnzipResult
{
    int iExitCode = -1;
    QString qstrOutput;
};

inline bool HasUnzip()
{
    return !QStandardPaths::findExecutable("unzip").isEmpty();
}

inline STRUCT_UnzipResult Unzip(const QStringList& _lstArguments)
{
    QProcess process;
    process.start("unzip", _lstArguments);
    STRUCT_UnzipResult result;
    if (process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit) {
        result.iExitCode = process.exitCode();
    }
    result.qstrOutput = QString::fromUtf8(process.readAllStandardOutput() + process.readAllStandardError());
    return result;
}

// Entry names in archive order, as unzip lists them.
inline QStringList UnzipNames(const QString& _qstrZip)
{
    const STRUCT_UnzipResult result = Unzip({"-Z1", _qstrZip});
    return result.iExitCode == 0 ? result.qstrOutput.split('\n', Qt::SkipEmptyParts) : QStringList();
}

// unzip's test of every entry's data and CRC.
inline bool UnzipTestPasses(const QString& _qstrZip)
{
    const STRUCT_UnzipResult result = Unzip({"-tq", _qstrZip});
    return result.iExitCode == 0 && result.qstrOutput.contains("No errors detected");
}

// A small tmpfs mounted over a folder while the object lives, standing in for a nearly full volume.
class CLS_SmallVolume
{
public:
    explicit CLS_SmallVolume(const QString& _qstrPath) : m_qstrPath(_qstrPath)
    {
        QDir().mkpath(m_qstrPath);
        if (geteuid() != 0) {
            return;
        }
        QProcess process;
        process.start("mount", {"-t", "tmpfs", "-o", "size=64m", "tmpfs", m_qstrPath});
        m_blMounted = process.waitForFinished(10000) && process.exitStatus() == QProcess::NormalExit &&
                      process.exitCode() == 0;
    }

    ~CLS_SmallVolume()
    {
        if (m_blMounted) {
            QProcess::execute("umount", {m_qstrPath});
        }
    }

    CLS_SmallVolume(const CLS_SmallVolume&) = delete;
    CLS_SmallVolume& operator=(const CLS_SmallVolume&) = delete;

    bool IsMounted() const { return m_blMounted; }

private:
    QString m_qstrPath;
    bool m_blMounted = false;
};

} // namespace EngineTest
