#include <memory>

#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUuid>
#include <QtTest>

#include "CLS_ViewBasic.h"
#include "ViewTestSupport.h"

// A view that counts its set-up and data loads and records the keys its handler saw.
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

namespace A {
namespace B {
class View : public CLS_TestView
{
    Q_OBJECT

public:
    using CLS_TestView::CLS_TestView;
};
} // namespace B
} // namespace A

class tst_ViewBasic : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void answersReachOnlyTheViewThatAsked();
    void notificationsReachEveryView();
    void requestIdentifiers();
    void failingHandlerIsMarkedFail();
    void showHideShowLoadsDataOnce();
    void presenterReadyAfterFirstShowLoadsOnSignInitEd();
    void repeatedInitConnectsOnce();
    void viewWithoutPresenter();
    void classCode_data();
    void classCode();
    void widgetLibraries();

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

    // An answer for the second view, sent after the first one's: once it is in, the first has seen all.
    second.SendPresenterRequest("ok", {{"value", "for second"}}, true);
    QTRY_COMPARE_WITH_TIMEOUT(second.m_lstHandled.size(), 1, 5000);
    QCoreApplication::processEvents();
    QCOMPARE(first.m_lstHandled.size(), 1);
    QCOMPARE(firstResults.count(), 1);

    // The presenter's answer is addressed by "__object__", whatever the identifier.
    Q_EMIT presenter.SignTaskResult(
        "direct", {{"__object__", QVariant::fromValue(static_cast<void*>(&second))}}, "__DefaultID__");
    QCOMPARE(second.m_lstHandled, (QStringList{"ok", "direct"}));
    QCOMPARE(first.m_lstHandled, QStringList{"ok"});
}

void tst_ViewBasic::notificationsReachEveryView()
{
    CLS_RecordingPresenter presenter;
    CLS_TestView first(&presenter);
    CLS_TestView second(&presenter);
    first.Init();
    second.Init();
    QSignalSpy secondResults(&second, &CLS_ViewBasic::SignRequestTaskRsulted);

    presenter.SendTaskNotify("ProcessUpdate", {{"echo", 40}});
    QCOMPARE(first.m_lstHandled, QStringList{"ProcessUpdate"});
    QCOMPARE(second.m_lstHandled, QStringList{"ProcessUpdate"});
    QCOMPARE(secondResults.count(), 1);
    QCOMPARE(secondResults.first().at(2).toString(), QString("__notify__"));
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
    QVERIFY(QUuid(lstRequests.at(1).qstrUUID).isNull() == false);
    QVERIFY(QUuid(lstRequests.at(2).qstrUUID).isNull() == false);
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
    bool blErrorLine = false;
    for (const QString& qstrLine : LogLines(m_dir.path())) {
        blErrorLine =
            blErrorLine || (qstrLine.contains("[ERROR]") && qstrLine.contains("key:[fail] param:["));
    }
    QVERIFY(blErrorLine);

    // Addressed to some other view: not handled, nothing emitted.
    int iOther = 0;
    view.CallTaskHandler("ok", {{"__object__", QVariant::fromValue(static_cast<void*>(&iOther))}}, "x");
    QCOMPARE(results.count(), 1);
    QCOMPARE(view.m_lstHandled, QStringList{"fail"});
}

void tst_ViewBasic::showHideShowLoadsDataOnce()
{
    CLS_RecordingPresenter presenter;
    presenter.Init();
    CLS_TestView view(&presenter);

    view.show();
    QTRY_COMPARE_WITH_TIMEOUT(view.m_iInitData.load(), 1, 5000);
    QCOMPARE(view.m_iInitView, 1);
    QVERIFY(view.IsInitialised());
    view.hide();
    view.show();
    view.hide();
    view.show();
    // Nothing else may be queued or running for the view.
    QCOMPARE(DrainPoolTasks(&view), 0);
    QCOMPARE(view.m_iInitData.load(), 1);
    QCOMPARE(view.m_iInitView, 1);
}

void tst_ViewBasic::presenterReadyAfterFirstShowLoadsOnSignInitEd()
{
    CLS_RecordingPresenter presenter;
    CLS_TestView view(&presenter);

    view.show();
    QCOMPARE(DrainPoolTasks(&view), 0);
    QCOMPARE(view.m_iInitData.load(), 0);
    view.hide();
    view.show();

    presenter.Init();
    QCOMPARE(view.m_iInitData.load(), 1);
    view.hide();
    view.show();
    QCOMPARE(DrainPoolTasks(&view), 0);
    QCOMPARE(view.m_iInitData.load(), 1);
}

void tst_ViewBasic::repeatedInitConnectsOnce()
{
    CLS_RecordingPresenter presenter;
    CLS_TestView view(&presenter);
    view.Init();
    view.Init();
    presenter.SendTaskNotify("note", {});
    QCOMPARE(view.m_lstHandled, QStringList{"note"});
}

void tst_ViewBasic::viewWithoutPresenter()
{
    CLS_TestView view(nullptr);
    QCOMPARE(QByteArray(view.GetModuleCode()), QByteArray("CLS_TestView"));
    view.show();
    QVERIFY(view.IsInitialised());
    QCOMPARE(view.m_iInitView, 1);
    QCOMPARE(CountLogLines(m_dir.path(), "nullptr == pPresenter Init Fail"), 1);
    view.SendPresenterRequest("dropped", {}, true);
    QVERIFY(view.m_lstHandled.isEmpty());
    QCOMPARE(view.m_iInitData.load(), 0);

    // The presenter that the view points at is used for the module code.
    CLS_RecordingPresenter presenter;
    CLS_TestView bound(&presenter);
    QCOMPARE(QByteArray(bound.GetModuleCode()), QByteArray("TestModule"));
}

void tst_ViewBasic::classCode_data()
{
    QTest::addColumn<bool>("blNested");
    QTest::addColumn<QString>("qstrClassCode");
    QTest::newRow("plain class") << false << "CLS_TestView";
    QTest::newRow("class in namespaces") << true << "View";
}

void tst_ViewBasic::classCode()
{
    QFETCH(bool, blNested);
    QFETCH(QString, qstrClassCode);
    CLS_TestView plain(nullptr);
    A::B::View nested(nullptr);
    CLS_ViewBasic* pView = blNested ? static_cast<CLS_ViewBasic*>(&nested) : &plain;
    QCOMPARE(pView->GetClassCode(), qstrClassCode);
}

void tst_ViewBasic::widgetLibraries()
{
    QCOMPARE(GetWgtView("NoSuchWidgetLibrary", {}), nullptr);

    QWidget parent;
    QWidget* pLoading = GetWgtView("WgtLoading", {{"WgtLoadingParent", QVariant::fromValue(&parent)}});
    QVERIFY(pLoading != nullptr);
    QVERIFY(pLoading->inherits("CLS_ViewBasic"));
    QCOMPARE(pLoading->parentWidget(), &parent);

    std::unique_ptr<QWidget> pMsgBox(GetWgtView("WgtMsgBox", {}));
    QVERIFY(pMsgBox != nullptr);
    QVERIFY(pMsgBox->inherits("CLS_ViewBasic"));
    QVariantMap qmapResult;
    QVERIFY(!static_cast<CLS_ViewBasic*>(pMsgBox.get())->TaskRequest("NoSuchKey", {}, qmapResult));
}

QTEST_MAIN(tst_ViewBasic)
#include "tst_ViewBasic.moc"
