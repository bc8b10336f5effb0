#include "CLS_DbRegistry.h"

#include <vector>

#include <QCoreApplication>
#include <QDir>

#include "CLS_RestoreTakeOver.h"
#include "CLS_SqliteDbManager.h"
#include "DaoCommon.h"
#include "Logger.h"
#include "Util.h"

namespace {

constexpr const char* kLogContext = "HxDao";

bool IsPlainName(const QString& _qstrName)
{
    return !_qstrName.isEmpty() && !_qstrName.contains('/') && !_qstrName.contains('\\');
}

// Closed on each connection's own thread while the application still exists; left to the teardown at exit
// they would be closed from the main thread.
void CloseAllAtExit()
{
    CLS_DbRegistry::Instance().CloseAll();
}

} // namespace

CLS_DbRegistry& CLS_DbRegistry::Instance()
{
    // Never destroyed: managers handed out stay valid until the process ends.
    static CLS_DbRegistry* pRegistry = []() {
        qAddPostRoutine(CloseAllAtExit);
        return new CLS_DbRegistry();
    }();
    return *pRegistry;
}

CLS_SqliteDbManager* CLS_DbRegistry::Manager(const QString& _qstrDbName, int _iDbType)
{
    if (_iDbType != DB_TYPE_SQLITE) {
        HX_LOG(Logger::LOG_WARN, kLogContext)
            << "database type " << _iDbType << " not supported [" << _qstrDbName << "]";
        return nullptr;
    }
    if (!IsPlainName(_qstrDbName)) {
        HX_LOG(Logger::LOG_WARN, kLogContext) << "not a database name [" << _qstrDbName << "]";
        return nullptr;
    }
    // Resolved at each call: the data folder may change while the process runs.
    const QString qstrFolder = QString::fromStdString(Util::GetDataPath()) + "/Db";
    if (!QDir().mkpath(qstrFolder)) {
        HX_LOG(Logger::LOG_ERROR, kLogContext) << "cannot create the database folder [" << qstrFolder << "]";
        return nullptr;
    }
    const QString qstrCanonicalFolder = QDir(qstrFolder).canonicalPath();
    const QString qstrFilePath = qstrCanonicalFolder + "/" + _qstrDbName + ".db";

    std::lock_guard<std::mutex> lock(m_mutex);
    auto it = m_mapManagers.find(qstrFilePath);
    if (it == m_mapManagers.end()) {
        CLS_RestoreTakeOver(qstrCanonicalFolder, _qstrDbName).Run();
        it = m_mapManagers.emplace(qstrFilePath, std::make_unique<CLS_SqliteDbManager>(qstrFilePath)).first;
    }
    return it->second.get();
}

int CLS_DbRegistry::CloseAll()
{
    std::vector<CLS_SqliteDbManager*> vecManagers;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const auto& entry : m_mapManagers) {
            vecManagers.push_back(entry.second.get());
        }
    }
    int iClosed = 0;
    for (CLS_SqliteDbManager* pManager : vecManagers) {
        if (pManager->CloseConnection()) {
            ++iClosed;
        }
    }
    return iClosed;
}
