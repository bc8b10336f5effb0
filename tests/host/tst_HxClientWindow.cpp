#include <QApplication>
#include <QLabel>
#include <QPointer>
#include <QProgressBar>
#include <QPushButton>
#include <QStatusBar>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_MainWindow.h"
#include "CLS_ModuleHost.h"

namespace {

constexpr int kRunMs = 120000;

// The module's progress dialog while it is open.
QWidget* OpenProgressDialog()
{
    for (QWidget* pWidget : QApplication::topLevelWidgets()) {
        if (pWidget->isVisible() && pWidget->inherits("CLS_ViewBasic") &&
            QByteArray(pWidget->metaObject()->className()) == "CLS_BackUpProcess") {
            return pWidget;
        }
    }
    return nullptr;
}

} // namespace

// The window of `HxClient gui` with the real module: the settings form, and "Back up now" through the
// module's progress dialog.
class tst_HxClientWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void backUpNowRunsInTheProgressDialogAndReportsTheArchive();

private:
    QTemporaryDir m_dir;
};

void tst_HxClientWindow::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.filePath("data").toUtf8());
    QVERIFY(QDir().mkpath(m_dir.filePath("data/FacePicture")));
    QFile picture(m_dir.filePath("data/FacePicture/face.png"));
    QVERIFY(picture.open(QIODevice::WriteOnly) && picture.write("not really a picture") > 0);
}

void tst_HxClientWindow::backUpNowRunsInTheProgressDialogAndReportsTheArchive()
{
    CLS_ModuleHost host;
    QString qstrError;
    QVERIFY2(host.Load(qstrError), qPrintable(qstrError));
    const QString qstrFolder = m_dir.filePath("archives");
    QVariantMap qmapResult;
    QVERIFY(host.Request("SaveSettint",
                         {{"AutoEnable", false},
                          {"BackUpCount", "3"},
                          {"BackUpFileSavePath", qstrFolder},
                          {"AutoBackUpInteval", "7"}},
                         qmapResult, kRunMs));
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));

    CLS_MainWindow window(host);
    window.show();
    QVERIFY(window.centralWidget()->findChild<QWidget*>("CLS_FrmBackUp") != nullptr);
    QPushButton* pBackUp = nullptr;
    for (QPushButton* pButton : window.findChildren<QPushButton*>()) {
        pBackUp = pButton->text() == "Back up now" ? pButton : pBackUp;
    }
    QVERIFY(pBackUp != nullptr);
    pBackUp->click();

    QTRY_VERIFY_WITH_TIMEOUT(OpenProgressDialog() != nullptr, kRunMs);
    QPointer<QWidget> pDialog = OpenProgressDialog();
    auto* pBar = pDialog->findChild<QProgressBar*>("progressBar_Rate");
    QVERIFY(pBar != nullptr);
    // 100 comes only with the run's outcome.
    QTRY_COMPARE_WITH_TIMEOUT(pBar->value(), 100, kRunMs);
    const QStringList lstArchives = QDir(qstrFolder).entryList({"BackUp_*.zip"}, QDir::Files);
    QCOMPARE(lstArchives.size(), 1);

    // Its button now closes it, and the window learns the archive's path.
    auto* pClose = pDialog->findChild<QPushButton*>("pushButton_Cancel");
    QVERIFY(pClose != nullptr);
    pClose->click();
    QTRY_VERIFY_WITH_TIMEOUT(pDialog.isNull(), kRunMs);
    QLabel* pStatus = window.statusBar()->findChild<QLabel*>();
    QVERIFY(pStatus != nullptr);
    QCOMPARE(pStatus->text(), "Last archive: " + QDir(qstrFolder).filePath(lstArchives.first()));
}

QTEST_MAIN(tst_HxClientWindow)
#include "tst_HxClientWindow.moc"
