#include <QProgressBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ViewBasic.h"
#include "ViewTestSupport.h"

// The host's widget libraries as a module reaches them: through GetWgtView, the keys of TaskRequest and
// the signal by its signature.
class tst_WidgetLibraries : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void loadingRefusesWhatItCannotDo_data();
    void loadingRefusesWhatItCannotDo();
    void loadingClosesItsWindowOnlyWhenAskedTo_data();
    void loadingClosesItsWindowOnlyWhenAskedTo();
    void loadingSpinsUntilDone();
    void loadingKeepsItsWindowOnTopWhenAsked();
    void loadingButtonAnnouncesTheCancel();
    void messageBoxShowsTitleContentAndButtons();

private:
    // A loading panel inside a shown window of the test's own.
    CLS_ViewBasic* Loading(QWidget& _window);
    static bool Send(CLS_ViewBasic* _pView, const QString& _qstrKey, const QVariantMap& _qmapParam);

    QTemporaryDir m_dir;
};

void tst_WidgetLibraries::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
}

CLS_ViewBasic* tst_WidgetLibraries::Loading(QWidget& _window)
{
    QWidget* pWidget = GetWgtView("WgtLoading", {{"WgtLoadingParent", QVariant::fromValue(&_window)}});
    if (pWidget == nullptr || !pWidget->inherits("CLS_ViewBasic")) {
        return nullptr;
    }
    _window.show();
    return static_cast<CLS_ViewBasic*>(pWidget);
}

bool tst_WidgetLibraries::Send(CLS_ViewBasic* _pView, const QString& _qstrKey, const QVariantMap& _qmapParam)
{
    QVariantMap qmapResult;
    return _pView->TaskRequest(_qstrKey, _qmapParam, qmapResult);
}

void tst_WidgetLibraries::loadingRefusesWhatItCannotDo_data()
{
    QTest::addColumn<QString>("qstrKey");
    QTest::addColumn<QVariantMap>("qmapParam");
    QTest::addColumn<bool>("blHandled");
    QTest::newRow("unknown key") << "SetColour" << QVariantMap{{"CommonData", 1}} << false;
    QTest::newRow("rate without values") << "SetRate" << QVariantMap{} << false;
    QTest::newRow("flag without value") << "SetAutoClose" << QVariantMap{} << false;
    QTest::newRow("cancel text without text") << "SetCancelText" << QVariantMap{} << false;
    QTest::newRow("rate") << "SetRate" << QVariantMap{{"intRate", 30}, {"strRate", "x"}} << true;
    QTest::newRow("flag") << "SetMouseMove" << QVariantMap{{"CommonData", true}} << true;
}

void tst_WidgetLibraries::loadingRefusesWhatItCannotDo()
{
    QFETCH(QString, qstrKey);
    QFETCH(QVariantMap, qmapParam);
    QFETCH(bool, blHandled);
    QWidget window;
    CLS_ViewBasic* pLoading = Loading(window);
    QVERIFY(pLoading != nullptr);
    QCOMPARE(Send(pLoading, qstrKey, qmapParam), blHandled);
}

void tst_WidgetLibraries::loadingClosesItsWindowOnlyWhenAskedTo_data()
{
    QTest::addColumn<bool>("blAutoClose");
    QTest::newRow("auto close") << true;
    QTest::newRow("stays open") << false;
}

void tst_WidgetLibraries::loadingClosesItsWindowOnlyWhenAskedTo()
{
    QFETCH(bool, blAutoClose);
    QWidget window;
    CLS_ViewBasic* pLoading = Loading(window);
    QVERIFY(pLoading != nullptr);
    QVERIFY(Send(pLoading, "SetAutoClose", {{"CommonData", blAutoClose}}));
    QVERIFY(Send(pLoading, "SetRate", {{"intRate", 99}, {"strRate", "almost"}}));
    QVERIFY(window.isVisible());
    QVERIFY(Send(pLoading, "SetRate", {{"intRate", 100}, {"strRate", "done"}}));
    QCOMPARE(window.isVisible(), !blAutoClose);
    QCOMPARE(pLoading->findChild<QProgressBar*>()->value(), 100);
}

void tst_WidgetLibraries::loadingSpinsUntilDone()
{
    QWidget window;
    CLS_ViewBasic* pLoading = Loading(window);
    QVERIFY(pLoading != nullptr);
    auto* pSpinner = pLoading->findChild<QWidget*>("CLS_Spinner");
    QVERIFY(pSpinner != nullptr);
    QVERIFY(!pSpinner->isVisible());
    QVERIFY(Send(pLoading, "ShowLoading", {{"Loading", -1}}));
    QVERIFY(pSpinner->isVisible());
    QVERIFY(Send(pLoading, "SetRate", {{"intRate", 100}, {"strRate", "done"}}));
    QVERIFY(!pSpinner->isVisible());
}

void tst_WidgetLibraries::loadingKeepsItsWindowOnTopWhenAsked()
{
    QWidget window;
    CLS_ViewBasic* pLoading = Loading(window);
    QVERIFY(pLoading != nullptr);
    QVERIFY(Send(pLoading, "SetTopWindow", {{"CommonData", true}}));
    QVERIFY(window.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    QVERIFY(window.isVisible());
    QVERIFY(Send(pLoading, "SetTopWindow", {{"CommonData", false}}));
    QVERIFY(!window.windowFlags().testFlag(Qt::WindowStaysOnTopHint));
    QVERIFY(window.isVisible());
}

void tst_WidgetLibraries::loadingButtonAnnouncesTheCancel()
{
    QWidget window;
    CLS_ViewBasic* pLoading = Loading(window);
    QVERIFY(pLoading != nullptr);
    QSignalSpy announced(pLoading, SIGNAL(SignRequestTaskRsulted(QString, QVariantMap, QString)));
    QVERIFY(announced.isValid());
    auto* pButton = pLoading->findChild<QPushButton*>("pushButton_Cancel");
    QVERIFY(pButton != nullptr);
    QVERIFY(!pButton->isVisible());
    QVERIFY(Send(pLoading, "ShowCancelBtn", {{"intRate", 0}, {"strRate", "start"}}));
    QVERIFY(pButton->isVisible());
    QTest::mouseClick(pButton, Qt::LeftButton);
    QVERIFY(Send(pLoading, "SetCancelText", {{"SetCancelText", "Close"}}));
    QCOMPARE(pButton->text(), QString("Close"));
    QTest::mouseClick(pButton, Qt::LeftButton);
    QCOMPARE(announced.count(), 2);
    QCOMPARE(announced.at(0).at(0).toString(), QString("SignLoadingCanceled"));
    QCOMPARE(announced.at(1).at(0).toString(), QString("SignLoadingCanceled"));
}

void tst_WidgetLibraries::messageBoxShowsTitleContentAndButtons()
{
    CLS_ModalCatcher catcher;
    const QVariantMap qmapParam{{"parent", QVariant::fromValue<QWidget*>(nullptr)},
                                {"msgboxtype", 2},
                                {"title", "Notice"},
                                {"content", "Delete the old archives?"},
                                {"inputholder", ""},
                                {"inputtext", ""},
                                {"defaultbutton", static_cast<int>(QMessageBox::No)},
                                {"standbuttons", static_cast<int>(QMessageBox::Yes | QMessageBox::No)}};
    std::unique_ptr<QWidget> pMsgBox(GetWgtView("WgtMsgBox", qmapParam));
    QVERIFY(pMsgBox != nullptr && pMsgBox->inherits("CLS_ViewBasic"));
    QVariantMap qmapResult;
    QVERIFY(static_cast<CLS_ViewBasic*>(pMsgBox.get())->TaskRequest("ShowMessage", qmapParam, qmapResult));
    QCOMPARE(catcher.m_lstBoxes.size(), 1);
    QCOMPARE(catcher.m_lstBoxes.first().qstrTitle, QString("Notice"));
    QCOMPARE(catcher.m_lstBoxes.first().qstrText, QString("Delete the old archives?"));
    QCOMPARE(catcher.m_lstBoxes.first().buttons, QMessageBox::Yes | QMessageBox::No);
    // The catcher presses the default button.
    QCOMPARE(qmapResult.value("Result").toInt(), static_cast<int>(QMessageBox::No));
}

QTEST_MAIN(tst_WidgetLibraries)
#include "tst_WidgetLibraries.moc"
