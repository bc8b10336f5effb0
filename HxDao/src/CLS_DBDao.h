#pragma once

#include <string>

#include "CLS_DbManagerBase.h"

// Functions of the host's database library.
using PFN_CreateDbManager = CLS_DbManagerBase* (*)(const QString& _qstrDbName, int _iDbType);
using PFN_CloseAllConnections = int (*)();

void* GetDBDaoFun(const std::string& _strName, const std::string& _strFolder);

// Access to one database of the host through its database library.
class CLS_DBDao
{
public:
    CLS_DBDao(const QString& _qstrDbName, n_DBType _iDbType);
    virtual ~CLS_DBDao();

    CLS_DBDao(const CLS_DBDao&) = delete;
    CLS_DBDao& operator=(const CLS_DBDao&) = delete;

    virtual Common::STRUCT_DbResult Select(DbRows& _vecRows, const QString& _qstrTable,
                                           const CLS_SqlFilter& _filter, const Common::CLS_Page& _page,
                                           QVector<Common::CLS_SortInfo> _vecSort);
    virtual Common::STRUCT_DbResult RollbackTransaction();

private:
    CLS_DbManagerBase* m_pDbManagerBase = nullptr;
    bool m_blTransaction = false;
};
