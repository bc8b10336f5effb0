#include "CLS_TaskPool.h"

#include <algorithm>

#include <QThread>

#include "Logger.h"
#include "TaskRunner.h"

CLS_TaskPool& CLS_TaskPool::Instance()
{
    static CLS_TaskPool pool;
    return pool;
}

CLS_TaskPool::CLS_TaskPool()
{
    // The logging facade's tables are built before the pool is complete, so they are destroyed after it:
    // a task that fails while the pool stops at process exit can still log.
    Logger::GetModuleFun("PrintLog", "");
}

CLS_TaskPool::~CLS_TaskPool()
{
    UnInit();
    // Threads are left only when exit() was called from a task: a thread cannot join itself, and a joinable
    // std::thread would terminate the process here.
    for (std::thread& thread : m_vecThreads) {
        if (thread.joinable()) {
            thread.detach();
        }
    }
}

void CLS_TaskPool::EnsureStarted()
{
    if (!m_vecThreads.empty()) {
        return;
    }
    const auto iCount = static_cast<std::size_t>(std::max(kMinThreads, QThread::idealThreadCount()));
    m_vecWorkers.assign(iCount, STRUCT_Worker());
    m_vecThreads.reserve(iCount);
    for (std::size_t i = 0; i < iCount; ++i) {
        // The new thread waits for m_mutex, which the caller holds, so it sees its id in place.
        m_vecThreads.emplace_back(&CLS_TaskPool::WorkerMain, this, i);
        m_vecWorkers[i].id = m_vecThreads.back().get_id();
    }
}

const CLS_TaskPool::STRUCT_Worker* CLS_TaskPool::CallingWorker() const
{
    const std::thread::id idSelf = std::this_thread::get_id();
    for (const STRUCT_Worker& worker : m_vecWorkers) {
        if (worker.id == idSelf) {
            return &worker;
        }
    }
    return nullptr;
}

bool CLS_TaskPool::IsOwnerRunning(QObject* _pOwner, const STRUCT_Worker* _pExcept) const
{
    return std::any_of(m_vecWorkers.begin(), m_vecWorkers.end(), [&](const STRUCT_Worker& worker) {
        return &worker != _pExcept && worker.blRunningTmp && worker.pOwner == _pOwner;
    });
}

bool CLS_TaskPool::IsLoopKeyRunning(const std::string& _strKey, const STRUCT_Worker* _pExcept) const
{
    return std::any_of(m_vecWorkers.begin(), m_vecWorkers.end(), [&](const STRUCT_Worker& worker) {
        return &worker != _pExcept && worker.blRunningLoop && worker.strLoopKey == _strKey;
    });
}

void CLS_TaskPool::WorkerMain(std::size_t _iIndex)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    while (!m_blStopping) {
        // Periodic tasks first, so that a flood of one-shot tasks cannot starve them.
        if (RunDueLoopTask(lock, _iIndex)) {
            continue;
        }
        if (!m_deqTmpTasks.empty()) {
            RunTmpTask(lock, _iIndex);
            continue;
        }
        WaitForWork(lock);
    }
}

void CLS_TaskPool::WaitForWork(std::unique_lock<std::mutex>& _lock)
{
    // A periodic task whose run is in progress is not waited for: the end of that run wakes the workers.
    Clock::time_point tpWake = Clock::time_point::max();
    for (const auto& [strKey, pTask] : m_mapLoopTasks) {
        if (!IsLoopKeyRunning(strKey, nullptr)) {
            tpWake = std::min(tpWake, pTask->tpNextDue);
        }
    }
    if (tpWake == Clock::time_point::max()) {
        m_cvWork.wait(_lock);
    } else {
        m_cvWork.wait_until(_lock, tpWake);
    }
}

int CLS_TaskPool::KillTaskAll()
{
    std::deque<STRUCT_TmpTask> deqDropped;
    std::map<std::string, LoopTaskPtr> mapDropped;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        deqDropped.swap(m_deqTmpTasks);
        mapDropped.swap(m_mapLoopTasks);
    }
    const int iCount = static_cast<int>(deqDropped.size() + mapDropped.size());
    HX_LOG(1, TaskRunner::kModuleCode) << "dropped " << iCount << " tasks";
    return iCount;
}

void CLS_TaskPool::UnInit()
{
    std::deque<STRUCT_TmpTask> deqDropped;
    std::map<std::string, LoopTaskPtr> mapDropped;
    std::vector<std::thread> vecThreads;
    bool blFromWorker = false;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        blFromWorker = CallingWorker() != nullptr;
        if (!blFromWorker) {
            m_cvIdle.wait(lock, [this] { return !m_blStopping; });
            vecThreads.swap(m_vecThreads);
            m_blStopping = !vecThreads.empty();
        }
        deqDropped.swap(m_deqTmpTasks);
        mapDropped.swap(m_mapLoopTasks);
    }
    if (blFromWorker) {
        HX_LOG(2, TaskRunner::kModuleCode) << "UnInit from a pool thread: queued tasks dropped, threads kept";
        return;
    }
    if (vecThreads.empty()) {
        return;
    }
    m_cvWork.notify_all();
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_vecWorkers.clear();
        m_blStopping = false;
    }
    m_cvIdle.notify_all();
    HX_LOG(1, TaskRunner::kModuleCode) << "stopped " << vecThreads.size() << " threads, dropped "
                                       << deqDropped.size() + mapDropped.size() << " tasks";
}
