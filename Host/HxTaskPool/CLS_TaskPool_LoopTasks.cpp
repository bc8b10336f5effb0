#include "CLS_TaskPool.h"

#include <algorithm>
#include <utility>

#include <QUuid>

#include "Logger.h"
#include "TaskRunner.h"

int CLS_TaskPool::AddLoopTask(std::function<void()> _task, int _iIntervalMs, std::string& _strKey,
                              const std::string& _strCallSite)
{
    if (!_task || _iIntervalMs <= 0) {
        HX_LOG(2, TaskRunner::kModuleCode) << "periodic task refused, interval " << _iIntervalMs
                                           << (_task ? "" : ", empty task") << " callSite:" << _strCallSite;
        return 0;
    }
    auto pTask = std::make_shared<STRUCT_LoopTask>();
    pTask->task = std::move(_task);
    pTask->interval = std::chrono::milliseconds(_iIntervalMs);
    pTask->strCallSite = _strCallSite;

    LoopTaskPtr pReplaced; // destroyed outside the lock
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_blStopping) {
            return 0;
        }
        EnsureStarted();
        if (_strKey.empty()) {
            _strKey = QUuid::createUuid().toString(QUuid::WithoutBraces).toStdString();
        }
        pTask->uId = m_uNextLoopId++;
        pTask->tpNextDue = Clock::now() + pTask->interval;
        LoopTaskPtr& pSlot = m_mapLoopTasks[_strKey];
        pReplaced = std::move(pSlot);
        pSlot = std::move(pTask);
    }
    m_cvWork.notify_all();
    return 1;
}

int CLS_TaskPool::RemoveTask(const std::string& _strKey, const std::string& _strCallSite)
{
    LoopTaskPtr pRemoved; // destroyed outside the lock
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        auto it = m_mapLoopTasks.find(_strKey);
        if (it != m_mapLoopTasks.end()) {
            pRemoved = std::move(it->second);
            m_mapLoopTasks.erase(it);
        }
        // A run may remove its own task; waiting for itself would never end.
        const STRUCT_Worker* pSelf = CallingWorker();
        m_cvIdle.wait(lock, [&] { return !IsLoopKeyRunning(_strKey, pSelf); });
    }
    if (pRemoved) {
        HX_LOG(0, TaskRunner::kModuleCode)
            << "removed periodic task " << _strKey << " callSite:" << _strCallSite;
    }
    return pRemoved ? 1 : 0;
}

bool CLS_TaskPool::RunDueLoopTask(std::unique_lock<std::mutex>& _lock, std::size_t _iIndex)
{
    const Clock::time_point tpStart = Clock::now();
    auto itDue = m_mapLoopTasks.end();
    for (auto it = m_mapLoopTasks.begin(); it != m_mapLoopTasks.end(); ++it) {
        const Clock::time_point tpDue = it->second->tpNextDue;
        if (tpDue <= tpStart && (itDue == m_mapLoopTasks.end() || tpDue < itDue->second->tpNextDue) &&
            !IsLoopKeyRunning(it->first, nullptr)) {
            itDue = it;
        }
    }
    if (itDue == m_mapLoopTasks.end()) {
        return false;
    }
    const std::string strKey = itDue->first;
    LoopTaskPtr pTask = itDue->second;
    STRUCT_Worker& worker = m_vecWorkers[_iIndex];
    worker.blRunningLoop = true;
    worker.strLoopKey = strKey;
    _lock.unlock();

    TaskRunner::RunGuarded(pTask->task, pTask->strCallSite);
    const std::uint64_t uId = pTask->uId;
    const Clock::duration interval = pTask->interval;
    // If the task was removed meanwhile, this may be the last reference: let it die outside the lock.
    pTask.reset();

    _lock.lock();
    auto it = m_mapLoopTasks.find(strKey);
    if (it != m_mapLoopTasks.end() && it->second->uId == uId) {
        // Keep the rhythm of the starts, but never start again before this run has ended.
        it->second->tpNextDue = std::max(tpStart + interval, Clock::now());
    }
    worker.blRunningLoop = false;
    worker.strLoopKey.clear();
    m_cvIdle.notify_all();
    m_cvWork.notify_all();
    return true;
}
