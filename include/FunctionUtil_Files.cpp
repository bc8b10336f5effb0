#include "FunctionUtil.h"

#include <vector>

#include <QDir>
#include <QFile>

#if defined(Q_OS_LINUX)
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

#if defined(Q_OS_LINUX)
bool CopyBytes(int _iIn, int _iOut, off_t _iSize)
{
    // In-kernel copy first: no trip through user space, and a reflink where the file system offers one.
    off_t iLeft = _iSize;
    while (iLeft > 0) {
        const ssize_t iDone = copy_file_range(_iIn, nullptr, _iOut, nullptr, static_cast<size_t>(iLeft), 0);
        if (iDone > 0) {
            iLeft -= iDone;
            continue;
        }
        if (iDone == 0) {
            return false; // the source shrank while being copied
        }
        if (errno == EINTR) {
            continue;
        }
        if (iLeft != _iSize ||
            (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)) {
            return false;
        }
        break; // not offered between these files: copy through a buffer instead
    }
    if (iLeft == 0) {
        return true;
    }
    std::vector<char> vecBuffer(1 << 20);
    for (;;) {
        const ssize_t iRead = read(_iIn, vecBuffer.data(), vecBuffer.size());
        if (iRead == 0) {
            return true;
        }
        if (iRead < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        for (ssize_t iWritten = 0; iWritten < iRead;) {
            const ssize_t iNow =
                write(_iOut, vecBuffer.data() + iWritten, static_cast<size_t>(iRead - iWritten));
            if (iNow < 0 && errno != EINTR) {
                return false;
            }
            iWritten += iNow > 0 ? iNow : 0;
        }
    }
}
#endif

// Copies one file as QFile::copy does (an existing target is left alone and the copy fails; the target
// appears only once complete, with the source's permissions), through the kernel where it can.
bool CopyOneFile(const QString& _qstrSource, const QString& _qstrTarget)
{
#if defined(Q_OS_LINUX)
    const QByteArray qbaSource = QFile::encodeName(_qstrSource);
    const QByteArray qbaTarget = QFile::encodeName(_qstrTarget);
    if (access(qbaTarget.constData(), F_OK) == 0) {
        return false;
    }
    const int iIn = open(qbaSource.constData(), O_RDONLY | O_CLOEXEC);
    if (iIn < 0) {
        return false;
    }
    struct stat st;
    if (fstat(iIn, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(iIn);
        return false;
    }
    QByteArray qbaTemp = qbaTarget + ".hxcopy-XXXXXX";
    const int iOut = mkostemp(qbaTemp.data(), O_CLOEXEC);
    if (iOut < 0) {
        close(iIn);
        return false;
    }
    bool blOk = CopyBytes(iIn, iOut, st.st_size) && fchmod(iOut, st.st_mode & 07777) == 0;
    blOk = (close(iOut) == 0) && blOk;
    close(iIn);
    if (blOk) {
        // Linking does not replace an existing target, so a file that appeared meanwhile is kept too.
        // File systems without hard links (FAT on a backup stick) get a plain rename.
        if (link(qbaTemp.constData(), qbaTarget.constData()) == 0) {
            unlink(qbaTemp.constData());
            return true;
        }
        if (errno != EEXIST && rename(qbaTemp.constData(), qbaTarget.constData()) == 0) {
            return true;
        }
    }
    unlink(qbaTemp.constData());
    return false;
#else
    return QFile::copy(_qstrSource, _qstrTarget);
#endif
}

} // namespace

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
        CopyOneFile(info.absoluteFilePath(), qstrTarget);

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
