#pragma once

#include <QAtomicInt>
#include <QFile>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QStringList>
#include <QVariant>

#include "CLS_DBDao.h"
#include "Util.h"

namespace DaoTest {

inline PFN_CreateDbManager CreateDbManagerFunction()
{
    return Util::FunctionCast<PFN_CreateDbManager>(GetDBDaoFun("CreateDbManager", ""));
}

inline QString LogText()
{
    QFile file(QString::fromStdString(Util::GetDataPath()) + "/Log/hx.log");
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

// Runs the statements on a SQLite file through the test's own connection, apart from the library's: the
// first column of the last statement's rows, or the first failure's text.
inline QVariantList RunSql(const QString& _qstrFile, const QStringList& _lstStatements)
{
    static QAtomicInt s_iId;
    const QString qstrName = QString("test-%1").arg(s_iId.fetchAndAddRelaxed(1));
    QVariantList lstValues;
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", qstrName);
        db.setDatabaseName(_qstrFile);
        db.open();
        QSqlQuery query(db);
        for (const QString& qstrSql : _lstStatements) {
            if (!query.exec(qstrSql)) {
                lstValues << "failed: " + query.lastError().text();
                break;
            }
        }
        while (query.isActive() && query.next()) {
            lstValues << query.value(0);
        }
    }
    QSqlDatabase::removeDatabase(qstrName);
    return lstValues;
}

// A database file holding one table t with one text column v and the given values.
inline bool WriteValuesFile(const QString& _qstrFile, const QStringList& _lstValues)
{
    QStringList lstSql{"CREATE TABLE t (v TEXT)"};
    for (const QString& qstrValue : _lstValues) {
        lstSql << QString("INSERT INTO t (v) VALUES ('%1')").arg(qstrValue);
    }
    return RunSql(_qstrFile, lstSql).isEmpty();
}

} // namespace DaoTest
