#include <memory>
#include <thread>

#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTimer>
#include <QtTest>

#include "CLS_DBDaoC.h"
#include "DaoTestSupport.h"
#include "HxAppManager.h"
#include "SharedRecords.h"
#include "HxOperateLog.h"
#include "I_AppData.h"
#include "Param.h"

namespace {

template <typename F>
F AppManagerFunction(const char* _pName)
{
    return Util::FunctionCast<F>(HxAppManager::GetModuleFun(_pName, ""));
}

I_AppData* AppData()
{
    auto pGet = AppManagerFunction<HxAppManager::PFN_GetAppData>("GetAppData");
    return pGet != nullptr ? pGet() : nullptr;
}

QVector<STRUCT_searchResult> ReadOperateLog()
{
    auto pRead = Util::FunctionCast<HxAppManager::PFN_ReadOperateLog>(
        Util::GetDllFunction(Util::LibraryFileName("HxAppManager"), "ReadOperateLog"));
    return pRead != nullptr ? pRead()
                            : QVector<STRUCT_searchResult>{{"ReadOperateLog missing", {}, {}, {}, -1}};
}

STRUCT_searchResult Entry(const QString& _qstrId, const QString& _qstrName, const QString& _qstrTime,
                          const QString& _qstrDescription, int _iType)
{
    STRUCT_searchResult stEntry;
    stEntry.qstrUserId = _qstrId;
    stEntry.qstrUserName = _qstrName;
    stEntry.qstrTime = _qstrTime;
    stEntry.qstrDescription = _qstrDescription;
    stEntry.iType = _iType;
    return stEntry;
}

QString Describe(const STRUCT_searchResult& _stEntry)
{
    return QString("%1|%2|%3|%4|%5")
        .arg(_stEntry.qstrUserId, _stEntry.qstrUserName, _stEntry.qstrTime, _stEntry.qstrDescription)
        .arg(_stEntry.iType);
}

QStringList Describe(const QVector<STRUCT_searchResult>& _vecEntries)
{
    QStringList lstLines;
    for (const STRUCT_searchResult& stEntry : _vecEntries) {
        lstLines << Describe(stEntry);
    }
    return lstLines;
}

} // namespace

class tst_AppManager : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void currentUserFromParameterStore_data();
    void currentUserFromParameterStore();
    void operateLogIsStoredInTheClientDatabase();
    void unusableDatabaseStoresNothing();
    void appQuitEndsTheRunningLoop_data();
    void appQuitEndsTheRunningLoop();
    void applicationAndProcess();
    void signalHubCarriesTheHostSignals();

private:
    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_AppManager::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    QVERIFY2(AppData() != nullptr, "libHxAppManager or its GetAppData is missing");
}

void tst_AppManager::cleanup()
{
    CLS_DBDaoC::ClearPools();
    m_pDir.reset();
}

void tst_AppManager::currentUserFromParameterStore_data()
{
    QTest::addColumn<QString>("clientId"); // empty: not set
    QTest::addColumn<QString>("userName"); // empty: not set
    QTest::addColumn<QString>("expectedId");
    QTest::addColumn<QString>("expectedName");
    QTest::newRow("nothing set") << QString() << QString() << "admin"
                                 << "admin";
    QTest::newRow("client id only") << "u1" << QString() << "u1"
                                    << "u1";
    QTest::newRow("client id and name") << "u2"
                                        << "Operator Two"
                                        << "u2"
                                        << "Operator Two";
    QTest::newRow("non-ASCII name") << QString::fromUtf8("操作员") << QString::fromUtf8("张三")
                                    << QString::fromUtf8("操作员") << QString::fromUtf8("张三");
}

void tst_AppManager::currentUserFromParameterStore()
{
    QFETCH(QString, clientId);
    QFETCH(QString, userName);
    QFETCH(QString, expectedId);
    QFETCH(QString, expectedName);

    if (!clientId.isEmpty()) {
        QVERIFY(Param::SetParam("SystemConfig", "clientid", clientId.toStdString(), 0) != 0);
    }
    if (!userName.isEmpty()) {
        QVERIFY(Param::SetParam("SystemConfig", "username", userName.toStdString(), 0) != 0);
    }
    I_UserInfo* pUser = AppData()->GetCurrentUser();
    QVERIFY(pUser != nullptr);
    QCOMPARE(pUser->GetUserId(), expectedId);
    QCOMPARE(pUser->GetUserName(), expectedName);
}

void tst_AppManager::operateLogIsStoredInTheClientDatabase()
{
    const QVector<STRUCT_searchResult> vecEntries{
        Entry("admin", "admin", "2024-01-31 08:05:00", "lab_users admin btn_backup msg_success", 1),
        Entry("u1", "O'Brien \"the\" operator", "2024-01-31 09:00:00",
              QString::fromUtf8("用户 u1 备份 结果 失败"), 0),
        Entry("u2", "", "2024-02-01 00:00:00", "", 1),
    };
    for (const STRUCT_searchResult& stEntry : vecEntries) {
        QVERIFY(AppData()->WriteOperateLog(stEntry));
    }

    QCOMPARE(Describe(ReadOperateLog()), Describe(vecEntries));

    // The entries are in the file, not only in the library's memory.
    CLS_DBDaoC::ClearPools();
    DaoTest::CLS_TestConnection conn(m_pDir->path() + "/Db/" + Common::CLIENT_DB_NAME + ".db");
    QVERIFY(conn.IsOpen());
    QCOMPARE(conn.Column("SELECT name FROM pragma_table_info('tab_operate_log') ORDER BY cid"),
             (QVariantList{"i_id", "s_user_id", "s_user_name", "s_time", "s_description", "i_type"}));
    QCOMPARE(conn.Column("SELECT s_description FROM tab_operate_log ORDER BY i_id"),
             (QVariantList{vecEntries[0].qstrDescription, vecEntries[1].qstrDescription,
                           vecEntries[2].qstrDescription}));
    QCOMPARE(conn.Column("SELECT i_type FROM tab_operate_log ORDER BY i_id"), (QVariantList{1, 0, 1}));
}

void tst_AppManager::unusableDatabaseStoresNothing()
{
    // A folder where the database file should be: SQLite cannot open it.
    QVERIFY(QDir().mkpath(m_pDir->path() + "/Db/" + Common::CLIENT_DB_NAME + ".db"));
    QVERIFY(!AppData()->WriteOperateLog(Entry("admin", "admin", "2024-01-31 08:05:00", "lost", 1)));
    QVERIFY(ReadOperateLog().isEmpty());
}

void tst_AppManager::appQuitEndsTheRunningLoop_data()
{
    QTest::addColumn<bool>("fromOtherThread");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("application thread") << false << 7;
    QTest::newRow("other thread") << true << 9;
}

void tst_AppManager::appQuitEndsTheRunningLoop()
{
    QFETCH(bool, fromOtherThread);
    QFETCH(int, exitCode);
    auto pQuit = AppManagerFunction<HxAppManager::PFN_AppQuit>("AppQuit");
    QVERIFY(pQuit != nullptr);

    std::thread caller;
    QTimer::singleShot(0, [&]() {
        if (fromOtherThread) {
            caller = std::thread([&]() { pQuit(exitCode); });
        } else {
            pQuit(exitCode);
        }
    });
    // Should AppQuit do nothing, this ends the loop with another code.
    QTimer fallback;
    fallback.setSingleShot(true);
    connect(&fallback, &QTimer::timeout, []() { QCoreApplication::exit(-100); });
    fallback.start(5000);
    // The application's own loop: an exit request stops every loop of the application thread for good,
    // and only this one starts afresh after it.
    const int iResult = QCoreApplication::exec();
    if (caller.joinable()) {
        caller.join();
    }
    QCOMPARE(iResult, exitCode);
}

void tst_AppManager::applicationAndProcess()
{
    auto pGetApp = AppManagerFunction<HxAppManager::PFN_GetApp>("GetApp");
    auto pGetHandle = AppManagerFunction<HxAppManager::PFN_GetAppHandle>("GetAppHandle");
    QVERIFY(pGetApp != nullptr && pGetHandle != nullptr);
    QCOMPARE(pGetApp(), static_cast<QObject*>(QCoreApplication::instance()));
    QCOMPARE(pGetHandle(), static_cast<long long>(QCoreApplication::applicationPid()));
}

void tst_AppManager::signalHubCarriesTheHostSignals()
{
    auto pGetSignals = AppManagerFunction<HxAppManager::PFN_GetAppSignals>("GetAppSignals");
    QVERIFY(pGetSignals != nullptr);
    QObject* pHub = pGetSignals();
    QVERIFY(pHub != nullptr);
    QCOMPARE(pGetSignals(), pHub);
    QVERIFY(pHub->inherits("I_AppSignals"));
    // Receivers connect by signature; the record types travel through queued connections too.
    QSignalSpy quit(pHub, SIGNAL(SignQuit(n_QuitFlag, QVariantMap)));
    QVERIFY(quit.isValid());
    const QVariantMap qmapParam{{"reason", "test"}};
    QVERIFY(QMetaObject::invokeMethod(pHub, "SignQuit", Qt::QueuedConnection, Q_ARG(n_QuitFlag, QUIT_FLAG_RESTART),
                                      Q_ARG(QVariantMap, qmapParam)));
    QTRY_COMPARE_WITH_TIMEOUT(quit.count(), 1, 5000);
    QCOMPARE(quit.first().at(0).value<n_QuitFlag>(), QUIT_FLAG_RESTART);
    QCOMPARE(quit.first().at(1).toMap().value("reason").toString(), QString("test"));
}

QTEST_GUILESS_MAIN(tst_AppManager)
#include "tst_AppManager.moc"
