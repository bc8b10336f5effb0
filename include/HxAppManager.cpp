#include "HxAppManager.h"

#include "Util.h"

namespace HxAppManager {

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir)
{
    static Util::CLS_ServiceFunctions functions(
        "HxAppManager", {"AppQuit", "GetApp", "GetAppData", "GetAppHandle", "GetAppSignals"});
    return functions.GetModuleFun(_strFunName, _strDir);
}

} // namespace HxAppManager
