#pragma once

#include <cstdio>
#include <map>
#include <mutex>
#include <string>

// Where the host's log lines go: a log file under <data>/Log/, and standard error from a level up.
class CLS_LogSink
{
public:
    static CLS_LogSink& Instance();

    void Write(int _iLevel, const char* _pModuleCode, const char* _pFile, int _iLine, const char* _pFunction,
               const std::string& _strMessage);
    void SetModuleLevel(const std::string& _strModuleCode, int _iMinLevel);
    void SetAllLevels(int _iMinLevel);
    void Close();

    static std::string LogFilePath();
    static constexpr long kRotateBytes = 10L * 1024 * 1024;

private:
    CLS_LogSink() = default;
    bool EnsureOpen(const std::string& _strPath);
    void RotateIfLarge(const std::string& _strPath);
    int MinFileLevel(const std::string& _strModuleCode) const;

    std::mutex m_mutex;
    std::FILE* m_pFile = nullptr;
    std::string m_strOpenPath;
    int m_iDefaultMinLevel = 0;
    std::map<std::string, int> m_mapModuleMinLevel;
};
