#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QProcess>
#include <QRandomGenerator>
#include <QStorageInfo>
#include <QStringList>

namespace EngineTest {

// Bytes that no compressor shrinks, the same for the same seed.
inline QByteArray RandomBytes(qint64 _iSize, quint32 _iSeed)
{
    QRandomGenerator generator(_iSeed);
    QByteArray qbaData(static_cast<int>(_iSize), Qt::Uninitialized);
    for (char& c : qbaData) {
        c = static_cast<char>(generator.generate() & 0xFF);
    }
    return qbaData;
}

// Text that repeats at long and short range, so back-references across chunk borders matter.
inline QByteArray TextBytes(qint64 _iSize)
{
    QByteArray qbaData;
    for (int i = 0; qbaData.size() < _iSize; ++i) {
        qbaData += QByteArray("camera=") + QByteArray::number(i % 977) +
                   ";channel=" + QByteArray::number(i % 13) + ";name=entrance hall north\n";
    }
    return qbaData.left(static_cast<int>(_iSize));
}

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

// QFile cannot open a folder to set its time.
inline bool SetModified(const QString& _qstrPath, qint64 _iSeconds)
{
    const struct timespec arrTimes[2] = {{time_t(_iSeconds), 0}, {time_t(_iSeconds), 0}};
    return utimensat(AT_FDCWD, QFile::encodeName(_qstrPath).constData(), arrTimes, AT_SYMLINK_NOFOLLOW) == 0;
}

// Every file, folder ("name/") and link below a folder with its content, by relative path.
inline QMap<QString, QByteArray> Snapshot(const QString& _qstrFolder)
{
    QMap<QString, QByteArray> mapFiles;
    QDirIterator it(_qstrFolder, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QFileInfo info(it.next());
        const QString qstrRelative = QDir(_qstrFolder).relativeFilePath(info.filePath());
        if (info.isSymLink()) {
            mapFiles.insert(qstrRelative, "link:" + QFile::encodeName(info.symLinkTarget()));
        } else if (info.isDir()) {
            mapFiles.insert(qstrRelative + "/", QByteArray());
        } else {
            mapFiles.insert(qstrRelative, ReadFile(info.filePath()));
        }
    }
    return mapFiles;
}

inline QStringList LogLines(const QString& _qstrDataPath)
{
    return QString::fromUtf8(ReadFile(_qstrDataPath + "/Log/hx.log")).split('\n', Qt::SkipEmptyParts);
}

// Info-ZIP's unzip, a reader independent of Qt's; the exit code is -1 when it did not finish.
inline int Unzip(const QStringList& _lstArguments, QString* _pOutput = nullptr)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start("unzip", _lstArguments);
    const bool blDone = process.waitForFinished(60000) && process.exitStatus() == QProcess::NormalExit;
    if (_pOutput) {
        *_pOutput = QString::fromUtf8(process.readAll());
    }
    return blDone ? process.exitCode() : -1;
}

// Entry names in archive order.
inline QStringList UnzipNames(const QString& _qstrZip)
{
    QString qstrOutput;
    return Unzip({"-Z1", _qstrZip}, &qstrOutput) == 0 ? qstrOutput.split('\n', Qt::SkipEmptyParts)
                                                      : QStringList();
}

// Every entry's data and CRC.
inline bool UnzipTestPasses(const QString& _qstrZip)
{
    QString qstrOutput;
    return Unzip({"-tq", _qstrZip}, &qstrOutput) == 0 && qstrOutput.contains("No errors detected");
}

// A tmpfs (64 MB unless told) over a folder while the object lives, standing in for a nearly full volume.
class CLS_SmallVolume
{
public:
    explicit CLS_SmallVolume(const QString& _qstrPath, const QString& _qstrSize = "64m")
        : m_qstrPath(_qstrPath)
    {
        m_blMounted =
            QDir().mkpath(m_qstrPath) && geteuid() == 0 &&
            QProcess::execute("mount", {"-t", "tmpfs", "-o", "size=" + _qstrSize, "tmpfs", m_qstrPath}) == 0;
    }
    // Shrinks the volume to what it holds now plus _iSpareBytes: the next writes run out of space.
    bool Fill(qint64 _iSpareBytes)
    {
        const qint64 iUsed = QStorageInfo(m_qstrPath).bytesTotal() - QStorageInfo(m_qstrPath).bytesFree();
        return QProcess::execute(
                   "mount", {"-o", QString("remount,size=%1").arg(iUsed + _iSpareBytes), m_qstrPath}) == 0;
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
    const QString m_qstrPath;
    bool m_blMounted = false;
};

} // namespace EngineTest
