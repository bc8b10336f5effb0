#include <type_traits>

#include "CLS_ParamStore.h"
#include "HxExport.h"
#include "Param.h"

// No exception crosses into the caller: a failed read answers the default, a failed write 0.
extern "C" {

HX_EXPORT int Init()
{
    try {
        return CLS_ParamStore::Instance().Init();
    } catch (...) {
        return 0;
    }
}

HX_EXPORT int IsInit()
{
    try {
        return CLS_ParamStore::Instance().IsInit();
    } catch (...) {
        return 0;
    }
}

HX_EXPORT std::string GetParam(const std::string& _strSection, const std::string& _strKey,
                               const std::string& _strDefault)
{
    try {
        return CLS_ParamStore::Instance().GetParam(_strSection, _strKey, _strDefault);
    } catch (...) {
        return _strDefault;
    }
}

// This store keeps a single file, so every write is persisted whatever the flag; the extra text is
// accepted and not used.
HX_EXPORT int SetParam(const std::string& _strSection, const std::string& _strKey,
                       const std::string& _strValue, int /*_iFlag*/, const std::string& /*_strExtra*/)
{
    try {
        return CLS_ParamStore::Instance().SetParam(_strSection, _strKey, _strValue);
    } catch (...) {
        return 0;
    }
}

HX_EXPORT int DeleteParam(const std::string& _strSection, const std::string& _strKey)
{
    try {
        return CLS_ParamStore::Instance().DeleteParam(_strSection, _strKey);
    } catch (...) {
        return 0;
    }
}

HX_EXPORT void UnInit()
{
    try {
        CLS_ParamStore::Instance().UnInit();
    } catch (...) {
    }
}

} // extern "C"

static_assert(std::is_same_v<decltype(&Init), Param::PFN_Init>);
static_assert(std::is_same_v<decltype(&IsInit), Param::PFN_IsInit>);
static_assert(std::is_same_v<decltype(&GetParam), Param::PFN_GetParam>);
static_assert(std::is_same_v<decltype(&SetParam), Param::PFN_SetParam>);
static_assert(std::is_same_v<decltype(&DeleteParam), Param::PFN_DeleteParam>);
static_assert(std::is_same_v<decltype(&UnInit), Param::PFN_UnInit>);
