#include <exception>
#include <type_traits>

#include <QCoreApplication>
#include <QThread>

#include "CLS_AppData.h"
#include "HxAppManager.h"
#include "HxExport.h"
#include "HxOperateLog.h"
#include "I_AppSignals.h"
#include "Logger.h"

extern "C" {

HX_EXPORT void AppQuit(int _iExitCode)
{
    QCoreApplication* pApp = QCoreApplication::instance();
    if (pApp == nullptr) {
        return;
    }
    if (QThread::currentThread() == pApp->thread()) {
        QCoreApplication::exit(_iExitCode);
        return;
    }
    // From another thread the exit is handed to the application's own thread.
    QMetaObject::invokeMethod(
        pApp, [_iExitCode]() { QCoreApplication::exit(_iExitCode); }, Qt::QueuedConnection);
}

HX_EXPORT QObject* GetApp()
{
    return QCoreApplication::instance();
}

HX_EXPORT I_AppData* GetAppData()
{
    return &CLS_AppData::Instance();
}

HX_EXPORT long long GetAppHandle()
{
    return QCoreApplication::applicationPid();
}

HX_EXPORT QObject* GetAppSignals()
{
    // The hub lives as long as the process, in the application's thread, where its receivers live.
    static I_AppSignals* pSignals = []() {
        RegisterSharedRecordTypes();
        auto* pHub = new I_AppSignals();
        if (QCoreApplication* pApp = QCoreApplication::instance()) {
            pHub->moveToThread(pApp->thread());
        }
        return pHub;
    }();
    return pSignals;
}

HX_EXPORT QVector<STRUCT_searchResult> ReadOperateLog()
{
    try {
        return CLS_AppData::Instance().ReadOperateLog();
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, "HxAppManager") << "ReadOperateLog failed: " << e.what();
        return {};
    }
}

} // extern "C"

static_assert(std::is_same_v<decltype(&AppQuit), HxAppManager::PFN_AppQuit>);
static_assert(std::is_same_v<decltype(&GetApp), HxAppManager::PFN_GetApp>);
static_assert(std::is_same_v<decltype(&GetAppData), HxAppManager::PFN_GetAppData>);
static_assert(std::is_same_v<decltype(&GetAppHandle), HxAppManager::PFN_GetAppHandle>);
static_assert(std::is_same_v<decltype(&GetAppSignals), HxAppManager::PFN_GetAppSignals>);
static_assert(std::is_same_v<decltype(&ReadOperateLog), HxAppManager::PFN_ReadOperateLog>);
