#include <thread>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_Singleton.h"
#include "CLS_TestPresenter.h"
#include "TestSupport.h"

namespace {

// Waits for a fresh periodic probe to run a few times: anything else periodic has had its chances too.
bool LetSomeIntervalsPass(int _iIntervalMs)
{
    std::atomic<int> iRuns{0};
    std::string strKey;
    auto pAdd = PoolFunction<TaskPool::PFN_AddLoopTask>("AddLoopTask");
    auto pRemove = PoolFunction<TaskPool::PFN_RemoveTask>("RemoveTask");
    if (pAdd == nullptr || pRemove == nullptr ||
        pAdd([&iRuns] { ++iRuns; }, _iIntervalMs, strKey, "probe") != 1) {
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    while (iRuns < 4 && timer.elapsed() < 5000) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
    }
    pRemove(strKey, "probe");
    return iRuns >= 4;
}

class CLS_SingletonPresenter : public CLS_TestPresenter, public CLS_Singleton<CLS_SingletonPresenter>
{
};

} // namespace

class tst_PresenterBasic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void initAndUnInitRunTheHooks();
    void initThatThrowsIsLoggedAndLeavesThePresenterDown();
    void loopTaskRunsAtItsIntervalUntilUnInit();
    void noLoopTaskWithoutPositiveInterval_data();
    void noLoopTaskWithoutPositiveInterval();
    void throwingLoopTaskKeepsRunning();
    void answersCarryTheReservedWords_data();
    void answersCarryTheReservedWords();
    void sameIdentifierTwiceGetsTwoAnswers();
    void throwingHandlerIsLoggedAndNotAnswered();
    void notificationUsesTheNotifyIdentifier();
    void setParamReplacesTheWholeMap();
    void singletonIsOneObjectAcrossThreads();

private:
    QTemporaryDir m_dir;
    CLS_TestPresenter* m_pPresenter = nullptr;
};

void tst_PresenterBasic::initTestCase()
{
    QVERIFY2(UseDataFolderWithPool(m_dir), "no data folder, or the task pool library is missing");
}

void tst_PresenterBasic::init()
{
    m_pPresenter = new CLS_TestPresenter();
}

void tst_PresenterBasic::cleanup()
{
    m_pPresenter->UnInit();
    m_pPresenter->OpenGate();
    delete m_pPresenter; // drops what is still queued and waits for what runs
    m_pPresenter = nullptr;
}

void tst_PresenterBasic::initAndUnInitRunTheHooks()
{
    QSignalSpy initEd(m_pPresenter, &CLS_PresenterBasic::SignInitEd);
    QCOMPARE(m_pPresenter->IsInit(), 0);
    m_pPresenter->Init();
    QCOMPARE(m_pPresenter->m_iInitData.load(), 1);
    QCOMPARE(m_pPresenter->IsInit(), 1);
    QCOMPARE(initEd.count(), 1);
    m_pPresenter->UnInit();
    QCOMPARE(m_pPresenter->m_iUnInitData.load(), 1);
    QCOMPARE(m_pPresenter->IsInit(), 0);
    m_pPresenter->Init();
    QCOMPARE(initEd.count(), 2);
}

void tst_PresenterBasic::initThatThrowsIsLoggedAndLeavesThePresenterDown()
{
    QSignalSpy initEd(m_pPresenter, &CLS_PresenterBasic::SignInitEd);
    m_pPresenter->m_blThrowInInitData = true;
    m_pPresenter->m_iInterval = 20;
    m_pPresenter->Init();
    QCOMPARE(m_pPresenter->IsInit(), 0);
    QCOMPARE(initEd.count(), 0);
    QCOMPARE(CountLogLines(m_dir.path(), "Init Fail"), 1);
    QCOMPARE(CountLogLines(m_dir.path(), "CLS_PresenterBasic.cpp:119 Init - [17CLS_TestPresenter]Init Fail"),
             1);
    QVERIFY(LetSomeIntervalsPass(20));
    QCOMPARE(m_pPresenter->m_iLoopRuns.load(), 0);
}

void tst_PresenterBasic::loopTaskRunsAtItsIntervalUntilUnInit()
{
    m_pPresenter->m_iInterval = 25;
    m_pPresenter->Init();
    QTRY_VERIFY_WITH_TIMEOUT(m_pPresenter->m_iLoopRuns >= 3, 5000);
    m_pPresenter->UnInit();
    const int iRunsAtStop = m_pPresenter->m_iLoopRuns;
    QVERIFY(LetSomeIntervalsPass(25));
    QCOMPARE(m_pPresenter->m_iLoopRuns.load(), iRunsAtStop);

    // Init starts it again.
    m_pPresenter->Init();
    QTRY_VERIFY_WITH_TIMEOUT(m_pPresenter->m_iLoopRuns > iRunsAtStop, 5000);
}

void tst_PresenterBasic::noLoopTaskWithoutPositiveInterval_data()
{
    QTest::addColumn<int>("interval");
    QTest::newRow("-1") << -1;
    QTest::newRow("0") << 0;
}

void tst_PresenterBasic::noLoopTaskWithoutPositiveInterval()
{
    QFETCH(int, interval);
    m_pPresenter->m_iInterval = interval;
    m_pPresenter->Init();
    QVERIFY(LetSomeIntervalsPass(10));
    QCOMPARE(m_pPresenter->m_iLoopRuns.load(), 0);
}

void tst_PresenterBasic::throwingLoopTaskKeepsRunning()
{
    const int iFailsBefore = CountLogLines(m_dir.path(), "LoopTask Fail");
    m_pPresenter->m_blThrowInLoop = true;
    m_pPresenter->m_iInterval = 20;
    m_pPresenter->Init();
    QTRY_VERIFY_WITH_TIMEOUT(m_pPresenter->m_iLoopRuns >= 3, 5000);
    m_pPresenter->UnInit();
    const int iFails = CountLogLines(m_dir.path(), "LoopTask Fail") - iFailsBefore;
    QVERIFY2(iFails >= 3, qPrintable(QString::number(iFails)));
    QVERIFY(CountLogLines(m_dir.path(),
                          "CLS_PresenterBasic.cpp:190 operator() - [17CLS_TestPresenter]LoopTask Fail") >= 3);
}

void tst_PresenterBasic::answersCarryTheReservedWords_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<bool>("withObject");
    QTest::addColumn<QString>("expectedResult");
    QTest::newRow("success") << "ok" << false << "success";
    QTest::newRow("failure") << "fail" << false << "fail";
    QTest::newRow("handler's own word is overwritten") << "bogus" << false << "success";
    QTest::newRow("object comes back") << "ok" << true << "success";
    QTest::newRow("object comes back on failure") << "fail" << true << "fail";
}

void tst_PresenterBasic::answersCarryTheReservedWords()
{
    QFETCH(QString, key);
    QFETCH(bool, withObject);
    QFETCH(QString, expectedResult);
    QSignalSpy answers(m_pPresenter, &CLS_PresenterBasic::SignTaskResult);
    QVariantMap params{{"value", 7}};
    QObject requester;
    if (withObject) {
        params.insert("__object__", QVariant::fromValue(static_cast<void*>(&requester)));
    }
    m_pPresenter->TaskRequest(key, params, "uuid-1", &requester);
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 1, 5000);
    const QList<QVariant> answer = answers.takeFirst();
    QCOMPARE(answer.at(0).toString(), key);
    QCOMPARE(answer.at(2).toString(), QString("uuid-1"));
    const QVariantMap result = answer.at(1).toMap();
    QCOMPARE(result.value("__result__").toString(), expectedResult);
    QCOMPARE(result.contains("__object__"), withObject);
    if (withObject) {
        QCOMPARE(result.value("__object__").value<void*>(), static_cast<void*>(&requester));
    }
    if (expectedResult == "fail") {
        QTRY_VERIFY(CountLogLines(m_dir.path(), "CLS_PresenterBasic.cpp:402 TaskRequestHandler - ") >= 1);
    }
}

void tst_PresenterBasic::sameIdentifierTwiceGetsTwoAnswers()
{
    QSignalSpy answers(m_pPresenter, &CLS_PresenterBasic::SignTaskResult);
    m_pPresenter->TaskRequest("ok", {{"value", 1}}, "same", nullptr);
    m_pPresenter->TaskRequest("ok", {{"value", 2}}, "same", nullptr);
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 2, 5000);
    QSet<int> echoes;
    for (const QList<QVariant>& answer : answers) {
        QCOMPARE(answer.at(2).toString(), QString("same"));
        echoes.insert(answer.at(1).toMap().value("echo").toInt());
    }
    QCOMPARE(echoes, (QSet<int>{1, 2}));
}

void tst_PresenterBasic::throwingHandlerIsLoggedAndNotAnswered()
{
    QSignalSpy answers(m_pPresenter, &CLS_PresenterBasic::SignTaskResult);
    QObject requester;
    requester.setObjectName("requesterName");
    m_pPresenter->TaskRequest("throw", {}, "uuid-throw", &requester);
    QTRY_COMPARE_WITH_TIMEOUT(CountLogLines(m_dir.path(), "Request Failhandler brokethrow:[throw]"), 1, 5000);
    QCOMPARE(CountLogLines(m_dir.path(), "_pRequestObj:[requesterName] "), 1);
    // The handler has left; an answer after the failure line would already be here.
    m_pPresenter->TaskRequest("ok", {}, "uuid-after", nullptr);
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 1, 5000);
    QCOMPARE(answers.first().at(2).toString(), QString("uuid-after"));
}

void tst_PresenterBasic::notificationUsesTheNotifyIdentifier()
{
    QSignalSpy answers(m_pPresenter, &CLS_PresenterBasic::SignTaskResult);
    m_pPresenter->SendTaskNotify("X", {});
    QCOMPARE(answers.count(), 1);
    QCOMPARE(answers.first().at(0).toString(), QString("X"));
    QVERIFY(answers.first().at(1).toMap().isEmpty());
    QCOMPARE(answers.first().at(2).toString(), QString("__notify__"));
}

void tst_PresenterBasic::setParamReplacesTheWholeMap()
{
    m_pPresenter->SetParam({{"a", 1}, {"b", 2}});
    m_pPresenter->SetParam({{"c", 3}});
    QCOMPARE(m_pPresenter->GetParam(), (QVariantMap{{"c", 3}}));
}

void tst_PresenterBasic::singletonIsOneObjectAcrossThreads()
{
    constexpr int kThreads = 8;
    std::vector<CLS_SingletonPresenter*> instances(kThreads, nullptr);
    std::vector<std::thread> threads;
    std::atomic<bool> blGo{false};
    for (int i = 0; i < kThreads; ++i) {
        threads.emplace_back([&instances, &blGo, i] {
            while (!blGo) {
                std::this_thread::yield();
            }
            instances[i] = CLS_Singleton<CLS_SingletonPresenter>::GetInstance();
        });
    }
    blGo = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    QVERIFY(instances.front() != nullptr);
    for (CLS_SingletonPresenter* pInstance : instances) {
        QCOMPARE(pInstance, instances.front());
    }
}

QTEST_GUILESS_MAIN(tst_PresenterBasic)
#include "tst_PresenterBasic.moc"
