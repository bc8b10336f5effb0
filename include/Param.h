#pragma once

#include <string>

namespace Param {

// Functions of the host's parameter store.
using PFN_Init = int (*)();
using PFN_IsInit = int (*)();
using PFN_GetParam = std::string (*)(const std::string& _strSection, const std::string& _strKey,
                                     const std::string& _strDefault);
// Returns non-zero when the value was stored.
using PFN_SetParam = int (*)(const std::string& _strSection, const std::string& _strKey,
                             const std::string& _strValue, int _iFlag, const std::string& _strExtra);
using PFN_DeleteParam = int (*)(const std::string& _strSection, const std::string& _strKey);
using PFN_UnInit = void (*)();

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir);

// The stored text, or the default when the value or the store is missing.
std::string GetParam(const std::string& _strSection, const std::string& _strKey,
                     const std::string& _strDefault);
// SetParam's answer, or 0 when the store is missing.
int SetParam(const std::string& _strSection, const std::string& _strKey, const std::string& _strValue,
             int _iFlag, const std::string& _strExtra = std::string());

} // namespace Param
