#include "CLS_ZipUnpacker.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QThread>

#include "CLS_ZipReader.h"
#include "EntryExtract.h"
#include "ZipRules.h"

namespace {

constexpr size_t kBufferBytes = size_t(1) << 20;
constexpr int kMaxThreads = 4;

struct STRUCT_Job
{
    int iIndex = 0;
    QByteArray qbaPath;
    bool blWritable = false;
    QString qstrDetail;
};

class CLS_FileDescriptor
{
public:
    explicit CLS_FileDescriptor(int _iFd) : m_iFd(_iFd) {}
    ~CLS_FileDescriptor() { Close(); }
    CLS_FileDescriptor(const CLS_FileDescriptor&) = delete;
    CLS_FileDescriptor& operator=(const CLS_FileDescriptor&) = delete;

    int Get() const { return m_iFd; }
    bool Close()
    {
        const bool blClosed = m_iFd < 0 || close(m_iFd) == 0;
        m_iFd = -1;
        return blClosed;
    }

private:
    int m_iFd;
};

// Makes the folders of the entries before any thread writes, so that the result does not depend on
// which thread comes first; each folder is made and checked once.
class CLS_FolderMaker
{
public:
    explicit CLS_FolderMaker(const QString& _qstrRoot)
        : m_qstrRoot(_qstrRoot), m_qstrCanonicalRoot(QDir(_qstrRoot).canonicalPath())
    {}

    // The folder exists afterwards and lies below the root, links resolved.
    bool Make(const QString& _qstrRelative, QString& _qstrDetail)
    {
        auto it = m_hashDone.constFind(_qstrRelative);
        if (it == m_hashDone.cend()) {
            const QString qstrFolder = m_qstrRoot + "/" + _qstrRelative;
            if (!QDir(qstrFolder).exists()) {
                QDir().mkpath(qstrFolder);
            }
            const QString qstrCanonical = QDir(qstrFolder).canonicalPath();
            QString qstrDetail;
            if (!qstrCanonical.isEmpty() && qstrCanonical != m_qstrCanonicalRoot &&
                !qstrCanonical.startsWith(m_qstrCanonicalRoot + "/")) {
                qstrDetail = "folder leads out of the unpack root through a link";
            }
            it = m_hashDone.insert(_qstrRelative,
                                   {!qstrCanonical.isEmpty() && qstrDetail.isEmpty(), qstrDetail});
        }
        _qstrDetail = it->second;
        return it->first;
    }

private:
    const QString m_qstrRoot;
    const QString m_qstrCanonicalRoot;
    QHash<QString, QPair<bool, QString>> m_hashDone;
};

} // namespace

CLS_ZipUnpacker::CLS_ZipUnpacker(int _iThreads) : m_iThreads(qMax(1, _iThreads)) {}

int CLS_ZipUnpacker::DefaultThreads()
{
    return qBound(2, QThread::idealThreadCount(), kMaxThreads);
}

CLS_ZipUnpacker::n_Result CLS_ZipUnpacker::Unpack(const QString& _qstrZipPath, const QString& _qstrRoot,
                                                  const Progress& _progress)
{
    m_failure = STRUCT_Note();
    m_vecPassedOver.clear();
    CLS_ZipReader reader;
    if (!reader.Open(_qstrZipPath)) {
        m_failure.qstrDetail = reader.ErrorText();
        return ARCHIVE_REFUSED;
    }
    // Each thread reads the directory again with libzip; this copy is not needed any more.
    reader.Close();
    const QVector<STRUCT_ZipEntryPlace>& vecEntries = reader.Entries();

    std::map<int, QString> mapPassedOver;
    std::vector<STRUCT_Job> vecJobs;
    qint64 iTotalBytes = 0;
    QSet<QByteArray> setTargets;
    CLS_FolderMaker folders(_qstrRoot);
    for (int i = 0; i < vecEntries.size(); ++i) {
        const QString qstrName = CLS_ZipReader::EntryName(vecEntries[i]);
        QString qstrDetail;
        if (!ZipRules::IsSafeEntryName(qstrName)) {
            mapPassedOver[i] = "name leads out of the unpack root";
            continue;
        }
        const QString qstrClean = QDir::cleanPath(qstrName);
        if (qstrName.endsWith('/')) {
            folders.Make(qstrClean, qstrDetail);
            if (!qstrDetail.isEmpty()) {
                mapPassedOver[i] = qstrDetail;
            }
            continue;
        }
        STRUCT_Job job;
        job.iIndex = i;
        job.qbaPath = QFile::encodeName(_qstrRoot + "/" + qstrClean);
        // Encoding reserves three bytes a character; a hundred thousand paths keep only what they use.
        job.qbaPath.squeeze();
        // Two entries for one file would leave whichever thread came last. The set shares the job's path.
        if (setTargets.contains(job.qbaPath)) {
            m_failure = {qstrName, "a second entry for the same file"};
            return ARCHIVE_REFUSED;
        }
        setTargets.insert(job.qbaPath);
        job.blWritable = folders.Make(qstrClean.section('/', 0, -2), job.qstrDetail);
        iTotalBytes += vecEntries[i].iSize;
        vecJobs.push_back(std::move(job));
    }

    std::atomic<size_t> iNext{0};
    std::atomic<bool> stop{false};
    std::mutex mutex;
    int iFailedIndex = -1;
    // Progress: bytes of the entries done, and the workers still at it, under the mutex.
    std::condition_variable cvProgress;
    qint64 iBytesDone = 0;
    int iWorking = 0;
    auto percentOf = [iTotalBytes](qint64 _iBytes) {
        return iTotalBytes > 0 ? int(_iBytes * 100 / iTotalBytes) : 100;
    };
    auto work = [&]() {
        const CLS_FileDescriptor archive(
            open(QFile::encodeName(_qstrZipPath).constData(), O_RDONLY | O_CLOEXEC));
        ZipHandle zip;
        std::vector<char> vecBuffer(kBufferBytes);
        for (size_t iJob = iNext++; iJob < vecJobs.size() && !stop; iJob = iNext++) {
            STRUCT_Job& job = vecJobs[iJob];
            const STRUCT_ZipEntryPlace& entry = vecEntries[job.iIndex];
            CLS_FileDescriptor target(job.blWritable
                                          ? open(job.qbaPath.constData(),
                                                 O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0666)
                                          : -1);
            const bool blOpened = target.Get() >= 0;
            if (job.blWritable && !blOpened && errno == ELOOP) {
                job.qstrDetail = "target is a symbolic link";
            }
            QString qstrError;
            bool blDone = false;
            if (archive.Get() < 0) {
                qstrError = "cannot open the archive";
            } else if (entry.iMethod == 0) {
                blDone =
                    EntryExtract::CopyStored(archive.Get(), entry, target.Get(), vecBuffer, stop, qstrError);
            } else {
                if (!zip) {
                    zip = CLS_ZipReader::OpenForData(_qstrZipPath);
                }
                blDone = zip && EntryExtract::Inflate(zip.get(), job.iIndex, entry, target.Get(), vecBuffer,
                                                      stop, qstrError);
                if (!zip) {
                    qstrError = "cannot open the archive";
                }
            }
            if (blDone && !target.Close()) {
                blDone = false;
                qstrError = "write failed: close failed";
            }
            if (blDone) {
                if (_progress) {
                    const std::lock_guard<std::mutex> lock(mutex);
                    const int iBefore = percentOf(iBytesDone);
                    iBytesDone += entry.iSize;
                    if (percentOf(iBytesDone) != iBefore) {
                        cvProgress.notify_one();
                    }
                }
                continue;
            }
            // A short file would later be copied over live data as if it were whole.
            if (blOpened) {
                target.Close();
                unlink(job.qbaPath.constData());
            }
            const std::lock_guard<std::mutex> lock(mutex);
            if (!stop.exchange(true) || (qstrError != EntryExtract::kStopped && job.iIndex < iFailedIndex)) {
                iFailedIndex = job.iIndex;
                m_failure = {CLS_ZipReader::EntryName(entry), qstrError};
            }
        }
    };
    // With a progress to report, the calling thread only reports; otherwise it is one of the workers.
    auto workAndSignOff = [&]() {
        work();
        const std::lock_guard<std::mutex> lock(mutex);
        --iWorking;
        cvProgress.notify_one();
    };
    std::vector<std::thread> vecThreads;
    const int iThreads = int(qMin<size_t>(size_t(m_iThreads), vecJobs.size()));
    try {
        for (int i = _progress ? 0 : 1; i < iThreads; ++i) {
            {
                const std::lock_guard<std::mutex> lock(mutex);
                ++iWorking;
            }
            vecThreads.emplace_back(workAndSignOff);
        }
    } catch (const std::system_error&) {
        // Fewer threads do the same work.
        const std::lock_guard<std::mutex> lock(mutex);
        --iWorking;
    }
    bool blStoppedByProgress = false;
    if (_progress && !vecThreads.empty()) {
        std::unique_lock<std::mutex> lock(mutex);
        int iReported = -1;
        for (;;) {
            const int iPercent = percentOf(iBytesDone);
            if (iPercent != iReported && !blStoppedByProgress) {
                iReported = iPercent;
                lock.unlock();
                blStoppedByProgress = !_progress(iPercent);
                if (blStoppedByProgress) {
                    stop = true;
                }
                lock.lock();
                continue;
            }
            if (iWorking == 0) {
                break;
            }
            cvProgress.wait(lock);
        }
    } else {
        work();
    }
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    if (blStoppedByProgress) {
        m_failure = {QString(), EntryExtract::kStopped};
        return ENTRY_FAILED;
    }
    if (iFailedIndex >= 0) {
        return ENTRY_FAILED;
    }
    for (const STRUCT_Job& job : vecJobs) {
        if (!job.qstrDetail.isEmpty()) {
            mapPassedOver[job.iIndex] = job.qstrDetail;
        }
    }
    for (const auto& note : mapPassedOver) {
        m_vecPassedOver.append({CLS_ZipReader::EntryName(vecEntries[note.first]), note.second});
    }
    return UNPACKED;
}
