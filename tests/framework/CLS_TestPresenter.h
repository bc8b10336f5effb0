#pragma once

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <stdexcept>

#include "CLS_PresenterBasic.h"

// A presenter whose handler behaves by key, and whose periodic task counts its runs.
//   "ok": writes "echo" and succeeds; "fail": fails; "bogus": writes its own "__result__" and succeeds;
//   "throw": throws; "gate": waits until the gate opens, then succeeds.
class CLS_TestPresenter : public CLS_PresenterBasic
{
    Q_OBJECT

public:
    const char* GetModuleCode() override { return "TestModule"; }

    int TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult) override
    {
        ++m_iHandled;
        if (_qstrKey == "fail") {
            return 0;
        }
        if (_qstrKey == "throw") {
            throw std::runtime_error("handler broke");
        }
        if (_qstrKey == "bogus") {
            _qmapResult.insert("__result__", "mine");
        }
        if (_qstrKey == "gate") {
            std::unique_lock<std::mutex> lock(m_mutex);
            m_cvGate.wait(lock, [this] { return m_blGateOpen; });
        }
        _qmapResult.insert("echo", _qmapParam.value("value"));
        return 1;
    }

    void InitData() override
    {
        ++m_iInitData;
        if (m_blThrowInInitData) {
            throw std::runtime_error("no data");
        }
    }
    void UnInitData() override { ++m_iUnInitData; }
    void LoopTask() override
    {
        ++m_iLoopRuns;
        if (m_blThrowInLoop) {
            throw std::logic_error("loop broke");
        }
    }
    int GetLoopInterval() override { return m_iInterval; }

    void OpenGate()
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_blGateOpen = true;
        m_cvGate.notify_all();
    }

    std::atomic<int> m_iHandled{0};
    std::atomic<int> m_iInitData{0};
    std::atomic<int> m_iUnInitData{0};
    std::atomic<int> m_iLoopRuns{0};
    std::atomic<bool> m_blThrowInLoop{false};
    std::atomic<bool> m_blThrowInInitData{false};
    std::atomic<int> m_iInterval{-1};

private:
    std::mutex m_mutex;
    std::condition_variable m_cvGate;
    bool m_blGateOpen = false;
};
