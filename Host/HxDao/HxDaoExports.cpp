#include <exception>
#include <type_traits>

#include "CLS_DbRegistry.h"
#include "CLS_SqliteDbManager.h"
#include "HxDaoExports.h"
#include "Logger.h"

extern "C" {

HX_EXPORT CLS_DbManagerBase* CreateDbManager(const QString& _qstrDbName, int _iDbType)
{
    try {
        return CLS_DbRegistry::Instance().Manager(_qstrDbName, _iDbType);
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, "HxDao") << "CreateDbManager [" << _qstrDbName << "] failed: " << e.what();
        return nullptr;
    }
}

HX_EXPORT int CloseAllConnections()
{
    try {
        return CLS_DbRegistry::Instance().CloseAll();
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, "HxDao") << "CloseAllConnections failed: " << e.what();
        return 0;
    }
}

} // extern "C"

static_assert(std::is_same_v<decltype(&CreateDbManager), PFN_CreateDbManager>);
static_assert(std::is_same_v<decltype(&CloseAllConnections), PFN_CloseAllConnections>);
