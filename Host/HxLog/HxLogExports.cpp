#include <type_traits>

#include "CLS_LogSink.h"
#include "HxExport.h"
#include "Logger.h"

extern "C" {

HX_EXPORT int Init()
{
    CLS_LogSink::Instance();
    return 1;
}

HX_EXPORT int SetLoggerConfig(const std::string& _strModuleCode, int _iMinLevel)
{
    CLS_LogSink::Instance().SetModuleLevel(_strModuleCode, _iMinLevel);
    return 1;
}

HX_EXPORT int SetLoggerConfigAll(int _iMinLevel)
{
    CLS_LogSink::Instance().SetAllLevels(_iMinLevel);
    return 1;
}

HX_EXPORT void PrintLog(int _iLevel, const char* _pModuleCode, const char* _pFile, int _iLine,
                        const char* _pFunction, const std::string& _strMessage)
{
    try {
        CLS_LogSink::Instance().Write(_iLevel, _pModuleCode, _pFile, _iLine, _pFunction, _strMessage);
    } catch (...) {
        // a log line is never worth an exception in the caller
    }
}

HX_EXPORT void UnInit()
{
    CLS_LogSink::Instance().Close();
}

} // extern "C"

static_assert(std::is_same_v<decltype(&Init), Logger::PFN_Init>);
static_assert(std::is_same_v<decltype(&SetLoggerConfig), Logger::PFN_SetLoggerConfig>);
static_assert(std::is_same_v<decltype(&SetLoggerConfigAll), Logger::PFN_SetLoggerConfigAll>);
static_assert(std::is_same_v<decltype(&PrintLog), Logger::PFN_PrintLog>);
static_assert(std::is_same_v<decltype(&UnInit), Logger::PFN_UnInit>);
