#include "CLS_DBDaoC.h"

#include "Logger.h"
#include "Util.h"

void* GetDBDaoCFun(const std::string& _strName, const std::string& _strFolder)
{
    static Util::CLS_OnDemandFunctions functions("HxDaoC");
    return functions.GetFunction(_strName, _strFolder);
}

void CLS_DBDaoC::ClearPools()
{
    auto pFun = Util::FunctionCast<PFN_ClearPools>(GetDBDaoCFun("ClearPools", ""));
    if (pFun == nullptr) {
        HX_LOG(Logger::LOG_WARN, "default") << "nullptr == pFun_CreateDb";
        return;
    }
    pFun();
}
