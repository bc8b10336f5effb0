#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include "ControlTestSupport.h"

using namespace ControlTest;

class tst_BackUpSettings : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void firstStartStoresTheDefaults();
    void startWritesBackWhatItRead_data();
    void startWritesBackWhatItRead();
    void startLeavesTheStoredDueTimeAlone();
    void loadRequestAnswersTheStore();
    void saveWithAMissingKeyChangesNothing_data();
    void saveWithAMissingKeyChangesNothing();
    void saveWithTheSameIntervalKeepsTheSchedule();
    void changedIntervalMovesTheDueTime_data();
    void changedIntervalMovesTheDueTime();
    void daylightSavingKeepsTheDueTimeAtMidnight_data();
    void daylightSavingKeepsTheDueTimeAtMidnight();
    void uncreatableFolderIsLoggedAndStillSaved();

private:
    QVariantMap SaveRequest(const QString& _qstrInterval) const
    {
        return {{"AutoEnable", "0"},
                {"BackUpCount", 5},
                {"BackUpFileSavePath", m_dir.path() + "/saved/here"},
                {"AutoBackUpInteval", _qstrInterval}};
    }

    QTemporaryDir m_dir;
    CLS_BackUpPresenter* m_pPresenter = nullptr;
};

void tst_BackUpSettings::initTestCase()
{
    UseBerlinTime();
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    m_pPresenter = CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

void tst_BackUpSettings::init()
{
    QVERIFY2(ClearSettings(), "the parameter store library is missing");
    QVERIFY(QDir(m_dir.path() + "/saved").removeRecursively());
}

void tst_BackUpSettings::firstStartStoresTheDefaults()
{
    m_pPresenter->InitData();
    QCOMPARE(Setting("AutoEnable"), QString("1"));
    QCOMPARE(Setting("BackUpCount"), QString("3"));
    QCOMPARE(Setting("AutoBackUpInteval"), QString("7"));
    QCOMPARE(Setting("BackUpFileSavePath"), m_dir.path() + "/AutoBackUp");
    QVERIFY(QDir(m_dir.path() + "/AutoBackUp").exists());
    // No due time yet, so the first tick finds a backup due.
    QCOMPARE(Setting("AutoBackUpTime"), QString(kMissing));
}

void tst_BackUpSettings::startWritesBackWhatItRead_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<QString>("expected");
    QTest::newRow("text reads as 0") << "AutoEnable"
                                     << "yes"
                                     << "0";
    QTest::newRow("interval normalised") << "AutoBackUpInteval"
                                         << "07"
                                         << "7";
    QTest::newRow("empty folder replaced") << "BackUpFileSavePath"
                                           << ""
                                           << "<default>";
    QTest::newRow("folder kept") << "BackUpFileSavePath"
                                 << "/elsewhere/backups"
                                 << "/elsewhere/backups";
}

void tst_BackUpSettings::startWritesBackWhatItRead()
{
    QFETCH(QString, key);
    QFETCH(QString, stored);
    QFETCH(QString, expected);
    QVERIFY(PutSetting(key.toUtf8().constData(), stored));
    m_pPresenter->InitData();
    QCOMPARE(Setting(key.toUtf8().constData()),
             expected == "<default>" ? m_dir.path() + "/AutoBackUp" : expected);
}

void tst_BackUpSettings::startLeavesTheStoredDueTimeAlone()
{
    for (const QString& qstrStored :
         {IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(-3))),
          IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(4))), QString("not a time")}) {
        QVERIFY(PutSetting("AutoBackUpTime", qstrStored));
        m_pPresenter->InitData();
        QCOMPARE(Setting("AutoBackUpTime"), qstrStored);
    }
}

void tst_BackUpSettings::loadRequestAnswersTheStore()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QDate dateDue = QDate::currentDate().addDays(5);
    QVERIFY(PutSetting("AutoEnable", "0"));
    QVERIFY(PutSetting("BackUpFileSavePath", "/b/c"));
    QVERIFY(PutSetting("BackUpCount", "4"));
    QVERIFY(PutSetting("AutoBackUpInteval", "07"));
    QVERIFY(PutSetting("AutoBackUpTime", IsoWithOffset(LocalMidnight(dateDue))));
    const QVariantMap qmapResult = recorder.Request("LoadLastSaveSetting", {});
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(qmapResult.value("AutoEnable"), QVariant(0));
    QCOMPARE(qmapResult.value("BackUpFileSavePath"), QVariant("/b/c"));
    QCOMPARE(qmapResult.value("BackUpCount"), QVariant(4));
    QCOMPARE(qmapResult.value("AutoBackUpInteval"), QVariant("07"));
    QCOMPARE(qmapResult.value("AutoBackUpTime"), QVariant(dateDue.toString("yyyy-MM-dd")));
}

void tst_BackUpSettings::saveWithAMissingKeyChangesNothing_data()
{
    QTest::addColumn<QString>("missing");
    for (const char* pKey : {"AutoEnable", "BackUpCount", "BackUpFileSavePath", "AutoBackUpInteval"}) {
        QTest::newRow(pKey) << pKey;
    }
}

void tst_BackUpSettings::saveWithAMissingKeyChangesNothing()
{
    QFETCH(QString, missing);
    CLS_AnswerRecorder recorder(m_pPresenter);
    m_pPresenter->InitData();
    QVERIFY(PutSetting("AutoBackUpTime", IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(10)))));
    const QByteArray baBefore = StoreFileBytes();
    QVariantMap qmapParam = SaveRequest("3");
    qmapParam.remove(missing);
    const QVariantMap qmapResult = recorder.Request("SaveSettint", qmapParam);
    QCOMPARE(qmapResult.value("__result__").toString(), QString("fail"));
    QVERIFY(!qmapResult.contains("AutoBackUpTime"));
    QCOMPARE(StoreFileBytes(), baBefore);
    QVERIFY(!QDir(m_dir.path() + "/saved").exists());
}

void tst_BackUpSettings::saveWithTheSameIntervalKeepsTheSchedule()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    const QString qstrDue = IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(10)));
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    QVERIFY(PutSetting("AutoBackUpTime", qstrDue));
    const QVariantMap qmapResult = recorder.Request("SaveSettint", SaveRequest("7"));
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(qmapResult.value("AutoBackUpTime"), QVariant(QString()));
    QCOMPARE(Setting("AutoEnable"), QString("0"));
    QCOMPARE(Setting("BackUpCount"), QString("5"));
    QCOMPARE(Setting("BackUpFileSavePath"), m_dir.path() + "/saved/here");
    QVERIFY(QDir(m_dir.path() + "/saved/here").exists());
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
}

void tst_BackUpSettings::changedIntervalMovesTheDueTime_data()
{
    QTest::addColumn<QString>("oldInterval");
    QTest::addColumn<QString>("newInterval");
    QTest::addColumn<int>("dueInDays");
    QTest::addColumn<int>("expectedInDays"); // -1: clamped to now
    QTest::addColumn<QString>("storedInterval");
    QTest::newRow("7 to 3, due in ten days") << "7"
                                             << "3" << 10 << 6 << "3";
    QTest::newRow("7 to 30") << "7"
                             << "30" << 10 << 33 << "30";
    QTest::newRow("same number, other text") << "7"
                                             << "07" << 10 << 10 << "7";
    QTest::newRow("new date already passed") << "7"
                                             << "1" << 3 << -1 << "1";
}

void tst_BackUpSettings::changedIntervalMovesTheDueTime()
{
    QFETCH(QString, oldInterval);
    QFETCH(QString, newInterval);
    QFETCH(int, dueInDays);
    QFETCH(int, expectedInDays);
    QFETCH(QString, storedInterval);
    CLS_AnswerRecorder recorder(m_pPresenter);
    // Every date below follows from this one, so the test holds even when midnight passes while it runs.
    const QDate dateToday = QDate::currentDate();
    QVERIFY(PutSetting("AutoBackUpInteval", oldInterval));
    QVERIFY(PutSetting("AutoBackUpTime", IsoWithOffset(LocalMidnight(dateToday.addDays(dueInDays)))));
    const QDateTime dtBefore = QDateTime::currentDateTime().addSecs(-1);
    const QVariantMap qmapResult = recorder.Request("SaveSettint", SaveRequest(newInterval));
    const QDateTime dtAfter = QDateTime::currentDateTime().addSecs(1);

    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(Setting("AutoBackUpInteval"), storedInterval);
    if (expectedInDays >= 0) {
        const QDate dateExpected = dateToday.addDays(expectedInDays);
        QCOMPARE(Setting("AutoBackUpTime"), IsoWithOffset(LocalMidnight(dateExpected)));
        QCOMPARE(qmapResult.value("AutoBackUpTime").toString(), dateExpected.toString("yyyy-MM-dd"));
    } else {
        const QDateTime dtStored = QDateTime::fromString(Setting("AutoBackUpTime"), Qt::ISODate);
        QVERIFY2(dtStored >= dtBefore && dtStored <= dtAfter, qPrintable(Setting("AutoBackUpTime")));
        const QDate dateShown =
            QDate::fromString(qmapResult.value("AutoBackUpTime").toString(), "yyyy-MM-dd");
        QVERIFY(dateShown >= dtBefore.date() && dateShown <= dtAfter.date());
    }
}

void tst_BackUpSettings::daylightSavingKeepsTheDueTimeAtMidnight_data()
{
    QTest::addColumn<QString>("due");
    QTest::addColumn<QString>("newInterval");
    QTest::addColumn<QString>("expected");
    // Berlin changes to summer time on 2030-03-31 and back on 2030-10-27.
    QTest::newRow("summer due, winter result") << "2030-04-04T00:00:00+02:00"
                                               << "3"
                                               << "2030-03-31T00:00:00+01:00";
    QTest::newRow("due written in UTC") << "2030-04-03T22:00:00Z"
                                        << "3"
                                        << "2030-03-31T00:00:00+01:00";
    QTest::newRow("across the spring change") << "2030-04-04T00:00:00+02:00"
                                              << "5"
                                              << "2030-04-02T00:00:00+02:00";
    QTest::newRow("across the autumn change") << "2030-10-31T00:00:00+01:00"
                                              << "5"
                                              << "2030-10-29T00:00:00+01:00";
}

void tst_BackUpSettings::daylightSavingKeepsTheDueTimeAtMidnight()
{
    QFETCH(QString, due);
    QFETCH(QString, newInterval);
    QFETCH(QString, expected);
    CLS_AnswerRecorder recorder(m_pPresenter);
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    QVERIFY(PutSetting("AutoBackUpTime", due));
    const QVariantMap qmapResult = recorder.Request("SaveSettint", SaveRequest(newInterval));
    QCOMPARE(Setting("AutoBackUpTime"), expected);
    QCOMPARE(qmapResult.value("AutoBackUpTime").toString(), expected.left(10));
}

void tst_BackUpSettings::uncreatableFolderIsLoggedAndStillSaved()
{
    CLS_AnswerRecorder recorder(m_pPresenter);
    QFile blocker(m_dir.path() + "/a-file");
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    QVariantMap qmapParam = SaveRequest("7");
    qmapParam.insert("BackUpFileSavePath", blocker.fileName() + "/sub");
    const QVariantMap qmapResult = recorder.Request("SaveSettint", qmapParam);
    QCOMPARE(qmapResult.value("__result__").toString(), QString("success"));
    QCOMPARE(Setting("BackUpFileSavePath"), blocker.fileName() + "/sub");
    const QString qstrLine = "CLS_BackUpPresenter_TaskHandler.cpp";
    const QString qstrText =
        "TaskHandler Key failed [SaveSettint ] savepath create failed " + blocker.fileName() + "/sub";
    QStringList lstMatches;
    for (const QString& qstrLog : LogLines()) {
        if (qstrLog.contains(qstrText)) {
            lstMatches << qstrLog;
        }
    }
    QCOMPARE(lstMatches.size(), 1);
    QVERIFY2(lstMatches.first().contains("[WARN]") && lstMatches.first().contains(qstrLine),
             qPrintable(lstMatches.first()));
}

QTEST_GUILESS_MAIN(tst_BackUpSettings)
#include "tst_BackUpSettings.moc"
