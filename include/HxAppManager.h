#pragma once

#include <string>

class QObject;
class I_AppData;

namespace HxAppManager {

// Functions of the host's app manager.
using PFN_AppQuit = void (*)(int _iExitCode);
using PFN_GetApp = QObject* (*)();
using PFN_GetAppData = I_AppData* (*)();
using PFN_GetAppHandle = long long (*)(); // the process id of the host application
using PFN_GetAppSignals = QObject* (*)();

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir);

} // namespace HxAppManager
