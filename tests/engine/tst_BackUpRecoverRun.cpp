#include <cstring>
#include <future>
#include <memory>
#include <thread>

#include <QLockFile>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <zip.h>

#include "CLS_BackUpPresenter.h"
#include "CLS_BackUpRun.h"
#include "CLS_DBDaoC.h"
#include "EngineTestSupport.h"
#include "Param.h"
#include "RestoreJournal.h"
#include "RunLeftovers.h"

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

// The id of a process that has ended.
qint64 DeadPid()
{
    QProcess process;
    process.start("true", QStringList());
    const qint64 iPid = process.waitForStarted() ? process.processId() : 0;
    process.waitForFinished();
    return iPid;
}

const QRegularExpression kArchiveName("^BackUp_\\d{4}(_\\d\\d){4}\\.zip$");

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
    void emptyCallBackThrowsAfterTheFirstSource();
    void leftoversOfDeadRunsGo_data();
    void leftoversOfDeadRunsGo();
    void secondRunIsRefused_data();
    void secondRunIsRefused();
    void diskRunsOut_data();
    void diskRunsOut();
    void interruptedRestoreIsFinished();
    void damagedJournalIsDropped_data();
    void damagedJournalIsDropped();
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
        // Each entry holds its own name, so that a restored file shows where it came from.
        const QString qstrPath = Save() + "/" + _qstrName;
        zip_t* pZip = zip_open(QFile::encodeName(qstrPath).constData(), ZIP_CREATE | ZIP_TRUNCATE, nullptr);
        for (const QString& qstrEntry : _lstEntries) {
            const QByteArray qbaName = qstrEntry.toUtf8();
            zip_source_t* pSource = zip_source_buffer(pZip, strdup(qbaName.constData()), qbaName.size(), 1);
            zip_file_add(pZip, qbaName.constData(), pSource, ZIP_FL_ENC_UTF_8);
        }
        return pZip != nullptr && zip_close(pZip) == 0 ? qstrPath : QString();
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
    QTest::newRow("nothing staged to pack")
        << "no sources" << 49 << ""
        << QStringList{" BackUpData DirToZip failed \\[qstrSaveSourcePath %1/BackUp_"};
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
    if (setup == "no sources") {
        CLS_BackUpRun run(*Presenter(), Save(), Recorder(), m_qmapResult);
        QVERIFY(!run.Run({}));
    } else {
        QVERIFY(!BackUp(setup.isEmpty() ? rate : -1));
    }
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
    // The host's log tools find a run's lines by the function name BackUpData and a line of the source:
    // "<date> <time> [LEVEL] [thread] <module> <file>:<line> <function> - <message>".
    const QRegularExpression reLine("^\\S+ \\S+ \\[[^\\]]*\\] \\[[^\\]]*\\] \\S+ (\\S+):(-?\\d+) (\\S*) - ");
    for (const QString& qstrLine : LogLines(Data())) {
        const QRegularExpressionMatch match = reLine.match(qstrLine);
        if (match.hasMatch() && match.captured(1) == "CLS_BackUpPresenter_BackUpRun.cpp") {
            QVERIFY2(match.captured(3) == "BackUpData" && match.captured(2).toInt() > 0, qPrintable(qstrLine));
        }
    }
    QCOMPARE(QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpPath", "none")), QString("none"));
    QCOMPARE(SaveFolder(), QStringList());
}

void tst_BackUpRecoverRun::emptyCallBackThrowsAfterTheFirstSource()
{
    QVERIFY(MakeClient());
    QVERIFY_EXCEPTION_THROWN(Presenter()->BackUpData(Save(), QVariantMap(), nullptr, m_qmapResult),
                             std::bad_function_call);
    // The copies made so far stay, marked: the first source, Db, and nothing after it.
    const QStringList lstLeft = SaveFolder();
    QCOMPARE(lstLeft.size(), 2);
    const QString qstrStaging = lstLeft.last();
    QCOMPARE(lstLeft.first(), "." + qstrStaging + ".staging");
    QCOMPARE(QDir(Save() + "/" + qstrStaging).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"Db"});
    QVERIFY(QFileInfo::exists(Save() + "/" + qstrStaging + "/Db/main.db"));

    // The backup mutex and the run lock went with the exception: another run on another thread gets
    // them, and removes what the first one left.
    auto pDone = std::make_shared<std::promise<bool>>();
    std::future<bool> done = pDone->get_future();
    std::thread([pDone, qstrSave = Save()]() {
        QVariantMap qmapOther;
        pDone->set_value(Presenter()->BackUpData(
            qstrSave, QVariantMap(), [](const QString&, const QVariantMap&) { return 0; }, qmapOther));
    }).detach();
    QCOMPARE(done.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    QVERIFY(done.get());
    QCOMPARE(SaveFolder().filter(kArchiveName), SaveFolder());
}

void tst_BackUpRecoverRun::leftoversOfDeadRunsGo_data()
{
    // Files to make in the save folder ("<dead>" and "<live>" stand for the process id of such a run),
    // and what of them the next run leaves.
    QTest::addColumn<QStringList>("made");
    QTest::addColumn<QStringList>("kept");
    const QString qstrStaging = ".BackUp_2024_01_31_08_05.staging";
    QTest::newRow("staging of a dead run")
        << QStringList{qstrStaging + "=<dead>", "BackUp_2024_01_31_08_05/Db/main.db"} << QStringList();
    QTest::newRow("staging and temporary archives of a live run")
        << QStringList{qstrStaging + "=<live>", "BackUp_2024_01_31_08_05/Db/main.db",
                       ".BackUp_2024_01_31_08_05.partial.zip", ".BackUp_2024_01_31_08_05.partial.zip.Ab12Cd"}
        << QStringList{qstrStaging, ".BackUp_2024_01_31_08_05.partial.zip",
                       ".BackUp_2024_01_31_08_05.partial.zip.Ab12Cd", "BackUp_2024_01_31_08_05"};
    QTest::newRow("temporary archives of a dead run")
        << QStringList{".BackUp_2024_01_31_08_07.partial.zip", ".BackUp_2024_01_31_08_07.partial.zip.Ab12Cd"}
        << QStringList();
    QTest::newRow("unpack folder of a dead run")
        << QStringList{".HxRestore_Ab12Cd/.HxRestoreRun=<dead>", ".HxRestore_Ab12Cd/BackUp_x/data/a.json"}
        << QStringList();
    // Unmarked folders are the user's, whatever their names.
    QTest::newRow("the user's folders")
        << QStringList{"BackUp_2024_01_31_08_06/mine.txt", ".HxRestore_mine/mine.txt", "BackUp_notes.txt"}
        << QStringList{".HxRestore_mine", "BackUp_2024_01_31_08_06", "BackUp_notes.txt"};
}

void tst_BackUpRecoverRun::leftoversOfDeadRunsGo()
{
    QFETCH(QStringList, made);
    QFETCH(QStringList, kept);
    QVERIFY(MakeClient());
    const QByteArray qbaDead = QByteArray::number(DeadPid()) + "\n";
    for (const QString& qstrMade : made) {
        const QString qstrContent = qstrMade.section('=', 1);
        const QByteArray qbaContent = qstrContent == "<dead>"   ? qbaDead
                                      : qstrContent == "<live>" ? QByteArray("1\n")
                                                                : QByteArray("x");
        QVERIFY(WriteFile(Save() + "/" + qstrMade.section('=', 0, 0), qbaContent));
    }
    QVERIFY(BackUp());
    QStringList lstLeft = SaveFolder();
    QCOMPARE(lstLeft.filter(kArchiveName).size(), 1);
    lstLeft.removeOne(lstLeft.filter(kArchiveName).first());
    kept.sort();
    QCOMPARE(lstLeft, kept);
    QSet<QString> setRemoved;
    for (const QString& qstrMade : made) {
        setRemoved.insert(qstrMade.section('=', 0, 0).section('/', 0, 0));
    }
    QCOMPARE(LogCount(" BackUpData removed what an earlier run left"), setRemoved.size() - kept.size());
}

void tst_BackUpRecoverRun::secondRunIsRefused_data()
{
    QTest::addColumn<QString>("run");
    QTest::addColumn<QString>("lockOwner"); // "live": held by this process; "dead": left by an ended one
    QTest::addColumn<bool>("refused");
    for (const char* pRun : {"backup", "restore"}) {
        QTest::newRow(qPrintable(QString(pRun) + " while another runs")) << pRun << "live" << true;
        QTest::newRow(qPrintable(QString(pRun) + " after a dead run")) << pRun << "dead" << false;
    }
}

void tst_BackUpRecoverRun::secondRunIsRefused()
{
    QFETCH(QString, run);
    QFETCH(QString, lockOwner);
    QFETCH(bool, refused);
    QVERIFY(MakeClient());
    const QString qstrZip = run == "restore" ? BackUpArchive() : QString();
    QVERIFY(run == "backup" || !qstrZip.isEmpty());
    QVERIFY(WriteFile(Data() + "/a.json", "changed since"));
    m_lstReports.clear();
    m_qmapResult.clear();
    const QString qstrLock = Data() + "/HxBackUp.lock";
    QLockFile heldLock(qstrLock);
    if (lockOwner == "live") {
        QVERIFY(heldLock.tryLock(0));
    } else {
        QVERIFY(WriteFile(qstrLock, QByteArray::number(DeadPid()) + "\n" +
                                        QCoreApplication::applicationName().toUtf8() + "\n" +
                                        QSysInfo::machineHostName().toUtf8() + "\n"));
    }
    const QStringList lstSaveBefore = SaveFolder();
    const QMap<QString, QByteArray> mapBefore = LiveData();

    // The backup's own result map, the restore's through the request that the host sends.
    QVariantMap qmapAnswer;
    bool blDone = false;
    if (run == "backup") {
        blDone = Presenter()->BackUpData(Save(), QVariantMap(), Recorder(), qmapAnswer);
        QCOMPARE(Rates().isEmpty(), refused);
    } else {
        blDone = Presenter()->TaskHandler("Recover", {{"RecoverPath", qstrZip}}, qmapAnswer) == 1;
    }
    QCOMPARE(blDone, !refused);
    QCOMPARE(qmapAnswer.value("reason").toString(),
             refused ? CLS_BackUpPresenter::tr("msg_backup_busy") : QString());
    QCOMPARE(LogCount("another backup or restore is running [lock " + qstrLock), refused ? 1 : 0);
    if (refused) {
        // Nothing touched: no report, no file in the save folder, the live data as it was.
        QCOMPARE(SaveFolder(), lstSaveBefore);
        QCOMPARE(LiveData(), mapBefore);
        QCOMPARE(ReadFile(Data() + "/a.json"), QByteArray("changed since"));
    } else {
        QCOMPARE(ReadFile(Data() + "/a.json"),
                 run == "restore" ? QByteArray("data/a.json") : "changed since");
        QVERIFY(!QFileInfo::exists(qstrLock));
    }
}

void tst_BackUpRecoverRun::diskRunsOut_data()
{
    QTest::addColumn<QString>("volumeSize");
    QTest::addColumn<int>("fillAt"); // the rate at which the volume fills up; -1: never
    QTest::addColumn<QString>("logged");
    // Room beside the reserve for the source, but not for its staging copy and the archive too.
    QTest::newRow("the run cannot fit")
        << "5128m" << -1 << " DirToZip failed  qiDiskAvailableStorage is null";
    QTest::newRow("the volume fills before packing") << "5200m" << 49 << " BackUpData failed  volume full";
}

void tst_BackUpRecoverRun::diskRunsOut()
{
    QFETCH(QString, volumeSize);
    QFETCH(int, fillAt);
    QFETCH(QString, logged);
    CLS_SmallVolume volume(Save(), volumeSize);
    if (!volume.IsMounted()) {
        QSKIP("a tmpfs cannot be mounted here (needs root and mount rights)");
    }
    QVERIFY(MakeClient());
    // 6 MiB that does not compress.
    QByteArray qbaPicture(6 << 20, '\0');
    for (int i = 0; i < qbaPicture.size(); ++i) {
        qbaPicture[i] = static_cast<char>((i * 2654435761u) >> 13);
    }
    QVERIFY(WriteFile(Data() + "/FacePicture/large.jpg", qbaPicture));
    const bool blDone = Presenter()->BackUpData(
        Save(), QVariantMap(),
        [&](const QString& _qstrKey, const QVariantMap& _qmapData) {
            m_lstReports << qMakePair(_qstrKey, _qmapData);
            if (_qmapData.value("intRate").toInt() == fillAt) {
                volume.Fill(256 << 10);
            }
            return 0;
        },
        m_qmapResult);
    QVERIFY(!blDone);
    QCOMPARE(m_qmapResult, (QVariantMap{{"reason", CLS_BackUpPresenter::tr("msg_disk_less")}}));
    QCOMPARE(LogCount(logged), 1);
    if (fillAt < 0) {
        QCOMPARE(Rates(), QList<int>{0});
    }
    QCOMPARE(SaveFolder(), QStringList());
}

// A restore that died while putting files in place: half the pictures are back, half are not.
void tst_BackUpRecoverRun::interruptedRestoreIsFinished()
{
    QVERIFY(MakeClient());
    for (int i = 0; i < 6; ++i) {
        QVERIFY(WriteFile(QString("%1/FacePicture/p%2.jpg").arg(Data()).arg(i), QByteArray::number(i)));
    }
    const QString qstrZip = BackUpArchive();
    QVERIFY(!qstrZip.isEmpty());
    const QMap<QString, QByteArray> mapBackedUp = LiveData();
    for (int i = 0; i < 6; ++i) {
        QVERIFY(WriteFile(QString("%1/FacePicture/p%2.jpg").arg(Data()).arg(i), "changed"));
    }
    QVERIFY(WriteFile(Data() + "/a.json", "changed"));

    const QString qstrUnpack = RunLeftovers::MakeUnpackFolder(Save());
    QVERIFY(Presenter()->ZipToDir(qstrZip, qstrUnpack));
    const QString qstrRoot = qstrUnpack + "/" + QFileInfo(qstrZip).baseName();
    QVERIFY(RestoreJournal::Write(qstrUnpack, {{qstrRoot + "/FacePicture", Data() + "/FacePicture", "", true},
                                               {qstrRoot + "/data", Data(), "", true}}));
    for (int i = 0; i < 3; ++i) {
        const QString qstrName = QString("/FacePicture/p%1.jpg").arg(i);
        QVERIFY(QFile::remove(Data() + qstrName) && QFile::rename(qstrRoot + qstrName, Data() + qstrName));
    }

    Presenter()->FinishInterruptedRestore();
    QCOMPARE(LiveData(), mapBackedUp);
    QVERIFY(!QFileInfo::exists(RestoreJournal::Path()));
    QCOMPARE(SaveFolder(), QStringList{QFileInfo(qstrZip).fileName()});
    QCOMPARE(LogCount("RecoverData finishing an interrupted restore [unpack : " + qstrUnpack), 1);
}

void tst_BackUpRecoverRun::damagedJournalIsDropped_data()
{
    QTest::addColumn<QByteArray>("journal"); // %1 stands for a marked unpack folder
    QTest::addColumn<QString>("detail");
    QTest::newRow("not a journal") << QByteArray("{\"unpack\": ") << "unreadable journal";
    QTest::newRow("unpack folder gone")
        << QByteArray("{\"unpack\": \"%1-gone\", \"placements\": []}") << "no unpack folder at";
    QTest::newRow("unpacked folder gone")
        << QByteArray("{\"unpack\": \"%1\", \"placements\": [{\"from\": \"%1/B/FacePicture\", "
                      "\"to\": \"/tmp/x\", \"move\": true}]}")
        << "unpacked folder missing";
    QTest::newRow("a folder outside the unpack folder")
        << QByteArray("{\"unpack\": \"%1\", \"placements\": [{\"from\": \"%1/../../data/Db\", "
                      "\"to\": \"/tmp/x\", \"move\": true}]}")
        << "unpacked folder missing";
}

void tst_BackUpRecoverRun::damagedJournalIsDropped()
{
    QFETCH(QByteArray, journal);
    QFETCH(QString, detail);
    QVERIFY(MakeClient());
    const QString qstrUnpack = RunLeftovers::MakeUnpackFolder(Save());
    QVERIFY(!qstrUnpack.isEmpty());
    const QMap<QString, QByteArray> mapBefore = LiveData();
    QVERIFY(WriteFile(RestoreJournal::Path(), QString::fromUtf8(journal).replace("%1", qstrUnpack).toUtf8()));
    Presenter()->FinishInterruptedRestore();
    QCOMPARE(LiveData(), mapBefore);
    QVERIFY(!QFileInfo::exists(RestoreJournal::Path()));
    QCOMPARE(LogLines(Data()).filter(" RecoverData journal dropped, live data left as it is").size(), 1);
    QVERIFY2(LogLines(Data()).filter(detail).size() == 1, qPrintable(detail));
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
