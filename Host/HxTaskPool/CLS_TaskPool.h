#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class QObject;

// The host's thread pool: one-shot tasks that belong to an owner, and periodic tasks found by key.
// The worker threads start on the first task and stop in UnInit or at process exit.
class CLS_TaskPool
{
public:
    static CLS_TaskPool& Instance();

    CLS_TaskPool(const CLS_TaskPool&) = delete;
    CLS_TaskPool& operator=(const CLS_TaskPool&) = delete;

    int AddTmpTask(std::function<void()> _task, QObject* _pOwner, const std::string& _strCallSite);
    int RemoveTmpTask(QObject* _pOwner, const std::string& _strCallSite);
    int AddLoopTask(std::function<void()> _task, int _iIntervalMs, std::string& _strKey,
                    const std::string& _strCallSite);
    int RemoveTask(const std::string& _strKey, const std::string& _strCallSite);
    int KillTaskAll();
    void UnInit();

private:
    using Clock = std::chrono::steady_clock;

    struct STRUCT_TmpTask
    {
        std::function<void()> task;
        QObject* pOwner = nullptr;
        std::string strCallSite;
    };

    // Fixed once added, except the due time; the id tells a replaced task from its successor.
    struct STRUCT_LoopTask
    {
        std::uint64_t uId = 0;
        std::function<void()> task;
        Clock::duration interval{};
        std::string strCallSite;
        Clock::time_point tpNextDue;
    };
    using LoopTaskPtr = std::shared_ptr<STRUCT_LoopTask>;

    // What one worker runs now; the removers wait on it.
    struct STRUCT_Worker
    {
        std::thread::id id;
        bool blRunningTmp = false;
        QObject* pOwner = nullptr;
        bool blRunningLoop = false;
        std::string strLoopKey;
    };

    static constexpr int kMinThreads = 4;

    CLS_TaskPool();
    ~CLS_TaskPool();

    // The members below expect m_mutex to be held.
    void EnsureStarted();
    const STRUCT_Worker* CallingWorker() const;
    bool IsOwnerRunning(QObject* _pOwner, const STRUCT_Worker* _pExcept) const;
    bool IsLoopKeyRunning(const std::string& _strKey, const STRUCT_Worker* _pExcept) const;

    void WorkerMain(std::size_t _iIndex);
    void WaitForWork(std::unique_lock<std::mutex>& _lock);
    void RunTmpTask(std::unique_lock<std::mutex>& _lock, std::size_t _iIndex);
    bool RunDueLoopTask(std::unique_lock<std::mutex>& _lock, std::size_t _iIndex);

    std::mutex m_mutex;
    std::condition_variable m_cvWork; // workers: new work, a changed schedule, or stop
    std::condition_variable m_cvIdle; // removers and UnInit: a task ended, or the threads stopped
    std::vector<std::thread> m_vecThreads;
    std::vector<STRUCT_Worker> m_vecWorkers;
    std::deque<STRUCT_TmpTask> m_deqTmpTasks;
    std::map<std::string, LoopTaskPtr> m_mapLoopTasks;
    std::uint64_t m_uNextLoopId = 1;
    bool m_blStopping = false;
};
