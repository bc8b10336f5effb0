#pragma once

#include <QVector>

#include "SharedRecords.h"

namespace HxAppManager {

// The operation log as libHxAppManager stores it: a table of the client database.
constexpr const char* OPERATE_LOG_TABLE = "tab_operate_log";

// Every stored entry, oldest first; empty when the log cannot be read.
using PFN_ReadOperateLog = QVector<STRUCT_searchResult> (*)();

} // namespace HxAppManager
