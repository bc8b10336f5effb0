#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "ControlTestSupport.h"

using namespace ControlTest;

class tst_BackUpRequests : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void unknownKeyIsAnsweredUntouched();
    void requestWithoutItsParameterFails_data();
    void requestWithoutItsParameterFails();
    void progressIsForwardedUnlessMarkedUnchanged_data();
    void progressIsForwardedUnlessMarkedUnchanged();
    void cancelRequestStopsTheForwarding();
    void operateLogEntryNamesUserAndOutcome_data();
    void operateLogEntryNamesUserAndOutcome();
    void manualBackUpAnswersWithItsArchive();
    void failedManualBackUpIsLogged();
    void cancelDuringABackUpStopsTheProgress();

private:
    static int CountNotifications(const QVector<STRUCT_Answer>& _vecAnswers)
    {
        int iCount = 0;
        for (const STRUCT_Answer& stAnswer : _vecAnswers) {
            iCount += stAnswer.qstrUuid == "__notify__" && stAnswer.qstrKey == "ProcessUpdate" ? 1 : 0;
        }
        return iCount;
    }

    QTemporaryDir m_dataDir;
    QTemporaryDir m_saveDir;
    CLS_BackUpPresenter* m_pPresenter = nullptr;
};

void tst_BackUpRequests::initTestCase()
{
    QVERIFY(m_dataDir.isValid() && m_saveDir.isValid());
    qputenv("HX_DATA_PATH", m_dataDir.path().toUtf8());
    m_pPresenter = CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

void tst_BackUpRequests::init()
{
    QVERIFY2(ClearSettings(), "the parameter store library is missing");
    QVERIFY(QDir(m_saveDir.path()).removeRecursively() && QDir().mkpath(m_saveDir.path()));
    m_pPresenter->SetBackUpCancel(0);
}

void tst_BackUpRequests::unknownKeyIsAnsweredUntouched()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QVariantMap qmapResult = recorder.Request("BackUpNow", {{"BackUpPath", m_saveDir.path()}});
    QCOMPARE(qmapResult, (QVariantMap{{"__result__", "success"}}));
    QCOMPARE(QDir(m_saveDir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
}

void tst_BackUpRequests::requestWithoutItsParameterFails_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariantMap>("params");
    QTest::newRow("BackUp") << "BackUp" << QVariantMap{{"RecoverPath", "/x.zip"}, {"backuppath", "/nowhere"}};
    QTest::newRow("Recover") << "Recover" << QVariantMap{{"BackUpPath", "/nowhere"}};
}

void tst_BackUpRequests::requestWithoutItsParameterFails()
{
    QFETCH(QString, key);
    QFETCH(QVariantMap, params);
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QByteArray baStore = StoreFileBytes();
    const int iLogEntries = OperateLog().size();
    const QVariantMap qmapResult = recorder.Request(key, params);
    QCOMPARE(qmapResult, (QVariantMap{{"__result__", "fail"}}));
    QCOMPARE(StoreFileBytes(), baStore);
    QCOMPARE(OperateLog().size(), iLogEntries);
    QCOMPARE(CountNotifications(recorder.Answers()), 0);
}

void tst_BackUpRequests::progressIsForwardedUnlessMarkedUnchanged_data()
{
    QTest::addColumn<int>("flag");
    QTest::addColumn<QVariantMap>("progress");
    QTest::addColumn<int>("expectedReturn");
    QTest::addColumn<bool>("forwarded");
    QTest::newRow("no IsSend") << 0 << QVariantMap{{"intRate", 0}, {"strRate", "lab_backuping"}} << 0 << true;
    QTest::newRow("IsSend true") << 0 << QVariantMap{{"intRate", 13}, {"IsSend", true}} << 0 << true;
    QTest::newRow("IsSend false") << 0 << QVariantMap{{"intRate", 13}, {"IsSend", false}} << 0 << false;
    QTest::newRow("other flag value") << 5 << QVariantMap{{"intRate", 20}, {"IsSend", true}} << 5 << true;
    QTest::newRow("cancel requested") << -1 << QVariantMap{{"intRate", 26}, {"IsSend", true}} << -1 << false;
}

void tst_BackUpRequests::progressIsForwardedUnlessMarkedUnchanged()
{
    QFETCH(int, flag);
    QFETCH(QVariantMap, progress);
    QFETCH(int, expectedReturn);
    QFETCH(bool, forwarded);
    CLS_AnswerRecorder recorder(m_pPresenter);
    m_pPresenter->SetBackUpCancel(flag);
    QCOMPARE(m_pPresenter->ProcessCallBack("ProcessUpdate", progress), expectedReturn);
    const QVector<STRUCT_Answer> vecAnswers = recorder.Answers();
    QCOMPARE(vecAnswers.size(), forwarded ? 1 : 0);
    if (forwarded) {
        QCOMPARE(vecAnswers.first().qstrKey, QString("ProcessUpdate"));
        QCOMPARE(vecAnswers.first().qmapResult, progress);
        QCOMPARE(vecAnswers.first().qstrUuid, QString("__notify__"));
    }
}

void tst_BackUpRequests::cancelRequestStopsTheForwarding()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    QCOMPARE(recorder.Request("CanCelBackUp", {}), (QVariantMap{{"__result__", "success"}}));
    QCOMPARE(m_pPresenter->ProcessCallBack("ProcessUpdate", {{"intRate", 40}}), -1);
    QCOMPARE(CountNotifications(recorder.Answers()), 0);
}

void tst_BackUpRequests::operateLogEntryNamesUserAndOutcome_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<bool>("success");
    QTest::addColumn<QString>("userId");
    QTest::addColumn<QString>("userName");
    QTest::addColumn<QString>("description");
    QTest::newRow("manual, success, default user")
        << 1 << true << QString() << "admin"
        << "lab_users admin btn_backup lab_operation_result msg_success";
    QTest::newRow("automatic, failure")
        << 0 << false << "u7"
        << "Operator Seven"
        << "lab_users Operator Seven btn_backup lab_operation_result msg_Failed";
}

void tst_BackUpRequests::operateLogEntryNamesUserAndOutcome()
{
    QFETCH(int, type);
    QFETCH(bool, success);
    QFETCH(QString, userId);
    QFETCH(QString, userName);
    QFETCH(QString, description);
    if (!userId.isNull()) {
        QVERIFY(Param::SetParam("SystemConfig", "clientid", userId.toStdString(), 1));
        QVERIFY(Param::SetParam("SystemConfig", "username", userName.toStdString(), 1));
    }
    const int iLogEntries = OperateLog().size();
    m_pPresenter->WriteLogInOperateLog(type, "2024-01-31 08:05:09", success);
    auto pDelete = Util::FunctionCast<Param::PFN_DeleteParam>(Param::GetModuleFun("DeleteParam", ""));
    pDelete("SystemConfig", "clientid");
    pDelete("SystemConfig", "username");

    const QVector<STRUCT_searchResult> vecLog = OperateLog();
    QCOMPARE(vecLog.size(), iLogEntries + 1);
    QCOMPARE(vecLog.last().qstrUserId, userId.isNull() ? QString("admin") : userId);
    QCOMPARE(vecLog.last().qstrUserName, userName);
    QCOMPARE(vecLog.last().qstrTime, QString("2024-01-31 08:05:09"));
    QCOMPARE(vecLog.last().qstrDescription, description);
    QCOMPARE(vecLog.last().iType, type);
}

void tst_BackUpRequests::manualBackUpAnswersWithItsArchive()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QString qstrDue = IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(2)));
    QVERIFY(PutSetting("AutoBackUpTime", qstrDue));
    QVERIFY(PutSetting("AutoBackUpPath", "[\"/auto/one.zip\"]"));
    const int iLogEntries = OperateLog().size();
    const QDateTime dtBefore = QDateTime::currentDateTime().addSecs(-1);
    const QVariantMap qmapResult = recorder.Request("BackUp", {{"BackUpPath", m_saveDir.path()}});
    const QDateTime dtAfter = QDateTime::currentDateTime();

    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(qmapResult.value("TaskResult"), QVariant(0));
    const QFileInfo archive(qmapResult.value("BackUpPath").toString());
    QVERIFY2(archive.isFile() && archive.absolutePath() == m_saveDir.path(), qPrintable(archive.filePath()));
    QVERIFY(QRegularExpression("^BackUp_\\d{4}(_\\d\\d){4}\\.zip$").match(archive.fileName()).hasMatch());
    QVERIFY(CountNotifications(recorder.Answers()) >= 1);
    for (const STRUCT_Answer& stAnswer : recorder.Answers()) {
        QVERIFY(stAnswer.qmapResult.value("IsSend", true).toBool());
    }
    // A manual backup is not part of the automatic schedule.
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(Setting("AutoBackUpPath"), QString("[\"/auto/one.zip\"]"));

    const QVector<STRUCT_searchResult> vecLog = OperateLog();
    QCOMPARE(vecLog.size(), iLogEntries + 1);
    QCOMPARE(vecLog.last().iType, 1);
    QCOMPARE(vecLog.last().qstrDescription,
             QString("lab_users admin btn_backup lab_operation_result msg_success"));
    const QDateTime dtStart = QDateTime::fromString(vecLog.last().qstrTime, "yyyy-MM-dd hh:mm:ss");
    QVERIFY2(dtStart >= dtBefore && dtStart <= dtAfter, qPrintable(vecLog.last().qstrTime));
}

void tst_BackUpRequests::failedManualBackUpIsLogged()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    QFile blocker(m_saveDir.filePath("a-file"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    const int iLogEntries = OperateLog().size();
    const QVariantMap qmapResult = recorder.Request("BackUp", {{"BackUpPath", blocker.fileName() + "/sub"}});
    QCOMPARE(qmapResult.value("__result__").toString(), QString("fail"));
    QCOMPARE(qmapResult.value("TaskResult"), QVariant(-1));
    QVERIFY(!qmapResult.contains("BackUpPath"));
    const QVector<STRUCT_searchResult> vecLog = OperateLog();
    QCOMPARE(vecLog.size(), iLogEntries + 1);
    QCOMPARE(vecLog.last().iType, 1);
    QCOMPARE(vecLog.last().qstrDescription,
             QString("lab_users admin btn_backup lab_operation_result msg_Failed"));
}

void tst_BackUpRequests::cancelDuringABackUpStopsTheProgress()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QString qstrCancelUuid = QUuid::createUuid().toString();
    std::mutex mutex;
    std::condition_variable cvCancelled;
    bool blCancelAnswered = false;
    std::atomic<bool> blCancelSent{false};
    // The first progress report holds the run until the cancel is answered, so the cancel lands mid-run.
    recorder.SetHook([&](const STRUCT_Answer& _stAnswer) {
        if (_stAnswer.qstrUuid == qstrCancelUuid) {
            {
                std::lock_guard<std::mutex> lock(mutex);
                blCancelAnswered = true;
            }
            cvCancelled.notify_all();
        } else if (_stAnswer.qstrUuid == "__notify__" && !blCancelSent.exchange(true)) {
            m_pPresenter->TaskRequest("CanCelBackUp", {}, qstrCancelUuid, nullptr);
            std::unique_lock<std::mutex> lock(mutex);
            cvCancelled.wait_for(lock, std::chrono::seconds(30), [&] { return blCancelAnswered; });
        }
    });
    const int iLogEntries = OperateLog().size();
    const QVariantMap qmapResult = recorder.Request("BackUp", {{"BackUpPath", m_saveDir.path()}});
    recorder.SetHook(nullptr);

    QCOMPARE(qmapResult.value("__result__").toString(), QString("fail"));
    QCOMPARE(qmapResult.value("TaskResult"), QVariant(-1));
    const QVector<STRUCT_Answer> vecAnswers = recorder.Answers();
    int iCancelAt = -1;
    for (int i = 0; i < vecAnswers.size(); ++i) {
        iCancelAt = vecAnswers.at(i).qstrUuid == qstrCancelUuid ? i : iCancelAt;
    }
    QVERIFY(iCancelAt >= 1);
    QCOMPARE(vecAnswers.at(iCancelAt).qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(CountNotifications(vecAnswers.mid(0, iCancelAt)), 1);
    QCOMPARE(CountNotifications(vecAnswers.mid(iCancelAt)), 0);
    QCOMPARE(QDir(m_saveDir.path()).entryList(QDir::NoDotAndDotDot | QDir::AllEntries), QStringList());
    QCOMPARE(OperateLog().size(), iLogEntries + 1);
    QCOMPARE(OperateLog().last().qstrDescription,
             QString("lab_users admin btn_backup lab_operation_result msg_Failed"));
}

QTEST_GUILESS_MAIN(tst_BackUpRequests)
#include "tst_BackUpRequests.moc"
