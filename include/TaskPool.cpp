#include "TaskPool.h"

#include "Util.h"

namespace TaskPool {

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir)
{
    static Util::CLS_ServiceFunctions functions(
        "HxTaskPool", {"AddTmpTask", "RemoveTmpTask", "AddLoopTask", "RemoveTask", "KillTaskAll", "UnInit"});
    return functions.GetModuleFun(_strFunName, _strDir);
}

} // namespace TaskPool
