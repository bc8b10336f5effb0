#include "DurableFiles.h"

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>

#include <QFile>

namespace {

bool SyncPath(const QString& _qstrPath, int _iFlags)
{
    const int iFd = ::open(QFile::encodeName(_qstrPath).constData(), _iFlags | O_CLOEXEC);
    if (iFd < 0) {
        return false;
    }
    const bool blSynced = ::fsync(iFd) == 0;
    const int iErrno = errno;
    ::close(iFd);
    // The caller tells a full disk by errno.
    errno = iErrno;
    return blSynced;
}

} // namespace

namespace DurableFiles {

bool SyncFile(const QString& _qstrPath)
{
    return SyncPath(_qstrPath, O_RDONLY);
}

bool SyncFolder(const QString& _qstrPath)
{
    return SyncPath(_qstrPath, O_RDONLY | O_DIRECTORY);
}

bool SyncFileSystem(const QString& _qstrPath)
{
#ifdef Q_OS_LINUX
    const int iFd = ::open(QFile::encodeName(_qstrPath).constData(), O_RDONLY | O_CLOEXEC);
    if (iFd < 0) {
        return false;
    }
    const bool blSynced = ::syncfs(iFd) == 0;
    ::close(iFd);
    return blSynced;
#else
    Q_UNUSED(_qstrPath)
    ::sync();
    return true;
#endif
}

bool Replace(const QString& _qstrFrom, const QString& _qstrTo)
{
    return std::rename(QFile::encodeName(_qstrFrom).constData(), QFile::encodeName(_qstrTo).constData()) == 0;
}

} // namespace DurableFiles
