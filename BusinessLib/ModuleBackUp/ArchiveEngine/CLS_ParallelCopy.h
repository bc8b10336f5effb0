#pragma once

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <QByteArray>

#include "FileCopy.h"

// One listed file, with its paths encoded before any worker sees them. A face library lists a hundred
// thousand of these, so folders are shared and the removal path is kept only where it differs.
struct STRUCT_CopyEntry
{
    QByteArray source;
    QByteArray target;
    QByteArray removal; // what overwrite removes when not the target itself (a source root of "/")
    int folder = -1;    // the target's folder, in the copy's list of folders
    int next = -1;      // the next entry with the same target, copied after this one by the same worker
    bool fresh = false; // the first copy into a folder made by this call: nothing there to remove or keep
};

// Copies listed files on a few worker threads while the calling thread waits and reports progress, so the
// callback sees the same percentages, on the same thread, as with a plain loop.
class CLS_ParallelCopy
{
public:
    // _vecHeads are the entries that start a chain of one target, in the order to copy them.
    CLS_ParallelCopy(std::vector<STRUCT_CopyEntry> _vecEntries, std::vector<QByteArray> _vecFolders,
                     std::vector<int> _vecHeads, int _iListed, bool _blOverwrite)
        : m_vecEntries(std::move(_vecEntries)), m_vecFolders(std::move(_vecFolders)),
          m_vecHeads(std::move(_vecHeads)), m_iListed(_iListed), m_blOverwrite(_blOverwrite)
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
                    FileCopy::RemoveExisting(entry.removal.isEmpty() ? entry.target : entry.removal);
                }
                // A failed copy keeps whatever the target held; the listing goes on.
                FileCopy::CopyOneFile(entry.source, entry.target,
                                      m_vecFolders[static_cast<std::size_t>(entry.folder)], entry.fresh,
                                      vecBuffer);
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
    const std::vector<QByteArray> m_vecFolders;
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
