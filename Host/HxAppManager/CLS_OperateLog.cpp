#include "CLS_OperateLog.h"

#include "CLS_SqlFilter.h"
#include "HxDaoExports.h"
#include "HxOperateLog.h"
#include "Logger.h"

namespace {

constexpr const char* kLogContext = "HxAppManager";

} // namespace

CLS_DbManagerBase* CLS_OperateLog::OpenTable()
{
    CLS_DbManagerBase* pManager = CreateDbManager(Common::CLIENT_DB_NAME, DB_TYPE_SQLITE);
    if (pManager == nullptr) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "no client database [" << Common::CLIENT_DB_NAME << "]";
        return nullptr;
    }
    const Common::STRUCT_DbResult result =
        pManager->Execute(QString("CREATE TABLE IF NOT EXISTS %1 (i_id INTEGER PRIMARY KEY AUTOINCREMENT, "
                                  "s_user_id TEXT, s_user_name TEXT, s_time TEXT, s_description TEXT, "
                                  "i_type INTEGER)")
                              .arg(HxAppManager::OPERATE_LOG_TABLE),
                          {});
    if (result.iCode < 0) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "operation log table unusable: " << result.qstrMessage;
        return nullptr;
    }
    return pManager;
}

bool CLS_OperateLog::Write(const STRUCT_searchResult& _stEntry)
{
    CLS_DbManagerBase* pManager = OpenTable();
    if (pManager == nullptr) {
        return false;
    }
    const Common::STRUCT_DbResult result = pManager->Execute(
        QString(
            "INSERT INTO %1 (s_user_id, s_user_name, s_time, s_description, i_type) VALUES (?, ?, ?, ?, ?)")
            .arg(HxAppManager::OPERATE_LOG_TABLE),
        {_stEntry.qstrUserId, _stEntry.qstrUserName, _stEntry.qstrTime, _stEntry.qstrDescription,
         _stEntry.iType});
    if (result.iCode != 1) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "operation log entry not stored: " << result.qstrMessage;
        return false;
    }
    return true;
}

QVector<STRUCT_searchResult> CLS_OperateLog::Read()
{
    QVector<STRUCT_searchResult> vecEntries;
    CLS_DbManagerBase* pManager = OpenTable();
    if (pManager == nullptr) {
        return vecEntries;
    }
    Common::CLS_SortInfo byId;
    byId.qstrColumn = "i_id";
    DbRows vecRows;
    const Common::STRUCT_DbResult result = pManager->Select(vecRows, HxAppManager::OPERATE_LOG_TABLE,
                                                            CLS_SqlFilter(), Common::CLS_Page(), {byId});
    if (result.iCode < 0) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "operation log not readable: " << result.qstrMessage;
        return vecEntries;
    }
    vecEntries.reserve(vecRows.size());
    for (const QMap<QString, QVariant>& mapRow : vecRows) {
        STRUCT_searchResult stEntry;
        stEntry.qstrUserId = mapRow.value("s_user_id").toString();
        stEntry.qstrUserName = mapRow.value("s_user_name").toString();
        stEntry.qstrTime = mapRow.value("s_time").toString();
        stEntry.qstrDescription = mapRow.value("s_description").toString();
        stEntry.iType = mapRow.value("i_type").toInt();
        vecEntries.append(stEntry);
    }
    return vecEntries;
}
