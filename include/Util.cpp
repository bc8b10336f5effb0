#include "Util.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <utility>

#include <dlfcn.h>
#include <libgen.h>
#include <pwd.h>
#include <unistd.h>

#if defined(__APPLE__)
#include <climits>
#include <mach-o/dyld.h>
#endif

namespace Util {
namespace {

struct DllConnections
{
    std::mutex mutex;
    std::map<std::string, void*> s_mapDllConn;
};

DllConnections& Connections()
{
    static DllConnections connections;
    return connections;
}

} // namespace

MapFunction GetDllFunction(const std::string& _strDllPath, const std::list<std::string>& _lstFunNames)
{
    MapFunction mapFuns;
    DllConnections& conn = Connections();
    std::lock_guard<std::mutex> lock(conn.mutex);

    auto it = conn.s_mapDllConn.find(_strDllPath);
    bool blOpenedNow = false;
    if (it == conn.s_mapDllConn.end()) {
        std::cout << "load dll - " << _strDllPath << std::endl;
        void* pHandle = dlopen(_strDllPath.c_str(), RTLD_NOW);
        it = conn.s_mapDllConn.emplace(_strDllPath, pHandle).first;
        blOpenedNow = true;
    }

    void* pHandle = it->second;
    if (pHandle == nullptr) {
        // Only the open that just failed has an error text of its own; a cached failure is silent.
        const char* pError = blOpenedNow ? dlerror() : nullptr;
        if (pError != nullptr) {
            std::cerr << "load dll [" << _strDllPath << "] fail !!! " << pError << std::endl;
        }
        return mapFuns;
    }

    for (const std::string& strName : _lstFunNames) {
        void* pFun = dlsym(pHandle, strName.c_str());
        dlerror(); // a missing symbol is recorded as null; its error text must not leak into later calls
        mapFuns[strName] = pFun;
        std::cout << "load dll [" << _strDllPath << ": " << strName << "] sucess" << std::endl;
    }
    return mapFuns;
}

void* GetDllFunction(const std::string& _strDllPath, const std::string& _strFunName)
{
    const MapFunction mapFuns = GetDllFunction(_strDllPath, std::list<std::string>{_strFunName});
    auto it = mapFuns.find(_strFunName);
    return it == mapFuns.end() ? nullptr : it->second;
}

std::string ExecutablePath()
{
#if defined(__APPLE__)
    char szPath[PATH_MAX] = {0};
    uint32_t uiSize = sizeof(szPath);
    if (_NSGetExecutablePath(szPath, &uiSize) != 0) {
        return std::string();
    }
    return std::string(szPath);
#else
    char szPath[4096] = {0};
    const ssize_t iLen = readlink("/proc/self/exe", szPath, sizeof(szPath) - 1);
    if (iLen <= 0) {
        return std::string();
    }
    return std::string(szPath, static_cast<size_t>(iLen));
#endif
}

std::string ModulePathFor(const std::string& _strExecutablePath)
{
    std::string strDir = "./";
    if (!_strExecutablePath.empty()) {
        std::string strCopy = _strExecutablePath; // dirname may modify its argument
        strDir = dirname(strCopy.data());
    }
    return strDir + "/../Frameworks";
}

std::string DataPathFor(const std::string& _strHome, const std::string& _strExecutablePath)
{
    const std::string::size_type pos = _strExecutablePath.find_last_of('/');
    const std::string strExeName =
        pos == std::string::npos ? _strExecutablePath : _strExecutablePath.substr(pos + 1);
    return _strHome + "/Library/Application Support/" + strExeName;
}

std::string GetModulePath()
{
    return ModulePathFor(ExecutablePath());
}

std::string GetDataPath()
{
    const char* pOverride = std::getenv("HX_DATA_PATH");
    if (pOverride != nullptr && pOverride[0] != '\0') {
        return std::string(pOverride);
    }
    const passwd* pPw = getpwuid(geteuid());
    const std::string strHome = (pPw != nullptr && pPw->pw_dir != nullptr) ? pPw->pw_dir : "~";
    return DataPathFor(strHome, ExecutablePath());
}

bool FileExists(const std::string& _strPath)
{
    FILE* pFile = std::fopen(_strPath.c_str(), "r");
    if (pFile == nullptr) {
        return false;
    }
    std::fclose(pFile);
    return true;
}

std::string LibraryFileName(const std::string& _strBaseName)
{
#if defined(__APPLE__)
    return "lib" + _strBaseName + ".dylib";
#else
    return "lib" + _strBaseName + ".so";
#endif
}

CLS_ServiceFunctions::CLS_ServiceFunctions(std::string _strLibraryBaseName,
                                           std::list<std::string> _lstFunNames)
    : m_strLibraryFile(LibraryFileName(_strLibraryBaseName)), m_lstFunNames(std::move(_lstFunNames))
{}

void* CLS_ServiceFunctions::GetModuleFun(const std::string& _strFunName, const std::string& _strDir)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = mapFuns.find(_strFunName);
    if (it == mapFuns.end()) {
        const std::string strPath = _strDir.empty() ? m_strLibraryFile : _strDir + "/" + m_strLibraryFile;
        mapFuns = GetDllFunction(strPath, m_lstFunNames);
        it = mapFuns.find(_strFunName);
    }
    return it == mapFuns.end() ? nullptr : it->second;
}

CLS_OnDemandFunctions::CLS_OnDemandFunctions(std::string _strLibraryBaseName)
    : m_strLibraryFile(LibraryFileName(_strLibraryBaseName))
{}

void* CLS_OnDemandFunctions::GetFunction(const std::string& _strFunName, const std::string& _strFolder)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_mapFuns.find(_strFunName);
    if (it == m_mapFuns.end()) {
        // An empty folder leaves the search to the dynamic loader: the library is opened by bare name.
        const std::string strPath =
            _strFolder.empty() ? m_strLibraryFile : _strFolder + "/" + m_strLibraryFile;
        it = m_mapFuns.emplace(_strFunName, GetDllFunction(strPath, _strFunName)).first;
    }
    return it->second;
}

} // namespace Util
