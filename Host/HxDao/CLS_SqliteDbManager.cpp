#include "CLS_SqliteDbManager.h"

#include <exception>

#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QSqlRecord>

#include "CLS_SelectStatement.h"
#include "Logger.h"

namespace {

constexpr const char* kLogContext = "HxDao";

Common::STRUCT_DbResult Failure(int _iCode, const QString& _qstrMessage)
{
    return Common::STRUCT_DbResult{_iCode, _qstrMessage, {}};
}

Common::STRUCT_DbResult Success(int _iCode = 0)
{
    return Common::STRUCT_DbResult{_iCode, QString(), {}};
}

bool PrepareAndBind(QSqlQuery& _query, const QString& _qstrSql, const QVariantList& _lstBinds)
{
    if (!_query.prepare(_qstrSql)) {
        return false;
    }
    for (const QVariant& qvarBind : _lstBinds) {
        _query.addBindValue(qvarBind);
    }
    return true;
}

qint64 TotalChanges(QSqlDatabase& _db)
{
    QSqlQuery query(_db);
    return query.exec("SELECT total_changes()") && query.next() ? query.value(0).toLongLong() : -1;
}

// Through QSqlDatabase rather than a BEGIN statement, so that the driver's own transaction state stays right.
Common::STRUCT_DbResult TransactionStep(QSqlDatabase& _db, bool (QSqlDatabase::*_pStep)())
{
    if (!(_db.*_pStep)()) {
        return Failure(CLS_SqliteDbManager::ERR_SQL, _db.lastError().text());
    }
    return Success();
}

} // namespace

CLS_SqliteDbManager::CLS_SqliteDbManager(const QString& _qstrFilePath)
    : m_qstrFilePath(_qstrFilePath), m_qstrConnectionName("HxDao:" + _qstrFilePath)
{}

Common::STRUCT_DbResult CLS_SqliteDbManager::Select(DbRows& _vecRows, const QString& _qstrTable,
                                                    const CLS_SqlFilter& _filter,
                                                    const Common::CLS_Page& _page,
                                                    QVector<Common::CLS_SortInfo> _vecSort)
{
    _vecRows.clear();
    const CLS_SelectStatement statement(_qstrTable, _filter, _page, _vecSort);
    if (!statement.IsValid()) {
        HX_LOG(Logger::LOG_WARN, kLogContext) << "Select " << _qstrTable << " refused: " << statement.Error();
        return Failure(ERR_FILTER, statement.Error());
    }
    return Run("Select", [&](QSqlDatabase& _db) {
        QSqlQuery query(_db);
        query.setForwardOnly(true);
        if (!PrepareAndBind(query, statement.Sql(), statement.Binds()) || !query.exec()) {
            return Failure(ERR_SQL, query.lastError().text());
        }
        while (query.next()) {
            const QSqlRecord record = query.record();
            QMap<QString, QVariant> mapRow;
            for (int i = 0; i < record.count(); ++i) {
                mapRow.insert(record.fieldName(i), record.value(i));
            }
            _vecRows.append(mapRow);
        }
        // A step can fail half-way (a locked file, a damaged page): the rows are then incomplete.
        if (query.lastError().isValid()) {
            return Failure(ERR_SQL, query.lastError().text());
        }
        return Success();
    });
}

Common::STRUCT_DbResult CLS_SqliteDbManager::BeginTransaction()
{
    return Run("BeginTransaction",
               [](QSqlDatabase& _db) { return TransactionStep(_db, &QSqlDatabase::transaction); });
}

Common::STRUCT_DbResult CLS_SqliteDbManager::CommitTransaction()
{
    return Run("CommitTransaction",
               [](QSqlDatabase& _db) { return TransactionStep(_db, &QSqlDatabase::commit); });
}

Common::STRUCT_DbResult CLS_SqliteDbManager::RollbackTransaction()
{
    return Run("RollbackTransaction",
               [](QSqlDatabase& _db) { return TransactionStep(_db, &QSqlDatabase::rollback); });
}

Common::STRUCT_DbResult CLS_SqliteDbManager::Execute(const QString& _qstrSql, const QVariantList& _lstBinds)
{
    return Run("Execute", [&](QSqlDatabase& _db) {
        // SQLite keeps reporting the changes of the last insert, update or delete after any other statement;
        // only a move of the connection's running total shows that this statement changed rows.
        const qint64 iTotalBefore = TotalChanges(_db);
        QSqlQuery query(_db);
        if (!PrepareAndBind(query, _qstrSql, _lstBinds) || !query.exec()) {
            return Failure(ERR_SQL, query.lastError().text());
        }
        const int iAffected = query.numRowsAffected();
        if (TotalChanges(_db) == iTotalBefore || iAffected < 0) {
            return Success(0);
        }
        return Success(iAffected);
    });
}

bool CLS_SqliteDbManager::CloseConnection()
{
    try {
        return m_worker.Call([this]() {
            if (!QSqlDatabase::contains(m_qstrConnectionName)) {
                return false;
            }
            bool blWasOpen = false;
            {
                QSqlDatabase db = QSqlDatabase::database(m_qstrConnectionName, false);
                blWasOpen = db.isOpen();
                db.close();
            }
            QSqlDatabase::removeDatabase(m_qstrConnectionName);
            if (blWasOpen) {
                HX_LOG(Logger::LOG_INFO, kLogContext) << "connection closed [" << m_qstrFilePath << "]";
            }
            return blWasOpen;
        });
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "closing [" << m_qstrFilePath << "] failed: " << e.what();
        return false;
    }
}

Common::STRUCT_DbResult CLS_SqliteDbManager::Run(const char* _pWhat, const Operation& _operation)
{
    Common::STRUCT_DbResult result;
    try {
        result = m_worker.Call([&]() {
            QString qstrError;
            if (!Open(qstrError)) {
                return Failure(ERR_OPEN, qstrError);
            }
            QSqlDatabase db = QSqlDatabase::database(m_qstrConnectionName, false);
            return _operation(db);
        });
    } catch (const std::exception& e) {
        result = Failure(ERR_INTERNAL, QString::fromUtf8(e.what()));
    }
    if (result.iCode < 0) {
        HX_LOG(Logger::LOG_WARN, kLogContext)
            << _pWhat << " failed [" << m_qstrFilePath << "] " << result.iCode << ": " << result.qstrMessage;
    }
    return result;
}

bool CLS_SqliteDbManager::Open(QString& _qstrError)
{
    if (QSqlDatabase::contains(m_qstrConnectionName)) {
        if (QSqlDatabase::database(m_qstrConnectionName, false).isOpen()) {
            return true;
        }
        QSqlDatabase::removeDatabase(m_qstrConnectionName);
    }
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_qstrConnectionName);
        db.setDatabaseName(m_qstrFilePath);
        // Other processes (or the backup reading the file) may hold a lock for a moment.
        db.setConnectOptions("QSQLITE_BUSY_TIMEOUT=5000");
        if (db.open()) {
            HX_LOG(Logger::LOG_INFO, kLogContext) << "connection opened [" << m_qstrFilePath << "]";
            return true;
        }
        _qstrError = db.lastError().text();
    }
    QSqlDatabase::removeDatabase(m_qstrConnectionName);
    return false;
}
