#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>

// One thread that runs every job handed to it, in order. A Qt SQL connection may only be used on the
// thread that opened it, so each database keeps its connection on one of these.
class CLS_DbWorker
{
public:
    CLS_DbWorker();
    ~CLS_DbWorker();

    CLS_DbWorker(const CLS_DbWorker&) = delete;
    CLS_DbWorker& operator=(const CLS_DbWorker&) = delete;

    // Runs the job on the worker thread and returns its result once it is done; an exception thrown by the
    // job comes back to the caller. Called from the worker itself, the job runs at once.
    template <typename Job>
    std::invoke_result_t<Job> Call(Job&& _job)
    {
        using Result = std::invoke_result_t<Job>;
        if (std::this_thread::get_id() == m_thread.get_id()) {
            return _job();
        }
        auto pTask = std::make_shared<std::packaged_task<Result()>>(std::forward<Job>(_job));
        std::future<Result> future = pTask->get_future();
        Post([pTask]() { (*pTask)(); });
        return future.get();
    }

private:
    void Post(std::function<void()> _job);
    void Loop();

    std::mutex m_mutex;
    std::condition_variable m_cvJobs;
    std::deque<std::function<void()>> m_queJobs;
    bool m_blStop = false;
    std::thread m_thread; // last: it starts once the queue exists
};
