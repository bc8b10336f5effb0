#pragma once

#include <QVector>

#include "SharedRecords.h"

class CLS_DbManagerBase;

// The operation log, kept in the table tab_operate_log of the client database (created when missing).
class CLS_OperateLog
{
public:
    bool Write(const STRUCT_searchResult& _stEntry);
    // Oldest first.
    QVector<STRUCT_searchResult> Read();

private:
    // The client database of the current data folder, with the table in place; null when unusable.
    CLS_DbManagerBase* OpenTable();
};
