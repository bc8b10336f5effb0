#pragma once

#include <map>
#include <memory>
#include <mutex>

#include <QString>

class CLS_SqliteDbManager;

// The process's database managers, one per database file. A manager is never deleted: callers keep
// its pointer for as long as they like.
class CLS_DbRegistry
{
public:
    static CLS_DbRegistry& Instance();

    // The manager of <data>/Db/<name>.db, created on first demand; null for a type other than SQLite
    // or a name that is not a plain file name.
    CLS_SqliteDbManager* Manager(const QString& _qstrDbName, int _iDbType);
    // Closes every open connection; returns how many were open.
    int CloseAll();

private:
    CLS_DbRegistry() = default;

    std::mutex m_mutex;
    std::map<QString, std::unique_ptr<CLS_SqliteDbManager>> m_mapManagers;
};
