#include <future>
#include <memory>
#include <thread>

#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <private/qzipwriter_p.h>

#include "CLS_BackUpPresenter.h"
#include "CLS_BackUpRun.h"
#include "CLS_DBDaoC.h"
#include "EngineTestSupport.h"
#include "Param.h"

using namespace EngineTest;

namespace {

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

// A user's personal configuration table in the client database, written through the test's own connection.
bool WriteConfigTable(const QString& _qstrDataPath, const QString& _qstrUserId,
                      const QList<QStringList>& _lstRows)
{
    const QString qstrTable = "tab_config_user_personal" + _qstrUserId;
    QStringList lstSql{"DROP TABLE IF EXISTS " + qstrTable,
                       "CREATE TABLE " + qstrTable + " (s_main_type TEXT, s_sub_type TEXT, s_value TEXT)"};
    for (const QStringList& lstRow : _lstRows) {
        lstSql << QString("INSERT INTO %1 VALUES ('%2', '%3', '%4')")
                      .arg(qstrTable, lstRow[0], lstRow[1], lstRow[2]);
    }
    bool blOk = QDir().mkpath(_qstrDataPath + "/Db");
    {
        QSqlDatabase db = QSqlDatabase::addDatabase("QSQLITE", "engine-test");
        db.setDatabaseName(_qstrDataPath + "/Db/Orvella.db");
        blOk = blOk && db.open();
        QSqlQuery query(db);
        for (const QString& qstrSql : lstSql) {
            blOk = blOk && query.exec(qstrSql);
        }
    }
    QSqlDatabase::removeDatabase("engine-test");
    return blOk;
}

} // namespace

// A client's data below the temporary folder: data/ is the data folder, dl/Downloads and pv/Pictures the
// user's folders named in the client database.
class tst_BackUpRecoverRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void sourceSet_data();
    void sourceSet();
    void archiveHoldsTheSourceSet();
    void progress_data();
    void progress();
    void failedRun_data();
    void failedRun();
    void runLogLinesNameBackUpData_data();
    void runLogLinesNameBackUpData();
    void emptyCallBackThrowsAfterTheFirstSource();
    void backupComesBack();
    void sameFolderNameGoesToBothSources();
    void unmatchedFoldersAreDropped();
    void badArchiveTouchesNothing_data();
    void badArchiveTouchesNothing();
    void uncreatableTargetStopsAtOnce();

private:
    QString Root() const { return m_pDir->path(); }
    QString Data() const { return Root() + "/data"; }
    QString Save() const { return Root() + "/save"; }
    int LogCount(const QString& _qstrNeedle) const { return LogLines(Data()).filter(_qstrNeedle).size(); }
    QStringList SaveFolder() const
    {
        QStringList lstFound = QDir(Save()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        lstFound.sort();
        return lstFound;
    }
    // Every source folder with files that hold their own path, links that lead out, and database files
    // that are not packed as they are.
    bool MakeClient(bool _blUserFolders = true) const
    {
        const QStringList lstFiles =
            QString(
                "data/Db/main.db data/Db/main.db-wal data/Db/HxLang.db data/Db/old_backup.db "
                "data/Db/.hidden.db "
                "data/Db/notes.txt data/Db/two.part.db data/Db/nested/inner.db data/a.json data/b.ini "
                "data/c.txt "
                "data/sub/deep.json data/FacePicture/f1.jpg data/ElectronicMap/map.png elsewhere/secret.txt "
                "dl/Downloads/clip.mp4 pv/Pictures/shot.jpg")
                .split(' ');
        bool blOk = true;
        for (const QString& qstrFile : lstFiles) {
            const bool blSkip = !_blUserFolders && (qstrFile.startsWith("dl/") || qstrFile.startsWith("pv/"));
            blOk = blOk && (blSkip || WriteFile(Root() + "/" + qstrFile, qstrFile.toUtf8()));
        }
        return blOk && QFile::link(Root() + "/elsewhere/secret.txt", Data() + "/ElectronicMap/link.png") &&
               QFile::link(Root() + "/elsewhere", Data() + "/ElectronicMap/linked") &&
               Configure(Root() + "/dl/Downloads", Root() + "/pv/Pictures");
    }
    bool Configure(const QString& _qstrDownloads, const QString& _qstrPictures) const
    {
        return WriteConfigTable(Data(), "admin",
                                {{"MAINTYPE_SYSCONFIG", "downpath", _qstrDownloads},
                                 {"MAINTYPE_SYSCONFIG", "picturePath", _qstrPictures}});
    }
    // A progress callback that keeps every report and answers -1 to the report of rate _iCancelAt.
    CLS_BackUpPresenter::ProgressCallBack Recorder(int _iCancelAt = -1)
    {
        return [this, _iCancelAt](const QString& _qstrKey, const QVariantMap& _qmapData) {
            m_lstReports << qMakePair(_qstrKey, _qmapData);
            return _qmapData.value("intRate").toInt() == _iCancelAt ? -1 : 0;
        };
    }
    QList<int> Rates() const
    {
        QList<int> lstRates;
        for (const auto& report : m_lstReports) {
            lstRates << report.second.value("intRate", -1).toInt();
        }
        return lstRates;
    }
    bool BackUp(int _iCancelAt = -1)
    {
        return Presenter()->BackUpData(Save(), QVariantMap(), Recorder(_iCancelAt), m_qmapResult);
    }
    // The path of the one archive a successful backup leaves.
    QString BackUpArchive()
    {
        return BackUp() && SaveFolder().size() == 1 ? Save() + "/" + SaveFolder().first() : QString();
    }
    QString WriteArchive(const QString& _qstrName, const QStringList& _lstEntries)
    {
        QZipWriter writer(Save() + "/" + _qstrName);
        for (const QString& qstrEntry : _lstEntries) {
            writer.addFile(qstrEntry, qstrEntry.toUtf8());
        }
        return Save() + "/" + _qstrName;
    }
    // The client's files, without what the host's own libraries write while the test runs.
    QMap<QString, QByteArray> LiveData() const
    {
        QMap<QString, QByteArray> mapFiles = Snapshot(Root());
        for (auto it = mapFiles.begin(); it != mapFiles.end();) {
            const bool blHost = it.key().startsWith("data/Log/") || it.key() == "data/HxParam.json" ||
                                it.key().startsWith("save/");
            it = blHost ? mapFiles.erase(it) : std::next(it);
        }
        return mapFiles;
    }

    std::unique_ptr<QTemporaryDir> m_pDir;
    QList<QPair<QString, QVariantMap>> m_lstReports;
    QVariantMap m_qmapResult;
};

void tst_BackUpRecoverRun::initTestCase()
{
    if (QStandardPaths::findExecutable("unzip").isEmpty()) {
        QSKIP("Info-ZIP unzip is needed as the independent reader");
    }
}

void tst_BackUpRecoverRun::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", Data().toUtf8());
    QVERIFY(QDir().mkpath(Save()));
    m_lstReports.clear();
    m_qmapResult.clear();
}

void tst_BackUpRecoverRun::cleanup()
{
    CLS_DBDaoC::ClearPools();
    m_pDir.reset();
}

void tst_BackUpRecoverRun::sourceSet_data()
{
    QTest::addColumn<QString>("userId");
    QTest::addColumn<QList<QStringList>>("rows");
    QTest::addColumn<QStringList>("added");
    QTest::addColumn<int>("failedReads");
    const QString qstrSys = "MAINTYPE_SYSCONFIG";
    QTest::newRow("downloads first whatever the row order")
        << "u1" << QList<QStringList>{{qstrSys, "picturePath", "/pics"}, {qstrSys, "downpath", "/down"}}
        << QStringList{"/down", "/pics"} << 0;
    QTest::newRow("other kinds of rows are not read")
        << "u1" << QList<QStringList>{{"MAINTYPE_OTHER", "downpath", "/x"}, {qstrSys, "downPath", "/y"}}
        << QStringList() << 0;
    QTest::newRow("the user has no table") << "u2" << QList<QStringList>() << QStringList() << 2;
}

void tst_BackUpRecoverRun::sourceSet()
{
    QFETCH(QString, userId);
    QFETCH(QList<QStringList>, rows);
    QFETCH(QStringList, added);
    QFETCH(int, failedReads);
    QVERIFY(WriteConfigTable(Data(), "u1", rows));
    QVERIFY(WriteConfigTable(Data(), "admin", {{"MAINTYPE_SYSCONFIG", "downpath", "/admin-down"}}));
    QVERIFY(Param::SetParam("SystemConfig", "clientid", userId.toStdString(), 1) != 0);
    QStringList lstPaths;
    for (const STRUCT_BackUpSource& source : Presenter()->GetBackUpSourcePath()) {
        lstPaths << source.path;
        QCOMPARE(source.filters, (lstPaths.size() == 2 ? QStringList{"*.json", "*.ini"} : QStringList()));
    }
    const QStringList lstFixed{Data() + "/Db", Data(), Data() + "/FacePicture", Data() + "/ElectronicMap"};
    QCOMPARE(lstPaths, lstFixed + added);
    QCOMPARE(LogCount(" GetBackUpSourcePath() Dbdao.Select failed"), failedReads);
}

void tst_BackUpRecoverRun::archiveHoldsTheSourceSet()
{
    auto archiveName = []() {
        return "BackUp_" + QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm") + ".zip";
    };
    QVERIFY(MakeClient());
    const QString qstrBefore = archiveName();
    QVERIFY(BackUp());
    const QString qstrAfter = archiveName();
    QVERIFY(m_qmapResult.isEmpty());

    // The archive alone, named after the minute of the run: the staging folder is gone.
    const QStringList lstSave = SaveFolder();
    QCOMPARE(lstSave.size(), 1);
    QVERIFY(lstSave.first() == qstrBefore || lstSave.first() == qstrAfter);
    const QString qstrZip = Save() + "/" + lstSave.first();
    QCOMPARE(QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpPath", "")), qstrZip);

    // Links are not followed; databases go under their _backup names, other files of Db are left out.
    QStringList lstEntries = UnzipNames(qstrZip);
    lstEntries.sort();
    QCOMPARE(lstEntries,
             (QStringList{"Db/Orvella_backup.db", "Db/main_backup.db", "Db/nested/inner.db",
                          "Db/old_backup.db", "Downloads/clip.mp4", "ElectronicMap/map.png",
                          "FacePicture/f1.jpg", "Pictures/shot.jpg", "data/a.json", "data/b.ini"}));
    QVERIFY(UnzipTestPasses(qstrZip));
    QString qstrContent;
    QCOMPARE(Unzip({"-p", qstrZip, "Db/main_backup.db"}, &qstrContent), 0);
    QCOMPARE(qstrContent, QString("data/Db/main.db"));
    QCOMPARE(Unzip({"-p", qstrZip, "Db/old_backup.db"}, &qstrContent), 0);
    QCOMPARE(qstrContent, QString("data/Db/old_backup.db"));

    // The live data is read, never changed.
    QCOMPARE(ReadFile(Data() + "/Db/main.db"), QByteArray("data/Db/main.db"));
    QVERIFY(!QFileInfo::exists(Data() + "/Db/main_backup.db"));
    QVERIFY(QFileInfo::exists(Data() + "/Db/HxLang.db"));

    // A second run within the same minute replaces the archive instead of failing or adding one.
    QVERIFY(WriteFile(Data() + "/FacePicture/later.jpg", "later"));
    QVERIFY(BackUp());
    if (archiveName() != lstSave.first()) {
        QSKIP("a minute boundary fell between the runs");
    }
    QCOMPARE(SaveFolder(), lstSave);
    QVERIFY(UnzipNames(qstrZip).contains("FacePicture/later.jpg"));
}

void tst_BackUpRecoverRun::progress_data()
{
    // Client data, with or without the user's folders, or a number of plain source folders.
    QTest::addColumn<int>("sources");
    QTest::addColumn<QList<int>>("rates");
    // Start; one per existing source of six; two of eight database files renamed; 49; one per packed file.
    QTest::newRow("client data") << -1 << QList<int>{0,  6,  13, 20, 26, 33, 40, 41, 42, 49,
                                                     54, 59, 64, 69, 74, 79, 84, 89, 94, 99};
    // A missing source reports nothing, so the copy band ends below 40.
    QTest::newRow("the user's folders missing")
        << -2 << QList<int>{0, 6, 13, 20, 26, 41, 42, 49, 55, 61, 67, 74, 80, 86, 92, 99};
    // Nothing staged means nothing to pack: the run fails as a failed packing.
    QTest::newRow("no source") << 0 << QList<int>{0, 40, 49};
    // Half a percent per source and per packed file: every other rate repeats.
    QTest::newRow("eighty sources") << 80 << QList<int>();
}

void tst_BackUpRecoverRun::progress()
{
    QFETCH(int, sources);
    QFETCH(QList<int>, rates);
    if (sources < 0) {
        QVERIFY(MakeClient(sources == -1));
        QVERIFY(BackUp());
    } else {
        QVector<STRUCT_BackUpSource> vecSources;
        QStringList lstExpected;
        for (int i = 0; i < sources; ++i) {
            QVERIFY(WriteFile(QString("%1/src/s%2/f.txt").arg(Root()).arg(i), "f"));
            vecSources << STRUCT_BackUpSource(QString("%1/src/s%2").arg(Root()).arg(i));
            lstExpected << QString("s%1/f.txt").arg(i);
        }
        CLS_BackUpRun run(*Presenter(), Save(), Recorder(), m_qmapResult);
        QCOMPARE(run.Run(vecSources), sources > 0);
        QCOMPARE(SaveFolder(), sources > 0 ? QStringList{run.ZipName() + ".zip"} : QStringList());
        QStringList lstNames = UnzipNames(Save() + "/" + run.ZipName() + ".zip");
        lstNames.sort();
        lstExpected.sort();
        QCOMPARE(lstNames, lstExpected);
        QCOMPARE(LogCount(" BackUpData DirToZip failed [qstrSaveSourcePath " + run.StagingPath()),
                 sources > 0 ? 0 : 1);
    }
    const QList<int> lstRates = Rates();
    if (!rates.isEmpty()) {
        QCOMPARE(lstRates, rates);
    }
    for (int i = 0; i < m_lstReports.size(); ++i) {
        QCOMPARE(m_lstReports[i].first, QString("ProcessUpdate"));
        QCOMPARE(m_lstReports[i].second.value("strRate").toString(),
                 CLS_BackUpPresenter::tr("lab_backuping"));
        // Marked to send exactly when the rate moved; the start report carries no mark.
        QCOMPARE(m_lstReports[i].second.value("IsSend"),
                 i == 0 ? QVariant() : QVariant(lstRates[i] != lstRates[i - 1]));
    }
}

void tst_BackUpRecoverRun::failedRun_data()
{
    QTest::addColumn<QString>("setup"); // none: the callback cancels at the rate
    QTest::addColumn<int>("rate");      // the last one reported; -1: somewhere before 49
    QTest::addColumn<QString>("reason");
    QTest::addColumn<QStringList>("logged"); // patterns; %1 stands for the save folder
    const QStringList lstCancel{"backup cancel \\[ qstrSavePath :%1/BackUp_\\d{4}(_\\d\\d){4}\\]$"};
    QTest::newRow("cancel at the first source") << "" << 6 << "" << lstCancel;
    QTest::newRow("cancel at the first database file") << "" << 41 << "" << lstCancel;
    QTest::newRow("cancel before packing") << "" << 49 << "" << lstCancel;
    QTest::newRow("cancel while packing")
        << "" << 64 << ""
        << QStringList{" BackUpData DirToZip failed \\[qstrSaveSourcePath %1/BackUp_",
                       "DirToZipWriter canceled"};
    QTest::newRow("a folder in the way of a renamed database")
        << "db in the way" << -1 << ""
        << QStringList{
               " BackUpData DirToZip failed  db rename faied \\[daname%1/BackUp_\\d{4}(_\\d\\d){4}/Db/"
               "main_backup\\.db$"};
    QTest::newRow("too little space on the save volume")
        << "small volume" << 0 << "msg_disk_less"
        << QStringList{" DirToZip failed  qiDiskAvailableStorage is null \\[diskpath%1$"};
}

void tst_BackUpRecoverRun::failedRun()
{
    QFETCH(QString, setup);
    QFETCH(int, rate);
    QFETCH(QString, reason);
    QFETCH(QStringList, logged);
    QVERIFY(MakeClient());
    std::unique_ptr<CLS_SmallVolume> pVolume;
    if (setup == "db in the way") {
        QVERIFY(WriteFile(Data() + "/Db/main_backup.db/inside.txt", "x"));
    } else if (setup == "small volume") {
        pVolume = std::make_unique<CLS_SmallVolume>(Save());
        if (!pVolume->IsMounted()) {
            QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
        }
    }
    QVERIFY(!BackUp(setup.isEmpty() ? rate : -1));
    if (rate >= 0) {
        QCOMPARE(Rates().last(), rate);
        QCOMPARE(Rates().count(rate), 1);
    } else {
        QVERIFY(!Rates().contains(49));
    }
    QCOMPARE(m_qmapResult,
             (reason.isEmpty() ? QVariantMap()
                               : QVariantMap{{"reason", CLS_BackUpPresenter::tr(qPrintable(reason))}}));
    for (const QString& qstrPattern : logged) {
        const QRegularExpression line(QString(qstrPattern).replace("%1", QRegularExpression::escape(Save())));
        QVERIFY2(LogLines(Data()).filter(line).size() == 1, qPrintable(qstrPattern));
    }
    QCOMPARE(QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpPath", "none")), QString("none"));
    QCOMPARE(SaveFolder(), QStringList());
}

void tst_BackUpRecoverRun::runLogLinesNameBackUpData_data()
{
    QTest::addColumn<int>("cancelAt"); // -1: nothing to pack, so the packing fails
    QTest::addColumn<QString>("expected");
    QTest::newRow("cancel while copying") << 6 << "backup cancel [ qstrSavePath :";
    QTest::newRow("cancel while renaming database files") << 41 << "backup cancel [ qstrSavePath :";
    QTest::newRow("cancel before packing") << 49 << "backup cancel [ qstrSavePath :";
    QTest::newRow("cancel while packing") << 64 << " BackUpData DirToZip failed [qstrSaveSourcePath ";
    QTest::newRow("failed packing") << -1 << " BackUpData DirToZip failed [qstrSaveSourcePath ";
}

void tst_BackUpRecoverRun::runLogLinesNameBackUpData()
{
    QFETCH(int, cancelAt);
    QFETCH(QString, expected);
    if (cancelAt >= 0) {
        QVERIFY(MakeClient());
        QVERIFY(!BackUp(cancelAt));
    } else {
        CLS_BackUpRun run(*Presenter(), Save(), Recorder(), m_qmapResult);
        QVERIFY(!run.Run({}));
    }
    // "<date> <time> [LEVEL] [thread] <module> <file>:<line> <function> - <message>"
    const QRegularExpression reLine(
        "^\\S+ \\S+ \\[[^\\]]*\\] \\[[^\\]]*\\] \\S+ (\\S+):(-?\\d+) (\\S*) - (.*)$");
    int iRunLines = 0;
    bool blExpectedSeen = false;
    for (const QString& qstrLine : LogLines(Data())) {
        const QRegularExpressionMatch match = reLine.match(qstrLine);
        // Lines of a message that spans several are not lines of their own.
        if (!match.hasMatch() || match.captured(1) != "CLS_BackUpPresenter_BackUpRun.cpp") {
            continue;
        }
        ++iRunLines;
        blExpectedSeen = blExpectedSeen || match.captured(4).contains(expected);
        // The host's log tools find a run's lines by this function name and a line number of the source.
        QVERIFY2(match.captured(3) == "BackUpData", qPrintable(qstrLine));
        QVERIFY2(match.captured(2).toInt() > 0, qPrintable(qstrLine));
    }
    QVERIFY(iRunLines > 0);
    QVERIFY(blExpectedSeen);
}

void tst_BackUpRecoverRun::emptyCallBackThrowsAfterTheFirstSource()
{
    QVERIFY(MakeClient());
    QVERIFY_EXCEPTION_THROWN(Presenter()->BackUpData(Save(), QVariantMap(), nullptr, m_qmapResult),
                             std::bad_function_call);
    // The copies made so far stay: the first source, Db, and nothing after it.
    const QStringList lstLeft = SaveFolder();
    QCOMPARE(lstLeft.size(), 1);
    QCOMPARE(QDir(Save() + "/" + lstLeft.first()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"Db"});
    QVERIFY(QFileInfo::exists(Save() + "/" + lstLeft.first() + "/Db/main.db"));

    // The backup mutex went with the exception: another run on another thread gets it.
    auto pDone = std::make_shared<std::promise<bool>>();
    std::future<bool> done = pDone->get_future();
    std::thread([pDone, qstrSave = Save()]() {
        QVariantMap qmapOther;
        pDone->set_value(Presenter()->BackUpData(
            qstrSave, QVariantMap(), [](const QString&, const QVariantMap&) { return 0; }, qmapOther));
    }).detach();
    QCOMPARE(done.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    QVERIFY(done.get());
}

void tst_BackUpRecoverRun::backupComesBack()
{
    QVERIFY(MakeClient());
    const QString qstrZip = BackUpArchive();
    QVERIFY(!qstrZip.isEmpty());
    QVERIFY(WriteFile(Data() + "/a.json", "changed since"));
    QVERIFY(QFile::remove(Data() + "/FacePicture/f1.jpg"));
    QVERIFY(QDir(Root() + "/dl/Downloads").removeRecursively());
    QVERIFY(WriteFile(Data() + "/Db/main.db", "changed since"));
    QVERIFY(!Presenter()->RecoverData(Save() + "/none.zip"));
    QVERIFY(!Presenter()->RecoverData(QString()));
    QCOMPARE(LogCount("RecoverData"), 0);

    // An archive on a volume without room to unpack it is refused before anything is unpacked.
    {
        const QString qstrSmall = Root() + "/small";
        CLS_SmallVolume volume(qstrSmall);
        if (volume.IsMounted()) {
            QVERIFY(QFile::copy(qstrZip, qstrSmall + "/copy.zip"));
            QVERIFY(!Presenter()->RecoverData(qstrSmall + "/copy.zip"));
            QCOMPARE(LogCount(" RecoverData failed  NonAvailableStorage  [filepath : " + qstrSmall), 1);
            QCOMPARE(QDir(qstrSmall).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                     QStringList{"copy.zip"});
            QCOMPARE(ReadFile(Data() + "/a.json"), QByteArray("changed since"));
        } else {
            qWarning("a small tmpfs cannot be mounted here: the check of room to unpack is left out");
        }
    }

    QVERIFY(Presenter()->RecoverData(qstrZip));
    QCOMPARE(ReadFile(Data() + "/a.json"), QByteArray("data/a.json"));
    QCOMPARE(ReadFile(Data() + "/FacePicture/f1.jpg"), QByteArray("data/FacePicture/f1.jpg"));
    QCOMPARE(ReadFile(Root() + "/dl/Downloads/clip.mp4"), QByteArray("dl/Downloads/clip.mp4"));
    // Databases come back beside the live files, for the host to take up; the live file is left alone.
    QCOMPARE(ReadFile(Data() + "/Db/main_backup.db"), QByteArray("data/Db/main.db"));
    QCOMPARE(ReadFile(Data() + "/Db/main.db"), QByteArray("changed since"));
    // The unpack root is gone, the archive stays.
    QCOMPARE(SaveFolder(), QStringList{QFileInfo(qstrZip).fileName()});
    QVERIFY(LogCount(" RecoverData CopyFile success [filepath : " + Data()) >= 1);
    QCOMPARE(LogCount(" RecoverData CopyFile failed"), 0);
}

void tst_BackUpRecoverRun::sameFolderNameGoesToBothSources()
{
    // Both of the user's folders are named Shared; the backup merges them into one folder.
    QVERIFY(MakeClient(false));
    const QString qstrDown = Root() + "/x/Shared";
    const QString qstrPics = Root() + "/y/Shared";
    QVERIFY(Configure(qstrDown, qstrPics));
    QVERIFY(WriteFile(qstrDown + "/from_downloads.txt", "d"));
    QVERIFY(WriteFile(qstrPics + "/from_pictures.txt", "p"));
    const QString qstrZip = BackUpArchive();
    QVERIFY(!qstrZip.isEmpty());
    QVERIFY(QDir(Root() + "/x").removeRecursively() && QDir(Root() + "/y").removeRecursively());

    QVERIFY(Presenter()->RecoverData(qstrZip));
    const QMap<QString, QByteArray> mapBoth{{"from_downloads.txt", "d"}, {"from_pictures.txt", "p"}};
    QCOMPARE(Snapshot(qstrDown), mapBoth);
    QCOMPARE(Snapshot(qstrPics), mapBoth);
    QCOMPARE(LogCount(" RecoverData CopyFile success [filepath : " + qstrDown), 1);
    QCOMPARE(LogCount(" RecoverData CopyFile success [filepath : " + qstrPics), 1);
}

void tst_BackUpRecoverRun::unmatchedFoldersAreDropped()
{
    // A folder of the user's beside the archive, named like it, is never a place to unpack into and delete.
    QVERIFY(MakeClient());
    const QString qstrZip =
        WriteArchive("Documents.zip", {"Moved/x.txt", "FacePicture/n.jpg", "Documents/x.txt"});
    QVERIFY(WriteFile(Save() + "/Documents/FacePicture/mine.jpg", "mine"));
    QMap<QString, QByteArray> mapExpected = LiveData();
    mapExpected.insert("data/FacePicture/n.jpg", "FacePicture/n.jpg");
    QVERIFY(Presenter()->RecoverData(qstrZip));
    QCOMPARE(LiveData(), mapExpected);
    QCOMPARE(Snapshot(Save() + "/Documents"),
             (QMap<QString, QByteArray>{{"FacePicture/", ""}, {"FacePicture/mine.jpg", "mine"}}));
    QCOMPARE(SaveFolder(), (QStringList{"Documents", "Documents.zip"}));
}

void tst_BackUpRecoverRun::badArchiveTouchesNothing_data()
{
    QTest::addColumn<QString>("fixture");
    // Refused by the directory, and by an entry's data; other refusals take the same way out.
    for (const char* pFixture : {"truncated", "flipped_byte"}) {
        QTest::newRow(pFixture) << pFixture;
    }
}

void tst_BackUpRecoverRun::badArchiveTouchesNothing()
{
    QFETCH(QString, fixture);
    QVERIFY(MakeClient());
    // The truncated backup's Db entry comes first and is sound: it must not come back either.
    const QString qstrZip = Save() + "/BackUp_2024_01_31_08_05.zip";
    QVERIFY(QFile::copy(QFINDTESTDATA("data/" + fixture + ".zip"), qstrZip));
    const QMap<QString, QByteArray> mapBefore = LiveData();
    QVERIFY(!Presenter()->RecoverData(qstrZip));
    QCOMPARE(LiveData(), mapBefore);
    QCOMPARE(LogCount(" RecoverData failed  ZipToDir failed  [filepath : " + qstrZip), 1);
    QCOMPARE(SaveFolder(), QStringList{"BackUp_2024_01_31_08_05.zip"});
}

void tst_BackUpRecoverRun::uncreatableTargetStopsAtOnce()
{
    QVERIFY(MakeClient(false));
    QVERIFY(WriteFile(Root() + "/plain.txt", "p"));
    QVERIFY(Configure(Root() + "/plain.txt/Pictures", Root() + "/pv/Pictures"));
    const QString qstrZip = WriteArchive("BackUp_2024_01_31_08_05.zip", {"Pictures/p.jpg"});
    QVERIFY(!Presenter()->RecoverData(qstrZip));
    QCOMPARE(LogCount(" RecoverData CopyFile failed dirRecover create failed [filepath : " + Root() +
                      "/plain.txt/Pictures"),
             1);
    // Stopped before the second source of the same name was reached.
    QVERIFY(!QFileInfo::exists(Root() + "/pv/Pictures"));
    QCOMPARE(SaveFolder(), QStringList{"BackUp_2024_01_31_08_05.zip"});
}

QTEST_GUILESS_MAIN(tst_BackUpRecoverRun)
#include "tst_BackUpRecoverRun.moc"
