#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "ViewTestSupport.h"

// Counts its set-up and data loads and records the keys its handler saw.
class CLS_TestView : public CLS_ViewBasic
{
    Q_OBJECT

public:
    explicit CLS_TestView(CLS_PresenterBasic* _pPresenter) : m_pPresenter(_pPresenter) {}
    ~CLS_TestView() override { RemovePendingTasks(); }

    CLS_PresenterBasic* GetPresenter() override { return m_pPresenter; }
    void InitView() override { ++m_iInitView; }
    void InitData() override { ++m_iInitData; }
    bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                     QVariantMap& _qmapResult) override
    {
        m_lstHandled.append(_qstrKey);
        _qmapResult.insert("seen", _qmapParam.value("echo"));
        return _qstrKey != "fail";
    }

    CLS_PresenterBasic* m_pPresenter;
    int m_iInitView = 0;
    std::atomic<int> m_iInitData{0};
    QStringList m_lstHandled;
};

namespace A::B {
class View : public CLS_TestView
{
    Q_OBJECT

public:
    using CLS_TestView::CLS_TestView;
};
} // namespace A::B

class tst_ViewBasic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answersReachOnlyTheViewThatAsked();
    void requestIdentifiers();
    void failingHandlerIsMarkedFail();
    void showHideShowLoadsDataOnce_data();
    void showHideShowLoadsDataOnce();
    void viewWithoutPresenter();
    void codes();

private:
    QTemporaryDir m_dir;
};

void tst_ViewBasic::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    QVERIFY(PoolFunction<TaskPool::PFN_AddTmpTask>("AddTmpTask") != nullptr);
}

void tst_ViewBasic::answersReachOnlyTheViewThatAsked()
{
    CLS_RecordingPresenter presenter;
    presenter.Init();
    CLS_TestView first(&presenter);
    CLS_TestView second(&presenter);
    first.Init();
    second.Init();
    QSignalSpy firstResults(&first, &CLS_ViewBasic::SignRequestTaskRsulted);

    first.SendPresenterRequest("ok", {{"value", "for first"}}, true);
    QTRY_COMPARE_WITH_TIMEOUT(first.m_lstHandled.size(), 1, 5000);
    QCOMPARE(first.m_lstHandled, QStringList{"ok"});
    QCOMPARE(firstResults.count(), 1);
    const QVariantMap qmapResult = firstResults.first().at(1).toMap();
    QCOMPARE(qmapResult.value("seen").toString(), QString("for first"));
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));

    // Sent after the first view's answer: once it is in, the first view has seen all it will.
    second.SendPresenterRequest("ok", {{"value", "for second"}}, true);
    QTRY_COMPARE_WITH_TIMEOUT(second.m_lstHandled.size(), 1, 5000);
    QCoreApplication::processEvents();
    QCOMPARE(first.m_lstHandled.size(), 1);
    QCOMPARE(firstResults.count(), 1);

    // Addressed by "__object__", whatever the identifier.
    Answer(presenter, &second, "direct", {});
    QCOMPARE(second.m_lstHandled, (QStringList{"ok", "direct"}));
    QCOMPARE(first.m_lstHandled, QStringList{"ok"});

    // A notification reaches both, once even after a second Init.
    first.Init();
    presenter.SendTaskNotify("ProcessUpdate", {{"echo", 40}});
    QCOMPARE(first.m_lstHandled, (QStringList{"ok", "ProcessUpdate"}));
    QCOMPARE(second.m_lstHandled, (QStringList{"ok", "direct", "ProcessUpdate"}));
    QCOMPARE(firstResults.last().at(2).toString(), QString("__notify__"));
}

void tst_ViewBasic::requestIdentifiers()
{
    CLS_RecordingPresenter presenter;
    presenter.m_blForward = false;
    CLS_TestView view(&presenter);
    view.SendPresenterRequest("plain", {{"value", 1}}, false);
    view.SendPresenterRequest("unique", {{"value", 2}}, true);
    view.SendPresenterRequest("unique", {{"value", 3}}, true);
    view.SendPresenterRequest("given", {{"value", 4}}, QString("my-id"));

    const QList<STRUCT_SentRequest> lstRequests = presenter.Requests();
    QCOMPARE(lstRequests.size(), 4);
    QCOMPARE(lstRequests.at(0).qstrUUID, QString("__DefaultID__"));
    QVERIFY(!QUuid(lstRequests.at(1).qstrUUID).isNull() && !QUuid(lstRequests.at(2).qstrUUID).isNull());
    QVERIFY(lstRequests.at(1).qstrUUID != lstRequests.at(2).qstrUUID);
    QCOMPARE(lstRequests.at(3).qstrUUID, QString("my-id"));
    for (const STRUCT_SentRequest& request : lstRequests) {
        QCOMPARE(request.qmapParam.value("__object__").value<void*>(), static_cast<void*>(&view));
        QCOMPARE(request.pRequestObj, &view);
    }
    QCOMPARE(lstRequests.at(3).qmapParam.value("value").toInt(), 4);
}

void tst_ViewBasic::failingHandlerIsMarkedFail()
{
    CLS_RecordingPresenter presenter;
    CLS_TestView view(&presenter);
    QSignalSpy results(&view, &CLS_ViewBasic::SignRequestTaskRsulted);

    view.CallTaskHandler("fail", {}, "id-fail");
    QCOMPARE(results.count(), 1);
    QCOMPARE(results.first().at(0).toString(), QString("fail"));
    QCOMPARE(results.first().at(1).toMap().value("__result__").toString(), QString("fail"));
    QCOMPARE(results.first().at(2).toString(), QString("id-fail"));
    QCOMPARE(LogLines(m_dir.path()).filter("[ERROR]").filter("key:[fail] param:[").size(), 1);
}

void tst_ViewBasic::showHideShowLoadsDataOnce_data()
{
    QTest::addColumn<bool>("blReadyFirst");
    QTest::newRow("presenter ready before the first show") << true;
    QTest::newRow("presenter ready after the first show") << false;
}

void tst_ViewBasic::showHideShowLoadsDataOnce()
{
    QFETCH(bool, blReadyFirst);
    CLS_RecordingPresenter presenter;
    if (blReadyFirst) {
        presenter.Init();
    }
    CLS_TestView view(&presenter);
    view.show();
    if (!blReadyFirst) {
        QCOMPARE(DrainPoolTasks(&view), 0);
        QCOMPARE(view.m_iInitData.load(), 0);
        view.hide();
        view.show();
        // Loaded on SignInitEd, while Init emits it.
        presenter.Init();
        QCOMPARE(view.m_iInitData.load(), 1);
    }
    QTRY_COMPARE_WITH_TIMEOUT(view.m_iInitData.load(), 1, 5000);
    view.hide();
    view.show();
    // Nothing else may be queued or running for the view.
    QCOMPARE(DrainPoolTasks(&view), 0);
    QCOMPARE(view.m_iInitData.load(), 1);
    QCOMPARE(view.m_iInitView, 1);
}

void tst_ViewBasic::viewWithoutPresenter()
{
    CLS_TestView view(nullptr);
    view.show();
    QVERIFY(view.IsInitialised());
    QCOMPARE(view.m_iInitView, 1);
    QCOMPARE(CountLogLines(m_dir.path(), "nullptr == pPresenter Init Fail"), 1);
    view.SendPresenterRequest("dropped", {}, true);
    QVERIFY(view.m_lstHandled.isEmpty());
    QCOMPARE(view.m_iInitData.load(), 0);
}

void tst_ViewBasic::codes()
{
    CLS_RecordingPresenter presenter;
    QCOMPARE(QByteArray(CLS_TestView(nullptr).GetModuleCode()), QByteArray("CLS_TestView"));
    QCOMPARE(QByteArray(CLS_TestView(&presenter).GetModuleCode()), QByteArray("TestModule"));
    QCOMPARE(CLS_TestView(nullptr).GetClassCode(), QString("CLS_TestView"));
    QCOMPARE(A::B::View(nullptr).GetClassCode(), QString("View"));
}

QTEST_MAIN(tst_ViewBasic)
#include "tst_ViewBasic.moc"
