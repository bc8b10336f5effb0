#pragma once

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QMap>
#include <QProcess>
#include <QRegularExpression>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QString>
#include <QStringList>
#include <QVector>

// Files, databases and command output as the end-to-end tests of HxClient look at them.
namespace HostTest {

// Relative path -> content of every file below a folder (empty for a missing folder).
inline QMap<QString, QByteArray> FilesBelow(const QString& _qstrRoot)
{
    QMap<QString, QByteArray> mapFiles;
    const QDir root(_qstrRoot);
    QDirIterator it(_qstrRoot, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString qstrPath = it.next();
        QFile file(qstrPath);
        mapFiles.insert(root.relativeFilePath(qstrPath),
                        file.open(QIODevice::ReadOnly) ? file.readAll() : "?");
    }
    return mapFiles;
}

inline QByteArray FileBytes(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

inline bool WriteBytes(const QString& _qstrPath, const QByteArray& _qba)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(_qba) == _qba.size();
}

// One SQL statement against a database file, with a connection of its own; the first column of the
// first row for a query.
inline QString Sql(const QString& _qstrDbFile, const QString& _qstrStatement)
{
    const QString qstrConnection = "tst_HxClient";
    QString qstrValue = "<no row>";
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", qstrConnection);
        db.setDatabaseName(_qstrDbFile);
        if (db.open()) {
            QSqlQuery query(db);
            if (!query.exec(_qstrStatement)) {
                qstrValue = "<failed>";
            } else if (query.next()) {
                qstrValue = query.value(0).toString();
            }
        }
        db.close();
    }
    QSqlDatabase::removeDatabase(qstrConnection);
    return qstrValue;
}

// The value after "<label>:" on its own line of a command's output.
inline QString LabelledValue(const QString& _qstrOut, const QString& _qstrLabel)
{
    const QRegularExpression re("^" + QRegularExpression::escape(_qstrLabel) + ":\\s*(.*)$",
                                QRegularExpression::MultilineOption);
    return re.match(_qstrOut).captured(1).trimmed();
}

// The progress rates printed by a backup, in order.
inline QVector<int> ProgressRates(const QString& _qstrOut)
{
    QVector<int> vecRates;
    QRegularExpressionMatchIterator it =
        QRegularExpression("^\\[[# ]+\\]\\s+(\\d+)%", QRegularExpression::MultilineOption)
            .globalMatch(_qstrOut);
    while (it.hasNext()) {
        vecRates.append(it.next().captured(1).toInt());
    }
    return vecRates;
}

inline bool IsOneLine(const QString& _qstrText)
{
    return _qstrText.count('\n') == 1 && _qstrText.endsWith('\n') && _qstrText.startsWith("HxClient");
}

// The standard output of one unzip run, or "<unzip failed>".
inline QByteArray Unzip(const QString& _qstrUnzip, const QStringList& _lstArgs, int _iTimeoutMs)
{
    QProcess unzip;
    unzip.start(_qstrUnzip, _lstArgs);
    if (!unzip.waitForFinished(_iTimeoutMs) || unzip.exitStatus() != QProcess::NormalExit ||
        unzip.exitCode() != 0) {
        return "<unzip failed>";
    }
    return unzip.readAllStandardOutput();
}

} // namespace HostTest
