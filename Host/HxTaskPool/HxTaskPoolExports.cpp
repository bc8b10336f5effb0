#include <exception>
#include <type_traits>
#include <utility>

#include "CLS_TaskPool.h"
#include "HxExport.h"
#include "Logger.h"
#include "TaskPool.h"
#include "TaskRunner.h"

namespace {

// No exception crosses into the caller's library; a failure gives the function's failure value.
template <typename Result, typename Call>
Result Guarded(const char* _pFunction, Result _failValue, Call _call)
{
    try {
        return _call();
    } catch (const std::exception& e) {
        HX_LOG(3, TaskRunner::kModuleCode) << _pFunction << " failed: " << e.what();
    } catch (...) {
        HX_LOG(3, TaskRunner::kModuleCode) << _pFunction << " failed";
    }
    return _failValue;
}

} // namespace

extern "C" {

HX_EXPORT int AddTmpTask(std::function<void()> _task, QObject* _pOwner, const std::string& _strCallSite)
{
    return Guarded("AddTmpTask", 0, [&] {
        return CLS_TaskPool::Instance().AddTmpTask(std::move(_task), _pOwner, _strCallSite);
    });
}

HX_EXPORT int RemoveTmpTask(QObject* _pOwner, const std::string& _strCallSite)
{
    return Guarded("RemoveTmpTask", 0,
                   [&] { return CLS_TaskPool::Instance().RemoveTmpTask(_pOwner, _strCallSite); });
}

HX_EXPORT int AddLoopTask(std::function<void()> _task, int _iIntervalMs, std::string& _strKey,
                          const std::string& _strCallSite)
{
    return Guarded("AddLoopTask", 0, [&] {
        return CLS_TaskPool::Instance().AddLoopTask(std::move(_task), _iIntervalMs, _strKey, _strCallSite);
    });
}

HX_EXPORT int RemoveTask(const std::string& _strKey, const std::string& _strCallSite)
{
    return Guarded("RemoveTask", 0,
                   [&] { return CLS_TaskPool::Instance().RemoveTask(_strKey, _strCallSite); });
}

HX_EXPORT int KillTaskAll()
{
    return Guarded("KillTaskAll", 0, [] { return CLS_TaskPool::Instance().KillTaskAll(); });
}

HX_EXPORT void UnInit()
{
    Guarded("UnInit", 0, [] {
        CLS_TaskPool::Instance().UnInit();
        return 0;
    });
}

} // extern "C"

static_assert(std::is_same_v<decltype(&AddTmpTask), TaskPool::PFN_AddTmpTask>);
static_assert(std::is_same_v<decltype(&RemoveTmpTask), TaskPool::PFN_RemoveTmpTask>);
static_assert(std::is_same_v<decltype(&AddLoopTask), TaskPool::PFN_AddLoopTask>);
static_assert(std::is_same_v<decltype(&RemoveTask), TaskPool::PFN_RemoveTask>);
static_assert(std::is_same_v<decltype(&KillTaskAll), TaskPool::PFN_KillTaskAll>);
static_assert(std::is_same_v<decltype(&UnInit), TaskPool::PFN_UnInit>);
