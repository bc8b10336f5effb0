#include <atomic>
#include <memory>
#include <mutex>
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

namespace {

QStringList Values(CLS_DbManagerBase* _pManager, int* _pCode = nullptr)
{
    DbRows vecRows;
    const auto result = _pManager->Select(vecRows, "t", CLS_SqlFilter(), Common::CLS_Page(), {});
    if (_pCode != nullptr) {
        *_pCode = result.iCode;
    }
    QStringList lstValues;
    for (const auto& mapRow : vecRows) {
        lstValues << mapRow.value("v").toString();
    }
    return lstValues;
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

} // namespace

class tst_DaoPools : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void clearPoolsReleasesTheFile();
    void closeAllCountsOpenConnections();
    void clearPoolsWhileOthersSelect();
    void restoredDatabaseIsTakenUp_data();
    void restoredDatabaseIsTakenUp();
    void takeOverHappensOnlyAtFirstOpen();
    void failedTakeOverKeepsLiveDatabase();

private:
    QString DbFolder() const { return m_pDir->path() + "/Db"; }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_DaoPools::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    QVERIFY(DaoTest::CreateDbManagerFunction() != nullptr);
}

void tst_DaoPools::cleanup()
{
    // Managers of earlier folders keep their connection otherwise, to files about to be deleted.
    CLS_DBDaoC::ClearPools();
    m_pDir.reset();
}

void tst_DaoPools::clearPoolsReleasesTheFile()
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
    const QString qstrLive = DbFolder() + "/Pools.db";
    QVERIFY(QFile::remove(qstrLive));
    QVERIFY(QFile::copy(qstrReplacement, qstrLive));

    int iCode = 1;
    QCOMPARE(Values(pManager, &iCode), (QStringList{"new", "newer"}));
    QCOMPARE(iCode, 0);
    CLS_DBDao dao("Pools", DB_TYPE_SQLITE);
    DbRows vecRows;
    QCOMPARE(dao.Select(vecRows, "t", CLS_SqlFilter().Equal("v", "newer"), Common::CLS_Page(), {}).iCode, 0);
    QCOMPARE(vecRows.size(), 1);
}

void tst_DaoPools::closeAllCountsOpenConnections()
{
    auto pCloseAll = DaoTest::CloseAllConnectionsFunction();
    QVERIFY(pCloseAll != nullptr);
    pCloseAll();

    auto pCreate = DaoTest::CreateDbManagerFunction();
    CLS_DbManagerBase* pFirst = pCreate("First", DB_TYPE_SQLITE);
    CLS_DbManagerBase* pSecond = pCreate("Second", DB_TYPE_SQLITE);
    pCreate("NeverUsed", DB_TYPE_SQLITE);
    QVERIFY(pFirst != nullptr && pSecond != nullptr);
    QCOMPARE(pFirst->Execute("CREATE TABLE t (v TEXT)", {}).iCode, 0);
    QCOMPARE(pSecond->Execute("CREATE TABLE t (v TEXT)", {}).iCode, 0);

    QCOMPARE(pCloseAll(), 2);
    QCOMPARE(pCloseAll(), 0);
    int iCode = 1;
    Values(pFirst, &iCode);
    QCOMPARE(iCode, 0);
    QCOMPARE(pCloseAll(), 1);
}

void tst_DaoPools::clearPoolsWhileOthersSelect()
{
    const QStringList lstExpected{"a", "b", "c"};
    QVERIFY(QDir().mkpath(DbFolder()));
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Busy.db", lstExpected));

    std::atomic<bool> blStop{false};
    std::atomic<int> iSelects{0};
    std::mutex mutex;
    QStringList lstFailures;
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < 4; ++t) {
        vecThreads.emplace_back([&]() {
            CLS_DBDao dao("Busy", DB_TYPE_SQLITE);
            while (!blStop.load()) {
                DbRows vecRows;
                const auto result = dao.Select(vecRows, "t", CLS_SqlFilter(), Common::CLS_Page(), {});
                ++iSelects;
                if (result.iCode != 0 || vecRows.size() != lstExpected.size()) {
                    std::lock_guard<std::mutex> lock(mutex);
                    lstFailures << QString("code %1 %2, %3 rows")
                                       .arg(result.iCode)
                                       .arg(result.qstrMessage)
                                       .arg(vecRows.size());
                }
            }
        });
    }
    // Keep closing until the readers have had to reopen many times.
    for (int i = 0; i < 200 || iSelects.load() < 200; ++i) {
        CLS_DBDaoC::ClearPools();
        if (i > 100000) {
            break;
        }
    }
    blStop = true;
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    QVERIFY2(lstFailures.isEmpty(), qPrintable(lstFailures.join('\n')));
    QVERIFY(iSelects.load() >= 200);
    // The readers really had to open the file again after closes.
    const int iOpens =
        DaoTest::LogText().count(QRegularExpression("connection opened \\[[^\\]]*/Busy\\.db\\]"));
    QVERIFY2(iOpens > 1, qPrintable(QString::number(iOpens)));
}

void tst_DaoPools::restoredDatabaseIsTakenUp_data()
{
    QTest::addColumn<bool>("withLive");
    QTest::addColumn<QStringList>("companions");
    QTest::newRow("live file with journal, wal and shm") << true << QStringList{"-journal", "-wal", "-shm"};
    QTest::newRow("live file alone") << true << QStringList();
    QTest::newRow("no live file") << false << QStringList();
}

void tst_DaoPools::restoredDatabaseIsTakenUp()
{
    QFETCH(bool, withLive);
    QFETCH(QStringList, companions);

    QVERIFY(QDir().mkpath(DbFolder()));
    const QString qstrLive = DbFolder() + "/Orvella.db";
    if (withLive) {
        QVERIFY(DaoTest::WriteValuesFile(qstrLive, {"live"}));
    }
    for (const QString& qstrSuffix : companions) {
        QVERIFY(WriteAll(qstrLive + qstrSuffix, "companion" + qstrSuffix.toUtf8()));
    }
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Orvella_backup.db", {"restored"}));

    const QDateTime before = QDateTime::currentDateTime().addSecs(-1);
    CLS_DbManagerBase* pManager = DaoTest::CreateDbManagerFunction()("Orvella", DB_TYPE_SQLITE);
    const QDateTime after = QDateTime::currentDateTime().addSecs(1);
    QVERIFY(pManager != nullptr);
    QCOMPARE(Values(pManager), QStringList{"restored"});
    QVERIFY(!QFileInfo::exists(DbFolder() + "/Orvella_backup.db"));

    const QStringList lstAside = QDir(DbFolder()).entryList({"Orvella.db.pre-restore-*"}, QDir::Files);
    if (!withLive) {
        QVERIFY(lstAside.isEmpty());
        QVERIFY(DaoTest::LogText().contains("restored database taken up"));
        return;
    }
    QCOMPARE(lstAside.size(), 1);
    const QRegularExpressionMatch match =
        QRegularExpression("^Orvella\\.db\\.pre-restore-(\\d{8}-\\d{6})$").match(lstAside.first());
    QVERIFY2(match.hasMatch(), qPrintable(lstAside.first()));
    const QString qstrStamp = match.captured(1);
    const QDateTime stamp = QDateTime::fromString(qstrStamp, "yyyyMMdd-hhmmss");
    QVERIFY(stamp >= before.addMSecs(-before.time().msec()) && stamp <= after);

    {
        DaoTest::CLS_TestConnection conn(DbFolder() + "/" + lstAside.first());
        QVERIFY(conn.IsOpen());
        QCOMPARE(conn.Column("SELECT v FROM t"), QVariantList{"live"});
    }
    for (const QString& qstrSuffix : companions) {
        QVERIFY2(!QFileInfo::exists(qstrLive + qstrSuffix), qPrintable(qstrSuffix));
        QCOMPARE(ReadAll(qstrLive + qstrSuffix + ".pre-restore-" + qstrStamp),
                 "companion" + qstrSuffix.toUtf8());
    }
    const QString qstrLog = DaoTest::LogText();
    QVERIFY(qstrLog.contains("restored database found"));
    QVERIFY(qstrLog.contains(lstAside.first()));
    QVERIFY(qstrLog.contains("restored database taken up"));
}

void tst_DaoPools::takeOverHappensOnlyAtFirstOpen()
{
    QVERIFY(QDir().mkpath(DbFolder()));
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Orvella_backup.db", {"first restore"}));
    auto pCreate = DaoTest::CreateDbManagerFunction();
    CLS_DbManagerBase* pManager = pCreate("Orvella", DB_TYPE_SQLITE);
    QVERIFY(pManager != nullptr);
    QCOMPARE(Values(pManager), QStringList{"first restore"});

    // A recovery while the process runs only leaves the file for the next start.
    QVERIFY(DaoTest::WriteValuesFile(DbFolder() + "/Orvella_backup.db", {"second restore"}));
    QCOMPARE(pCreate("Orvella", DB_TYPE_SQLITE), pManager);
    QCOMPARE(Values(pManager), QStringList{"first restore"});
    QVERIFY(QFileInfo::exists(DbFolder() + "/Orvella_backup.db"));
}

void tst_DaoPools::failedTakeOverKeepsLiveDatabase()
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
        const QString qstrStamp = now.addSecs(i).toString("yyyyMMdd-hhmmss");
        QVERIFY(WriteAll(qstrLive + "-wal.pre-restore-" + qstrStamp, "blocker"));
    }

    CLS_DbManagerBase* pManager = DaoTest::CreateDbManagerFunction()("Orvella", DB_TYPE_SQLITE);
    QVERIFY(pManager != nullptr);

    // Checked before the first query: SQLite itself takes up a write-ahead log it finds beside the file.
    QCOMPARE(ReadAll(qstrLive), qbaLive);
    QCOMPARE(ReadAll(qstrLive + "-wal"), QByteArray("stale wal"));
    QVERIFY(QFileInfo::exists(DbFolder() + "/Orvella_backup.db"));
    QVERIFY(QDir(DbFolder()).entryList({"Orvella.db.pre-restore-*"}, QDir::Files).isEmpty());
    const QString qstrLog = DaoTest::LogText();
    QVERIFY(qstrLog.contains(QRegularExpression("\\[ERROR\\].*HxDao.*restored database not taken up")));
    QCOMPARE(Values(pManager), QStringList{"live"});
}

QTEST_GUILESS_MAIN(tst_DaoPools)
#include "tst_DaoPools.moc"
