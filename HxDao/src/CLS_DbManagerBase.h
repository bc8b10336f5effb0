#pragma once

#include <QVariantList>

#include "CLS_SqlFilter.h"
#include "DaoCommon.h"

// A database of the host's database library. The library owns it; callers never delete it.
class CLS_DbManagerBase
{
public:
    virtual ~CLS_DbManagerBase() = default;

    virtual Common::STRUCT_DbResult Select(DbRows& _vecRows, const QString& _qstrTable,
                                           const CLS_SqlFilter& _filter, const Common::CLS_Page& _page,
                                           QVector<Common::CLS_SortInfo> _vecSort) = 0;
    virtual Common::STRUCT_DbResult BeginTransaction() = 0;
    virtual Common::STRUCT_DbResult CommitTransaction() = 0;
    virtual Common::STRUCT_DbResult RollbackTransaction() = 0;
    // One statement with positional bindings; the code is the number of rows it changed.
    virtual Common::STRUCT_DbResult Execute(const QString& _qstrSql, const QVariantList& _lstBinds) = 0;
};
