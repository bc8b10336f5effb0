#include <QDir>
#include <QLabel>
#include <QLayout>
#include <QProcess>
#include <QProgressBar>
#include <QPushButton>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_BackUpProcess.h"
#include "ViewTestSupport.h"

class tst_BackUpProcess : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void finalTexts_data();
    void finalTexts();
    void malformedAnswersLeaveTheFirstState_data();
    void malformedAnswersLeaveTheFirstState();
    void onlyBackUpIsForwarded();
    void missingLoadingLibraryLeavesTheDialogEmpty();

private:
    QString RateText() const { return m_pDialog->findChild<QLabel*>("label_Rate")->text(); }
    int RateValue() const { return m_pDialog->findChild<QProgressBar*>()->value(); }
    QPushButton* Button() const { return m_pDialog->findChild<QPushButton*>("pushButton_Cancel"); }
    void Answer(const QString& _qstrKey, const QVariantMap& _qmapResult)
    {
        ::Answer(*m_pPresenter, m_pDialog.data(), _qstrKey, _qmapResult);
    }
    void CloseAndCheck(const QVariantList& _lstEmitted);

    QTemporaryDir m_dir;
    std::unique_ptr<CLS_RecordingPresenter> m_pPresenter;
    QPointer<CLS_Bound<CLS_BackUpProcess>> m_pDialog;
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
    m_pDialog = new CLS_Bound<CLS_BackUpProcess>(m_pPresenter.get());
    m_pDialog->show();
}

void tst_BackUpProcess::cleanup()
{
    delete m_pDialog.data();
    m_pPresenter.reset();
}

void tst_BackUpProcess::finalTexts_data()
{
    QTest::addColumn<QVariantMap>("qmapResult");
    QTest::addColumn<QString>("qstrText");
    QTest::addColumn<QVariantList>("lstEmittedOnClose");
    const QString qstrArchive = "/b/BackUp_2026_01_02_03_04.zip";
    QTest::newRow("success hands on the archive on close")
        << QVariantMap{{"TaskResult", 0}, {"BackUpPath", qstrArchive}} << "lab_backup_finish"
        << QVariantList{"BackUp", QVariantMap{{"BackUpPath", qstrArchive}}, ""};
    QTest::newRow("failure with a reason") << QVariantMap{{"TaskResult", -1}, {"reason", "disk full"}}
                                           << "lab_backup_failed(disk full)" << QVariantList();
    QTest::newRow("failure without a reason")
        << QVariantMap{{"TaskResult", -1}} << "lab_backup_failed" << QVariantList();
    QTest::newRow("other result") << QVariantMap{{"TaskResult", 3},
                                                 {"reason", "ignored"},
                                                 {"BackUpPath", "/b"}}
                                  << "lab_backup_finish" << QVariantList();
}

void tst_BackUpProcess::finalTexts()
{
    QFETCH(QVariantMap, qmapResult);
    QFETCH(QString, qstrText);
    QFETCH(QVariantList, lstEmittedOnClose);
    QSignalSpy handled(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted);
    // Progress comes as the presenter's notification, to every view.
    m_pPresenter->SendTaskNotify("ProcessUpdate",
                                 {{"intRate", 35}, {"strRate", "Backing up"}, {"IsSend", true}});
    QCOMPARE(RateValue(), 35);
    QCOMPARE(RateText(), QString("Backing up"));

    Answer("BackUp", qmapResult);
    QCOMPARE(RateText(), qstrText);
    QCOMPARE(RateValue(), 100);
    QCOMPARE(Button()->text(), QString("btn_close_down"));
    QVERIFY(m_pDialog->isVisible());
    QCOMPARE(handled.count(), 2);
    QCOMPARE(handled.last().at(1).toMap().value("__result__").toString(), QString("success"));
    CloseAndCheck(lstEmittedOnClose);
}

void tst_BackUpProcess::malformedAnswersLeaveTheFirstState_data()
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

void tst_BackUpProcess::malformedAnswersLeaveTheFirstState()
{
    QFETCH(QString, qstrKey);
    QFETCH(QVariantMap, qmapResult);
    QFETCH(QString, qstrLogLine);
    QCOMPARE(m_pDialog->layout()->count(), 1);
    QCOMPARE(m_pDialog->layout()->itemAt(0)->widget(), m_pDialog->findChild<QWidget*>("CLS_WgtLoading"));
    QTRY_VERIFY_WITH_TIMEOUT(Button()->isVisible(), 5000);
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
    CloseAndCheck({});
}

// The button cancels the run first, then hands on the archive of a finished one, and the dialog goes.
void tst_BackUpProcess::CloseAndCheck(const QVariantList& _lstEmitted)
{
    QCOMPARE(m_pPresenter->CountRequests("CanCelBackUp"), 0);
    int iCancelsAtEmit = -1;
    QVariantList lstEmitted;
    QObject context;
    connect(m_pDialog.data(), &CLS_ViewBasic::SignRequestTaskRsulted, &context,
            [&](QString _qstrKey, QVariantMap _qmapResult, QString _qstrUUID) {
                iCancelsAtEmit = m_pPresenter->CountRequests("CanCelBackUp");
                lstEmitted = {_qstrKey, _qmapResult, _qstrUUID};
            });
    Button()->click();

    QCOMPARE(m_pPresenter->CountRequests("CanCelBackUp"), 1);
    const STRUCT_SentRequest cancel = m_pPresenter->Requests().last();
    QCOMPARE(cancel.qstrKey, QString("CanCelBackUp"));
    QVERIFY(!QUuid(cancel.qstrUUID).isNull());
    QCOMPARE(cancel.qmapParam.value("__object__").value<void*>(), static_cast<void*>(m_pDialog.data()));
    QCOMPARE(lstEmitted, _lstEmitted);
    QCOMPARE(iCancelsAtEmit, _lstEmitted.isEmpty() ? -1 : 1);
    QTRY_VERIFY_WITH_TIMEOUT(m_pDialog.isNull(), 5000);
}

void tst_BackUpProcess::onlyBackUpIsForwarded()
{
    QVariantMap qmapResult;
    QVERIFY(m_pDialog->TaskRequestHandler("BackUp", {{"BackUpPath", "/b"}}, "host-id", qmapResult));
    QVERIFY(!m_pDialog->TaskRequestHandler("Recover", {{"RecoverPath", "/b/x.zip"}}, "host-id", qmapResult));

    QCOMPARE(m_pPresenter->Requests().size(), 1);
    const STRUCT_SentRequest request = m_pPresenter->Requests().first();
    QCOMPARE(request.qstrKey, QString("BackUp"));
    QCOMPARE(request.qmapParam,
             (QVariantMap{{"BackUpPath", "/b"},
                          {"__object__", QVariant::fromValue(static_cast<void*>(m_pDialog.data()))}}));
    QVERIFY(request.qstrUUID != "host-id" && !QUuid(request.qstrUUID).isNull());
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
        for (const QList<QVariant>& lstArgs : handled) {
            QCOMPARE(lstArgs.at(1).toMap().value("__result__").toString(), QString("fail"));
        }
        QCOMPARE(CountLogLines(m_dir.path(), "const_data_int_ProcessRate is nullptr"), 1);
        QCOMPARE(CountLogLines(m_dir.path(), " m_pWgtProcess is nullptr"), 2);
        return;
    }
    QTemporaryDir tree;
    QTemporaryDir data;
    QVERIFY(tree.isValid() && data.isValid());
    QVERIFY(QDir().mkpath(tree.path() + "/bin") && QDir().mkpath(tree.path() + "/Frameworks"));
    const QString qstrCopy = tree.path() + "/bin/tst_BackUpProcess";
    QVERIFY(QFile::copy(QCoreApplication::applicationFilePath(), qstrCopy));
    const QDir frameworks(QCoreApplication::applicationDirPath() + "/../Frameworks");
    for (const QFileInfo& library : frameworks.entryInfoList(QDir::Files)) {
        QVERIFY(library.fileName().startsWith("libWgtLoading.") ||
                QFile::link(library.canonicalFilePath(), tree.path() + "/Frameworks/" + library.fileName()));
    }
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
