#include "RunLeftovers.h"

#include <cerrno>
#include <cstring>

#include <signal.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSet>
#include <QTemporaryDir>

namespace {

constexpr const char* kUnpackPrefix = ".HxRestore_";
constexpr const char* kUnpackMarker = ".HxRestoreRun";
constexpr const char* kStagingSuffix = ".staging";
constexpr const char* kPartialSuffix = ".partial";

// A marker that cannot be read was cut short by a killed process.
bool RunIsOver(const QString& _qstrMarkerPath)
{
    QFile marker(_qstrMarkerPath);
    if (!marker.open(QIODevice::ReadOnly)) {
        return !marker.exists();
    }
    bool blOk = false;
    const qint64 iPid = QString::fromLatin1(marker.readLine()).trimmed().toLongLong(&blOk);
    if (!blOk || iPid <= 0 || iPid == QCoreApplication::applicationPid()) {
        return true;
    }
    return ::kill(static_cast<pid_t>(iPid), 0) != 0 && errno == ESRCH;
}

QStringList Entries(const QString& _qstrFolder, const QString& _qstrPattern, QDir::Filters _filters)
{
    return QDir(_qstrFolder).entryList({_qstrPattern}, _filters | QDir::Hidden | QDir::NoDotAndDotDot);
}

} // namespace

namespace RunLeftovers {

QString TempArchiveName(const QString& _qstrZipName)
{
    return "." + _qstrZipName + kPartialSuffix;
}

QString StagingMarker(const QString& _qstrSavePath, const QString& _qstrZipName)
{
    return _qstrSavePath + "/." + _qstrZipName + kStagingSuffix;
}

bool WriteMarker(const QString& _qstrMarkerPath)
{
    QFile marker(_qstrMarkerPath);
    const QByteArray qbaPid = QByteArray::number(QCoreApplication::applicationPid()) + "\n";
    return marker.open(QIODevice::WriteOnly | QIODevice::Truncate) && marker.write(qbaPid) == qbaPid.size() &&
           marker.flush();
}

QString MakeUnpackFolder(const QString& _qstrWorkPath)
{
    QTemporaryDir folder(_qstrWorkPath + "/" + kUnpackPrefix + "XXXXXX");
    if (!folder.isValid() || !WriteMarker(folder.path() + "/" + kUnpackMarker)) {
        return QString();
    }
    folder.setAutoRemove(false);
    return folder.path();
}

bool IsUnpackFolder(const QString& _qstrPath)
{
    const QFileInfo info(_qstrPath);
    return info.isDir() && !info.isSymLink() && info.fileName().startsWith(kUnpackPrefix) &&
           QFileInfo(_qstrPath + "/" + kUnpackMarker).isFile();
}

QStringList RemoveDeadRuns(const QString& _qstrFolder)
{
    QStringList lstRemoved;
    if (_qstrFolder.isEmpty() || !QFileInfo(_qstrFolder).isDir()) {
        return lstRemoved;
    }
    const QString qstrFolder = QFileInfo(_qstrFolder).absoluteFilePath();
    // Staging folders first; a temporary archive belongs to a live run while its staging marker does.
    QSet<QString> setLiveRuns;
    for (const QString& qstrMarker :
         Entries(qstrFolder, QString(".BackUp_*") + kStagingSuffix, QDir::Files)) {
        const QString qstrZipName = qstrMarker.mid(1, qstrMarker.size() - 1 - int(strlen(kStagingSuffix)));
        if (!RunIsOver(qstrFolder + "/" + qstrMarker)) {
            setLiveRuns.insert(qstrZipName);
            continue;
        }
        const QString qstrStaging = qstrFolder + "/" + qstrZipName;
        if (QFileInfo(qstrStaging).isDir() && !QFileInfo(qstrStaging).isSymLink()) {
            QDir(qstrStaging).removeRecursively();
            lstRemoved << qstrZipName;
        }
        QFile::remove(qstrFolder + "/" + qstrMarker);
        lstRemoved << qstrMarker;
    }
    // libzip's own temporary file carries one more suffix.
    for (const QString& qstrTemp :
         Entries(qstrFolder, QString(".BackUp_*") + kPartialSuffix + ".zip*", QDir::Files | QDir::System)) {
        const QString qstrZipName = qstrTemp.mid(1, qstrTemp.indexOf(kPartialSuffix) - 1);
        if (!setLiveRuns.contains(qstrZipName) && QFile::remove(qstrFolder + "/" + qstrTemp)) {
            lstRemoved << qstrTemp;
        }
    }
    for (const QString& qstrUnpack : Entries(qstrFolder, QString(kUnpackPrefix) + "*", QDir::Dirs)) {
        const QString qstrPath = qstrFolder + "/" + qstrUnpack;
        if (IsUnpackFolder(qstrPath) && RunIsOver(qstrPath + "/" + kUnpackMarker) &&
            QDir(qstrPath).removeRecursively()) {
            lstRemoved << qstrUnpack;
        }
    }
    return lstRemoved;
}

} // namespace RunLeftovers
