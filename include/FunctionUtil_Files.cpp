#include "FunctionUtil.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QThread>

#if defined(Q_OS_LINUX)
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

// Copies one file as QFile::copy does (an existing target is left alone and the copy fails; the target
// appears only once complete, with the source's permissions), through the kernel where it can. Paths are
// in the file system's encoding. _blFresh skips looking for a target that cannot be there yet; one that
// appears all the same is still not replaced.
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

// A folder's entries in the order of QDir::Time | QDir::Reversed: oldest first, entries of the same
// millisecond by name backwards. QDir turns two times into local time at every comparison, which took most
// of a second for 5,000 pictures; here each is turned once. The local wall-clock time is kept as the key,
// as QDir compares it, so that the order stays the same around a daylight-saving change as well.
QFileInfoList ListOldestFirst(const QString& _qstrPath)
{
    // Without QDir::System, pipes and sockets stay out: reading one would block a backup forever.
    const QFileInfoList lstEntries = QDir(_qstrPath).entryInfoList(
        QDir::Dirs | QDir::Files | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Unsorted);
    struct STRUCT_Key
    {
        qint64 time;
        QString name;
        int index;
    };
    std::vector<STRUCT_Key> vecKeys;
    vecKeys.reserve(static_cast<std::size_t>(lstEntries.size()));
    for (int i = 0; i < lstEntries.size(); ++i) {
        QDateTime modified = lstEntries[i].lastModified();
        modified.setTimeSpec(Qt::UTC);
        vecKeys.push_back({modified.toMSecsSinceEpoch(), lstEntries[i].fileName(), i});
    }
    std::sort(vecKeys.begin(), vecKeys.end(), [](const STRUCT_Key& _left, const STRUCT_Key& _right) {
        return _left.time != _right.time ? _left.time < _right.time : _left.name.compare(_right.name) > 0;
    });
    QFileInfoList lstSorted;
    lstSorted.reserve(lstEntries.size());
    for (const STRUCT_Key& key : vecKeys) {
        lstSorted.append(lstEntries[key.index]);
    }
    return lstSorted;
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

// One listed file, with its paths encoded before any worker sees them.
struct STRUCT_CopyEntry
{
    QByteArray source;
    QByteArray target;
    QByteArray folder;
    QByteArray removal; // what overwrite removes; the target itself except for a source root of "/"
    int next = -1;      // the next entry with the same target, copied after this one by the same worker
    bool fresh = false; // the first copy into a folder made by this call: nothing there to remove or keep
};

// Copies listed files on a few worker threads while the calling thread waits and reports progress, so the
// callback sees the same percentages, on the same thread, as with a plain loop.
class CLS_ParallelCopy
{
public:
    // _vecHeads are the entries that start a chain of one target, in the order to copy them.
    CLS_ParallelCopy(std::vector<STRUCT_CopyEntry> _vecEntries, std::vector<int> _vecHeads, int _iListed,
                     bool _blOverwrite)
        : m_vecEntries(std::move(_vecEntries)), m_vecHeads(std::move(_vecHeads)), m_iListed(_iListed),
          m_blOverwrite(_blOverwrite)
    {}

    // Also reached when the progress callback throws: the workers stop after their current file.
    ~CLS_ParallelCopy()
    {
        m_blStop = true;
        for (std::thread& thread : m_vecThreads) {
            thread.join();
        }
    }

    CLS_ParallelCopy(const CLS_ParallelCopy&) = delete;
    CLS_ParallelCopy& operator=(const CLS_ParallelCopy&) = delete;

    void Run(int _iThreads, const std::function<void(int)>& _progress)
    {
        m_pProgress = _progress ? &_progress : nullptr;
        const int iThreads = std::min(_iThreads, static_cast<int>(m_vecHeads.size()));
        for (int i = 0; i < iThreads; ++i) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                ++m_iWorking;
            }
            try {
                m_vecThreads.emplace_back([this] { Work(false); });
            } catch (const std::system_error&) {
                std::lock_guard<std::mutex> lock(m_mutex);
                --m_iWorking;
                break; // out of threads: fewer workers, or none
            }
        }
        if (m_vecThreads.empty()) {
            Work(true);
            return;
        }
        std::unique_lock<std::mutex> lock(m_mutex);
        for (;;) {
            m_cvDone.wait(lock, [this] { return m_iDone != m_iReported || m_iWorking == 0; });
            const int iDone = m_iDone;
            const bool blFinished = m_iWorking == 0;
            lock.unlock();
            Report(iDone);
            lock.lock();
            if (blFinished) {
                return;
            }
        }
    }

private:
    void Work(bool _blOnCaller)
    {
        std::vector<char> vecBuffer;
        for (std::size_t iHead = m_iNextHead++; iHead < m_vecHeads.size() && !m_blStop;
             iHead = m_iNextHead++) {
            for (int iEntry = m_vecHeads[iHead]; iEntry >= 0 && !m_blStop;) {
                const STRUCT_CopyEntry& entry = m_vecEntries[static_cast<std::size_t>(iEntry)];
                if (m_blOverwrite && !entry.fresh) {
                    RemoveExisting(entry.removal);
                }
                // A failed copy keeps whatever the target held; the listing goes on.
                CopyOneFile(entry.source, entry.target, entry.folder, entry.fresh, vecBuffer);
                iEntry = entry.next;
                if (_blOnCaller) {
                    Report(++m_iDone);
                    continue;
                }
                std::unique_lock<std::mutex> lock(m_mutex);
                const int iDone = ++m_iDone;
                lock.unlock();
                // The caller wakes only when there is a new percentage to report.
                if (m_pProgress && Percent(iDone) != Percent(iDone - 1)) {
                    m_cvDone.notify_one();
                }
            }
        }
        if (!_blOnCaller) {
            {
                std::lock_guard<std::mutex> lock(m_mutex);
                --m_iWorking;
            }
            m_cvDone.notify_one();
        }
    }

    int Percent(int _iDone) const { return static_cast<int>(static_cast<qint64>(_iDone) * 100 / m_iListed); }

    // On the calling thread only: every percentage that a plain loop would have reported up to _iDone files.
    void Report(int _iDone)
    {
        for (; m_iReported < _iDone; ++m_iReported) {
            const int iPercent = Percent(m_iReported + 1);
            if (m_pProgress && iPercent != m_iLastPercent) {
                m_iLastPercent = iPercent;
                (*m_pProgress)(iPercent);
            }
        }
    }

    const std::vector<STRUCT_CopyEntry> m_vecEntries;
    const std::vector<int> m_vecHeads;
    const int m_iListed; // the percentages count every listed file
    const bool m_blOverwrite;
    const std::function<void(int)>* m_pProgress = nullptr;
    std::atomic<std::size_t> m_iNextHead{0};
    std::atomic<bool> m_blStop{false};
    std::mutex m_mutex;
    std::condition_variable m_cvDone;
    int m_iDone = 0;    // guarded by m_mutex while workers run
    int m_iWorking = 0; // guarded by m_mutex
    int m_iReported = 0;
    int m_iLastPercent = 0;
    std::vector<std::thread> m_vecThreads;
};

} // namespace

namespace FunctionUtil {

QList<QFileInfo> GetFileList(const QStringList& _lstFilters, const QString& _qstrPath, bool _blTopLevelOnly)
{
    QList<QFileInfo> lstFiles;
    // QDir("") is the working directory, which is never what an empty configured path means.
    if (_qstrPath.isEmpty()) {
        return lstFiles;
    }
    const QFileInfoList lstEntries = ListOldestFirst(_qstrPath);
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
    const bool blTargetMade = !targetDir.exists();
    if (blTargetMade && !targetDir.mkpath(targetDir.absolutePath())) {
        return false;
    }
    const QString qstrSourceRoot = sourceDir.absolutePath();
    const QString qstrTargetRoot = targetDir.absolutePath();

    const QList<QFileInfo> lstFiles = GetFileList(_lstFilters, qstrSourceRoot, _blTopLevelOnly);
    // Folders are made here, before any worker starts, so that workers never race on mkpath.
    std::vector<STRUCT_CopyEntry> vecEntries;
    vecEntries.reserve(static_cast<std::size_t>(lstFiles.size()));
    std::vector<qint64> vecSizes;
    std::vector<int> vecHeads;
    QHash<QString, int> hashLastByTarget;
    QHash<QString, bool> hashFolderMade{{qstrTargetRoot, blTargetMade}};
    for (const QFileInfo& info : lstFiles) {
        if (info.isDir()) {
            continue;
        }
        const QString qstrSource = info.absoluteFilePath();
        QString qstrTarget = qstrSource;
        qstrTarget.replace(qstrSourceRoot, qstrTargetRoot);
        const QDir targetFolder = QFileInfo(qstrTarget).absoluteDir();
        const QString qstrFolder = targetFolder.absolutePath();
        auto itFolder = hashFolderMade.find(qstrFolder);
        if (itFolder == hashFolderMade.end()) {
            itFolder =
                hashFolderMade.insert(qstrFolder, !targetFolder.exists() && targetFolder.mkpath(qstrFolder));
        }
        STRUCT_CopyEntry entry;
        entry.source = QFile::encodeName(qstrSource);
        entry.target = QFile::encodeName(qstrTarget);
        entry.folder = QFile::encodeName(qstrFolder);
        entry.removal = QFile::encodeName(targetFolder.filePath(info.fileName()));
        const int iIndex = static_cast<int>(vecEntries.size());
        const auto itLast = hashLastByTarget.find(qstrTarget);
        if (itLast != hashLastByTarget.end()) {
            vecEntries[static_cast<std::size_t>(itLast.value())].next = iIndex;
            itLast.value() = iIndex;
        } else {
            hashLastByTarget.insert(qstrTarget, iIndex);
            vecHeads.push_back(iIndex);
            entry.fresh = itFolder.value() && entry.removal == entry.target;
        }
        vecSizes.push_back(info.size());
        vecEntries.push_back(std::move(entry));
    }
    // Large files first: a video started last would leave one worker copying alone.
    std::stable_sort(vecHeads.begin(), vecHeads.end(), [&vecSizes](int _iLeft, int _iRight) {
        return vecSizes[static_cast<std::size_t>(_iLeft)] > vecSizes[static_cast<std::size_t>(_iRight)];
    });

    // Writing into the page cache costs the kernel a core per stream; on two cores, three or four workers
    // were no faster than two.
    CLS_ParallelCopy copy(std::move(vecEntries), std::move(vecHeads), lstFiles.size(), _blOverwrite);
    copy.Run(std::min(4, std::max(2, QThread::idealThreadCount())), _progress);
    return true;
}

} // namespace FunctionUtil
