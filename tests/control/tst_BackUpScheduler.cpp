#include <functional>

#include <QDir>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

#include "ControlTestSupport.h"
#include "FunctionUtil.h"

using namespace ControlTest;

class tst_BackUpScheduler : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void loopIntervalFromTheStore_data();
    void loopIntervalFromTheStore();
    void archiveListText_data();
    void archiveListText();
    void savedTimeIsMidnightAfterTheInterval_data();
    void savedTimeIsMidnightAfterTheInterval();
    void savedTimeIsNeverEarlierThanNow();
    void dayWithoutMidnightStartsAtItsFirstTime();
    void disabledTickDoesNothing_data();
    void disabledTickDoesNothing();
    void tickBeforeTheDueTimeOnlyClearsTheLastPath();
    void dueTickRotatesThenStopsAtTheEmptyCallback_data();
    void dueTickRotatesThenStopsAtTheEmptyCallback();
    void dueTickOnThePoolLeavesTheScheduleForTheNextTick();
    void failedRunKeepsTheDueTimeAndLogsEachTick();

private:
    // Archive files in the save folder, listed as made by earlier automatic backups.
    QStringList MakeArchives(int _iCount)
    {
        QStringList lstPaths;
        for (int i = 0; i < _iCount; ++i) {
            QFile file(m_saveDir.filePath(QString("BackUp_2020_01_0%1_00_00.zip").arg(i + 1)));
            file.open(QIODevice::WriteOnly);
            lstPaths << file.fileName();
        }
        PutSetting("AutoBackUpPath", FunctionUtil::QJsonArrayToQstring(QJsonArray::fromStringList(lstPaths)));
        return lstPaths;
    }

    QStringList StagingFolders() const
    {
        return QDir(m_saveDir.path()).entryList({"BackUp_*"}, QDir::Dirs | QDir::NoDotAndDotDot);
    }

    void StoreDueYesterday(const char* _pKeep)
    {
        PutSetting("AutoEnable", "1");
        PutSetting("BackUpCount", _pKeep);
        PutSetting("BackUpFileSavePath", m_saveDir.path());
        PutSetting("AutoBackUpTime", IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(-1))));
    }

    QTemporaryDir m_dataDir;
    QTemporaryDir m_saveDir;
    CLS_BackUpPresenter* m_pPresenter = nullptr;
};

void tst_BackUpScheduler::initTestCase()
{
    UseBerlinTime();
    QVERIFY(m_dataDir.isValid() && m_saveDir.isValid());
    qputenv("HX_DATA_PATH", m_dataDir.path().toUtf8());
    m_pPresenter = CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

void tst_BackUpScheduler::init()
{
    QVERIFY2(ClearSettings(), "the parameter store library is missing");
    QVERIFY(QDir(m_saveDir.path()).removeRecursively() && QDir().mkpath(m_saveDir.path()));
}

void tst_BackUpScheduler::loopIntervalFromTheStore_data()
{
    QTest::addColumn<QString>("stored");
    QTest::addColumn<int>("expected");
    QTest::newRow("missing") << QString() << 3600000;
    QTest::newRow("empty") << "" << 3600000;
    QTest::newRow("one minute") << "60000" << 60000;
    QTest::newRow("text reads as 0") << "hourly" << 0;
}

void tst_BackUpScheduler::loopIntervalFromTheStore()
{
    QFETCH(QString, stored);
    QFETCH(int, expected);
    if (!stored.isNull()) {
        QVERIFY(PutSetting("AutoBackThreadDetectTime", stored));
    }
    QCOMPARE(m_pPresenter->GetLoopInterval(), expected);
}

void tst_BackUpScheduler::archiveListText_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("empty") << "" << QStringList();
    QTest::newRow("broken") << "[\"/a.zip\"," << QStringList();
    QTest::newRow("object") << "{\"a\":\"/a.zip\"}" << QStringList();
    QTest::newRow("two paths") << QString::fromUtf8("[\"/a/1.zip\",\"/b/\xc3\xa4 2.zip\"]")
                               << QStringList{"/a/1.zip", QString::fromUtf8("/b/\xc3\xa4 2.zip")};
}

void tst_BackUpScheduler::archiveListText()
{
    QFETCH(QString, text);
    QFETCH(QStringList, expected);
    const QJsonArray jsonList = FunctionUtil::QStringToQJsonArrary(text);
    QCOMPARE(jsonList, QJsonArray::fromStringList(expected));
    // Written back compactly, a list reads as the very text it came from.
    if (!expected.isEmpty()) {
        QCOMPARE(FunctionUtil::QJsonArrayToQstring(jsonList), text);
    }
}

void tst_BackUpScheduler::savedTimeIsMidnightAfterTheInterval_data()
{
    QTest::addColumn<QDateTime>("from");
    QTest::addColumn<QString>("interval");
    QTest::addColumn<QString>("expected");
    // Berlin changes to summer time on 2030-03-31 and back on 2030-10-27.
    QTest::newRow("into summer time") << QDateTime(QDate(2030, 3, 28), QTime(15, 30)) << "7"
                                      << "2030-04-04T00:00:00+02:00";
    QTest::newRow("into winter time") << QDateTime(QDate(2030, 10, 24), QTime(0, 0)) << "7"
                                      << "2030-10-31T00:00:00+01:00";
    QTest::newRow("default interval")
        << QDateTime(QDate(2030, 10, 24), QTime(23, 59)) << QString() << "2030-10-31T00:00:00+01:00";
    // 23:30 UTC is already the next day in Berlin.
    QTest::newRow("from a UTC time") << QDateTime(QDate(2030, 3, 28), QTime(23, 30), Qt::UTC) << "2"
                                     << "2030-03-31T00:00:00+01:00";
    QTest::newRow("text reads as 0 days") << QDateTime(QDate(2030, 3, 28), QTime(15, 30)) << "weekly"
                                          << "2030-03-28T00:00:00+01:00";
}

void tst_BackUpScheduler::savedTimeIsMidnightAfterTheInterval()
{
    QFETCH(QDateTime, from);
    QFETCH(QString, interval);
    QFETCH(QString, expected);
    if (!interval.isNull()) {
        QVERIFY(PutSetting("AutoBackUpInteval", interval));
    }
    QCOMPARE(m_pPresenter->SaveNextBackUpTime(from), 1);
    QCOMPARE(Setting("AutoBackUpTime"), expected);
}

void tst_BackUpScheduler::savedTimeIsNeverEarlierThanNow()
{
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    const QDateTime dtFrom = QDateTime::currentDateTime();
    QVERIFY(m_pPresenter->SaveNextBackUpTime(dtFrom));
    QCOMPARE(Setting("AutoBackUpTime"), IsoWithOffset(LocalMidnight(dtFrom.date().addDays(7))));

    const QDateTime dtBefore = QDateTime::currentDateTime().addSecs(-1);
    QVERIFY(m_pPresenter->SaveNextBackUpTime(dtFrom.addDays(-8)));
    const QDateTime dtStored = QDateTime::fromString(Setting("AutoBackUpTime"), Qt::ISODate);
    QVERIFY2(dtStored >= dtBefore && dtStored <= QDateTime::currentDateTime(),
             qPrintable(Setting("AutoBackUpTime")));
}

void tst_BackUpScheduler::dayWithoutMidnightStartsAtItsFirstTime()
{
    // Santiago's clocks go from 2030-09-07 23:59:59 straight to 2030-09-08 01:00.
    qputenv("TZ", "America/Santiago");
    tzset();
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    const int iSaved = m_pPresenter->SaveNextBackUpTime(QDateTime(QDate(2030, 9, 1), QTime(12, 0)));
    const QString qstrStored = Setting("AutoBackUpTime");
    UseBerlinTime();
    QCOMPARE(iSaved, 1);
    QCOMPARE(qstrStored, QString("2030-09-08T01:00:00-03:00"));
}

void tst_BackUpScheduler::disabledTickDoesNothing_data()
{
    QTest::addColumn<QString>("enable");
    QTest::newRow("0") << "0";
    QTest::newRow("2") << "2";
    QTest::newRow("text reads as 0") << "on";
}

void tst_BackUpScheduler::disabledTickDoesNothing()
{
    QFETCH(QString, enable);
    StoreDueYesterday("1");
    QVERIFY(PutSetting("AutoEnable", enable));
    QVERIFY(PutSetting("BackUpPath", "/last/archive.zip"));
    const QStringList lstArchives = MakeArchives(2);
    const QByteArray baBefore = StoreFileBytes();
    const int iLogEntries = OperateLog().size();
    m_pPresenter->LoopTask();
    QCOMPARE(StoreFileBytes(), baBefore);
    QVERIFY(QFile::exists(lstArchives.first()) && QFile::exists(lstArchives.last()));
    QCOMPARE(OperateLog().size(), iLogEntries);
    QCOMPARE(StagingFolders(), QStringList());
}

void tst_BackUpScheduler::tickBeforeTheDueTimeOnlyClearsTheLastPath()
{
    StoreDueYesterday("1");
    // Two days ahead, so that midnight passing during the test leaves it in the future.
    const QString qstrDue = IsoWithOffset(LocalMidnight(QDate::currentDate().addDays(2)));
    QVERIFY(PutSetting("AutoBackUpTime", qstrDue));
    QVERIFY(PutSetting("BackUpPath", "/last/archive.zip"));
    const QStringList lstArchives = MakeArchives(2);
    const QString qstrList = Setting("AutoBackUpPath");
    const int iLogEntries = OperateLog().size();
    m_pPresenter->LoopTask();
    QCOMPARE(Setting("BackUpPath"), QString(""));
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(Setting("AutoBackUpPath"), qstrList);
    QVERIFY(QFile::exists(lstArchives.first()) && QFile::exists(lstArchives.last()));
    QCOMPARE(OperateLog().size(), iLogEntries);
    QCOMPARE(StagingFolders(), QStringList());
}

void tst_BackUpScheduler::dueTickRotatesThenStopsAtTheEmptyCallback_data()
{
    QTest::addColumn<QString>("keep");
    QTest::addColumn<int>("archives");
    QTest::addColumn<int>("deleted");
    QTest::addColumn<QString>("due"); // empty: yesterday
    QTest::addColumn<bool>("oldestMissing");
    QTest::newRow("keep 3 of 5") << "3" << 5 << 3 << QString() << false;
    QTest::newRow("keep 3 of 3") << "3" << 3 << 1 << QString() << false;
    QTest::newRow("keep 3 of 2") << "3" << 2 << 0 << QString() << false;
    QTest::newRow("keep 0 empties the list") << "0" << 2 << 2 << QString() << false;
    QTest::newRow("keep -1 empties the list") << "-1" << 1 << 1 << QString() << false;
    QTest::newRow("vanished archive is forgotten") << "2" << 3 << 2 << QString() << true;
    QTest::newRow("no due time") << "3" << 1 << 0 << "<none>" << false;
    QTest::newRow("due time not readable") << "3" << 1 << 0 << "next week" << false;
}

void tst_BackUpScheduler::dueTickRotatesThenStopsAtTheEmptyCallback()
{
    QFETCH(QString, keep);
    QFETCH(int, archives);
    QFETCH(int, deleted);
    QFETCH(QString, due);
    QFETCH(bool, oldestMissing);
    StoreDueYesterday(keep.toUtf8().constData());
    if (!due.isEmpty()) {
        QVERIFY(PutSetting("AutoBackUpTime", due == "<none>" ? QString() : due));
    }
    const QString qstrDue = Setting("AutoBackUpTime");
    QVERIFY(PutSetting("BackUpPath", "/last/archive.zip"));
    const QStringList lstArchives = MakeArchives(archives);
    if (oldestMissing) {
        QVERIFY(QFile::remove(lstArchives.first()));
    }
    const int iLogEntries = OperateLog().size();

    QVERIFY_EXCEPTION_THROWN(m_pPresenter->LoopTask(), std::bad_function_call);

    for (int i = 0; i < archives; ++i) {
        QVERIFY2(QFile::exists(lstArchives.at(i)) == (i >= deleted), qPrintable(lstArchives.at(i)));
    }
    const QStringList lstKept = lstArchives.mid(deleted);
    QCOMPARE(Setting("AutoBackUpPath"),
             FunctionUtil::QJsonArrayToQstring(QJsonArray::fromStringList(lstKept)));
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(Setting("BackUpPath"), QString(""));
    QCOMPARE(OperateLog().size(), iLogEntries);
    // The run had copied its first source when the missing callback stopped it; its staging stays.
    const QStringList lstStaging = StagingFolders();
    QCOMPARE(lstStaging.size(), 1);
    QVERIFY(!QDir(m_saveDir.filePath(lstStaging.first())).isEmpty());
}

void tst_BackUpScheduler::dueTickOnThePoolLeavesTheScheduleForTheNextTick()
{
    StoreDueYesterday("2");
    QVERIFY(PutSetting("AutoBackUpInteval", "7"));
    QVERIFY(PutSetting("AutoBackThreadDetectTime", "100"));
    const QString qstrDue = Setting("AutoBackUpTime");
    const QStringList lstArchives = MakeArchives(2);
    const int iLogEntries = OperateLog().size();
    const auto countFails = [] { return LogLines().filter("LoopTask Fail").size(); };
    const int iFailsBefore = countFails();

    m_pPresenter->Init();
    QTRY_VERIFY_WITH_TIMEOUT(countFails() >= iFailsBefore + 2, 30000);
    m_pPresenter->UnInit();

    QVERIFY(!QFile::exists(lstArchives.first()));
    QVERIFY(QFile::exists(lstArchives.last()));
    QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
    QCOMPARE(OperateLog().size(), iLogEntries);
    QVERIFY(!StagingFolders().isEmpty());
}

void tst_BackUpScheduler::failedRunKeepsTheDueTimeAndLogsEachTick()
{
    StoreDueYesterday("3");
    QFile blocker(m_saveDir.filePath("a-file"));
    QVERIFY(blocker.open(QIODevice::WriteOnly));
    blocker.close();
    // Nothing can be written below a file, so the run fails at its first disk check and returns.
    QVERIFY(PutSetting("BackUpFileSavePath", blocker.fileName() + "/sub"));
    const QString qstrDue = Setting("AutoBackUpTime");
    const int iLogEntries = OperateLog().size();

    for (int iTick = 1; iTick <= 2; ++iTick) {
        const QDateTime dtBefore = QDateTime::currentDateTime().addSecs(-1);
        m_pPresenter->LoopTask();
        const QDateTime dtAfter = QDateTime::currentDateTime();
        QCOMPARE(Setting("AutoBackUpTime"), qstrDue);
        QCOMPARE(Setting("AutoBackUpPath"), QString("[]"));
        const QVector<STRUCT_searchResult> vecLog = OperateLog();
        QCOMPARE(vecLog.size(), iLogEntries + iTick);
        const STRUCT_searchResult& stEntry = vecLog.last();
        QCOMPARE(stEntry.iType, 0);
        QCOMPARE(stEntry.qstrUserId, QString("admin"));
        QCOMPARE(stEntry.qstrDescription,
                 QString("lab_users admin btn_backup lab_operation_result msg_Failed"));
        const QDateTime dtEntry = QDateTime::fromString(stEntry.qstrTime, "yyyy-MM-dd hh:mm:ss");
        QVERIFY2(dtEntry >= dtBefore && dtEntry <= dtAfter, qPrintable(stEntry.qstrTime));
    }
}

QTEST_GUILESS_MAIN(tst_BackUpScheduler)
#include "tst_BackUpScheduler.moc"
