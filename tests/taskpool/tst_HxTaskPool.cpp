#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include <QElapsedTimer>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include "TaskPool.h"
#include "Util.h"

namespace {

const std::string kCallSite = R"({"file": "tst_HxTaskPool.cpp","line": "1", "function": "test"})";
constexpr int kWaitMs = 10000;

using Counter = std::shared_ptr<std::atomic<int>>;
Counter NewCounter(int _iStart = 0)
{
    return std::make_shared<std::atomic<int>>(_iStart);
}

// Tasks from Task() hang until Open() or the end of the test, when the unkept promise frees them; the bound
// keeps a failed test from holding a worker for good.
struct STRUCT_Hang
{
    std::promise<void> gate;
    std::shared_future<void> opened = gate.get_future().share();
    Counter pStarted = NewCounter();
    Counter pFinished = NewCounter();

    void Open() { gate.set_value(); }
    std::function<void()> Task() const
    {
        return [opened = opened, pStarted = pStarted, pFinished = pFinished] {
            ++*pStarted;
            opened.wait_for(std::chrono::seconds(30));
            ++*pFinished;
        };
    }
};

} // namespace

class tst_HxTaskPool : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();

    void tasksFromFourThreadsRunOnce();
    void queuedTasksAreDropped_data();
    void queuedTasksAreDropped();
    void removalWaitsForRunningTask_data();
    void removalWaitsForRunningTask();
    void removeTmpTaskFromOwnersTask();
    void throwingTaskDoesNotStopPool_data();
    void throwingTaskDoesNotStopPool();
    void loopTasks();
    void badArgumentsAreRefused();

private:
    // Runs a witness loop task until it has ticked _iTicks times: time enough for another task on the
    // same interval to have run again.
    bool WitnessTicks(int _iIntervalMs, int _iTicks);
    int CountLogErrors(const QString& _qstrCallSite, const QString& _qstrMessage) const;

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
    const auto Fun = [](const char* _pName) { return TaskPool::GetModuleFun(_pName, ""); };
    m_pfnAddTmpTask = Util::FunctionCast<TaskPool::PFN_AddTmpTask>(Fun("AddTmpTask"));
    m_pfnRemoveTmpTask = Util::FunctionCast<TaskPool::PFN_RemoveTmpTask>(Fun("RemoveTmpTask"));
    m_pfnAddLoopTask = Util::FunctionCast<TaskPool::PFN_AddLoopTask>(Fun("AddLoopTask"));
    m_pfnRemoveTask = Util::FunctionCast<TaskPool::PFN_RemoveTask>(Fun("RemoveTask"));
    m_pfnKillTaskAll = Util::FunctionCast<TaskPool::PFN_KillTaskAll>(Fun("KillTaskAll"));
    m_pfnUnInit = Util::FunctionCast<TaskPool::PFN_UnInit>(Fun("UnInit"));
    QVERIFY(m_pfnAddTmpTask && m_pfnRemoveTmpTask && m_pfnAddLoopTask && m_pfnRemoveTask &&
            m_pfnKillTaskAll && m_pfnUnInit);
}

void tst_HxTaskPool::cleanup()
{
    // Every test starts with a stopped, empty pool, so the pool is restarted again and again.
    m_pfnUnInit();
}

bool tst_HxTaskPool::WitnessTicks(int _iIntervalMs, int _iTicks)
{
    const Counter pTicks = NewCounter();
    std::string strKey;
    m_pfnAddLoopTask([pTicks] { ++*pTicks; }, _iIntervalMs, strKey, kCallSite);
    const bool blTicked = QTest::qWaitFor([&] { return pTicks->load() >= _iTicks; }, kWaitMs);
    return m_pfnRemoveTask(strKey, kCallSite) == 1 && blTicked;
}

int tst_HxTaskPool::CountLogErrors(const QString& _qstrCallSite, const QString& _qstrMessage) const
{
    QFile file(m_tmpDir.filePath("Log/hx.log"));
    int iCount = 0;
    if (file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        for (const QString& qstrLine : QString::fromUtf8(file.readAll()).split('\n')) {
            iCount += qstrLine.contains("[ERROR]") && qstrLine.contains("HxTaskPool") &&
                      qstrLine.contains(_qstrCallSite) && qstrLine.contains(_qstrMessage);
        }
    }
    return iCount;
}

void tst_HxTaskPool::tasksFromFourThreadsRunOnce()
{
    constexpr int kPerThread = 50;
    auto pRuns = std::make_shared<std::array<std::atomic<int>, 4 * kPerThread>>();
    const Counter pTotal = NewCounter();
    std::atomic<int> iAccepted{0};
    QObject owner;
    std::vector<std::thread> vecAdders;
    for (int t = 0; t < 4; ++t) {
        vecAdders.emplace_back([&, t] {
            for (int iSlot = t * kPerThread; iSlot < (t + 1) * kPerThread; ++iSlot) {
                const auto task = [pRuns, pTotal, iSlot] {
                    ++(*pRuns)[iSlot];
                    ++*pTotal;
                };
                iAccepted += m_pfnAddTmpTask(task, &owner, kCallSite);
            }
        });
    }
    for (std::thread& adder : vecAdders) {
        adder.join();
    }
    QCOMPARE(iAccepted.load(), 4 * kPerThread);
    QTRY_COMPARE_WITH_TIMEOUT(pTotal->load(), 4 * kPerThread, kWaitMs);
    QCOMPARE(m_pfnRemoveTmpTask(&owner, kCallSite), 0);
    for (const std::atomic<int>& iRuns : *pRuns) {
        QCOMPARE(iRuns.load(), 1);
    }
}

void tst_HxTaskPool::queuedTasksAreDropped_data()
{
    QTest::addColumn<bool>("blKillAll");
    QTest::newRow("RemoveTmpTask: only that owner's") << false;
    QTest::newRow("KillTaskAll: everything") << true;
}

void tst_HxTaskPool::queuedTasksAreDropped()
{
    QFETCH(bool, blKillAll);
    QObject blockerOwner;
    QObject doomedOwner;
    QObject otherOwner;
    // More blockers than workers, so that what is added next stays queued until the gate opens.
    STRUCT_Hang blockers;
    const int iBlockers = std::max(4, QThread::idealThreadCount()) + 4;
    for (int i = 0; i < iBlockers; ++i) {
        m_pfnAddTmpTask(blockers.Task(), &blockerOwner, kCallSite);
    }
    // A long backup holds one thread while a cancel must still run: at least four tasks run at once.
    QTRY_VERIFY_WITH_TIMEOUT(blockers.pStarted->load() >= 4, kWaitMs);

    const Counter pDoomedRuns = NewCounter();
    const Counter pOtherRuns = NewCounter();
    for (int i = 0; i < 50; ++i) {
        m_pfnAddTmpTask([pDoomedRuns] { ++*pDoomedRuns; }, &doomedOwner, kCallSite);
        m_pfnAddTmpTask([pOtherRuns] { ++*pOtherRuns; }, &otherOwner, kCallSite);
    }
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask([] {}, 3600000, strKey, kCallSite), 1);
    if (blKillAll) {
        // Every blocker that had not started is dropped along with the rest.
        const int iKilled = m_pfnKillTaskAll();
        QCOMPARE(iKilled, iBlockers - blockers.pStarted->load() + 2 * 50 + 1);
        QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 0);
    } else {
        QCOMPARE(m_pfnRemoveTmpTask(&doomedOwner, kCallSite), 50);
    }
    blockers.Open();
    if (!blKillAll) {
        QTRY_COMPARE_WITH_TIMEOUT(pOtherRuns->load(), 50, kWaitMs);
        QTRY_COMPARE_WITH_TIMEOUT(blockers.pFinished->load(), iBlockers, kWaitMs);
    }
    m_pfnUnInit();
    QCOMPARE(blockers.pFinished->load(), blockers.pStarted->load());
    QCOMPARE(pOtherRuns->load(), blKillAll ? 0 : 50);
    QCOMPARE(pDoomedRuns->load(), 0);
}

void tst_HxTaskPool::removalWaitsForRunningTask_data()
{
    QTest::addColumn<int>("iExpected");
    QTest::newRow("RemoveTmpTask") << 0;
    QTest::newRow("RemoveTask") << 1;
    QTest::newRow("UnInit") << 0;
}

void tst_HxTaskPool::removalWaitsForRunningTask()
{
    QFETCH(int, iExpected);
    const QByteArray baRemoval = QTest::currentDataTag();
    STRUCT_Hang hang;
    QObject owner;
    std::string strKey;
    if (baRemoval == "RemoveTask") {
        QCOMPARE(m_pfnAddLoopTask(hang.Task(), 10, strKey, kCallSite), 1);
    } else {
        QCOMPARE(m_pfnAddTmpTask(hang.Task(), &owner, kCallSite), 1);
    }
    QTRY_COMPARE_WITH_TIMEOUT(hang.pStarted->load(), 1, kWaitMs);

    // The removal is under way on another thread when the task is let go; it must not return before.
    std::atomic<bool> blCalling{false};
    int iResult = -1;
    int iFinishedOnReturn = -1;
    std::thread caller([&] {
        blCalling = true;
        iResult = baRemoval == "RemoveTmpTask" ? m_pfnRemoveTmpTask(&owner, kCallSite)
                  : baRemoval == "RemoveTask"  ? m_pfnRemoveTask(strKey, kCallSite)
                                               : (m_pfnUnInit(), 0);
        iFinishedOnReturn = hang.pFinished->load();
    });
    while (!blCalling) {
        std::this_thread::yield();
    }
    hang.Open();
    caller.join();
    QCOMPARE(iResult, iExpected);
    QCOMPARE(iFinishedOnReturn, 1);
    QCOMPARE(hang.pStarted->load(), 1);
}

void tst_HxTaskPool::removeTmpTaskFromOwnersTask()
{
    constexpr int kFollowers = 20;
    QObject owner;
    const Counter pDropped = NewCounter(-1);
    const Counter pFollowerRuns = NewCounter();
    const Counter pRunsSeenOnReturn = NewCounter(-1);
    // The removal waits at the gate until every follower is queued.
    STRUCT_Hang gate;
    const auto removal = [wait = gate.Task(), pfnRemove = m_pfnRemoveTmpTask, pOwner = &owner, pDropped,
                          pFollowerRuns, pRunsSeenOnReturn] {
        wait();
        const int iDropped = pfnRemove(pOwner, kCallSite);
        *pRunsSeenOnReturn = pFollowerRuns->load();
        *pDropped = iDropped;
    };
    m_pfnAddTmpTask(removal, &owner, kCallSite);
    for (int i = 0; i < kFollowers; ++i) {
        m_pfnAddTmpTask([pFollowerRuns] { ++*pFollowerRuns; }, &owner, kCallSite);
    }
    gate.Open();

    // No deadlock, and each follower was either dropped or had ended when the removal returned.
    QTRY_VERIFY_WITH_TIMEOUT(pDropped->load() >= 0, kWaitMs);
    QCOMPARE(pRunsSeenOnReturn->load() + pDropped->load(), kFollowers);
    m_pfnUnInit();
    QCOMPARE(pFollowerRuns->load(), pRunsSeenOnReturn->load());
}

void tst_HxTaskPool::throwingTaskDoesNotStopPool_data()
{
    QTest::addColumn<bool>("blLoop");
    QTest::addColumn<QString>("qstrMessage"); // empty: throws something that is not a std::exception
    QTest::newRow("one-shot, std::exception") << false << "disk on fire";
    QTest::newRow("one-shot, anything else") << false << "";
    QTest::newRow("periodic, std::exception") << true << "tape jammed";
}

void tst_HxTaskPool::throwingTaskDoesNotStopPool()
{
    QFETCH(bool, blLoop);
    QFETCH(QString, qstrMessage);
    const std::string strCallSite = R"({"file": "tst_HxTaskPool.cpp","line": "2", "function": ")" +
                                    std::string(QTest::currentDataTag()) + "\"}";
    const Counter pThrows = NewCounter();
    const auto thrower = [pThrows, strMessage = qstrMessage.toStdString()] {
        ++*pThrows;
        if (!strMessage.empty()) {
            throw std::runtime_error(strMessage);
        }
        throw 42;
    };
    // More failures than the pool has threads: a failure that killed a thread would show.
    constexpr int kThrows = 8;
    if (blLoop) {
        std::string strKey;
        QCOMPARE(m_pfnAddLoopTask(thrower, 10, strKey, strCallSite), 1);
        QTRY_VERIFY_WITH_TIMEOUT(pThrows->load() >= kThrows, kWaitMs);
        QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    } else {
        const Counter pLaterRuns = NewCounter();
        for (int i = 0; i < kThrows; ++i) {
            QCOMPARE(m_pfnAddTmpTask(thrower, nullptr, strCallSite), 1);
        }
        for (int i = 0; i < kThrows; ++i) {
            m_pfnAddTmpTask([pLaterRuns] { ++*pLaterRuns; }, nullptr, kCallSite);
        }
        QTRY_COMPARE_WITH_TIMEOUT(pLaterRuns->load(), kThrows, kWaitMs);
    }
    // One log line per failure, naming the caller.
    QTRY_COMPARE_WITH_TIMEOUT(CountLogErrors(QString::fromStdString(strCallSite), qstrMessage),
                              pThrows->load(), kWaitMs);
}

void tst_HxTaskPool::loopTasks()
{
    constexpr int kIntervalMs = 50;
    const Counter pRuns = NewCounter();
    const Counter pEarlyRuns = NewCounter();
    QElapsedTimer timer;
    timer.start();
    // The n-th run starts no sooner than n intervals after the task was added.
    const auto task = [pRuns, pEarlyRuns, timer] {
        const qint64 iDueNs = qint64(++*pRuns) * kIntervalMs * 1000000;
        *pEarlyRuns += timer.nsecsElapsed() < iDueNs;
    };
    const Counter pSelfRuns = NewCounter();
    const Counter pSelfRemoved = NewCounter(-1);
    const auto removesItself = [pfnRemove = m_pfnRemoveTask, pSelfRuns, pSelfRemoved] {
        ++*pSelfRuns;
        *pSelfRemoved = pfnRemove("RemovesItself", kCallSite);
    };
    std::string strKey;
    std::string strIdleKey;
    std::string strSelfKey = "RemovesItself";
    QCOMPARE(m_pfnAddLoopTask(task, kIntervalMs, strKey, kCallSite), 1);
    QCOMPARE(m_pfnAddLoopTask([] {}, 3600000, strIdleKey, kCallSite), 1);
    QCOMPARE(m_pfnAddLoopTask(removesItself, 10, strSelfKey, kCallSite), 1);
    QVERIFY(!strKey.empty() && !strIdleKey.empty() && strKey != strIdleKey);

    QTRY_VERIFY_WITH_TIMEOUT(pRuns->load() >= 3, kWaitMs);
    QTRY_COMPARE_WITH_TIMEOUT(pSelfRemoved->load(), 1, kWaitMs);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 1);
    QCOMPARE(m_pfnRemoveTask(strKey, kCallSite), 0);
    const int iRunsAtRemoval = pRuns->load();
    QVERIFY(WitnessTicks(kIntervalMs, 3));
    QCOMPARE(pRuns->load(), iRunsAtRemoval);
    QCOMPARE(pEarlyRuns->load(), 0);
    QCOMPARE(pSelfRuns->load(), 1);

    // UnInit drops the periodic tasks too.
    m_pfnUnInit();
    QCOMPARE(m_pfnRemoveTask(strIdleKey, kCallSite), 0);
}

void tst_HxTaskPool::badArgumentsAreRefused()
{
    // An interval of 0 would spin a worker for good.
    std::string strKey;
    QCOMPARE(m_pfnAddLoopTask([] {}, 0, strKey, kCallSite), 0);
    QCOMPARE(m_pfnAddLoopTask([] {}, -50, strKey, kCallSite), 0);
    QCOMPARE(m_pfnAddLoopTask(std::function<void()>(), 50, strKey, kCallSite), 0);
    QVERIFY(strKey.empty());
    QObject owner;
    QCOMPARE(m_pfnAddTmpTask(std::function<void()>(), &owner, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTmpTask(&owner, kCallSite), 0);
    QCOMPARE(m_pfnRemoveTask("no such key", kCallSite), 0);
    QCOMPARE(m_pfnKillTaskAll(), 0);
}

QTEST_GUILESS_MAIN(tst_HxTaskPool)
#include "tst_HxTaskPool.moc"
