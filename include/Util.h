#pragma once

#include <list>
#include <map>
#include <mutex>
#include <string>

namespace Util {

// Exported symbol name -> address; a null address records a symbol that was not found.
using MapFunction = std::map<std::string, void*>;

// Opens the library once per process (never closed) and resolves the given names in order.
// An empty table means the library could not be opened.
MapFunction GetDllFunction(const std::string& _strDllPath, const std::list<std::string>& _lstFunNames);
void* GetDllFunction(const std::string& _strDllPath, const std::string& _strFunName);

// Folder of the running executable + "/../Frameworks".
std::string GetModulePath();
// HX_DATA_PATH when set; otherwise home + "/Library/Application Support/" + executable name.
std::string GetDataPath();
bool FileExists(const std::string& _strPath);

// The platform's file name of a shared library: "HxLog" -> "libHxLog.so" (".dylib" on macOS).
std::string LibraryFileName(const std::string& _strBaseName);
// Absolute path of the running executable, empty when it cannot be read.
std::string ExecutablePath();

// The pieces of the two paths above, for an executable path and home folder given by the caller.
std::string ModulePathFor(const std::string& _strExecutablePath);
std::string DataPathFor(const std::string& _strHome, const std::string& _strExecutablePath);

template <typename FunctionPointer>
FunctionPointer FunctionCast(void* _pAddress)
{
    return reinterpret_cast<FunctionPointer>(_pAddress);
}

// The function table of one host service library, filled on first demand and shared by all callers.
class CLS_ServiceFunctions
{
public:
    CLS_ServiceFunctions(std::string _strLibraryBaseName, std::list<std::string> _lstFunNames);

    // Address of one function of the library, or null when the library or the symbol is missing.
    void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir);

private:
    const std::string m_strLibraryFile;
    const std::list<std::string> m_lstFunNames;
    std::mutex m_mutex;
    MapFunction mapFuns;
};

// A function table filled one name at a time, each name loaded on its first demand.
class CLS_OnDemandFunctions
{
public:
    explicit CLS_OnDemandFunctions(std::string _strLibraryBaseName);

    void* GetFunction(const std::string& _strFunName, const std::string& _strFolder);

private:
    const std::string m_strLibraryFile;
    std::mutex m_mutex;
    MapFunction m_mapFuns;
};

} // namespace Util
