#include "CLS_DemoData.h"

#include <QDir>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>
#include <QVariantList>

#include "SharedRecords.h"

namespace {

// A connection of its own, removed on every way out.
class CLS_DemoConnection
{
public:
    CLS_DemoConnection(const QString& _qstrFile, const QString& _qstrName) : m_qstrName(_qstrName)
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", m_qstrName);
        db.setDatabaseName(_qstrFile);
        m_blOpen = db.open();
        m_qstrError = db.lastError().text();
    }

    ~CLS_DemoConnection()
    {
        {
            QSqlDatabase db = QSqlDatabase::database(m_qstrName, false);
            db.close();
        }
        QSqlDatabase::removeDatabase(m_qstrName);
    }

    CLS_DemoConnection(const CLS_DemoConnection&) = delete;
    CLS_DemoConnection& operator=(const CLS_DemoConnection&) = delete;

    bool IsOpen() const { return m_blOpen; }
    const QString& Error() const { return m_qstrError; }

    // Runs the statements in one transaction; the failing statement's error otherwise.
    bool Run(const QVector<QPair<QString, QVariantList>>& _vecStatements)
    {
        QSqlDatabase db = QSqlDatabase::database(m_qstrName, false);
        if (!db.transaction()) {
            m_qstrError = db.lastError().text();
            return false;
        }
        for (const auto& statement : _vecStatements) {
            QSqlQuery query(db);
            if (!query.prepare(statement.first)) {
                m_qstrError = statement.first + ": " + query.lastError().text();
                db.rollback();
                return false;
            }
            for (const QVariant& value : statement.second) {
                query.addBindValue(value);
            }
            if (!query.exec()) {
                m_qstrError = statement.first + ": " + query.lastError().text();
                db.rollback();
                return false;
            }
        }
        if (!db.commit()) {
            m_qstrError = db.lastError().text();
            return false;
        }
        return true;
    }

private:
    QString m_qstrName;
    QString m_qstrError;
    bool m_blOpen = false;
};

using Statements = QVector<QPair<QString, QVariantList>>;

Statements ClientDatabase(const QString& _qstrDownloads, const QString& _qstrPictures)
{
    const QString qstrTable = QString("tab_config_user_personal") + Common::DEFAULT_CLIENT_ID;
    Statements vecStatements = {
        {"DROP TABLE IF EXISTS " + qstrTable, {}},
        {"CREATE TABLE " + qstrTable + " (s_main_type TEXT NOT NULL, s_sub_type TEXT NOT NULL, s_value TEXT)",
         {}},
        {"DROP TABLE IF EXISTS tab_device", {}},
        {"CREATE TABLE tab_device (i_id INTEGER PRIMARY KEY, s_name TEXT NOT NULL, s_address TEXT NOT NULL, "
         "i_channels INTEGER NOT NULL)",
         {}}};
    const QVector<QPair<QString, QString>> vecConfig = {{"downpath", _qstrDownloads},
                                                        {"picturePath", _qstrPictures},
                                                        {"language", "en"},
                                                        {"recordMinutes", "30"},
                                                        {"snapshotFormat", "png"}};
    for (const auto& config : vecConfig) {
        vecStatements.append(
            {"INSERT INTO " + qstrTable + " (s_main_type, s_sub_type, s_value) VALUES (?, ?, ?)",
             {"MAINTYPE_SYSCONFIG", config.first, config.second}});
    }
    const QStringList lstCameras = {"Lobby", "Entrance", "Stairs", "Corridor", "Parking", "Loading bay"};
    for (int i = 0; i < lstCameras.size(); ++i) {
        vecStatements.append(
            {"INSERT INTO tab_device (i_id, s_name, s_address, i_channels) VALUES (?, ?, ?, ?)",
             {i + 1, lstCameras.at(i), QString("192.168.10.%1").arg(101 + i), i < 4 ? 1 : 4}});
    }
    return vecStatements;
}

// The client's language texts; the backup leaves this database out.
Statements LanguageDatabase()
{
    Statements vecStatements = {{"DROP TABLE IF EXISTS tab_lang", {}},
                                {"CREATE TABLE tab_lang (s_key TEXT PRIMARY KEY, s_text TEXT)", {}}};
    const QVector<QPair<QString, QString>> vecTexts = {
        {"btn_backup", "Back up"}, {"lab_notice", "Notice"}, {"msg_success", "Success"}};
    for (const auto& text : vecTexts) {
        vecStatements.append(
            {"INSERT INTO tab_lang (s_key, s_text) VALUES (?, ?)", {text.first, text.second}});
    }
    return vecStatements;
}

} // namespace

bool CLS_DemoData::WriteDatabases(QString& _qstrError)
{
    const QString qstrFolder = m_qstrDataPath + "/Db";
    BeginPart("client database", qstrFolder);
    if (!QDir().mkpath(qstrFolder)) {
        _qstrError = "cannot create the folder " + qstrFolder;
        return false;
    }
    const QVector<QPair<QString, Statements>> vecDatabases = {
        {QString(Common::CLIENT_DB_NAME) + ".db", ClientDatabase(DownloadFolder(), PictureFolder())},
        {"HxLang.db", LanguageDatabase()}};
    for (const auto& database : vecDatabases) {
        const QString qstrFile = qstrFolder + "/" + database.first;
        {
            CLS_DemoConnection connection(qstrFile, "HxClientDemoData");
            if (!connection.IsOpen() || !connection.Run(database.second)) {
                _qstrError = "cannot write the database " + qstrFile + ": " + connection.Error();
                return false;
            }
        }
        ++m_vecParts.last().iFiles;
        m_vecParts.last().iBytes += QFileInfo(qstrFile).size();
    }
    return true;
}
