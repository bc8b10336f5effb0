#include <time.h>

#include <algorithm>
#include <atomic>
#include <climits>
#include <future>

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QUuid>
#include <QtTest>

#include "CLS_BackUpPresenter.h"
#include "HxAppManager.h"
#include "HxOperateLog.h"
#include "Param.h"
#include "Util.h"

namespace {

const char* const c_pSection = "ModuleBackUp";
const QString c_qstrSuccessEntry = "lab_users admin btn_backup lab_operation_result msg_success";
const QString c_qstrFailedEntry = "lab_users admin btn_backup lab_operation_result msg_Failed";

struct STRUCT_Answer
{
    QString qstrKey;
    QVariantMap qmapResult;
    QString qstrUuid;
};

// The presenter's answers in the order of emission, queued from the pool to the test thread.
class CLS_AnswerRecorder : public QObject
{
public:
    CLS_AnswerRecorder()
    {
        connect(
            m_pPresenter, &CLS_PresenterBasic::SignTaskResult, this,
            [this](const QString& _qstrKey, const QVariantMap& _qmapResult, const QString& _qstrUuid) {
                m_vecAnswers.append({_qstrKey, _qmapResult, _qstrUuid});
            },
            Qt::QueuedConnection);
    }

    // Sends a request the way the host does and waits for its answer; the result map, empty on timeout.
    QVariantMap Request(const QString& _qstrKey, const QVariantMap& _qmapParam)
    {
        const QString qstrUuid = QUuid::createUuid().toString();
        m_pPresenter->TaskRequest(_qstrKey, _qmapParam, qstrUuid, nullptr);
        QVariantMap qmapResult;
        const auto answered = [&] {
            for (const STRUCT_Answer& stAnswer : qAsConst(m_vecAnswers)) {
                qmapResult = stAnswer.qstrUuid == qstrUuid ? stAnswer.qmapResult : qmapResult;
            }
            return !qmapResult.isEmpty();
        };
        return QTest::qWaitFor(answered, 30000) ? qmapResult : QVariantMap();
    }

    int Notifications(int _iFrom = 0, int _iTo = INT_MAX) const
    {
        int iCount = 0;
        for (int i = _iFrom; i < qMin(_iTo, m_vecAnswers.size()); ++i) {
            iCount +=
                m_vecAnswers.at(i).qstrUuid == "__notify__" && m_vecAnswers.at(i).qstrKey == "ProcessUpdate";
        }
        return iCount;
    }

    CLS_BackUpPresenter* const m_pPresenter = CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
    QVector<STRUCT_Answer> m_vecAnswers;
};

} // namespace

class tst_BackUpControl : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void startWritesBackWhatItRead_data();
    void startWritesBackWhatItRead();
    void loadRequestAnswersTheStore();
    void saveReschedulesAtMidnight_data();
    void saveReschedulesAtMidnight();
    void requestThatDoesNothing_data();
    void requestThatDoesNothing();
    void progressMarkedUnchangedIsNotForwarded();
    void manualBackUpAnswersWithItsArchive();
    void cancelDuringABackUpStopsTheProgress();
    void savedTimeIsMidnightAfterTheInterval_data();
    void savedTimeIsMidnightAfterTheInterval();
    void tickRotatesThenStopsAtTheEmptyCallback_data();
    void tickRotatesThenStopsAtTheEmptyCallback();
    void failedRunKeepsTheDueTimeAndLogsIt();
    // Last: it starts and stops the presenter's periodic task.
    void dueTickOnThePoolLeavesTheScheduleForTheNextTick();

private:
    // Day arithmetic is checked in a zone with daylight saving, set before any date is used. Berlin changes
    // to summer time on 2030-03-31 and back on 2030-10-27.
    static void UseZone(const char* _pZone)
    {
        qputenv("TZ", _pZone);
        tzset();
    }
    static QString Setting(const char* _pKey)
    {
        return QString::fromStdString(Param::GetParam(c_pSection, _pKey, "<missing>"));
    }
    static int PutSetting(const char* _pKey, const QString& _qstr)
    {
        return Param::SetParam(c_pSection, _pKey, _qstr.toStdString(), 1);
    }
    static QVector<STRUCT_searchResult> OperateLog()
    {
        auto pRead = Util::FunctionCast<HxAppManager::PFN_ReadOperateLog>(
            Util::GetDllFunction(Util::LibraryFileName("HxAppManager"), "ReadOperateLog"));
        return pRead != nullptr ? pRead() : QVector<STRUCT_searchResult>();
    }
    // The text that the scheduler stores for local midnight of a day.
    static QString DueInDays(int _iDays)
    {
        const QDateTime dt(QDate::currentDate().addDays(_iDays), QTime(0, 0));
        return dt.toOffsetFromUtc(dt.offsetFromUtc()).toString(Qt::ISODate);
    }
    // Stored times have whole seconds, hence the second of slack.
    static bool IsSince(const QDateTime& _dt, const QDateTime& _dtStart)
    {
        return _dt >= _dtStart.addSecs(-1) && _dt <= QDateTime::currentDateTime();
    }
    static QByteArray FileBytes(const QString& _qstrPath)
    {
        QFile file(_qstrPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    QString DefaultFolder() const { return m_dataDir.path() + "/AutoBackUp"; }
    QString SavePath() const { return m_saveDir.path() + "/saved/here"; }
    QByteArray StoreBytes() const { return FileBytes(m_dataDir.filePath("HxParam.json")); }
    QString LogText() const { return QString::fromUtf8(FileBytes(m_dataDir.filePath("Log/hx.log"))); }
    QStringList Saved(QDir::Filters _filters = QDir::AllEntries) const
    {
        return QDir(m_saveDir.path()).entryList(_filters | QDir::NoDotAndDotDot);
    }
    QVariantMap SaveRequest(const QString& _qstrInterval) const
    {
        return {{"AutoEnable", "0"},
                {"BackUpCount", 5},
                {"BackUpFileSavePath", SavePath()},
                {"AutoBackUpInteval", _qstrInterval}};
    }

    static QString Touch(const QString& _qstrPath)
    {
        QFile(_qstrPath).open(QIODevice::WriteOnly);
        return _qstrPath;
    }
    // The archive list as the scheduler keeps it: compact JSON in UTF-8.
    static QString ListText(const QStringList& _lstPaths)
    {
        return _lstPaths.isEmpty() ? "[]" : "[\"" + _lstPaths.join("\",\"") + "\"]";
    }
    // Archive files in the save folder, listed as made by earlier automatic backups. The umlaut tells
    // whether the list text is read and written as UTF-8.
    QStringList MakeArchives(int _iCount) const
    {
        QStringList lstPaths;
        for (int i = 0; i < _iCount; ++i) {
            lstPaths << Touch(
                m_saveDir.filePath(QString::fromUtf8("BackUp_2020_01_0%1_00_00_\xc3\xa4.zip").arg(i + 1)));
        }
        PutSetting("AutoBackUpPath", ListText(lstPaths));
        return lstPaths;
    }
    void StoreSchedule(const QString& _qstrKeep, const QString& _qstrDue,
                       const QString& _qstrEnable = "1") const
    {
        PutSetting("AutoEnable", _qstrEnable);
        PutSetting("BackUpCount", _qstrKeep);
        PutSetting("BackUpFileSavePath", m_saveDir.path());
        PutSetting("AutoBackUpTime", _qstrDue);
        PutSetting("BackUpPath", "/last/archive.zip");
    }

    QTemporaryDir m_dataDir;
    QTemporaryDir m_saveDir;
    CLS_BackUpPresenter* m_pPresenter = nullptr;
};

void tst_BackUpControl::initTestCase()
{
    UseZone("Europe/Berlin");
    QVERIFY(m_dataDir.isValid() && m_saveDir.isValid());
    qputenv("HX_DATA_PATH", m_dataDir.path().toUtf8());
    m_pPresenter = CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

// Every key of the section gone, as at a first start.
void tst_BackUpControl::init()
{
    const auto pDelete = Util::FunctionCast<Param::PFN_DeleteParam>(Param::GetModuleFun("DeleteParam", ""));
    QVERIFY2(pDelete != nullptr, "the parameter store library is missing");
    for (const char* pKey : {"AutoEnable", "BackUpFileSavePath", "BackUpCount", "AutoBackUpInteval",
                             "AutoBackUpTime", "AutoBackUpPath", "BackUpPath", "AutoBackThreadDetectTime"}) {
        pDelete(c_pSection, pKey);
    }
    pDelete("SystemConfig", "clientid");
    pDelete("SystemConfig", "username");
    QVERIFY(QDir(m_saveDir.path()).removeRecursively() && QDir().mkpath(m_saveDir.path()));
    m_pPresenter->SetBackUpCancel(0);
}

void tst_BackUpControl::startWritesBackWhatItRead_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("stored"); // null: not stored
    QTest::addColumn<QString>("expected");
    const auto row = [](const char* _pName, const char* _pKey, const QString& _qstrStored,
                        const QString& _qstrExpected) {
        QTest::newRow(_pName) << _pKey << _qstrStored << _qstrExpected;
    };
    row("default AutoEnable", "AutoEnable", QString(), "1");
    row("default BackUpCount", "BackUpCount", QString(), "3");
    row("default interval", "AutoBackUpInteval", QString(), "7");
    row("default folder", "BackUpFileSavePath", QString(), DefaultFolder());
    // No due time yet, so the first tick finds a backup due.
    row("no due time", "AutoBackUpTime", QString(), "<missing>");
    row("folder kept", "BackUpFileSavePath", "/elsewhere/backups", "/elsewhere/backups");
}

void tst_BackUpControl::startWritesBackWhatItRead()
{
    QFETCH(QString, key);
    QFETCH(QString, stored);
    QFETCH(QString, expected);
    QVERIFY(QDir(DefaultFolder()).removeRecursively());
    QVERIFY(stored.isNull() || PutSetting(key.toUtf8().constData(), stored));
    m_pPresenter->InitData();
    QCOMPARE(Setting(key.toUtf8().constData()), expected);
    QVERIFY(expected != DefaultFolder() || QDir(DefaultFolder()).exists());
}

void tst_BackUpControl::loadRequestAnswersTheStore()
{
    const QString qstrDue = DueInDays(5);
    StoreSchedule("4", qstrDue, "0");
    QVERIFY(PutSetting("BackUpFileSavePath", "/b/c"));
    QVERIFY(PutSetting("AutoBackUpInteval", "07"));
    const QVariantMap qmapResult = CLS_AnswerRecorder().Request("LoadLastSaveSetting", {});
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(qmapResult.value("AutoEnable"), QVariant(0));
    QCOMPARE(qmapResult.value("BackUpFileSavePath"), QVariant("/b/c"));
    QCOMPARE(qmapResult.value("BackUpCount"), QVariant(4));
    QCOMPARE(qmapResult.value("AutoBackUpInteval"), QVariant("07"));
    QCOMPARE(qmapResult.value("AutoBackUpTime"), QVariant(qstrDue.left(10)));
}

void tst_BackUpControl::saveReschedulesAtMidnight_data()
{
    QTest::addColumn<QString>("interval");
    QTest::addColumn<QString>("due");
    QTest::addColumn<QString>("expected"); // empty: clamped to now
    const auto row = [](const char* _pName, const char* _pInterval, const QString& _qstrDue,
                        const QString& _qstrExpected) {
        QTest::newRow(_pName) << _pInterval << _qstrDue << _qstrExpected;
    };
    row("unchanged interval", "7", DueInDays(10), DueInDays(10));
    row("7 to 3, due in ten days", "3", DueInDays(10), DueInDays(6));
    row("new date already passed", "1", DueInDays(3), QString());
    row("summer due, winter result", "3", "2030-04-04T00:00:00+02:00", "2030-03-31T00:00:00+01:00");
    row("due written in UTC", "3", "2030-04-03T22:00:00Z", "2030-03-31T00:00:00+01:00");
}

void tst_BackUpControl::saveReschedulesAtMidnight()
{
    QFETCH(QString, interval);
    QFETCH(QString, due);
    QFETCH(QString, expected);
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    QVERIFY(PutSetting("AutoBackUpTime", due));
    const QDateTime dtStart = QDateTime::currentDateTime();
    const QVariantMap qmapResult = CLS_AnswerRecorder().Request("SaveSettint", SaveRequest(interval));
    const QString qstrStored = Setting("AutoBackUpTime");

    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    if (expected.isEmpty()) {
        QVERIFY2(IsSince(QDateTime::fromString(qstrStored, Qt::ISODate), dtStart), qPrintable(qstrStored));
    } else {
        QCOMPARE(qstrStored, expected);
    }
    // The answer shows the new day, and an empty text when the interval is unchanged.
    QCOMPARE(qmapResult.value("AutoBackUpTime"), QVariant(interval == "7" ? QString() : qstrStored.left(10)));
    QCOMPARE(Setting("AutoBackUpInteval"), interval);
    QCOMPARE(Setting("AutoEnable"), QString("0"));
    QCOMPARE(Setting("BackUpCount"), QString("5"));
    QCOMPARE(Setting("BackUpFileSavePath"), SavePath());
    QVERIFY(QDir(SavePath()).exists());
}

void tst_BackUpControl::requestThatDoesNothing_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariantMap>("params");
    QTest::addColumn<QString>("result");
    const QString qstrSave = m_saveDir.path();
    QTest::newRow("unknown key") << "BackUpNow" << QVariantMap{{"BackUpPath", qstrSave}} << "success";
    QTest::newRow("BackUp without BackUpPath")
        << "BackUp" << QVariantMap{{"RecoverPath", "/x.zip"}, {"backuppath", qstrSave}} << "fail";
    QTest::newRow("Recover without RecoverPath")
        << "Recover" << QVariantMap{{"BackUpPath", qstrSave}} << "fail";
    for (const char* pKey : {"AutoEnable", "BackUpCount", "BackUpFileSavePath", "AutoBackUpInteval"}) {
        QVariantMap qmapParam = SaveRequest("3");
        qmapParam.remove(pKey);
        QTest::newRow(qPrintable(QString("SaveSettint without ") + pKey))
            << "SaveSettint" << qmapParam << "fail";
    }
}

void tst_BackUpControl::requestThatDoesNothing()
{
    QFETCH(QString, key);
    QFETCH(QVariantMap, params);
    QFETCH(QString, result);
    CLS_AnswerRecorder recorder;
    m_pPresenter->InitData();
    QVERIFY(PutSetting("AutoBackUpTime", DueInDays(10)));
    const QByteArray baStore = StoreBytes();
    const int iLogEntries = OperateLog().size();
    QCOMPARE(recorder.Request(key, params), (QVariantMap{{"__result__", result}}));
    QCOMPARE(StoreBytes(), baStore);
    QCOMPARE(OperateLog().size(), iLogEntries);
    QCOMPARE(recorder.Notifications(), 0);
    QCOMPARE(Saved(), QStringList());
}

void tst_BackUpControl::progressMarkedUnchangedIsNotForwarded()
{
    CLS_AnswerRecorder recorder;
    QCOMPARE(m_pPresenter->ProcessCallBack("ProcessUpdate", {{"intRate", 13}, {"IsSend", false}}), 0);
    const QVariantMap qmapProgress{{"intRate", 14}, {"strRate", "lab_backuping"}};
    QCOMPARE(m_pPresenter->ProcessCallBack("ProcessUpdate", qmapProgress), 0);
    QCoreApplication::processEvents();
    QCOMPARE(recorder.m_vecAnswers.size(), 1);
    QCOMPARE(recorder.m_vecAnswers.first().qmapResult, qmapProgress);
    QCOMPARE(recorder.Notifications(), 1);
}

void tst_BackUpControl::manualBackUpAnswersWithItsArchive()
{
    CLS_AnswerRecorder recorder;
    const QString qstrDue = DueInDays(2);
    QVERIFY(PutSetting("AutoBackUpTime", qstrDue));
    QVERIFY(PutSetting("AutoBackUpPath", "[\"/auto/one.zip\"]"));
    const int iLogEntries = OperateLog().size();
    const QDateTime dtStart = QDateTime::currentDateTime();
    const QVariantMap qmapResult = recorder.Request("BackUp", {{"BackUpPath", m_saveDir.path()}});

    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(qmapResult.value("TaskResult"), QVariant(0));
    const QFileInfo archive(qmapResult.value("BackUpPath").toString());
    QVERIFY2(archive.isFile() && archive.absolutePath() == m_saveDir.path(), qPrintable(archive.filePath()));
    QVERIFY(QRegularExpression("^BackUp_\\d{4}(_\\d\\d){4}\\.zip$").match(archive.fileName()).hasMatch());
    QVERIFY(recorder.Notifications() >= 1);
    // A manual backup is not part of the automatic schedule.
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(Setting("AutoBackUpPath"), QString("[\"/auto/one.zip\"]"));

    const QVector<STRUCT_searchResult> vecLog = OperateLog();
    QCOMPARE(vecLog.size(), iLogEntries + 1);
    QCOMPARE(vecLog.last().iType, 1);
    QCOMPARE(vecLog.last().qstrUserId, QString("admin"));
    QCOMPARE(vecLog.last().qstrDescription, c_qstrSuccessEntry);
    QVERIFY2(IsSince(QDateTime::fromString(vecLog.last().qstrTime, "yyyy-MM-dd hh:mm:ss"), dtStart),
             qPrintable(vecLog.last().qstrTime));
}

void tst_BackUpControl::cancelDuringABackUpStopsTheProgress()
{
    CLS_AnswerRecorder recorder;
    std::promise<void> cancelAnswered;
    std::atomic<bool> blCancelSent{false};
    QObject context;
    // The first progress report holds the run until the cancel is answered, so the cancel lands mid-run.
    connect(
        m_pPresenter, &CLS_PresenterBasic::SignTaskResult, &context,
        [&](const QString& _qstrKey, const QVariantMap&, const QString& _qstrUuid) {
            if (_qstrKey == "CanCelBackUp") {
                cancelAnswered.set_value();
            } else if (_qstrUuid == "__notify__" && !blCancelSent.exchange(true)) {
                m_pPresenter->TaskRequest("CanCelBackUp", {}, "cancel", nullptr);
                cancelAnswered.get_future().wait_for(std::chrono::seconds(30));
            }
        },
        Qt::DirectConnection);
    const int iLogEntries = OperateLog().size();
    const QVariantMap qmapResult = recorder.Request("BackUp", {{"BackUpPath", m_saveDir.path()}});

    QCOMPARE(qmapResult.value("__result__").toString(), QString("fail"));
    QCOMPARE(qmapResult.value("TaskResult"), QVariant(-1));
    QVERIFY(!qmapResult.contains("BackUpPath"));
    const QVector<STRUCT_Answer>& vecAnswers = recorder.m_vecAnswers;
    const auto itCancel = std::find_if(vecAnswers.begin(), vecAnswers.end(), [](const STRUCT_Answer& _st) {
        return _st.qstrKey == "CanCelBackUp";
    });
    QVERIFY(itCancel != vecAnswers.end());
    QCOMPARE(itCancel->qmapResult, (QVariantMap{{"__result__", "success"}}));
    const int iCancelAt = int(itCancel - vecAnswers.begin());
    QCOMPARE(recorder.Notifications(0, iCancelAt), 1);
    QCOMPARE(recorder.Notifications(iCancelAt), 0);
    QCOMPARE(Saved(), QStringList());
    QCOMPARE(OperateLog().size(), iLogEntries + 1);
    QCOMPARE(OperateLog().last().qstrDescription, c_qstrFailedEntry);
}

void tst_BackUpControl::savedTimeIsMidnightAfterTheInterval_data()
{
    QTest::addColumn<QDateTime>("from");
    QTest::addColumn<QString>("interval"); // null: not stored
    QTest::addColumn<QString>("expected"); // empty: clamped to now
    QTest::addColumn<QByteArray>("zone");
    const auto row = [](const char* _pName, const QDateTime& _dtFrom, const QString& _qstrInterval,
                        const QString& _qstrExpected, const char* _pZone = "Europe/Berlin") {
        QTest::newRow(_pName) << _dtFrom << _qstrInterval << _qstrExpected << QByteArray(_pZone);
    };
    row("into summer time", QDateTime(QDate(2030, 3, 28), QTime(15, 30)), "7", "2030-04-04T00:00:00+02:00");
    // Crosses into winter time as well.
    row("default interval", QDateTime(QDate(2030, 10, 24), QTime(23, 59)), QString(),
        "2030-10-31T00:00:00+01:00");
    // 23:30 UTC is already the next day in Berlin.
    row("from a UTC time", QDateTime(QDate(2030, 3, 28), QTime(23, 30), Qt::UTC), "2",
        "2030-03-31T00:00:00+01:00");
    row("never earlier than now", QDateTime::currentDateTime().addDays(-8), "7", QString());
    // Santiago's clocks go from 2030-09-07 23:59:59 straight to 2030-09-08 01:00.
    row("day without midnight", QDateTime(QDate(2030, 9, 1), QTime(12, 0)), "7", "2030-09-08T01:00:00-03:00",
        "America/Santiago");
}

void tst_BackUpControl::savedTimeIsMidnightAfterTheInterval()
{
    QFETCH(QDateTime, from);
    QFETCH(QString, interval);
    QFETCH(QString, expected);
    QFETCH(QByteArray, zone);
    QVERIFY(interval.isNull() || PutSetting("AutoBackUpInteval", interval));
    UseZone(zone.constData());
    const QDateTime dtStart = QDateTime::currentDateTime();
    const int iSaved = m_pPresenter->SaveNextBackUpTime(from);
    UseZone("Europe/Berlin");
    const QString qstrStored = Setting("AutoBackUpTime");
    QCOMPARE(iSaved, 1);
    if (expected.isEmpty()) {
        QVERIFY2(IsSince(QDateTime::fromString(qstrStored, Qt::ISODate), dtStart), qPrintable(qstrStored));
    } else {
        QCOMPARE(qstrStored, expected);
    }
}

void tst_BackUpControl::tickRotatesThenStopsAtTheEmptyCallback_data()
{
    QTest::addColumn<QString>("enable");
    QTest::addColumn<QString>("due");
    QTest::addColumn<QString>("keep");
    QTest::addColumn<int>("archives");
    QTest::addColumn<int>("deleted");
    QTest::addColumn<bool>("oldestMissing");
    QTest::addColumn<bool>("runs");
    const auto row = [](const char* _pName, const char* _pEnable, const QString& _qstrDue, const char* _pKeep,
                        int _iArchives, int _iDeleted, bool _blOldestMissing, bool _blRuns) {
        QTest::newRow(_pName) << _pEnable << _qstrDue << _pKeep << _iArchives << _iDeleted << _blOldestMissing
                              << _blRuns;
    };
    const QString qstrYesterday = DueInDays(-1);
    row("enabled only by 1", "2", qstrYesterday, "1", 2, 0, false, false);
    // Two days ahead, so that midnight passing during the test leaves it in the future.
    row("not yet due", "1", DueInDays(2), "1", 2, 0, false, false);
    row("keep 3 of 5", "1", qstrYesterday, "3", 5, 3, false, true);
    row("keep 3 of 3", "1", qstrYesterday, "3", 3, 1, false, true);
    row("keep 0 empties the list", "1", qstrYesterday, "0", 2, 2, false, true);
    row("vanished archive is forgotten", "1", qstrYesterday, "2", 3, 2, true, true);
    row("no due time", "1", "", "3", 1, 0, false, true);
}

void tst_BackUpControl::tickRotatesThenStopsAtTheEmptyCallback()
{
    QFETCH(QString, enable);
    QFETCH(QString, due);
    QFETCH(QString, keep);
    QFETCH(int, archives);
    QFETCH(int, deleted);
    QFETCH(bool, oldestMissing);
    QFETCH(bool, runs);
    StoreSchedule(keep, due, enable);
    const QStringList lstArchives = MakeArchives(archives);
    QVERIFY(!oldestMissing || QFile::remove(lstArchives.first()));
    const QByteArray baBefore = StoreBytes();
    const int iLogEntries = OperateLog().size();

    bool blThrown = false;
    try {
        m_pPresenter->LoopTask();
    } catch (const std::bad_function_call&) {
        blThrown = true;
    }
    QCOMPARE(blThrown, runs);
    for (int i = 0; i < archives; ++i) {
        QVERIFY2(QFile::exists(lstArchives.at(i)) == (i >= deleted), qPrintable(lstArchives.at(i)));
    }
    QCOMPARE(Setting("AutoBackUpPath"), ListText(lstArchives.mid(deleted)));
    QCOMPARE(Setting("AutoBackUpTime"), due);
    // A disabled tick changes nothing; any other forgets the last archive path.
    QVERIFY(enable == "1" || StoreBytes() == baBefore);
    QCOMPARE(Setting("BackUpPath"), QString(enable == "1" ? "" : "/last/archive.zip"));
    QCOMPARE(OperateLog().size(), iLogEntries);
    // The run had copied its first source when the missing callback stopped it; its staging stays.
    const QStringList lstStaging = Saved(QDir::Dirs);
    QCOMPARE(lstStaging.size(), runs ? 1 : 0);
    QVERIFY(!runs || !QDir(m_saveDir.filePath(lstStaging.first())).isEmpty());
}

void tst_BackUpControl::failedRunKeepsTheDueTimeAndLogsIt()
{
    const QString qstrDue = DueInDays(-1);
    StoreSchedule("3", qstrDue);
    // The run fails at its first disk check and returns: nothing can be created below a plain file.
    QVERIFY(PutSetting("BackUpFileSavePath", Touch(m_saveDir.filePath("a-file")) + "/sub"));
    // The manual backup covers the default user; here the entry names the configured one.
    QVERIFY(Param::SetParam("SystemConfig", "clientid", "u7", 1) &&
            Param::SetParam("SystemConfig", "username", "Operator Seven", 1));
    const int iLogEntries = OperateLog().size();
    const QDateTime dtStart = QDateTime::currentDateTime();
    m_pPresenter->LoopTask();
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(Setting("AutoBackUpPath"), QString("[]"));
    const QVector<STRUCT_searchResult> vecLog = OperateLog();
    QCOMPARE(vecLog.size(), iLogEntries + 1);
    QCOMPARE(vecLog.last().iType, 0);
    QCOMPARE(vecLog.last().qstrUserId, QString("u7"));
    QCOMPARE(vecLog.last().qstrUserName, QString("Operator Seven"));
    QCOMPARE(vecLog.last().qstrDescription,
             QString("lab_users Operator Seven btn_backup lab_operation_result msg_Failed"));
    QVERIFY2(IsSince(QDateTime::fromString(vecLog.last().qstrTime, "yyyy-MM-dd hh:mm:ss"), dtStart),
             qPrintable(vecLog.last().qstrTime));
}

void tst_BackUpControl::dueTickOnThePoolLeavesTheScheduleForTheNextTick()
{
    const QString qstrDue = DueInDays(-1);
    StoreSchedule("2", qstrDue);
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    // Hourly unless the store says otherwise.
    QCOMPARE(m_pPresenter->GetLoopInterval(), 3600000);
    QVERIFY(PutSetting("AutoBackThreadDetectTime", "100"));
    const QStringList lstArchives = MakeArchives(2);
    const int iLogEntries = OperateLog().size();
    const int iFailsBefore = LogText().count("LoopTask Fail");

    m_pPresenter->Init();
    QTRY_VERIFY_WITH_TIMEOUT(LogText().count("LoopTask Fail") >= iFailsBefore + 2, 30000);
    m_pPresenter->UnInit();

    QVERIFY(!QFile::exists(lstArchives.first()));
    QVERIFY(QFile::exists(lstArchives.last()));
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(OperateLog().size(), iLogEntries);
    QVERIFY(!Saved(QDir::Dirs).isEmpty());
}

QTEST_GUILESS_MAIN(tst_BackUpControl)
#include "tst_BackUpControl.moc"
