#include <memory>

#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QTranslator>
#include <QtTest>

#include "../engine/EngineTestSupport.h"
#include "CLS_MainWindow.h"
#include "CLS_ModuleHost.h"

namespace {

constexpr int kRunMs = 120000;

// The module's progress dialogs that are open.
QList<QWidget*> ProgressDialogs()
{
    QList<QWidget*> lstDialogs;
    for (QWidget* pWidget : QApplication::topLevelWidgets()) {
        if (pWidget->isVisible() && QByteArray(pWidget->metaObject()->className()) == "CLS_BackUpProcess") {
            lstDialogs << pWidget;
        }
    }
    return lstDialogs;
}

// Labels that their layout made narrower than their text, so that the text wraps.
QStringList WrappedLabels(QWidget* _pView)
{
    QStringList lstWrapped;
    for (QLabel* pLabel : _pView->findChildren<QLabel*>()) {
        const int iNeeded = pLabel->fontMetrics().horizontalAdvance(pLabel->text()) + 2 * pLabel->margin();
        if (pLabel->isVisible() && pLabel->wordWrap() && pLabel->contentsRect().width() < iNeeded) {
            lstWrapped << pLabel->objectName();
        }
    }
    return lstWrapped;
}

// The first column left of which a line edit shows only its frame and background: where its text starts.
int FirstInkColumn(QWidget* _pField)
{
    const QImage image = _pField->grab().toImage();
    const QRgb background = image.pixel(image.width() - 4, image.height() / 2);
    for (int x = 2; x < image.width() - 4; ++x) {
        for (int y = 3; y < image.height() - 3; ++y) {
            const QRgb pixel = image.pixel(x, y);
            if (qAbs(qGray(pixel) - qGray(background)) > 40) {
                return x;
            }
        }
    }
    return -1;
}

QStringList Entries(const QString& _qstrFolder)
{
    return QDir(_qstrFolder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
}

// Answers the question on closing during a run, and counts how often it was asked.
class CLS_TestWindow : public CLS_MainWindow
{
public:
    using CLS_MainWindow::CLS_MainWindow;
    int m_iAsked = 0;
    bool m_blAnswer = true;

protected:
    bool ConfirmCancel() override
    {
        ++m_iAsked;
        return m_blAnswer;
    }
};

} // namespace

// The window of `HxClient gui` with the real module and the reference libraries: the settings form, and
// "Back up now" through the module's progress dialog.
class tst_HxClientWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void backUpNowReportsTheArchive();
    void cancelFromTheProgressDialogLeavesNothing();
    void failedRunShowsTheReason_data();
    void failedRunShowsTheReason();
    void formComesBackWithTheStoredSettings();
    void wayOutDuringRunCancelsAndWaits_data();
    void wayOutDuringRunCancelsAndWaits();
    void skinFitsTheFormAndTheMessageBox();

private:
    // A fresh save folder in the settings, or the given path as it is.
    QString UseSaveFolder(const QString& _qstrName, const QString& _qstrPath = QString());
    // Clicks "Back up now" and returns the progress dialog that opens.
    QWidget* StartBackUp(CLS_MainWindow& _window);

    QTemporaryDir m_dir;
    std::unique_ptr<CLS_ModuleHost> m_pHost;
};

void tst_HxClientWindow::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.filePath("data").toUtf8());
    // Enough to pack that a run is still going when a test cancels it.
    QByteArray baPicture(512 * 1024, '\0');
    for (int i = 0; i < 64; ++i) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(baPicture.data()),
                                              baPicture.size() / 4);
        QVERIFY(
            EngineTest::WriteFile(m_dir.filePath(QString("data/FacePicture/face%1.jpg").arg(i)), baPicture));
    }
    // The English texts, as the program installs them: the skin is measured against what users read.
    const QDir qmDir(QCoreApplication::applicationDirPath() + "/translations");
    for (const QString& qstrFile : qmDir.entryList({"*_en.qm"}, QDir::Files)) {
        auto* pTranslator = new QTranslator(this);
        QVERIFY(pTranslator->load(qmDir.filePath(qstrFile)));
        QCoreApplication::installTranslator(pTranslator);
    }
    QVERIFY(!qmDir.entryList({"*_en.qm"}, QDir::Files).isEmpty());
    m_pHost = std::make_unique<CLS_ModuleHost>();
    QString qstrError;
    QVERIFY2(m_pHost->Load(qstrError), qPrintable(qstrError));
}

void tst_HxClientWindow::cleanupTestCase()
{
    m_pHost.reset();
}

QString tst_HxClientWindow::UseSaveFolder(const QString& _qstrName, const QString& _qstrPath)
{
    const QString qstrFolder = _qstrPath.isEmpty() ? m_dir.filePath(_qstrName) : _qstrPath;
    QVariantMap qmapResult;
    const bool blAnswered = m_pHost->Request("SaveSettint",
                                             {{"AutoEnable", true},
                                              {"BackUpCount", "3"},
                                              {"BackUpFileSavePath", qstrFolder},
                                              {"AutoBackUpInteval", "7"}},
                                             qmapResult, kRunMs);
    return blAnswered && qmapResult.value("__result__").toString() == "success" ? qstrFolder : QString();
}

QWidget* tst_HxClientWindow::StartBackUp(CLS_MainWindow& _window)
{
    auto* pBackUp = _window.findChild<QPushButton*>("pushButton_HostBackUp");
    if (pBackUp == nullptr || !pBackUp->isEnabled()) {
        return nullptr;
    }
    pBackUp->click();
    QElapsedTimer timer;
    timer.start();
    while (ProgressDialogs().isEmpty() && timer.elapsed() < kRunMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return ProgressDialogs().size() == 1 ? ProgressDialogs().first() : nullptr;
}

void tst_HxClientWindow::backUpNowReportsTheArchive()
{
    const QString qstrFolder = UseSaveFolder("archives");
    QVERIFY(!qstrFolder.isEmpty());
    CLS_MainWindow window(*m_pHost);
    // Connected after the window: what the status says once the window has taken each progress report.
    QStringList lstProgressStatus;
    connect(m_pHost.get(), &CLS_ModuleHost::SignProgress, &window,
            [&]() { lstProgressStatus << window.StatusText(); });
    window.show();
    QVERIFY(window.centralWidget()->findChild<QWidget*>("CLS_FrmBackUp") != nullptr);
    QPointer<QWidget> pDialog = StartBackUp(window);
    QVERIFY(pDialog != nullptr);
    QVERIFY(window.IsBackUpRunning());
    QVERIFY(window.StatusText().startsWith("Backing up into " + qstrFolder));

    // 100 comes only with the run's outcome; the window knows it without the dialog being closed.
    auto* pBar = pDialog->findChild<QProgressBar*>("progressBar_Rate");
    QVERIFY(pBar != nullptr);
    QTRY_COMPARE_WITH_TIMEOUT(pBar->value(), 100, kRunMs);
    QTRY_VERIFY_WITH_TIMEOUT(!window.IsBackUpRunning(), kRunMs);
    QVERIFY(!lstProgressStatus.isEmpty());
    const QRegularExpression reProgress("^Backing up into " + QRegularExpression::escape(qstrFolder) +
                                        ": \\d+% \\S");
    QVERIFY2(lstProgressStatus.filter(reProgress).size() == lstProgressStatus.size(),
             qPrintable(lstProgressStatus.join('\n')));
    const QStringList lstArchives = Entries(qstrFolder);
    QCOMPARE(lstArchives.size(), 1);
    QVERIFY(lstArchives.first().endsWith(".zip"));
    const QString qstrStatus = "Last archive: " + QDir(qstrFolder).filePath(lstArchives.first());
    QCOMPARE(window.StatusText(), qstrStatus);

    // Its button now closes it; that changes nothing in the window.
    auto* pClose = pDialog->findChild<QPushButton*>("pushButton_Cancel");
    QVERIFY(pClose != nullptr);
    pClose->click();
    QTRY_VERIFY_WITH_TIMEOUT(pDialog.isNull(), kRunMs);
    QCoreApplication::processEvents();
    QCOMPARE(window.StatusText(), qstrStatus);
    QCOMPARE(Entries(qstrFolder), lstArchives);
}

void tst_HxClientWindow::cancelFromTheProgressDialogLeavesNothing()
{
    const QString qstrFolder = UseSaveFolder("cancelled");
    QVERIFY(!qstrFolder.isEmpty());
    CLS_MainWindow window(*m_pHost);
    window.show();
    QPointer<QWidget> pDialog = StartBackUp(window);
    QVERIFY(pDialog != nullptr);
    // At once: the cancel may reach the presenter before the run has even started.
    pDialog->findChild<QPushButton*>("pushButton_Cancel")->click();
    QTRY_VERIFY_WITH_TIMEOUT(pDialog.isNull(), kRunMs);
    // A second "Back up now" while the cancelled run cleans up starts nothing.
    QMetaObject::invokeMethod(&window, "SlotBackUpNow");
    QVERIFY(!window.findChild<QPushButton*>("pushButton_HostBackUp")->isEnabled());

    QTRY_VERIFY_WITH_TIMEOUT(!window.IsBackUpRunning(), kRunMs);
    QCOMPARE(window.StatusText(), QString("Backup cancelled; no archive was written"));
    QCOMPARE(Entries(qstrFolder), QStringList());
    QCOMPARE(ProgressDialogs().size(), 0);
    QVERIFY(window.findChild<QPushButton*>("pushButton_HostBackUp")->isEnabled());
}

void tst_HxClientWindow::failedRunShowsTheReason_data()
{
    QTest::addColumn<QString>("setup");
    QTest::addColumn<QString>("status");
    // The run gives no reason: the window points to the log, as the command line does.
    QTest::newRow("save folder is a file")
        << "file"
        << "backup failed: see the log " + m_dir.filePath("data") + "/Log/hx.log";
    QTest::newRow("too little space on the save volume")
        << "small volume"
        << "backup failed: " + QCoreApplication::translate("CLS_BackUpPresenter", "msg_disk_less");
}

void tst_HxClientWindow::failedRunShowsTheReason()
{
    QFETCH(QString, setup);
    QFETCH(QString, status);
    const QString qstrPath = m_dir.filePath("failing-" + setup);
    std::unique_ptr<EngineTest::CLS_SmallVolume> pVolume;
    if (setup == "file") {
        QVERIFY(EngineTest::WriteFile(qstrPath, "not a folder"));
    } else {
        pVolume = std::make_unique<EngineTest::CLS_SmallVolume>(qstrPath);
        if (!pVolume->IsMounted()) {
            QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
        }
    }
    QCOMPARE(UseSaveFolder(QString(), qstrPath), qstrPath);
    CLS_MainWindow window(*m_pHost);
    window.show();
    QPointer<QWidget> pDialog = StartBackUp(window);
    QVERIFY(pDialog != nullptr);
    QTRY_VERIFY_WITH_TIMEOUT(!window.IsBackUpRunning(), kRunMs);
    QCOMPARE(window.StatusText(), status);
    // The dialog stays open with the outcome until the user closes it.
    QVERIFY(!pDialog.isNull());
    if (pVolume != nullptr) {
        QCOMPARE(Entries(qstrPath), QStringList());
    }
}

void tst_HxClientWindow::formComesBackWithTheStoredSettings()
{
    const QString qstrFolder = UseSaveFolder("stored");
    QVERIFY(!qstrFolder.isEmpty());
    CLS_MainWindow window(*m_pHost);
    window.show();
    auto* pForm = window.findChild<QWidget*>("CLS_FrmBackUp");
    QVERIFY(pForm != nullptr);
    auto* pPath = pForm->findChild<QLineEdit*>("lineEdit_SavePath");
    auto* pSettings = window.findChild<QPushButton*>("pushButton_HostSettings");
    QVERIFY(pPath != nullptr && pSettings != nullptr);
    QTRY_COMPARE_WITH_TIMEOUT(pPath->text(), qstrFolder, kRunMs);
    QVERIFY(!pSettings->isVisible());

    // Typed, then cancelled: nothing is saved, and the way back is offered.
    pPath->setText(m_dir.filePath("typed but not saved"));
    pForm->findChild<QPushButton*>("pushButton_Cannel")->click();
    QVERIFY(!pForm->isVisible());
    QVERIFY(pSettings->isVisible());

    pSettings->click();
    QVERIFY(pForm->isVisible());
    QVERIFY(!pSettings->isVisible());
    QTRY_COMPARE_WITH_TIMEOUT(pPath->text(), qstrFolder, kRunMs);
}

void tst_HxClientWindow::wayOutDuringRunCancelsAndWaits_data()
{
    QTest::addColumn<bool>("quit"); // Quit from the menu, or closing the window (which asks)
    QTest::newRow("window closed") << false;
    QTest::newRow("Quit") << true;
}

void tst_HxClientWindow::wayOutDuringRunCancelsAndWaits()
{
    QFETCH(bool, quit);
    const QString qstrFolder = UseSaveFolder(quit ? "quit" : "closed");
    QVERIFY(!qstrFolder.isEmpty());
    CLS_TestWindow window(*m_pHost);
    QSignalSpy finished(&window, &CLS_MainWindow::SignFinished);
    window.show();
    QPointer<QWidget> pDialog = StartBackUp(window);
    QVERIFY(pDialog != nullptr);

    // Closing and saying no leaves the run alone.
    if (!quit) {
        window.m_blAnswer = false;
        window.close();
        QCOMPARE(window.m_iAsked, 1);
        QVERIFY(window.isVisible() && window.IsBackUpRunning());
        window.m_blAnswer = true;
    }
    if (quit) {
        window.Quit();
    } else {
        window.close();
    }
    // The run's answer comes through the event loop: the window cannot have gone yet.
    QVERIFY(window.isVisible());
    QCOMPARE(finished.size(), 0);
    // Closed again and Quit during the cancel: no second question, no second way out.
    window.close();
    window.Quit();
    QCOMPARE(window.m_iAsked, quit ? 0 : 2);

    QVERIFY(finished.wait(kRunMs));
    QCOMPARE(finished.size(), 1);
    QCOMPARE(finished.first().first().toInt(), 130);
    QVERIFY(!window.isVisible());
    QVERIFY(!window.IsBackUpRunning());
    QCOMPARE(window.StatusText(), QString("Backup cancelled; no archive was written"));
    // Nothing left: neither the staging folder nor a part of an archive.
    QCOMPARE(Entries(qstrFolder), QStringList());
    QTRY_VERIFY_WITH_TIMEOUT(pDialog.isNull(), kRunMs);
    QCoreApplication::processEvents();
    QCOMPARE(finished.size(), 1);
}

void tst_HxClientWindow::skinFitsTheFormAndTheMessageBox()
{
    QVERIFY(!UseSaveFolder("skin").isEmpty());
    CLS_MainWindow window(*m_pHost);
    window.show();
    auto* pForm = window.findChild<QWidget*>("CLS_FrmBackUp");
    QVERIFY(pForm != nullptr);
    QTRY_VERIFY_WITH_TIMEOUT(!pForm->findChild<QLineEdit*>("lineEdit_SavePath")->text().isEmpty(), kRunMs);
    QCOMPARE(WrappedLabels(pForm), QStringList());

    // The form on its own, at its smallest.
    std::unique_ptr<QWidget> pSmall(m_pHost->CreateView({}));
    pSmall->show();
    pSmall->resize(pSmall->minimumSize());
    QTRY_COMPARE(pSmall->size(), pSmall->minimumSize());
    QCOMPARE(WrappedLabels(pSmall.get()), QStringList());

    // A placeholder starts where typed text does: both begin with the digit 1.
    auto* pCount = pSmall->findChild<QLineEdit*>("lineEdit_SaveCount");
    auto* pInterval = pSmall->findChild<QLineEdit*>("lineEdit_SaveInterval");
    QVERIFY(pCount != nullptr && pInterval != nullptr);
    pCount->clear();
    pInterval->setText("1");
    const int iPlaceholder = FirstInkColumn(pCount);
    const int iText = FirstInkColumn(pInterval);
    QVERIFY2(iPlaceholder > 0 && qAbs(iPlaceholder - iText) <= 1,
             qPrintable(QString("placeholder at %1, text at %2").arg(iPlaceholder).arg(iText)));

    // The message box of an empty field: its text beside the icon, and all of it shown.
    QRect textRect;
    QRect iconRect;
    bool blWholeText = false;
    int iBoxWidth = 0;
    QTimer::singleShot(0, [&]() {
        QTRY_VERIFY_WITH_TIMEOUT(QApplication::activeModalWidget() != nullptr, kRunMs);
        auto* pBox = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        QVERIFY(pBox != nullptr);
        QCoreApplication::processEvents();
        iBoxWidth = pBox->width();
        if (auto* pText = pBox->findChild<QLabel*>("qt_msgbox_label")) {
            textRect = pText->geometry();
            blWholeText = pText->wordWrap() ? pText->height() >= pText->heightForWidth(pText->width())
                                            : pText->contentsRect().width() >=
                                                  pText->fontMetrics().horizontalAdvance(pText->text());
        }
        if (auto* pIcon = pBox->findChild<QLabel*>("qt_msgboxex_icon_label")) {
            iconRect = QRect(pIcon->geometry().topLeft(),
                             pIcon->pixmap(Qt::ReturnByValue).size() / pIcon->devicePixelRatioF());
        }
        pBox->done(QMessageBox::Ok);
    });
    pSmall->findChild<QPushButton*>("pushButton_Save")->click();
    QVERIFY(textRect.isValid() && iconRect.isValid());
    QVERIFY2(
        textRect.left() - iconRect.right() < 40,
        qPrintable(QString("icon ends at %1, text starts at %2").arg(iconRect.right()).arg(textRect.left())));
    QVERIFY(blWholeText);
    QVERIFY(iBoxWidth >= 260);
}

QTEST_MAIN(tst_HxClientWindow)
#include "tst_HxClientWindow.moc"
