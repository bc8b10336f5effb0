#include "Logger.h"

#include "Util.h"

namespace Logger {

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir)
{
    static Util::CLS_ServiceFunctions functions(
        "HxLog", {"Init", "SetLoggerConfig", "SetLoggerConfigAll", "PrintLog", "UnInit"});
    return functions.GetModuleFun(_strFunName, _strDir);
}

LogMessageStream::LogMessageStream(const char* _pFile, const char* _pModuleCode, const char* _pFunction,
                                   int _iLine, int _iLevel)
    : m_strFile(_pFile != nullptr ? _pFile : ""),
      m_strModuleCode(_pModuleCode != nullptr ? _pModuleCode : ""),
      m_strFunction(_pFunction != nullptr ? _pFunction : ""), m_iLine(_iLine), m_iLevel(_iLevel)
{}

LogMessageStream::~LogMessageStream()
{
    // Logging never fails the operation that logs: nothing may escape a destructor.
    try {
        auto pFun = Util::FunctionCast<PFN_PrintLog>(GetModuleFun("PrintLog", ""));
        if (pFun != nullptr) {
            pFun(m_iLevel, m_strModuleCode.c_str(), m_strFile.c_str(), m_iLine, m_strFunction.c_str(), str());
        }
    } catch (...) {
    }
}

} // namespace Logger
