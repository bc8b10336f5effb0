#pragma once

#include <functional>

#include <QDir>
#include <QList>
#include <QRegularExpression>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include "CLS_BackUpPresenter.h"
#include "DaoTestSupport.h"
#include "EngineTestSupport.h"

namespace EngineTest {

inline CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

// A client's data below one folder: <root>/data is the data folder, <root>/dl/Downloads and
// <root>/pv/Pictures the user's download and picture folders named in the client database.
class CLS_ClientData
{
public:
    explicit CLS_ClientData(const QString& _qstrRoot) : m_qstrRoot(_qstrRoot) {}

    QString Root() const { return m_qstrRoot; }
    QString Data() const { return m_qstrRoot + "/data"; }
    QString Downloads() const { return m_qstrRoot + "/dl/Downloads"; }
    QString Pictures() const { return m_qstrRoot + "/pv/Pictures"; }

    // Every source folder with a few files; the folders named in _lstMissing are left out.
    bool Make(const QStringList& _lstMissing = QStringList()) const
    {
        bool blOk =
            WriteFile(Data() + "/Db/main.db", "main database") &&
            WriteFile(Data() + "/Db/main.db-wal", "w") && WriteFile(Data() + "/Db/HxLang.db", "lang") &&
            WriteFile(Data() + "/Db/old_backup.db", "old") && WriteFile(Data() + "/a.json", "{\"a\": 1}") &&
            WriteFile(Data() + "/b.ini", "[b]") && WriteFile(Data() + "/c.txt", "not backed up") &&
            WriteFile(Data() + "/sub/deep.json", "{}");
        const QList<QPair<QString, QString>> lstFolders{{"FacePicture", Data() + "/FacePicture/f1.jpg"},
                                                        {"ElectronicMap", Data() + "/ElectronicMap/map.png"},
                                                        {"Downloads", Downloads() + "/clip.mp4"},
                                                        {"Pictures", Pictures() + "/shot.jpg"}};
        for (const auto& folder : lstFolders) {
            if (!_lstMissing.contains(folder.first)) {
                blOk = blOk && WriteFile(folder.second, folder.first.toUtf8() + " content");
            }
        }
        return blOk && Configure(Downloads(), Pictures());
    }

    // The user's folders in the personal configuration table of the client database.
    bool Configure(const QString& _qstrDownloads, const QString& _qstrPictures) const
    {
        QDir().mkpath(Data() + "/Db");
        DaoTest::CLS_TestConnection connection(Data() + "/Db/Orvella.db");
        return connection.IsOpen() &&
               connection
                   .Exec({"DROP TABLE IF EXISTS tab_config_user_personaladmin",
                          "CREATE TABLE tab_config_user_personaladmin (s_main_type TEXT, s_sub_type TEXT, "
                          "s_value TEXT)",
                          QString("INSERT INTO tab_config_user_personaladmin VALUES ('MAINTYPE_SYSCONFIG', "
                                  "'downpath', '%1')")
                              .arg(_qstrDownloads),
                          QString("INSERT INTO tab_config_user_personaladmin VALUES ('MAINTYPE_SYSCONFIG', "
                                  "'picturePath', '%1')")
                              .arg(_qstrPictures)})
                   .isEmpty();
    }

    // The archive's entries for Make() with nothing left out.
    QStringList ExpectedEntries() const
    {
        QStringList lstEntries{"Db/main_backup.db",     "Db/old_backup.db",   "Db/Orvella_backup.db",
                               "data/a.json",           "data/b.ini",         "FacePicture/f1.jpg",
                               "ElectronicMap/map.png", "Downloads/clip.mp4", "Pictures/shot.jpg"};
        lstEntries.sort();
        return lstEntries;
    }

private:
    QString m_qstrRoot;
};

// One progress report as the callback saw it.
struct STRUCT_Report
{
    QString qstrKey;
    int iRate = -1;
    QVariant varSend;
    QString qstrText;
};

// A progress callback that keeps every report and answers as its policy says (0 by default).
class CLS_Recorder
{
public:
    std::function<int(const STRUCT_Report&)> policy = [](const STRUCT_Report&) { return 0; };
    QList<STRUCT_Report> lstReports;

    CLS_BackUpPresenter::ProgressCallBack CallBack()
    {
        return [this](const QString& _qstrKey, const QVariantMap& _qmapData) {
            STRUCT_Report report;
            report.qstrKey = _qstrKey;
            report.iRate = _qmapData.value("intRate", -1).toInt();
            report.varSend = _qmapData.value("IsSend");
            report.qstrText = _qmapData.value("strRate").toString();
            lstReports << report;
            return policy(report);
        };
    }

    QList<int> Rates() const
    {
        QList<int> lstRates;
        for (const STRUCT_Report& report : lstReports) {
            lstRates << report.iRate;
        }
        return lstRates;
    }
};

// The archives "BackUp_yyyy_MM_dd_HH_mm.zip" in a folder.
inline QStringList Archives(const QString& _qstrFolder)
{
    const QRegularExpression name("^BackUp_\\d{4}_\\d\\d_\\d\\d_\\d\\d_\\d\\d\\.zip$");
    QStringList lstArchives;
    for (const QString& qstrFile : QDir(_qstrFolder).entryList(QDir::Files)) {
        if (name.match(qstrFile).hasMatch()) {
            lstArchives << qstrFile;
        }
    }
    return lstArchives;
}

} // namespace EngineTest
