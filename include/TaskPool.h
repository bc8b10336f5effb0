#pragma once

#include <functional>
#include <string>

class QObject;

namespace TaskPool {

// Functions of the host's task pool. Every call names its caller with a call-site text.
// 1 when queued; 0 for an empty task or a pool that is shutting down.
using PFN_AddTmpTask = int (*)(std::function<void()> _task, QObject* _pOwner,
                               const std::string& _strCallSite);
// Drops the owner's queued tasks and waits for its running ones; returns how many were dropped.
using PFN_RemoveTmpTask = int (*)(QObject* _pOwner, const std::string& _strCallSite);
// Runs the task every interval; fills an empty key with a new one. 1 when added.
using PFN_AddLoopTask = int (*)(std::function<void()> _task, int _iIntervalMs, std::string& _strKey,
                                const std::string& _strCallSite);
// Stops the periodic task of the key, waiting for a run in progress; 1 when it existed.
using PFN_RemoveTask = int (*)(const std::string& _strKey, const std::string& _strCallSite);
// Drops every queued and periodic task; returns how many were dropped.
using PFN_KillTaskAll = int (*)();
// Stops the worker threads after their running tasks; the pool starts again on the next task.
using PFN_UnInit = void (*)();

void* GetModuleFun(const std::string& _strFunName, const std::string& _strDir);

} // namespace TaskPool
