#include "FileCopy.h"

#include <QFile>
#include <QFileInfo>

#if defined(Q_OS_LINUX)
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/sendfile.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace {

#if defined(Q_OS_LINUX)
enum ENUM_KernelCopy
{
    KERNEL_COPY_DONE,
    KERNEL_COPY_FAILED,
    KERNEL_COPY_NOT_OFFERED // refused between these two files before anything was copied
};

// Copies _iSize bytes with an in-kernel call that takes a byte count and works like write().
template <typename Call>
ENUM_KernelCopy CopyInKernel(off_t _iSize, Call _call)
{
    off_t iLeft = _iSize;
    while (iLeft > 0) {
        const ssize_t iDone = _call(static_cast<size_t>(std::min<off_t>(iLeft, off_t(1) << 30)));
        if (iDone > 0) {
            iLeft -= iDone;
            continue;
        }
        if (iDone == 0) {
            return KERNEL_COPY_FAILED; // the source shrank while being copied
        }
        if (errno == EINTR) {
            continue;
        }
        if (iLeft == _iSize &&
            (errno == EXDEV || errno == ENOSYS || errno == EINVAL || errno == EOPNOTSUPP)) {
            return KERNEL_COPY_NOT_OFFERED;
        }
        return KERNEL_COPY_FAILED;
    }
    return KERNEL_COPY_DONE;
}

// _vecBuffer is only needed, and sized, when neither kernel call is offered; a worker keeps it from file to
// file.
bool CopyBytes(int _iIn, int _iOut, off_t _iSize, std::vector<char>& _vecBuffer)
{
    // copy_file_range makes a reflink where the file system offers one; it is refused between two file
    // systems, where sendfile still copies without the trip through user space.
    ENUM_KernelCopy enResult = CopyInKernel(_iSize, [_iIn, _iOut](size_t _iCount) {
        return copy_file_range(_iIn, nullptr, _iOut, nullptr, _iCount, 0);
    });
    if (enResult == KERNEL_COPY_NOT_OFFERED) {
        enResult = CopyInKernel(
            _iSize, [_iIn, _iOut](size_t _iCount) { return sendfile(_iOut, _iIn, nullptr, _iCount); });
    }
    if (enResult != KERNEL_COPY_NOT_OFFERED) {
        return enResult == KERNEL_COPY_DONE;
    }
    if (_vecBuffer.empty()) {
        _vecBuffer.resize(1 << 20);
    }
    for (;;) {
        const ssize_t iRead = read(_iIn, _vecBuffer.data(), _vecBuffer.size());
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
                write(_iOut, _vecBuffer.data() + iWritten, static_cast<size_t>(iRead - iWritten));
            if (iNow < 0 && errno != EINTR) {
                return false;
            }
            iWritten += iNow > 0 ? iNow : 0;
        }
    }
}
#endif

#if defined(Q_OS_LINUX)
// The copy under a unique name beside the target, moved into place once complete, for file systems without
// unnamed files. Linking does not replace an existing target, so a file that appeared meanwhile is kept;
// file systems without hard links (FAT on a backup stick) get a plain rename.
bool CopyThroughNamedTemp(int _iIn, const struct stat& _st, const QByteArray& _qbaTarget,
                          std::vector<char>& _vecBuffer)
{
    QByteArray qbaTemp = _qbaTarget + ".hxcopy-XXXXXX";
    const int iOut = mkostemp(qbaTemp.data(), O_CLOEXEC);
    if (iOut < 0) {
        return false;
    }
    bool blOk = CopyBytes(_iIn, iOut, _st.st_size, _vecBuffer) && fchmod(iOut, _st.st_mode & 07777) == 0;
    blOk = (close(iOut) == 0) && blOk;
    if (blOk) {
        if (link(qbaTemp.constData(), _qbaTarget.constData()) == 0) {
            unlink(qbaTemp.constData());
            return true;
        }
        if (errno != EEXIST && rename(qbaTemp.constData(), _qbaTarget.constData()) == 0) {
            return true;
        }
    }
    unlink(qbaTemp.constData());
    return false;
}

// How unnamed files get their name in this process: AT_EMPTY_PATH needs no /proc, but older kernels allow
// it to privileged processes only; where neither works, files are copied under a temporary name instead.
enum ENUM_LinkWay
{
    LINK_EMPTY_PATH,
    LINK_PROC,
    LINK_NONE
};
std::atomic<int> g_iLinkWay{LINK_EMPTY_PATH};

// False with errno set, EEXIST when the target is in the way.
bool LinkUnnamed(int _iFd, const QByteArray& _qbaTarget)
{
    const int iWay = g_iLinkWay.load(std::memory_order_relaxed);
    if (iWay == LINK_EMPTY_PATH) {
        if (linkat(_iFd, "", AT_FDCWD, _qbaTarget.constData(), AT_EMPTY_PATH) == 0) {
            return true;
        }
        if (errno == EEXIST) {
            return false;
        }
    }
    char szProc[40];
    std::snprintf(szProc, sizeof(szProc), "/proc/self/fd/%d", _iFd);
    if (linkat(AT_FDCWD, szProc, AT_FDCWD, _qbaTarget.constData(), AT_SYMLINK_FOLLOW) != 0) {
        return false;
    }
    int iExpected = LINK_EMPTY_PATH;
    g_iLinkWay.compare_exchange_strong(iExpected, LINK_PROC, std::memory_order_relaxed);
    return true;
}
#endif

} // namespace

namespace FileCopy {

// Through the kernel where it can, into an unnamed file where the file system has them.
bool CopyOneFile(const QByteArray& _qbaSource, const QByteArray& _qbaTarget, const QByteArray& _qbaFolder,
                 bool _blFresh, std::vector<char>& _vecBuffer)
{
#if defined(Q_OS_LINUX)
    if (!_blFresh && access(_qbaTarget.constData(), F_OK) == 0) {
        return false;
    }
    const int iIn = open(_qbaSource.constData(), O_RDONLY | O_CLOEXEC);
    if (iIn < 0) {
        return false;
    }
    struct stat st;
    if (fstat(iIn, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(iIn);
        return false;
    }
    // An unnamed file needs neither a name of its own nor an unlink afterwards, which counts with
    // thousands of small pictures.
    bool blOk = false;
    const int iOut = g_iLinkWay.load(std::memory_order_relaxed) == LINK_NONE
                         ? -1
                         : open(_qbaFolder.constData(), O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600);
    if (iOut < 0) {
        blOk = CopyThroughNamedTemp(iIn, st, _qbaTarget, _vecBuffer);
    } else {
        const bool blCopied =
            CopyBytes(iIn, iOut, st.st_size, _vecBuffer) && fchmod(iOut, st.st_mode & 07777) == 0;
        blOk = blCopied && LinkUnnamed(iOut, _qbaTarget);
        const int iLinkError = errno;
        close(iOut);
        // Refused for want of a way to name the file rather than for a target in the way: copied again
        // under a temporary name, as every later file will be once that works.
        if (blCopied && !blOk && iLinkError != EEXIST && lseek(iIn, 0, SEEK_SET) == 0) {
            blOk = CopyThroughNamedTemp(iIn, st, _qbaTarget, _vecBuffer);
            if (blOk) {
                g_iLinkWay.store(LINK_NONE, std::memory_order_relaxed);
            }
        }
    }
    close(iIn);
    return blOk;
#else
    Q_UNUSED(_qbaFolder);
    Q_UNUSED(_blFresh);
    Q_UNUSED(_vecBuffer);
    return QFile::copy(QFile::decodeName(_qbaSource), QFile::decodeName(_qbaTarget));
#endif
}

// What overwrite removes before copying: whatever is under the name, except a dangling link, which
// QDir::exists does not see either.
void RemoveExisting(const QByteArray& _qbaPath)
{
#if defined(Q_OS_LINUX)
    struct stat st;
    if (stat(_qbaPath.constData(), &st) == 0) {
        unlink(_qbaPath.constData());
    }
#else
    const QString qstrPath = QFile::decodeName(_qbaPath);
    if (QFileInfo::exists(qstrPath)) {
        QFile::remove(qstrPath);
    }
#endif
}

} // namespace FileCopy
