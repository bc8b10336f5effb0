#include "CLS_LogSink.h"

#include <cstdlib>
#include <sstream>
#include <thread>

#include <QDateTime>
#include <QDir>
#include <QFile>

#include "Util.h"

namespace {

const char* LevelName(int _iLevel)
{
    switch (_iLevel) {
    case 0:
        return "DEBUG";
    case 1:
        return "INFO";
    case 2:
        return "WARN";
    case 3:
        return "ERROR";
    default:
        return "LEVEL";
    }
}

// HX_LOG_LEVEL names the lowest level echoed to standard error; failures by default.
int StderrMinLevel()
{
    const char* pLevel = std::getenv("HX_LOG_LEVEL");
    if (pLevel == nullptr || pLevel[0] == '\0') {
        return 2;
    }
    return std::atoi(pLevel);
}

} // namespace

CLS_LogSink& CLS_LogSink::Instance()
{
    // Never destroyed: tasks still running while the process exits may log.
    static CLS_LogSink* pSink = new CLS_LogSink();
    return *pSink;
}

std::string CLS_LogSink::LogFilePath()
{
    return Util::GetDataPath() + "/Log/hx.log";
}

bool CLS_LogSink::EnsureOpen(const std::string& _strPath)
{
    if (m_pFile != nullptr && m_strOpenPath == _strPath) {
        return true;
    }
    if (m_pFile != nullptr) {
        std::fclose(m_pFile);
        m_pFile = nullptr;
    }
    QDir().mkpath(QFileInfo(QString::fromStdString(_strPath)).absolutePath());
    m_pFile = std::fopen(_strPath.c_str(), "a");
    m_strOpenPath = m_pFile != nullptr ? _strPath : std::string();
    return m_pFile != nullptr;
}

void CLS_LogSink::RotateIfLarge(const std::string& _strPath)
{
    if (m_pFile == nullptr || std::ftell(m_pFile) < kRotateBytes) {
        return;
    }
    std::fclose(m_pFile);
    m_pFile = nullptr;
    const QString qstrPath = QString::fromStdString(_strPath);
    QFile::remove(qstrPath + ".1");
    QFile::rename(qstrPath, qstrPath + ".1");
    EnsureOpen(_strPath);
}

int CLS_LogSink::MinFileLevel(const std::string& _strModuleCode) const
{
    auto it = m_mapModuleMinLevel.find(_strModuleCode);
    return it != m_mapModuleMinLevel.end() ? it->second : m_iDefaultMinLevel;
}

void CLS_LogSink::Write(int _iLevel, const char* _pModuleCode, const char* _pFile, int _iLine,
                        const char* _pFunction, const std::string& _strMessage)
{
    const std::string strModule = _pModuleCode != nullptr ? _pModuleCode : "";
    std::ostringstream line;
    line << QDateTime::currentDateTime().toString("yyyy-MM-dd hh:mm:ss.zzz").toStdString() << " ["
         << LevelName(_iLevel) << "] [" << std::this_thread::get_id() << "] " << strModule << ' '
         << (_pFile != nullptr ? _pFile : "") << ':' << _iLine << ' '
         << (_pFunction != nullptr ? _pFunction : "") << " - " << _strMessage << '\n';
    const std::string strLine = line.str();

    std::lock_guard<std::mutex> lock(m_mutex);
    if (_iLevel >= MinFileLevel(strModule)) {
        const std::string strPath = LogFilePath();
        if (EnsureOpen(strPath)) {
            std::fwrite(strLine.data(), 1, strLine.size(), m_pFile);
            std::fflush(m_pFile); // a line is on disk before the caller goes on, even if the process dies
            RotateIfLarge(strPath);
        }
    }
    if (_iLevel >= StderrMinLevel()) {
        std::fwrite(strLine.data(), 1, strLine.size(), stderr);
    }
}

void CLS_LogSink::SetModuleLevel(const std::string& _strModuleCode, int _iMinLevel)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_mapModuleMinLevel[_strModuleCode] = _iMinLevel;
}

void CLS_LogSink::SetAllLevels(int _iMinLevel)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_iDefaultMinLevel = _iMinLevel;
    m_mapModuleMinLevel.clear();
}

void CLS_LogSink::Close()
{
    std::lock_guard<std::mutex> lock(m_mutex);
    if (m_pFile != nullptr) {
        std::fclose(m_pFile);
        m_pFile = nullptr;
        m_strOpenPath.clear();
    }
}
