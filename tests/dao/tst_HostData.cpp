#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include <QDateTime>
#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_DBDao.h"
#include "CLS_DBDaoC.h"
#include "DaoTestSupport.h"
#include "HxAppManager.h"
#include "HxOperateLog.h"
#include "I_AppData.h"
#include "Param.h"
#include "SharedRecords.h"

namespace {

// The values of table t, or the failure.
QStringList Values(CLS_DbManagerBase* _pManager)
{
    DbRows vecRows;
    const auto result = _pManager->Select(vecRows, "t", CLS_SqlFilter(), Common::CLS_Page(), {});
    QStringList lstValues;
    for (const QVariantMap& mapRow : vecRows) {
        lstValues << mapRow.value("v").toString();
    }
    return result.iCode == 0 ? lstValues : QStringList{"failed: " + result.qstrMessage};
}

QByteArray ReadAll(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool WriteAll(const QString& _qstrPath, const QByteArray& _qbaData)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly) && file.write(_qbaData) == _qbaData.size();
}

QVector<STRUCT_searchResult> ReadOperateLog()
{
    auto pRead = Util::FunctionCast<HxAppManager::PFN_ReadOperateLog>(
        Util::GetDllFunction(Util::LibraryFileName("HxAppManager"), "ReadOperateLog"));
    return pRead != nullptr ? pRead()
                            : QVector<STRUCT_searchResult>{{"ReadOperateLog is missing", "", "", "", 0}};
}

I_AppData* AppData()
{
    auto pGet =
        Util::FunctionCast<HxAppManager::PFN_GetAppData>(HxAppManager::GetModuleFun("GetAppData", ""));
    return pGet != nullptr ? pGet() : nullptr;
}

// One text per entry, as the test reads the table back too.
QVariantList Describe(const QVector<STRUCT_searchResult>& _vecEntries)
{
    QVariantList lstLines;
    for (const STRUCT_searchResult& stEntry : _vecEntries) {
        lstLines << QStringList{stEntry.qstrUserId, stEntry.qstrUserName, stEntry.qstrTime,
                                stEntry.qstrDescription, QString::number(stEntry.iType)}
                        .join('|');
    }
    return lstLines;
}

} // namespace

// The reference host's data services over real files: connection pools, the take-up of a restored
// database, and the app manager's user and operation log.
class tst_HostData : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void clearPoolsReleasesTheFile();
    void clearPoolsWhileOthersSelect();
    void restoredDatabaseIsTakenUp_data();
    void restoredDatabaseIsTakenUp();
    void failedTakeOverKeepsLiveDatabase();
    void currentUserFromParameterStore_data();
    void currentUserFromParameterStore();
    void operateLogIsStoredInTheClientDatabase();
    void unusableDatabaseStoresNothing();
    void signalHubCarriesRecordTypes();

private:
    QString DbFolder() const { return m_pDir->path() + "/Db"; }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_HostData::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    QVERIFY(DaoTest::CreateDbManagerFunction() != nullptr);
    QVERIFY2(AppData() != nullptr, "libHxAppManager or its GetAppData is missing");
}

void tst_HostData::cleanup()
{
    // Managers of earlier folders keep their connection otherwise, to files about to be deleted.
    CLS_DBDaoC::ClearPools();
    m_pDir.reset();
}

void tst_HostData::clearPoolsReleasesTheFile()
{
    CLS_DbManagerBase* pManager = DaoTest::CreateDbManagerFunction()("Pools", DB_TYPE_SQLITE);
    QVERIFY(pManager != nullptr);
    QCOMPARE(pManager->Execute("CREATE TABLE t (v TEXT)", {}).iCode, 0);
    QCOMPARE(pManager->Execute("INSERT INTO t VALUES ('old')", {}).iCode, 1);
    QCOMPARE(Values(pManager), QStringList{"old"});
    const QString qstrReplacement = m_pDir->path() + "/replacement.db";
    QVERIFY(DaoTest::WriteValuesFile(qstrReplacement, {"new", "newer"}));

    CLS_DBDaoC::ClearPools();
    // A connection left open would go on reading the old file, unlinked but still held.
    QVERIFY(QFile::remove(DbFolder() + "/Pools.db"));
    QVERIFY(QFile::copy(qstrReplacement, DbFolder() + "/Pools.db"));
    QCOMPARE(Values(pManager), (QStringList{"new", "newer"}));
}

void tst_HostData::clearPoolsWhileOthersSelect()
{
    QVERIFY(QDir().mkpath(DbFolder()));
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Busy.db", {"a", "b", "c"}));
    std::atomic<bool> blStop{false};
    std::atomic<int> iSelects{0};
    std::atomic<int> iWrong{0};
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < 4; ++t) {
        vecThreads.emplace_back([&] {
            CLS_DBDao dao("Busy", DB_TYPE_SQLITE);
            while (!blStop) {
                DbRows vecRows;
                const auto result = dao.Select(vecRows, "t", CLS_SqlFilter(), Common::CLS_Page(), {});
                iWrong += result.iCode != 0 || vecRows.size() != 3;
                ++iSelects;
            }
        });
    }
    // Keep closing until the readers have had to reopen many times.
    for (int i = 0; (i < 200 || iSelects < 200) && i < 100000; ++i) {
        CLS_DBDaoC::ClearPools();
    }
    blStop = true;
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    QCOMPARE(iWrong.load(), 0);
    QVERIFY(iSelects >= 200);
    // The readers really had to open the file again after closes.
    QVERIFY(DaoTest::LogText().count(QRegularExpression("connection opened \\[[^\\]]*/Busy\\.db\\]")) > 1);
}

void tst_HostData::restoredDatabaseIsTakenUp_data()
{
    QTest::addColumn<bool>("withLive");
    QTest::addColumn<QStringList>("companions");
    QTest::newRow("live file with journal, wal and shm") << true << QStringList{"-journal", "-wal", "-shm"};
    QTest::newRow("live file alone") << true << QStringList();
    QTest::newRow("no live file") << false << QStringList();
}

void tst_HostData::restoredDatabaseIsTakenUp()
{
    QFETCH(bool, withLive);
    QFETCH(QStringList, companions);
    QVERIFY(QDir().mkpath(DbFolder()));
    const QString qstrLive = DbFolder() + "/Orvella.db";
    const QString qstrRestored = DbFolder() + "/Orvella_backup.db";
    QVERIFY(!withLive || DaoTest::WriteValuesFile(qstrLive, {"live"}));
    for (const QString& qstrSuffix : companions) {
        QVERIFY(WriteAll(qstrLive + qstrSuffix, "companion" + qstrSuffix.toUtf8()));
    }
    QVERIFY(DaoTest::WriteValuesFile(qstrRestored, {"restored"}));

    CLS_DbManagerBase* pManager = DaoTest::CreateDbManagerFunction()("Orvella", DB_TYPE_SQLITE);
    QVERIFY(pManager != nullptr);
    QCOMPARE(Values(pManager), QStringList{"restored"});
    QVERIFY(!QFileInfo::exists(qstrRestored));
    QVERIFY(DaoTest::LogText().contains("restored database taken up"));

    // The live file and its companions are kept aside under one time stamp.
    const QStringList lstAside = QDir(DbFolder()).entryList({"Orvella.db.pre-restore-*"}, QDir::Files);
    QCOMPARE(lstAside.size(), withLive ? 1 : 0);
    if (withLive) {
        const QString qstrStamp = lstAside.first().section("pre-restore-", 1);
        QVERIFY2(QDateTime::fromString(qstrStamp, "yyyyMMdd-hhmmss").isValid(), qPrintable(lstAside.first()));
        QCOMPARE(DaoTest::RunSql(DbFolder() + "/" + lstAside.first(), {"SELECT v FROM t"}),
                 QVariantList{"live"});
        for (const QString& qstrSuffix : companions) {
            QVERIFY2(!QFileInfo::exists(qstrLive + qstrSuffix), qPrintable(qstrSuffix));
            QCOMPARE(ReadAll(qstrLive + qstrSuffix + ".pre-restore-" + qstrStamp),
                     "companion" + qstrSuffix.toUtf8());
        }
        const QString qstrLog = DaoTest::LogText();
        QVERIFY(qstrLog.contains("restored database found") && qstrLog.contains(lstAside.first()));
    }

    // A recovery while the process runs only leaves the file for the next start.
    QVERIFY(DaoTest::WriteValuesFile(qstrRestored, {"second restore"}));
    QCOMPARE(DaoTest::CreateDbManagerFunction()("Orvella", DB_TYPE_SQLITE), pManager);
    QCOMPARE(Values(pManager), QStringList{"restored"});
    QVERIFY(QFileInfo::exists(qstrRestored));
}

void tst_HostData::failedTakeOverKeepsLiveDatabase()
{
    QVERIFY(QDir().mkpath(DbFolder()));
    const QString qstrLive = DbFolder() + "/Orvella.db";
    QVERIFY(DaoTest::WriteValuesFile(qstrLive, {"live"}));
    QVERIFY(WriteAll(qstrLive + "-wal", "stale wal"));
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Orvella_backup.db", {"restored"}));
    const QByteArray qbaLive = ReadAll(qstrLive);
    // Every name the write-ahead log could be kept under in the next minute is taken, so its move fails
    // after the live file itself has been moved.
    const QDateTime now = QDateTime::currentDateTime();
    for (int i = -2; i < 60; ++i) {
        QVERIFY(
            WriteAll(qstrLive + "-wal.pre-restore-" + now.addSecs(i).toString("yyyyMMdd-hhmmss"), "blocker"));
    }

    CLS_DbManagerBase* pManager = DaoTest::CreateDbManagerFunction()("Orvella", DB_TYPE_SQLITE);
    QVERIFY(pManager != nullptr);
    // Checked before the first query: SQLite itself takes up a write-ahead log it finds beside the file.
    QCOMPARE(ReadAll(qstrLive), qbaLive);
    QCOMPARE(ReadAll(qstrLive + "-wal"), QByteArray("stale wal"));
    QVERIFY(QFileInfo::exists(DbFolder() + "/Orvella_backup.db"));
    QVERIFY(QDir(DbFolder()).entryList({"Orvella.db.pre-restore-*"}, QDir::Files).isEmpty());
    QVERIFY(DaoTest::LogText().contains(
        QRegularExpression("\\[ERROR\\].*HxDao.*restored database not taken up")));
    QCOMPARE(Values(pManager), QStringList{"live"});
}

void tst_HostData::currentUserFromParameterStore_data()
{
    QTest::addColumn<QString>("clientId"); // empty: not set
    QTest::addColumn<QString>("userName"); // empty: not set
    QTest::addColumn<QString>("expected"); // id/name
    QTest::newRow("nothing set") << QString() << QString() << QString("admin/admin");
    QTest::newRow("client id only") << QString("u1") << QString() << QString("u1/u1");
    QTest::newRow("non-ASCII id and name") << QString("操作员") << QString("张三") << QString("操作员/张三");
}

void tst_HostData::currentUserFromParameterStore()
{
    QFETCH(QString, clientId);
    QFETCH(QString, userName);
    QFETCH(QString, expected);
    if (!clientId.isEmpty()) {
        QVERIFY(Param::SetParam("SystemConfig", "clientid", clientId.toStdString(), 0) != 0);
    }
    if (!userName.isEmpty()) {
        QVERIFY(Param::SetParam("SystemConfig", "username", userName.toStdString(), 0) != 0);
    }
    I_UserInfo* pUser = AppData()->GetCurrentUser();
    QVERIFY(pUser != nullptr);
    QCOMPARE(pUser->GetUserId() + "/" + pUser->GetUserName(), expected);
}

void tst_HostData::operateLogIsStoredInTheClientDatabase()
{
    const QVector<STRUCT_searchResult> vecEntries{
        {"admin", "admin", "2024-01-31 08:05:00", "lab_users admin btn_backup msg_success", 1},
        {"u1", "O'Brien \"the\" operator", "2024-01-31 09:00:00", "用户 u1 备份 结果 失败", 0},
        {"u2", "", "2024-02-01 00:00:00", "", 1},
    };
    for (const STRUCT_searchResult& stEntry : vecEntries) {
        QVERIFY(AppData()->WriteOperateLog(stEntry));
    }
    QCOMPARE(Describe(ReadOperateLog()), Describe(vecEntries));

    // The entries are in the file, not only in the library's memory.
    CLS_DBDaoC::ClearPools();
    const QString qstrDb = DbFolder() + "/" + Common::CLIENT_DB_NAME + ".db";
    QCOMPARE(DaoTest::RunSql(qstrDb, {"SELECT s_user_id || '|' || s_user_name || '|' || s_time || '|' || "
                                      "s_description || '|' || i_type FROM tab_operate_log ORDER BY i_id"}),
             Describe(vecEntries));
}

void tst_HostData::unusableDatabaseStoresNothing()
{
    // A folder where the database file should be: SQLite cannot open it.
    QVERIFY(QDir().mkpath(DbFolder() + "/" + Common::CLIENT_DB_NAME + ".db"));
    QVERIFY(!AppData()->WriteOperateLog({"admin", "admin", "2024-01-31 08:05:00", "lost", 1}));
    QVERIFY(ReadOperateLog().isEmpty());
}

// Host widgets connect to the hub by signature, and its record types must cross threads.
void tst_HostData::signalHubCarriesRecordTypes()
{
    auto pGetSignals =
        Util::FunctionCast<HxAppManager::PFN_GetAppSignals>(HxAppManager::GetModuleFun("GetAppSignals", ""));
    QVERIFY(pGetSignals != nullptr);
    QObject* pHub = pGetSignals();
    QVERIFY(pHub != nullptr && pHub->inherits("I_AppSignals"));
    QCOMPARE(pGetSignals(), pHub);
    QSignalSpy quit(pHub, SIGNAL(SignQuit(n_QuitFlag, QVariantMap)));
    QVERIFY(quit.isValid());
    const QVariantMap qmapParam{{"reason", "test"}};
    QVERIFY(QMetaObject::invokeMethod(pHub, "SignQuit", Qt::QueuedConnection,
                                      Q_ARG(n_QuitFlag, QUIT_FLAG_RESTART), Q_ARG(QVariantMap, qmapParam)));
    QTRY_COMPARE_WITH_TIMEOUT(quit.count(), 1, 5000);
    QCOMPARE(quit.first().at(0).value<n_QuitFlag>(), QUIT_FLAG_RESTART);
}

QTEST_GUILESS_MAIN(tst_HostData)
#include "tst_HostData.moc"
