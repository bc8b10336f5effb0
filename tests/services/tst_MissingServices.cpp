#include <QtTest>

#include "CLS_DBDao.h"
#include "CLS_DBDaoC.h"
#include "CLS_ModuleBasic.h"
#include "CLS_StreamCapture.h"
#include "CLS_TestPresenter.h"
#include "HxAppManager.h"
#include "Logger.h"
#include "Param.h"
#include "SharedRecords.h"
#include "TaskPool.h"
#include "Util.h"

class CLS_LonelyModule : public CLS_ModuleBasic
{
    Q_OBJECT

public:
    CLS_PresenterBasic* GetPresenter(const QVariantMap&) override { return &m_presenter; }
    QWidget* CreateView(const QVariantMap&) override { return nullptr; }

    CLS_TestPresenter m_presenter;
};

// This suite runs without a path to the host's libraries: every service is missing.
class tst_MissingServices : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyFacadeAnswersNeutrallyAndEachLibraryIsReportedOnce();
    void requestsWithoutATaskPoolAreDroppedQuietly();
};

void tst_MissingServices::everyFacadeAnswersNeutrallyAndEachLibraryIsReportedOnce()
{
    CLS_StreamCapture err(STDERR_FILENO);
    for (int iRound = 0; iRound < 2; ++iRound) {
        QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpCount", "3"), std::string("3"));
        QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpCount", "4", 1), 0);
        HX_LOG(3, "ModuleBackUp") << "dropped without a logger";
        QCOMPARE(TaskPool::GetModuleFun("AddTmpTask", ""), nullptr);
        QCOMPARE(TaskPool::GetModuleFun("AddLoopTask", ""), nullptr);
        QCOMPARE(HxAppManager::GetModuleFun("GetAppData", ""), nullptr);

        CLS_DBDao dao(Common::CLIENT_DB_NAME, DB_TYPE_SQLITE);
        DbRows rows;
        CLS_SqlFilter filter;
        filter.Equal("s_sub_type", "downpath");
        const Common::STRUCT_DbResult result =
            dao.Select(rows, "tab_config_user_personaladmin", filter, Common::CLS_Page(-1, -1, -1, true), {});
        QCOMPARE(result.iCode, -1);
        QCOMPARE(result.qstrMessage, QString("CLS_DBDao::Select m_pDbManagerBase == nullptr"));
        QVERIFY(result.qmapInfo.isEmpty());
        QVERIFY(rows.isEmpty());
        const Common::STRUCT_DbResult rollback = dao.RollbackTransaction();
        QCOMPARE(rollback.iCode, -1);
        QCOMPARE(rollback.qstrMessage, QString("CLS_DBDao::RollbackTransaction m_pDbManagerBase == nullptr"));

        CLS_DBDaoC::ClearPools();
    }
    const QString qstrErr = QString::fromStdString(err.Text());
    for (const char* pLib : {"HxParam", "HxLog", "HxTaskPool", "HxAppManager", "HxDao", "HxDaoC"}) {
        const QString qstrLine = QString("load dll [%1] fail !!! ").arg(Util::LibraryFileName(pLib).c_str());
        QVERIFY2(qstrErr.count(qstrLine) == 1, qPrintable(QString(pLib) + ":\n" + qstrErr));
    }
    QCOMPARE(qstrErr.count('\n'), 6);
}

void tst_MissingServices::requestsWithoutATaskPoolAreDroppedQuietly()
{
    auto* pModule = new CLS_LonelyModule();
    QSignalSpy moduleAnswers(pModule, &CLS_ModuleBasic::SignHandlerRsulted);
    QSignalSpy presenterAnswers(&pModule->m_presenter, &CLS_PresenterBasic::SignTaskResult);
    pModule->m_presenter.m_iInterval = 10;
    pModule->InitModule({});
    QCOMPARE(pModule->m_presenter.IsInit(), 1);
    pModule->TaskRequest("ok", {}, "uuid");
    pModule->m_presenter.TaskRequest("ok", {}, "uuid", nullptr);
    QCoreApplication::processEvents();
    QCOMPARE(moduleAnswers.count(), 0);
    QCOMPARE(presenterAnswers.count(), 0);
    QCOMPARE(pModule->m_presenter.m_iHandled.load(), 0);
    pModule->UnInitModule({});
    QCOMPARE(pModule->m_presenter.IsInit(), 0);
    delete pModule;
}

QTEST_GUILESS_MAIN(tst_MissingServices)
#include "tst_MissingServices.moc"
