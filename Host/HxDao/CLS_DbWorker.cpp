#include "CLS_DbWorker.h"

#include <utility>

CLS_DbWorker::CLS_DbWorker() : m_thread([this]() { Loop(); }) {}

CLS_DbWorker::~CLS_DbWorker()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_blStop = true;
    }
    m_cvJobs.notify_one();
    m_thread.join();
}

void CLS_DbWorker::Post(std::function<void()> _job)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_queJobs.push_back(std::move(_job));
    }
    m_cvJobs.notify_one();
}

void CLS_DbWorker::Loop()
{
    for (;;) {
        std::function<void()> job;
        {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_cvJobs.wait(lock, [this]() { return m_blStop || !m_queJobs.empty(); });
            if (m_queJobs.empty()) {
                return; // stopping, and every job handed in has run
            }
            job = std::move(m_queJobs.front());
            m_queJobs.pop_front();
        }
        job();
    }
}
