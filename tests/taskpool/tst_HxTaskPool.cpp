#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>
#include <vector>

#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include "TaskPool.h"
#include "Util.h"

namespace {

const std::string kCallSite = R"({"file": "tst_HxTaskPool.cpp","line": "1", "function": "test"})";
constexpr int kWaitMs = 10000;

// Tasks wait here until the test opens it; the bound keeps a failed test from holding a worker for good.
class CLS_Gate
{
public:
    void Open()
    {
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_blOpen = true;
        }
        m_cv.notify_all();
    }

    bool Wait()
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cv.wait_for(lock, std::chrono::seconds(30), [this] { return m_blOpen; });
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_cv;
    bool m_blOpen = false;
};

// Opens the gate however the test function is left, so cleanup() can stop the pool.
class CLS_GateOpener
{
public:
    explicit CLS_GateOpener(std::shared_ptr<CLS_Gate> _pGate) : m_pGate(std::move(_pGate)) {}
    ~CLS_GateOpener() { m_pGate->Open(); }

private:
    std::shared_ptr<CLS_Gate> m_pGate;
};

std::shared_ptr<std::atomic<int>> NewCounter()
{
    return std::make_shared<std::atomic<int>>(0);
}

// Tasks made by Task() hang at the gate until it opens; the counters say how many got there and past it.
struct STRUCT_Hang
{
    std::shared_ptr<CLS_Gate> pGate = std::make_shared<CLS_Gate>();
    std::shared_ptr<std::atomic<int>> pStarted = NewCounter();
    std::shared_ptr<std::atomic<int>> pFinished = NewCounter();

    std::function<void()> Task() const
    {
        return [pGate = pGate, pStarted = pStarted, pFinished = pFinished] {
            ++*pStarted;
            pGate->Wait();
            ++*pFinished;
        };
    }
};

// Makes the call on another thread and opens the gate once the call is under way; gives the call's result
// and how many hanging tasks had ended when it returned.
std::pair<int, int> CallWhileHanging(const STRUCT_Hang& _hang, const std::function<int()>& _call)
{
    std::atomic<bool> blCalling{false};
    std::pair<int, int> result(-1, -1);
    std::thread caller([&] {
        blCalling = true;
        result.first = _call();
        result.second = _hang.pFinished->load();
    });
    while (!blCalling) {
        std::this_thread::yield();
    }
    _hang.pGate->Open();
    caller.join();
    return result;
}

enum n_Removal
{
    REMOVE_TMP_TASK,
    REMOVE_TASK,
    UN_INIT
};

} // namespace

class tst_HxTaskPool : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void tasksFromFourThreadsRunOnce();
    void fourTasksRunAtOnce();
    void removeTmpTaskDropsOnlyThatOwner();
    void removalWaitsForRunningTask_data();
    void removalWaitsForRunningTask();
    void removeTmpTaskFromOwnersTask();
    void throwingTaskDoesNotStopPool_data();
    void throwingTaskDoesNotStopPool();
    void loopTaskRunsUntilRemoved();
    void loopRunsDoNotOverlap();
    void loopTaskRemovesItself();
    void loopTaskKeys();
    void badLoopArguments_data();
    void badLoopArguments();
    void badTmpArguments();
    void killTaskAllDropsEverything();
    void unInitDropsWorkAndPoolRestarts();

private:
    // More blockers than workers, all on the gate: whatever is added next stays queued until it opens.
    int BlockWorkers(const STRUCT_Hang& _hang, QObject* _pOwner);
    int CountLogLines(const QString& _qstrNeedle, const QString& _qstrMessage) const;

    QTemporaryDir m_tmpDir;
    TaskPool::PFN_AddTmpTask m_pfnAddTmpTask = nullptr;
    TaskPool::PFN_RemoveTmpTask m_pfnRemoveTmpTask = nullptr;
    TaskPool::PFN_AddLoopTask m_pfnAddLoopTask = nullptr;
    TaskPool::PFN_RemoveTask m_pfnRemoveTask = nullptr;
    TaskPool::PFN_KillTaskAll m_pfnKillTaskAll = nullptr;
    TaskPool::PFN_UnInit m_pfnUnInit = nullptr;
};

void tst_HxTaskPool::initTestCase()
{
    QVERIFY(m_tmpDir.isValid());
    qputenv("HX_DATA_PATH", m_tmpDir.path().toUtf8());
    m_pfnAddTmpTask = Util::FunctionCast<TaskPool::PFN_AddTmpTask>(TaskPool::GetModuleFun("AddTmpTask", ""));
    m_pfnRemoveTmpTask =
        Util::FunctionCast<TaskPool::PFN_RemoveTmpTask>(TaskPool::GetModuleFun("RemoveTmpTask", ""));
    m_pfnAddLoopTask =
        Util::FunctionCast<TaskPool::PFN_AddLoopTask>(TaskPool::GetModuleFun("AddLoopTask", ""));
    m_pfnRemoveTask = Util::FunctionCast<TaskPool::PFN_RemoveTask>(TaskPool::GetModuleFun("RemoveTask", ""));
    m_pfnKillTaskAll =
        Util::FunctionCast<TaskPool::PFN_KillTaskAll>(TaskPool::GetModuleFun("KillTaskAll", ""));
    m_pfnUnInit = Util::FunctionCast<TaskPool::PFN_UnInit>(TaskPool::GetModuleFun("UnInit", ""));
    QVERIFY(m_pfnAddTmpTask && m_pfnRemoveTmpTask && m_pfnAddLoopTask && m_pfnRemoveTask &&
            m_pfnKillTaskAll && m_pfnUnInit);
}

void tst_HxTaskPool::cleanup()
{
    // Every test starts with a stopped, empty pool; this also restarts the pool again and again.
    m_pfnUnInit();
}

int tst_HxTaskPool::BlockWorkers(const STRUCT_Hang& _hang, QObject* _pOwner)
{
    const int iCount = std::max(4, QThread::idealThreadCount()) + 4;
    for (int i = 0; i < iCount; ++i) {
        m_pfnAddTmpTask(_hang.Task(), _pOwner, kCallSite);
    }
    return iCount;
}

int tst_HxTaskPool::CountLogLines(const QString& _qstrNeedle, const QString& _qstrMessage) const
{
    QFile file(m_tmpDir.filePath("Log/hx.log"));
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        return 0;
    }
    const QStringList lstLines = QString::fromUtf8(file.readAll()).split('\n');
    return static_cast<int>(std::count_if(lstLines.begin(), lstLines.end(), [&](const QString& _qstrLine) {
        return _qstrLine.contains("[ERROR]") && _qstrLine.contains("HxTaskPool") &&
               _qstrLine.contains(_qstrNeedle) && _qstrLine.contains(_qstrMessage);
    }));
}

void tst_HxTaskPool::tasksFromFourThreadsRunOnce()
{
    constexpr int kThreads = 4;
    constexpr int kPerThread = 50;
    auto pRuns = std::make_shared<std::array<std::atomic<int>, kThreads * kPerThread>>();
    auto pTotal = NewCounter();
    std::atomic<int> iAccepted{0};
    QObject owner;

    std::vector<std::thread> vecAdders;
    for (int t = 0; t < kThreads; ++t) {
        vecAdders.emplace_back([&, t] {
            for (int i = 0; i < kPerThread; ++i) {
                const int iSlot = t * kPerThread + i;
                iAccepted += m_pfnAddTmpTask(
                    [pRuns, pTotal, iSlot] {
                        ++(*pRuns)[iSlot];
                        ++*pTotal;
                    },
                    &owner, kCallSite);
            }
        });
    }
    for (std::thread& adder : vecAdders) {
        adder.join();
    }
    QCOMPARE(iAccepted.load(), kThreads * kPerThread);
    QTRY_COMPARE_WITH_TIMEOUT(pTotal->load(), kThreads * kPerThread, kWaitMs);
    QCOMPARE(m_pfnRemoveTmpTask(&owner, kCallSite), 0);
    for (int i = 0; i < kThreads * kPerThread; ++i) {
        QCOMPARE((*pRuns)[i].load(), 1);
    }
}

void tst_HxTaskPool::fourTasksRunAtOnce()
{
    // A long backup holds one thread while a cancel must still run: four tasks that wait for each other.
    auto pGate = std::make_shared<CLS_Gate>();
    CLS_GateOpener opener(pGate);
    auto pArrived = NewCounter();
    auto pMet = NewCounter();
    for (int i = 0; i < 4; ++i) {
        m_pfnAddTmpTask(
            [pGate, pArrived, pMet] {
                if (++*pArrived == 4) {
                    pGate->Open();
                }
                if (pGate->Wait() && pArrived->load() == 4) {
                    ++*pMet;
                }
            },
            nullptr, kCallSite);
    }
    QTRY_COMPARE_WITH_TIMEOUT(pMet->load(), 4, kWaitMs);
}

void tst_HxTaskPool::removeTmpTaskDropsOnlyThatOwner()
{
    QObject blockerOwner;
    QObject doomedOwner;
    QObject otherOwner;
    const STRUCT_Hang blockers;
    CLS_GateOpener opener(blockers.pGate);
    const int iBlockers = BlockWorkers(blockers, &blockerOwner);
    QTRY_VERIFY_WITH_TIMEOUT(blockers.pStarted->load() >= 4, kWaitMs);

    auto pDoomedRuns = NewCounter();
    auto pOtherRuns = NewCounter();
    for (int i = 0; i < 50; ++i) {
        m_pfnAddTmpTask([pDoomedRuns] { ++*pDoomedRuns; }, &doomedOwner, kCallSite);
        m_pfnAddTmpTask([pOtherRuns] { ++*pOtherRuns; }, &otherOwner, kCallSite);
    }
    QCOMPARE(m_pfnRemoveTmpTask(&doomedOwner, kCallSite), 50);
    blockers.pGate->Open();

    QTRY_COMPARE_WITH_TIMEOUT(pOtherRuns->load(), 50, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(blockers.pFinished->load(), iBlockers, kWaitMs);
    QCOMPARE(pDoomedRuns->load(), 0);
    QCOMPARE(m_pfnRemoveTmpTask(&doomedOwner, kCallSite), 0);
}

void tst_HxTaskPool::removalWaitsForRunningTask_data()
{
    QTest::addColumn<int>("iRemoval");
    QTest::addColumn<int>("iExpected");

    QTest::newRow("RemoveTmpTask") << int(REMOVE_TMP_TASK) << 0;
    QTest::newRow("RemoveTask") << int(REMOVE_TASK) << 1;
    QTest::newRow("UnInit") << int(UN_INIT) << 0;
}

void tst_HxTaskPool::removalWaitsForRunningTask()
{
    QFETCH(int, iRemoval);
    QFETCH(int, iExpected);
    const STRUCT_Hang hang;
    CLS_GateOpener opener(hang.pGate);
    QObject owner;
    std::string strKey;
    if (iRemoval == REMOVE_TASK) {
        QCOMPARE(m_pfnAddLoopTask(hang.Task(), 10, strKey, kCallSite), 1);
    } else {
        QCOMPARE(m_pfnAddTmpTask(hang.Task(), &owner, kCallSite), 1);
    }
    QTRY_COMPARE_WITH_TIMEOUT(hang.pStarted->load(), 1, kWaitMs);

    const auto [iResult, iFinishedOnReturn] = CallWhileHanging(hang, [&] {
        switch (iRemoval) {
        case REMOVE_TMP_TASK:
            return m_pfnRemoveTmpTask(&owner, kCallSite);
        case REMOVE_TASK:
            return m_pfnRemoveTask(strKey, kCallSite);
        default:
            m_pfnUnInit();
            return 0;
        }
    });
    QCOMPARE(iResult, iExpected);
    QCOMPARE(iFinishedOnReturn, 1);
    QCOMPARE(hang.pStarted->load(), 1);
}

void tst_HxTaskPool::removeTmpTaskFromOwnersTask()
{
    constexpr int kFollowers = 20;
    QObject owner;
    auto pDropped = std::make_shared<std::atomic<int>>(-1);
    auto pFollowerRuns = NewCounter();
    auto pRunsSeenOnReturn = std::make_shared<std::atomic<int>>(-1);
    const TaskPool::PFN_RemoveTmpTask pfnRemove = m_pfnRemoveTmpTask;
    QObject* pOwner = &owner;
    // The removal waits until every follower is queued, so none is added after it.
    auto pGate = std::make_shared<CLS_Gate>();
    CLS_GateOpener opener(pGate);
    m_pfnAddTmpTask(
        [pGate, pfnRemove, pOwner, pDropped, pFollowerRuns, pRunsSeenOnReturn] {
            pGate->Wait();
            const int iDropped = pfnRemove(pOwner, kCallSite);
            *pRunsSeenOnReturn = pFollowerRuns->load();
            *pDropped = iDropped;
        },
        pOwner, kCallSite);
    for (int i = 0; i < kFollowers; ++i) {
        m_pfnAddTmpTask([pFollowerRuns] { ++*pFollowerRuns; }, pOwner, kCallSite);
    }
    pGate->Open();

    QTRY_VERIFY_WITH_TIMEOUT(pDropped->load() >= 0, kWaitMs);
    // Each follower was either dropped or had ended when the removal returned; none runs later.
    QCOMPARE(pRunsSeenOnReturn->load() + pDropped->load(), kFollowers);
    m_pfnUnInit();
    QCOMPARE(pFollowerRuns->load(), pRunsSeenOnReturn->load());
}

void tst_HxTaskPool::throwingTaskDoesNotStopPool_data()
{
    QTest::addColumn<bool>("blLoop");
    QTest::addColumn<bool>("blStandard");
    QTest::addColumn<QString>("qstrMessage");

    QTest::newRow("one-shot, std::exception") << false << true << "disk on fire";
    QTest::newRow("one-shot, anything else") << false << false << "";
    QTest::newRow("periodic, std::exception") << true << true << "tape jammed";
}

void tst_HxTaskPool::throwingTaskDoesNotStopPool()
{
    QFETCH(bool, blLoop);
    QFETCH(bool, blStandard);
    QFETCH(QString, qstrMessage);
    const std::string strCallSite =
        std::string(R"({"file": "tst_HxTaskPool.cpp","line": "2", "function": ")") + QTest::currentDataTag() +
        "\"}";
    const std::string strMessage = qstrMessage.toStdString();
    auto pThrows = NewCounter();
    auto thrower = [pThrows, blStandard, strMessage] {
        ++*pThrows;
        if (blStandard) {
            throw std::runtime_error(strMessage);
        }
        throw 42;
    };

    // More failures than the pool has threads at least: a failure that killed a thread would show.
    constexpr int kThrows = 8;
    if (blLoop) {
        std::string strKey;
        QCOMPARE(m_pfnAddLoopTask(thrower, 10, strKey, strCallSite), 1);
        QTRY_VERIFY_WITH_TIMEOUT(pThrows->load() >= kThrows, kWaitMs);
        QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    } else {
        for (int i = 0; i < kThrows; ++i) {
            QCOMPARE(m_pfnAddTmpTask(thrower, nullptr, strCallSite), 1);
        }
        auto pLaterRuns = NewCounter();
        for (int i = 0; i < kThrows; ++i) {
            m_pfnAddTmpTask([pLaterRuns] { ++*pLaterRuns; }, nullptr, kCallSite);
        }
        QTRY_COMPARE_WITH_TIMEOUT(pLaterRuns->load(), kThrows, kWaitMs);
    }
    // One log line per failure, naming the caller.
    QTRY_COMPARE_WITH_TIMEOUT(CountLogLines(QString::fromStdString(strCallSite), qstrMessage),
                              pThrows->load(), kWaitMs);
}

void tst_HxTaskPool::loopTaskRunsUntilRemoved()
{
    constexpr int kIntervalMs = 50;
    struct STRUCT_Runs
    {
        std::mutex mutex;
        std::vector<qint64> vecStartNs;
    };
    auto pRuns = std::make_shared<STRUCT_Runs>();
    QElapsedTimer timer;
    timer.start();
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask(
                 [pRuns, timer] {
                     const qint64 iStartNs = timer.nsecsElapsed();
                     std::lock_guard<std::mutex> lock(pRuns->mutex);
                     pRuns->vecStartNs.push_back(iStartNs);
                 },
                 kIntervalMs, strKey, kCallSite),
             1);
    const auto runCount = [pRuns] {
        std::lock_guard<std::mutex> lock(pRuns->mutex);
        return static_cast<int>(pRuns->vecStartNs.size());
    };
    QTRY_VERIFY_WITH_TIMEOUT(runCount() >= 3, kWaitMs);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    const int iRunsAtRemoval = runCount();

    // The n-th run starts no sooner than n intervals after the task was added.
    {
        std::lock_guard<std::mutex> lock(pRuns->mutex);
        for (std::size_t i = 0; i < pRuns->vecStartNs.size(); ++i) {
            QVERIFY2(pRuns->vecStartNs[i] >= static_cast<qint64>(i + 1) * kIntervalMs * 1000000,
                     qPrintable(QString("run %1 at %2 ns").arg(i + 1).arg(pRuns->vecStartNs[i])));
        }
    }

    // A witness on the same interval: by its third run the removed task would have run again.
    auto pWitnessRuns = NewCounter();
    std::string strWitnessKey;
    QCOMPARE(m_pfnAddLoopTask([pWitnessRuns] { ++*pWitnessRuns; }, kIntervalMs, strWitnessKey, kCallSite), 1);
    QTRY_VERIFY_WITH_TIMEOUT(pWitnessRuns->load() >= 3, kWaitMs);
    QCOMPARE(runCount(), iRunsAtRemoval);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 0);
}

void tst_HxTaskPool::loopRunsDoNotOverlap()
{
    struct STRUCT_State
    {
        CLS_Gate gate;
        std::atomic<int> iStarted{0};
        std::atomic<int> iInRun{0};
        std::atomic<int> iMaxInRun{0};
    };
    auto pState = std::make_shared<STRUCT_State>();
    CLS_GateOpener opener(std::shared_ptr<CLS_Gate>(pState, &pState->gate));
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask(
                 [pState] {
                     const int iInRun = ++pState->iInRun;
                     int iMax = pState->iMaxInRun.load();
                     while (iInRun > iMax && !pState->iMaxInRun.compare_exchange_weak(iMax, iInRun)) {
                     }
                     if (++pState->iStarted == 1) {
                         pState->gate.Wait();
                     }
                     --pState->iInRun;
                 },
                 5, strKey, kCallSite),
             1);
    QTRY_COMPARE_WITH_TIMEOUT(pState->iStarted.load(), 1, kWaitMs);

    // While the first run hangs, free workers tick on: many intervals of the hanging task pass.
    auto pWitnessRuns = NewCounter();
    std::string strWitnessKey;
    m_pfnAddLoopTask([pWitnessRuns] { ++*pWitnessRuns; }, 5, strWitnessKey, kCallSite);
    QTRY_VERIFY_WITH_TIMEOUT(pWitnessRuns->load() >= 10, kWaitMs);
    QCOMPARE(pState->iStarted.load(), 1);

    pState->gate.Open();
    QTRY_VERIFY_WITH_TIMEOUT(pState->iStarted.load() >= 5, kWaitMs);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    QCOMPARE(pState->iMaxInRun.load(), 1);
}

void tst_HxTaskPool::loopTaskRemovesItself()
{
    const TaskPool::PFN_RemoveTask pfnRemove = m_pfnRemoveTask;
    auto pRuns = NewCounter();
    auto pRemoved = std::make_shared<std::atomic<int>>(-1);
    std::string strKey = "RemovesItself";
    QCOMPARE(m_pfnAddLoopTask(
                 [pfnRemove, pRuns, pRemoved] {
                     ++*pRuns;
                     *pRemoved = pfnRemove("RemovesItself", kCallSite);
                 },
                 10, strKey, kCallSite),
             1);
    QTRY_COMPARE_WITH_TIMEOUT(pRemoved->load(), 1, kWaitMs);

    auto pWitnessRuns = NewCounter();
    std::string strWitnessKey;
    m_pfnAddLoopTask([pWitnessRuns] { ++*pWitnessRuns; }, 10, strWitnessKey, kCallSite);
    QTRY_VERIFY_WITH_TIMEOUT(pWitnessRuns->load() >= 3, kWaitMs);
    QCOMPARE(pRuns->load(), 1);
}

void tst_HxTaskPool::loopTaskKeys()
{
    const auto noop = [] {};
    std::string strFirst;
    std::string strSecond;
    QCOMPARE(m_pfnAddLoopTask(noop, 3600000, strFirst, kCallSite), 1);
    QCOMPARE(m_pfnAddLoopTask(noop, 3600000, strSecond, kCallSite), 1);
    QVERIFY(!strFirst.empty());
    QVERIFY(!strSecond.empty());
    QVERIFY(strFirst != strSecond);

    // A key in use: the new task takes the place of the old one.
    auto pOldRuns = NewCounter();
    auto pNewRuns = NewCounter();
    std::string strKey = "AutoBackUp";
    QCOMPARE(m_pfnAddLoopTask([pOldRuns] { ++*pOldRuns; }, 10, strKey, kCallSite), 1);
    QTRY_VERIFY_WITH_TIMEOUT(pOldRuns->load() >= 2, kWaitMs);
    QCOMPARE(m_pfnAddLoopTask([pNewRuns] { ++*pNewRuns; }, 10, strKey, kCallSite), 1);
    QCOMPARE(strKey, std::string("AutoBackUp"));
    QTRY_VERIFY_WITH_TIMEOUT(pNewRuns->load() >= 1, kWaitMs);
    const int iOldRuns = pOldRuns->load();
    QTRY_VERIFY_WITH_TIMEOUT(pNewRuns->load() >= 4, kWaitMs);
    QCOMPARE(pOldRuns->load(), iOldRuns);

    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTask(strFirst, kCallSite), 1);
    QCOMPARE(m_pfnRemoveTask(strSecond, kCallSite), 1);
}

void tst_HxTaskPool::badLoopArguments_data()
{
    QTest::addColumn<bool>("blHasTask");
    QTest::addColumn<int>("iIntervalMs");

    QTest::newRow("interval 0") << true << 0;
    QTest::newRow("negative interval") << true << -50;
    QTest::newRow("lowest interval") << true << INT_MIN;
    QTest::newRow("empty task") << false << 50;
}

void tst_HxTaskPool::badLoopArguments()
{
    QFETCH(bool, blHasTask);
    QFETCH(int, iIntervalMs);
    std::function<void()> task;
    if (blHasTask) {
        task = [] {};
    }
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask(task, iIntervalMs, strKey, kCallSite), 0);
    QVERIFY(strKey.empty());
    QCOMPARE(m_pfnKillTaskAll(), 0);
}

void tst_HxTaskPool::badTmpArguments()
{
    QObject owner;
    QCOMPARE(m_pfnAddTmpTask(std::function<void()>(), &owner, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTmpTask(&owner, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTask("no such key", kCallSite), 0);
    QCOMPARE(m_pfnKillTaskAll(), 0);
}

void tst_HxTaskPool::killTaskAllDropsEverything()
{
    QObject owner;
    const STRUCT_Hang blockers;
    CLS_GateOpener opener(blockers.pGate);
    const int iBlockers = BlockWorkers(blockers, &owner);
    QTRY_VERIFY_WITH_TIMEOUT(blockers.pStarted->load() >= 4, kWaitMs);

    auto pQueuedRuns = NewCounter();
    for (int i = 0; i < 5; ++i) {
        m_pfnAddTmpTask([pQueuedRuns] { ++*pQueuedRuns; }, &owner, kCallSite);
    }
    std::string strFirstKey;
    std::string strSecondKey;
    m_pfnAddLoopTask([] {}, 3600000, strFirstKey, kCallSite);
    m_pfnAddLoopTask([] {}, 3600000, strSecondKey, kCallSite);

    const int iKilled = m_pfnKillTaskAll();
    blockers.pGate->Open();
    m_pfnUnInit();
    // Every blocker that had not started was dropped along with the rest.
    QCOMPARE(iKilled, iBlockers - blockers.pStarted->load() + 5 + 2);
    QCOMPARE(blockers.pFinished->load(), blockers.pStarted->load());
    QCOMPARE(pQueuedRuns->load(), 0);
    QCOMPARE(m_pfnRemoveTask(strFirstKey, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTask(strSecondKey, kCallSite), 0);
}

void tst_HxTaskPool::unInitDropsWorkAndPoolRestarts()
{
    auto pRuns = NewCounter();
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask([pRuns] { ++*pRuns; }, 3600000, strKey, kCallSite), 1);
    m_pfnUnInit();
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 0);

    QCOMPARE(m_pfnAddTmpTask([pRuns] { ++*pRuns; }, nullptr, kCallSite), 1);
    QTRY_COMPARE_WITH_TIMEOUT(pRuns->load(), 1, kWaitMs);
}

QTEST_GUILESS_MAIN(tst_HxTaskPool)
#include "tst_HxTaskPool.moc"
