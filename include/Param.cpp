#include "Param.h"

#include "Util.h"

namespace Param {

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir)
{
    static Util::CLS_ServiceFunctions functions(
        "HxParam", {"Init", "IsInit", "SetParam", "GetParam", "DeleteParam", "UnInit"});
    return functions.GetModuleFun(_strFunName, _strDir);
}

std::string GetParam(const std::string& _strSection, const std::string& _strKey,
                     const std::string& _strDefault)
{
    auto pFun = Util::FunctionCast<PFN_GetParam>(GetModuleFun("GetParam", ""));
    return pFun != nullptr ? pFun(_strSection, _strKey, _strDefault) : _strDefault;
}

int SetParam(const std::string& _strSection, const std::string& _strKey, const std::string& _strValue,
             int _iFlag, const std::string& _strExtra)
{
    auto pFun = Util::FunctionCast<PFN_SetParam>(GetModuleFun("SetParam", ""));
    return pFun != nullptr ? pFun(_strSection, _strKey, _strValue, _iFlag, _strExtra) : 0;
}

} // namespace Param
