#pragma once

#include <functional>
#include <string>

namespace TaskRunner {

constexpr const char* kModuleCode = "HxTaskPool";

// Runs one task on the calling worker; whatever it throws is logged with its call site and goes no further.
void RunGuarded(const std::function<void()>& _task, const std::string& _strCallSite);

} // namespace TaskRunner
