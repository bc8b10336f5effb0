#include "TaskRunner.h"

#include <exception>

#include "Logger.h"

namespace TaskRunner {

void RunGuarded(const std::function<void()>& _task, const std::string& _strCallSite)
{
    std::string strWhat;
    try {
        _task();
        return;
    } catch (const std::exception& e) {
        strWhat = e.what();
    } catch (...) {
        strWhat = "unknown exception";
    }
    // The worker must survive even a failure to log.
    try {
        HX_LOG(3, kModuleCode) << "task failed: " << strWhat << " callSite:" << _strCallSite;
    } catch (...) {
    }
}

} // namespace TaskRunner
