#include <QDir>
#include <QLabel>
#include <QLayout>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QUuid>
#include <QtTest>

#include "CLS_BackUpProcess.h"
#include "ViewTestSupport.h"

// The progress dialog bound to a recording presenter instead of the module's.
class CLS_TestBackUpProcess : public CLS_BackUpProcess
{
public:
    explicit CLS_TestBackUpProcess(CLS_PresenterBasic* _pPresenter) : m_pPresenter(_pPresenter) {}
    CLS_PresenterBasic* GetPresenter() override { return m_pPresenter; }

private:
    CLS_PresenterBasic* m_pPresenter;
};

class tst_BackUpProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void showsTheLoadingPanel();
    void finalTexts_data();
    void finalTexts();
    void progressFromPresenterNotifications();
    void malformedAnswersChangeNothing_data();
    void malformedAnswersChangeNothing();
    void closeAfterSuccessHandsOnTheArchive();
    void cancelDuringTheRun();
    void onlyBackUpIsForwarded();
    void missingLoadingLibraryLeavesTheDialogEmpty();

private:
    QString RateText() const { return m_pDialog->findChild<QLabel*>("label_Rate")->text(); }
    int RateValue() const { return m_pDialog->findChild<QProgressBar*>()->value(); }
    QPushButton* Button() const { return m_pDialog->findChild<QPushButton*>("pushButton_Cancel"); }
    // An answer of the presenter, addressed to the dialog.
    void Answer(const QString& _qstrKey, QVariantMap _qmapResult);

    QTemporaryDir m_dir;
    std::unique_ptr<CLS_RecordingPresenter> m_pPresenter;
    QPointer<CLS_TestBackUpProcess> m_pDialog;
};

void tst_BackUpProcess::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
}

void tst_BackUpProcess::init()
{
    m_pPresenter = std::make_unique<CLS_RecordingPresenter>();
    m_pPresenter->m_blForward = false;
    m_pPresenter->Init();
    m_pDialog = new CLS_TestBackUpProcess(m_pPresenter.get());
    m_pDialog->show();
}

void tst_BackUpProcess::cleanup()
{
    delete m_pDialog.data();
    m_pPresenter.reset();
}

void tst_BackUpProcess::Answer(const QString& _qstrKey, QVariantMap _qmapResult)
{
    _qmapResult.insert("__object__", QVariant::fromValue(static_cast<void*>(m_pDialog.data())));
    _qmapResult.insert("__result__", "success");
    Q_EMIT m_pPresenter->SignTaskResult(_qstrKey, _qmapResult, QUuid::createUuid().toString());
}

void tst_BackUpProcess::showsTheLoadingPanel()
{
    QVERIFY(m_pDialog->findChild<QWidget*>("CLS_WgtLoading") != nullptr);
    QCOMPARE(m_pDialog->layout()->count(), 1);
    QCOMPARE(m_pDialog->layout()->itemAt(0)->widget(), m_pDialog->findChild<QWidget*>("CLS_WgtLoading"));
    QCOMPARE(RateValue(), 0);
    QCOMPARE(RateText(), QString("lab_rebuildindex_init"));
    QTRY_VERIFY_WITH_TIMEOUT(Button()->isVisible(), 5000);
    QCOMPARE(Button()->text(), QString("btn_cancel"));
    QVERIFY(m_pDialog->testAttribute(Qt::WA_DeleteOnClose));
}

void tst_BackUpProcess::finalTexts_data()
{
    QTest::addColumn<QVariantMap>("qmapResult");
    QTest::addColumn<QString>("qstrText");
    QTest::newRow("success") << QVariantMap{{"TaskResult", 0},
                                            {"BackUpPath", "/b/BackUp_2026_01_02_03_04.zip"}}
                             << "lab_backup_finish";
    QTest::newRow("failure with a reason")
        << QVariantMap{{"TaskResult", -1}, {"reason", "disk full"}} << "lab_backup_failed(disk full)";
    QTest::newRow("failure without a reason") << QVariantMap{{"TaskResult", -1}} << "lab_backup_failed";
    QTest::newRow("other result") << QVariantMap{{"TaskResult", 3}, {"reason", "ignored"}}
                                  << "lab_backup_finish";
}

void tst_BackUpProcess::finalTexts()
{
    QFETCH(QVariantMap, qmapResult);
    QFETCH(QString, qstrText);
    QSignalSpy handled(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
    Answer("ProcessUpdate", {{"intRate", 35}, {"strRate", "lab_backuping"}});
    QCOMPARE(RateValue(), 35);

    Answer("BackUp", qmapResult);
    QCOMPARE(RateText(), qstrText);
    QCOMPARE(RateValue(), 100);
    QCOMPARE(Button()->text(), QString("btn_close_down"));
    QVERIFY(m_pDialog->isVisible());
    QCOMPARE(handled.count(), 2);
    QCOMPARE(handled.last().at(1).toMap().value("__result__").toString(), QString("success"));
}

void tst_BackUpProcess::progressFromPresenterNotifications()
{
    m_pPresenter->SendTaskNotify("ProcessUpdate",
                                 {{"intRate", 40}, {"strRate", "Backing up"}, {"IsSend", true}});
    QCOMPARE(RateValue(), 40);
    QCOMPARE(RateText(), QString("Backing up"));
    m_pPresenter->SendTaskNotify("ProcessUpdate", {{"intRate", 75}, {"strRate", "Backing up"}});
    QCOMPARE(RateValue(), 75);
}

void tst_BackUpProcess::malformedAnswersChangeNothing_data()
{
    QTest::addColumn<QString>("qstrKey");
    QTest::addColumn<QVariantMap>("qmapResult");
    QTest::addColumn<QString>("qstrLogLine");
    QTest::newRow("progress without text")
        << "ProcessUpdate" << QVariantMap{{"intRate", 50}} << " _qmapParam is invalid ";
    QTest::newRow("progress without rate")
        << "ProcessUpdate" << QVariantMap{{"strRate", "half"}} << " _qmapParam is invalid ";
    QTest::newRow("result without outcome")
        << "BackUp" << QVariantMap{{"BackUpPath", "/b/x.zip"}} << " _qmapParam is invalid";
    QTest::newRow("unknown key") << "Recover" << QVariantMap{{"TaskResult", 0}} << QString();
}

void tst_BackUpProcess::malformedAnswersChangeNothing()
{
    QFETCH(QString, qstrKey);
    QFETCH(QVariantMap, qmapResult);
    QFETCH(QString, qstrLogLine);
    QSignalSpy handled(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
    const int iLinesBefore = qstrLogLine.isEmpty() ? 0 : CountLogLines(m_dir.path(), qstrLogLine);

    Answer(qstrKey, qmapResult);
    QCOMPARE(RateValue(), 0);
    QCOMPARE(RateText(), QString("lab_rebuildindex_init"));
    QCOMPARE(Button()->text(), QString("btn_cancel"));
    QCOMPARE(handled.count(), 1);
    QCOMPARE(handled.first().at(1).toMap().value("__result__").toString(), QString("fail"));
    if (!qstrLogLine.isEmpty()) {
        QCOMPARE(CountLogLines(m_dir.path(), qstrLogLine), iLinesBefore + 1);
    }

    // Nothing remembered: closing hands on no archive.
    QSignalSpy closing(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
    Button()->click();
    QCOMPARE(closing.count(), 0);
}

void tst_BackUpProcess::closeAfterSuccessHandsOnTheArchive()
{
    const QString qstrArchive = "/b/BackUp_2026_01_02_03_04.zip";
    Answer("BackUp", {{"TaskResult", 0}, {"BackUpPath", qstrArchive}});
    QCOMPARE(m_pPresenter->CountRequests("CanCelBackUp"), 0);

    int iCancelsAtEmit = -1;
    QVariantList lstEmitted;
    connect(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted, this,
            [&](QString _qstrKey, QVariantMap _qmapResult, QString _qstrUUID) {
                iCancelsAtEmit = m_pPresenter->CountRequests("CanCelBackUp");
                lstEmitted = {_qstrKey, _qmapResult, _qstrUUID};
            });
    Button()->click();

    QCOMPARE(iCancelsAtEmit, 1);
    QCOMPARE(lstEmitted.value(0).toString(), QString("BackUp"));
    QCOMPARE(lstEmitted.value(1).toMap(), (QVariantMap{{"BackUpPath", qstrArchive}}));
    QCOMPARE(lstEmitted.value(2).toString(), QString(""));
    const STRUCT_SentRequest cancel = m_pPresenter->Requests().last();
    QCOMPARE(cancel.qstrKey, QString("CanCelBackUp"));
    QVERIFY(!QUuid(cancel.qstrUUID).isNull());
    QCOMPARE(cancel.qmapParam.value("__object__").value<void*>(), static_cast<void*>(m_pDialog.data()));
    QTRY_VERIFY_WITH_TIMEOUT(m_pDialog.isNull(), 5000);
}

void tst_BackUpProcess::cancelDuringTheRun()
{
    Answer("ProcessUpdate", {{"intRate", 20}, {"strRate", "lab_backuping"}});
    QSignalSpy emitted(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
    Button()->click();
    QCOMPARE(m_pPresenter->CountRequests("CanCelBackUp"), 1);
    QCOMPARE(emitted.count(), 0);
    QTRY_VERIFY_WITH_TIMEOUT(m_pDialog.isNull(), 5000);
}

void tst_BackUpProcess::onlyBackUpIsForwarded()
{
    QVariantMap qmapResult;
    QVERIFY(m_pDialog->TaskRequestHandler("BackUp", {{"BackUpPath", "/b"}}, "host-id", qmapResult));
    QVERIFY(!m_pDialog->TaskRequestHandler("Recover", {{"RecoverPath", "/b/x.zip"}}, "host-id", qmapResult));
    QVERIFY(!m_pDialog->TaskRequestHandler("CanCelBackUp", {}, "host-id", qmapResult));

    const QList<STRUCT_SentRequest> lstRequests = m_pPresenter->Requests();
    QCOMPARE(lstRequests.size(), 1);
    QCOMPARE(lstRequests.first().qstrKey, QString("BackUp"));
    QCOMPARE(lstRequests.first().qmapParam.value("BackUpPath").toString(), QString("/b"));
    QCOMPARE(lstRequests.first().qmapParam.value("__object__").value<void*>(),
             static_cast<void*>(m_pDialog.data()));
    QVERIFY(lstRequests.first().qstrUUID != "host-id");
    QVERIFY(!QUuid(lstRequests.first().qstrUUID).isNull());
}

// The widget library is found beside the executable, so the case runs again in a copy of this suite
// whose Frameworks folder has every library but the loading widget's.
void tst_BackUpProcess::missingLoadingLibraryLeavesTheDialogEmpty()
{
    if (qEnvironmentVariableIsSet("HX_TEST_WITHOUT_WGTLOADING")) {
        QVERIFY(m_pDialog->isVisible());
        QVERIFY(m_pDialog->findChildren<QWidget*>().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(CountLogLines(m_dir.path(), " m_pWgtProcess is nullptr"), 1, 5000);
        QSignalSpy handled(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
        Answer("ProcessUpdate", {{"intRate", 50}, {"strRate", "half"}});
        Answer("BackUp", {{"TaskResult", 0}, {"BackUpPath", "/b/x.zip"}});
        QCOMPARE(handled.count(), 2);
        QCOMPARE(handled.at(0).at(1).toMap().value("__result__").toString(), QString("fail"));
        QCOMPARE(handled.at(1).at(1).toMap().value("__result__").toString(), QString("fail"));
        QCOMPARE(CountLogLines(m_dir.path(), "const_data_int_ProcessRate is nullptr"), 1);
        QCOMPARE(CountLogLines(m_dir.path(), " m_pWgtProcess is nullptr"), 2);
        return;
    }
    QTemporaryDir tree;
    QVERIFY(tree.isValid());
    QVERIFY(QDir().mkpath(tree.path() + "/bin") && QDir().mkpath(tree.path() + "/Frameworks"));
    const QString qstrCopy =
        tree.path() + "/bin/" + QFileInfo(QCoreApplication::applicationFilePath()).fileName();
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), qstrCopy));
    const QDir frameworks(QCoreApplication::applicationDirPath() + "/../Frameworks");
    for (const QFileInfo& library : frameworks.entryInfoList(QDir::Files)) {
        if (!library.fileName().startsWith("libWgtLoading.")) {
            QVERIFY(
                QFile::link(library.canonicalFilePath(), tree.path() + "/Frameworks/" + library.fileName()));
        }
    }
    QTemporaryDir data;
    QVERIFY(data.isValid());
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HX_TEST_WITHOUT_WGTLOADING", "1");
    env.insert("HX_DATA_PATH", data.path());
    // The sanitizer build finds libraries through this path instead of the run path.
    if (env.contains("LD_LIBRARY_PATH")) {
        env.insert("LD_LIBRARY_PATH", tree.path() + "/Frameworks");
    }
    QProcess child;
    child.setProcessEnvironment(env);
    child.setProcessChannelMode(QProcess::MergedChannels);
    child.start(qstrCopy, {"missingLoadingLibraryLeavesTheDialogEmpty"});
    QVERIFY(child.waitForFinished(60000));
    const QByteArray baOutput = child.readAll();
    QVERIFY2(child.exitCode() == 0, baOutput.constData());
    QVERIFY2(baOutput.contains("PASS   : tst_BackUpProcess::missingLoadingLibraryLeavesTheDialogEmpty()"),
             baOutput.constData());
}

QTEST_MAIN(tst_BackUpProcess)
#include "tst_BackUpProcess.moc"
