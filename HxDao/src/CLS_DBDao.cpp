#include "CLS_DBDao.h"

#include "Logger.h"
#include "Util.h"

namespace {
constexpr const char* kLogContext = "default";
} // namespace

void* GetDBDaoFun(const std::string& _strName, const std::string& _strFolder)
{
    static Util::CLS_OnDemandFunctions functions("HxDao");
    return functions.GetFunction(_strName, _strFolder);
}

CLS_DBDao::CLS_DBDao(const QString& _qstrDbName, n_DBType _iDbType)
{
    auto pCreate = Util::FunctionCast<PFN_CreateDbManager>(GetDBDaoFun("CreateDbManager", ""));
    if (pCreate == nullptr) {
        return;
    }
    if (_iDbType != DB_TYPE_SQLITE) {
        HX_LOG(Logger::LOG_WARN, kLogContext)
            << "_iDbType:[" << static_cast<int>(_iDbType) << "] not implemented";
        return;
    }
    m_pDbManagerBase = pCreate(_qstrDbName, _iDbType);
}

CLS_DBDao::~CLS_DBDao()
{
    if (m_blTransaction) {
        RollbackTransaction();
    }
}

Common::STRUCT_DbResult CLS_DBDao::Select(DbRows& _vecRows, const QString& _qstrTable,
                                          const CLS_SqlFilter& _filter, const Common::CLS_Page& _page,
                                          QVector<Common::CLS_SortInfo> _vecSort)
{
    if (m_pDbManagerBase == nullptr) {
        Common::STRUCT_DbResult result{-1, "CLS_DBDao::Select m_pDbManagerBase == nullptr", {}};
        HX_LOG(Logger::LOG_WARN, kLogContext) << result.qstrMessage;
        return result;
    }
    return m_pDbManagerBase->Select(_vecRows, _qstrTable, _filter, _page, _vecSort);
}

Common::STRUCT_DbResult CLS_DBDao::RollbackTransaction()
{
    if (m_pDbManagerBase == nullptr) {
        Common::STRUCT_DbResult result{-1, "CLS_DBDao::RollbackTransaction m_pDbManagerBase == nullptr", {}};
        HX_LOG(Logger::LOG_WARN, kLogContext) << result.qstrMessage;
        return result;
    }
    m_blTransaction = false;
    return m_pDbManagerBase->RollbackTransaction();
}
