#pragma once

#include <QAtomicInt>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVariant>

#include "CLS_DBDao.h"
#include "Util.h"

namespace DaoTest {

inline PFN_CreateDbManager CreateDbManagerFunction()
{
    return Util::FunctionCast<PFN_CreateDbManager>(GetDBDaoFun("CreateDbManager", ""));
}

inline PFN_CloseAllConnections CloseAllConnectionsFunction()
{
    return Util::FunctionCast<PFN_CloseAllConnections>(GetDBDaoFun("CloseAllConnections", ""));
}

inline QString DataPath()
{
    return QString::fromStdString(Util::GetDataPath());
}

inline QString LogText()
{
    QFile file(DataPath() + "/Log/hx.log");
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// The test's own connection to a SQLite file, apart from the library's, closed when it goes.
class CLS_TestConnection
{
public:
    explicit CLS_TestConnection(const QString& _qstrFile) : m_qstrName(QString("test-%1").arg(NextId()))
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_qstrName);
        db.setDatabaseName(_qstrFile);
        m_blOpen = db.open();
    }

    ~CLS_TestConnection()
    {
        {
            QSqlDatabase db = QSqlDatabase::database(m_qstrName, false);
            db.close();
        }
        QSqlDatabase::removeDatabase(m_qstrName);
    }

    CLS_TestConnection(const CLS_TestConnection&) = delete;
    CLS_TestConnection& operator=(const CLS_TestConnection&) = delete;

    bool IsOpen() const { return m_blOpen; }

    // Runs every statement; the first failure's text, or empty.
    QString Exec(const QStringList& _lstStatements)
    {
        QSqlQuery query(QSqlDatabase::database(m_qstrName, false));
        for (const QString& qstrSql : _lstStatements) {
            if (!query.exec(qstrSql)) {
                return query.lastError().text();
            }
        }
        return QString();
    }

    // The first column of every row of the query.
    QVariantList Column(const QString& _qstrSql)
    {
        QVariantList lstValues;
        QSqlQuery query(QSqlDatabase::database(m_qstrName, false));
        if (query.exec(_qstrSql)) {
            while (query.next()) {
                lstValues << query.value(0);
            }
        }
        return lstValues;
    }

private:
    static int NextId()
    {
        static QAtomicInt s_iId;
        return s_iId.fetchAndAddRelaxed(1);
    }

    QString m_qstrName;
    bool m_blOpen = false;
};

// A database file holding one table t with one text column v and the given values.
inline bool WriteValuesFile(const QString& _qstrFile, const QStringList& _lstValues)
{
    CLS_TestConnection conn(_qstrFile);
    QStringList lstSql{"CREATE TABLE t (v TEXT)"};
    for (const QString& qstrValue : _lstValues) {
        lstSql << QString("INSERT INTO t (v) VALUES ('%1')").arg(qstrValue);
    }
    return conn.IsOpen() && conn.Exec(lstSql).isEmpty();
}

} // namespace DaoTest
