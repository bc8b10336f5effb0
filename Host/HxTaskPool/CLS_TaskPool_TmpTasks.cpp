#include "CLS_TaskPool.h"

#include <utility>

#include "Logger.h"
#include "TaskRunner.h"

int CLS_TaskPool::AddTmpTask(std::function<void()> _task, QObject* _pOwner, const std::string& _strCallSite)
{
    if (!_task) {
        HX_LOG(2, TaskRunner::kModuleCode) << "empty task refused callSite:" << _strCallSite;
        return 0;
    }
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_blStopping) {
            return 0;
        }
        EnsureStarted();
        m_deqTmpTasks.push_back(STRUCT_TmpTask{std::move(_task), _pOwner, _strCallSite});
    }
    m_cvWork.notify_one();
    return 1;
}

int CLS_TaskPool::RemoveTmpTask(QObject* _pOwner, const std::string& _strCallSite)
{
    // Tasks without an owner belong to no object that could go away before them.
    if (_pOwner == nullptr) {
        return 0;
    }
    // Dropped tasks are destroyed after the lock is released: their captures may call back into the pool.
    std::deque<STRUCT_TmpTask> deqDropped;
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        std::deque<STRUCT_TmpTask> deqKept;
        for (STRUCT_TmpTask& task : m_deqTmpTasks) {
            (task.pOwner == _pOwner ? deqDropped : deqKept).push_back(std::move(task));
        }
        m_deqTmpTasks.swap(deqKept);

        // The task that asks is left out: waiting for it from inside it would never end.
        const STRUCT_Worker* pSelf = CallingWorker();
        m_cvIdle.wait(lock, [&] { return !IsOwnerRunning(_pOwner, pSelf); });
    }
    if (!deqDropped.empty()) {
        HX_LOG(0, TaskRunner::kModuleCode)
            << "dropped " << deqDropped.size() << " queued tasks of owner "
            << static_cast<const void*>(_pOwner) << " callSite:" << _strCallSite;
    }
    return static_cast<int>(deqDropped.size());
}

void CLS_TaskPool::RunTmpTask(std::unique_lock<std::mutex>& _lock, std::size_t _iIndex)
{
    STRUCT_TmpTask task = std::move(m_deqTmpTasks.front());
    m_deqTmpTasks.pop_front();
    STRUCT_Worker& worker = m_vecWorkers[_iIndex];
    worker.blRunningTmp = true;
    worker.pOwner = task.pOwner;
    _lock.unlock();

    TaskRunner::RunGuarded(task.task, task.strCallSite);
    // The captures die before the owner counts as free, and outside the lock.
    task.task = nullptr;

    _lock.lock();
    worker.blRunningTmp = false;
    worker.pOwner = nullptr;
    m_cvIdle.notify_all();
}
