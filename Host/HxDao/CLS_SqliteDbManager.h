#pragma once

#include <functional>

#include <QString>

#include "CLS_DbManagerBase.h"
#include "CLS_DbWorker.h"

class QSqlDatabase;

// One SQLite database file, reached through its own Qt SQL connection. Every operation runs on the
// manager's worker thread, which owns the connection; callers on any thread wait for their operation.
class CLS_SqliteDbManager : public CLS_DbManagerBase
{
public:
    // Result codes of the failures raised here.
    enum n_ErrorCode
    {
        ERR_OPEN = -1,
        ERR_SQL = -2,
        ERR_FILTER = -3,
        ERR_INTERNAL = -4
    };

    explicit CLS_SqliteDbManager(const QString& _qstrFilePath);

    Common::STRUCT_DbResult Select(DbRows& _vecRows, const QString& _qstrTable, const CLS_SqlFilter& _filter,
                                   const Common::CLS_Page& _page,
                                   QVector<Common::CLS_SortInfo> _vecSort) override;
    Common::STRUCT_DbResult BeginTransaction() override;
    Common::STRUCT_DbResult CommitTransaction() override;
    Common::STRUCT_DbResult RollbackTransaction() override;
    Common::STRUCT_DbResult Execute(const QString& _qstrSql, const QVariantList& _lstBinds) override;

    // Closes the connection so that the file can be replaced; the next operation opens it again.
    // True when it was open.
    bool CloseConnection();

    const QString& FilePath() const { return m_qstrFilePath; }

private:
    using Operation = std::function<Common::STRUCT_DbResult(QSqlDatabase&)>;

    // Runs the operation on the worker with an open connection; no exception leaves the library.
    Common::STRUCT_DbResult Run(const char* _pWhat, const Operation& _operation);
    bool Open(QString& _qstrError);

    const QString m_qstrFilePath;
    const QString m_qstrConnectionName;
    CLS_DbWorker m_worker;
};
