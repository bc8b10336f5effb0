#include "FunctionUtil.h"

#include <QDir>
#include <QFile>

namespace FunctionUtil {

QList<QFileInfo> GetFileList(const QStringList& _lstFilters, const QString& _qstrPath, bool _blTopLevelOnly)
{
    QList<QFileInfo> lstFiles;
    // QDir("") is the working directory, which is never what an empty configured path means.
    if (_qstrPath.isEmpty()) {
        return lstFiles;
    }
    // Without QDir::System, pipes and sockets stay out: reading one would block a backup forever.
    const QFileInfoList lstEntries = QDir(_qstrPath).entryInfoList(
        QDir::Dirs | QDir::Files | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot,
        QDir::Time | QDir::Reversed);
    for (const QFileInfo& info : lstEntries) {
        const QString qstrName = info.fileName();
        if (qstrName == "." || qstrName == "..") {
            continue;
        }
        if (info.isDir()) {
            if (!_blTopLevelOnly) {
                lstFiles.append(GetFileList(_lstFilters, info.filePath(), false));
            }
            continue;
        }
        if (_lstFilters.isEmpty()) {
            lstFiles.append(info);
            continue;
        }
        // A file is listed once per matching pattern; callers rely on that count.
        const QString qstrSuffix = info.suffix();
        for (const QString& qstrPattern : _lstFilters) {
            if (qstrPattern.endsWith(qstrSuffix)) {
                lstFiles.append(info);
            }
        }
    }
    return lstFiles;
}

qint64 GetFileSize(const QString& _qstrPath, const QStringList& _lstFilters, bool _blTopLevelOnly)
{
    const QFileInfo info(_qstrPath);
    if (!info.isDir()) {
        return info.size();
    }
    qint64 iTotal = 0;
    for (const QFileInfo& file : GetFileList(_lstFilters, _qstrPath, _blTopLevelOnly)) {
        iTotal += file.size();
    }
    return iTotal;
}

bool CopyFiles(const QString& _qstrSourceDir, const QString& _qstrTargetDir, const QStringList& _lstFilters,
               bool _blTopLevelOnly, bool _blOverwrite, std::function<void(int)> _progress)
{
    const QDir sourceDir(_qstrSourceDir);
    if (_qstrSourceDir.isEmpty() || !sourceDir.exists()) {
        return false;
    }
    const QDir targetDir(_qstrTargetDir);
    if (!targetDir.exists() && !targetDir.mkpath(targetDir.absolutePath())) {
        return false;
    }
    const QString qstrSourceRoot = sourceDir.absolutePath();
    const QString qstrTargetRoot = targetDir.absolutePath();

    const QList<QFileInfo> lstFiles = GetFileList(_lstFilters, qstrSourceRoot, _blTopLevelOnly);
    const int iTotal = lstFiles.size();
    int iCopied = 0;
    int iLastPercent = 0;
    for (const QFileInfo& info : lstFiles) {
        if (info.isDir()) {
            continue;
        }
        QString qstrTarget = info.absoluteFilePath();
        qstrTarget.replace(qstrSourceRoot, qstrTargetRoot);
        QDir targetFolder = QFileInfo(qstrTarget).absoluteDir();
        if (!targetFolder.exists()) {
            targetFolder.mkpath(targetFolder.absolutePath());
        }
        if (_blOverwrite && targetFolder.exists(info.fileName())) {
            QFile::remove(targetFolder.filePath(info.fileName()));
        }
        // A failed copy keeps whatever the target held; the listing goes on.
        QFile::copy(info.absoluteFilePath(), qstrTarget);

        ++iCopied;
        if (iTotal != 0 && _progress) {
            const int iPercent = static_cast<int>(static_cast<qint64>(iCopied) * 100 / iTotal);
            if (iPercent != iLastPercent) {
                _progress(iPercent);
                iLastPercent = iPercent;
            }
        }
    }
    return true;
}

} // namespace FunctionUtil
