#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ModuleBasic.h"
#include "CLS_TestPresenter.h"
#include "TestSupport.h"

class CLS_TestModule : public CLS_ModuleBasic
{
    Q_OBJECT

public:
    explicit CLS_TestModule(CLS_TestPresenter* _pPresenter) : m_pPresenter(_pPresenter) {}
    ~CLS_TestModule() override { RemoveQueuedTasks(); }

    CLS_PresenterBasic* GetPresenter(const QVariantMap&) override
    {
        // The module also asks for its log lines' module code; only the pool's questions are counted.
        if (QThread::currentThread() != QCoreApplication::instance()->thread()) {
            ++m_iPresenterAsked;
        }
        return m_pPresenter;
    }
    QWidget* CreateView(const QVariantMap&) override { return nullptr; }

    CLS_TestPresenter* m_pPresenter;
    std::atomic<int> m_iPresenterAsked{0};
};

class tst_ModuleBasic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void answersCarryTheResultWord_data();
    void answersCarryTheResultWord();
    void sameIdentifierTwiceGetsTwoAnswers();
    void noPresenterMeansNoAnswer();
    void moduleCodeComesFromThePresenter();
    void initAndUnInitReachThePresenterEachTime();
    void destroyingTheModuleDropsItsQueuedRequests();

private:
    QTemporaryDir m_dir;
    CLS_TestPresenter* m_pPresenter = nullptr;
    CLS_TestModule* m_pModule = nullptr;
};

void tst_ModuleBasic::initTestCase()
{
    QVERIFY2(UseDataFolderWithPool(m_dir), "no data folder, or the task pool library is missing");
}

void tst_ModuleBasic::init()
{
    m_pPresenter = new CLS_TestPresenter();
    m_pModule = new CLS_TestModule(m_pPresenter);
}

void tst_ModuleBasic::cleanup()
{
    m_pPresenter->OpenGate();
    delete m_pModule;
    delete m_pPresenter;
}

void tst_ModuleBasic::answersCarryTheResultWord_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("expected");
    QTest::newRow("success") << "ok"
                             << "success";
    QTest::newRow("failure") << "fail"
                             << "fail";
    QTest::newRow("handler's own word is overwritten") << "bogus"
                                                       << "success";
}

void tst_ModuleBasic::answersCarryTheResultWord()
{
    QFETCH(QString, key);
    QFETCH(QString, expected);
    QSignalSpy answers(m_pModule, &CLS_ModuleBasic::SignHandlerRsulted);
    int iObject = 0;
    const QVariantMap params{{"value", "v"},
                             {"__object__", QVariant::fromValue(static_cast<void*>(&iObject))}};
    m_pModule->TaskRequest(key, params, "uuid-" + key);
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 1, 5000);
    QCOMPARE(answers.first().at(0).toString(), key);
    QCOMPARE(answers.first().at(2).toString(), "uuid-" + key);
    const QVariantMap result = answers.first().at(1).toMap();
    QCOMPARE(result.value("__result__").toString(), expected);
    QVERIFY2(!result.contains("__object__"), "the module path does not hand the object back");
    QCOMPARE(result.value("echo").toString(), expected == "success" ? QString("v") : QString());

    QCOMPARE(CountLogLines(m_dir.path(),
                           QString("CLS_ModuleBasic.cpp:217 TaskRequest - _qstrBusinessKey:[%1]").arg(key)),
             1);
    QCOMPARE(CountLogLines(m_dir.path(), QString("CLS_ModuleBasic.cpp:228 operator() - handle %1 key:[%2]")
                                             .arg(expected == "success" ? 1 : 0)
                                             .arg(key)),
             1);
    QCOMPARE(CountLogLines(m_dir.path(), QString("CLS_ModuleBasic.cpp:238 operator() - key:[%1]").arg(key)),
             expected == "fail" ? 1 : 0);
}

void tst_ModuleBasic::sameIdentifierTwiceGetsTwoAnswers()
{
    QSignalSpy answers(m_pModule, &CLS_ModuleBasic::SignHandlerRsulted);
    m_pModule->TaskRequest("ok", {{"value", 1}}, "same");
    m_pModule->TaskRequest("ok", {{"value", 2}}, "same");
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 2, 5000);
    QSet<int> echoes;
    for (const QList<QVariant>& answer : answers) {
        QCOMPARE(answer.at(2).toString(), QString("same"));
        echoes.insert(answer.at(1).toMap().value("echo").toInt());
    }
    QCOMPARE(echoes, (QSet<int>{1, 2}));
}

void tst_ModuleBasic::noPresenterMeansNoAnswer()
{
    m_pModule->m_pPresenter = nullptr;
    QSignalSpy answers(m_pModule, &CLS_ModuleBasic::SignHandlerRsulted);
    m_pModule->TaskRequest("ok", {}, "uuid-none");
    QTRY_COMPARE_WITH_TIMEOUT(m_pModule->m_iPresenterAsked.load(), 1, 5000);
    // Waits for the owner's running task to end.
    PoolFunction<TaskPool::PFN_RemoveTmpTask>("RemoveTmpTask")(m_pModule, "test");
    QCoreApplication::processEvents();
    QCOMPARE(answers.count(), 0);
    QCOMPARE(m_pPresenter->m_iHandled.load(), 0);
}

void tst_ModuleBasic::moduleCodeComesFromThePresenter()
{
    QCOMPARE(QByteArray(m_pModule->GetModuleCode()), QByteArray("TestModule"));
    m_pModule->m_pPresenter = nullptr;
    QCOMPARE(QByteArray(m_pModule->GetModuleCode()), QByteArray("CLS_TestModule"));
}

void tst_ModuleBasic::initAndUnInitReachThePresenterEachTime()
{
    m_pModule->InitModule({{"first", 1}});
    QCOMPARE(m_pPresenter->IsInit(), 1);
    QCOMPARE(m_pPresenter->GetParam(), (QVariantMap{{"first", 1}}));
    m_pModule->InitModule({{"second", 2}});
    QCOMPARE(m_pPresenter->m_iInitData.load(), 2);
    QCOMPARE(m_pPresenter->GetParam(), (QVariantMap{{"second", 2}}));
    QVERIFY(CountLogLines(m_dir.path(),
                          "CLS_ModuleBasic.cpp:120 InitModule - run function _qmapParam - [{") == 2);

    m_pModule->UnInitModule({{"third", 3}});
    QCOMPARE(m_pPresenter->IsInit(), 0);
    QCOMPARE(m_pPresenter->m_iUnInitData.load(), 1);
    QCOMPARE(m_pPresenter->GetParam(), (QVariantMap{{"third", 3}}));
}

void tst_ModuleBasic::destroyingTheModuleDropsItsQueuedRequests()
{
    // Fill every worker with a task that waits at the gate; the module's requests then stay queued.
    CLS_TestPresenter gate;
    QObject gateOwner;
    constexpr int kBlockers = 32;
    auto pAdd = PoolFunction<TaskPool::PFN_AddTmpTask>("AddTmpTask");
    std::atomic<int> iStarted{0};
    std::atomic<int> iFinished{0};
    for (int i = 0; i < kBlockers; ++i) {
        pAdd(
            [&] {
                ++iStarted;
                QVariantMap result;
                gate.TaskHandler("gate", {}, result);
                ++iFinished;
            },
            &gateOwner, "test");
    }
    QTRY_VERIFY_WITH_TIMEOUT(iStarted >= 4, 5000);
    for (int i = 0; i < 5; ++i) {
        m_pModule->TaskRequest("ok", {}, QString("queued-%1").arg(i));
    }
    delete m_pModule;
    m_pModule = nullptr;
    gate.OpenGate();
    QTRY_COMPARE_WITH_TIMEOUT(iFinished.load(), kBlockers, 10000);
    PoolFunction<TaskPool::PFN_RemoveTmpTask>("RemoveTmpTask")(&gateOwner, "test");
    QCOMPARE(m_pPresenter->m_iHandled.load(), 0);
    m_pModule = new CLS_TestModule(m_pPresenter);
}

QTEST_GUILESS_MAIN(tst_ModuleBasic)
#include "tst_ModuleBasic.moc"
