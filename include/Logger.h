#pragma once

#include <sstream>
#include <string>

#include <QByteArray>
#include <QString>

namespace Logger {

enum n_LogLevel
{
    LOG_DEBUG = 0, // entry lines and cancels
    LOG_INFO = 1,  // handling lines and success notes
    LOG_WARN = 2,  // failures
    LOG_ERROR = 3  // failures that lose a request or an entry
};

// Functions of the host's logging library.
using PFN_Init = int (*)();
using PFN_SetLoggerConfig = int (*)(const std::string& _strModuleCode, int _iMinLevel);
using PFN_SetLoggerConfigAll = int (*)(int _iMinLevel);
using PFN_PrintLog = void (*)(int _iLevel, const char* _pModuleCode, const char* _pFile, int _iLine,
                              const char* _pFunction, const std::string& _strMessage);
using PFN_UnInit = void (*)();

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir);

// Collects one line and hands it to the logging library when destroyed; a missing library drops it.
class LogMessageStream : public std::ostringstream
{
public:
    LogMessageStream(const char* _pFile, const char* _pModuleCode, const char* _pFunction, int _iLine,
                     int _iLevel);
    ~LogMessageStream() override;

    LogMessageStream(const LogMessageStream&) = delete;
    LogMessageStream& operator=(const LogMessageStream&) = delete;

private:
    std::string m_strFile;
    std::string m_strModuleCode;
    std::string m_strFunction;
    int m_iLine;
    int m_iLevel;
};

// The file name part of a source path, which is how log lines name their source.
constexpr const char* SourceFileName(const char* _pPath)
{
    const char* pName = _pPath;
    for (const char* p = _pPath; *p != '\0'; ++p) {
        if (*p == '/') {
            pName = p + 1;
        }
    }
    return pName;
}

} // namespace Logger

// Qt text goes into log lines as UTF-8.
inline std::ostream& operator<<(std::ostream& _os, const QString& _qstr)
{
    return _os << _qstr.toUtf8().constData();
}

inline std::ostream& operator<<(std::ostream& _os, const QByteArray& _qba)
{
    return _os.write(_qba.constData(), _qba.size());
}

// A log line at the current source line, or at a line fixed by the host's log tools.
#define HX_LOG(level, moduleCode)                                                                            \
    Logger::LogMessageStream(Logger::SourceFileName(__FILE__), (moduleCode), __func__, __LINE__, (level))
// A log line in the name of the function that the host's log tools know, where the work sits in a helper.
#define HX_LOG_IN(level, moduleCode, function)                                                               \
    Logger::LogMessageStream(Logger::SourceFileName(__FILE__), (moduleCode), (function), __LINE__, (level))
#define HX_LOG_AT(level, moduleCode, line)                                                                   \
    Logger::LogMessageStream(Logger::SourceFileName(__FILE__), (moduleCode), __func__, (line), (level))
