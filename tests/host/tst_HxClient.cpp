#include <signal.h>
#include <sys/types.h>

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_CSVOperate.h"
#include "HostTestSupport.h"
#include "Param.h"

namespace {

constexpr int kQuickMs = 60000;
// A whole backup or restore, with room for the sanitizer build.
constexpr int kRunMs = 300000;

struct STRUCT_Result
{
    bool blFinished = false;
    int iExit = -1;
    QString qstrOut;
    QString qstrErr;
};

} // namespace

using namespace HostTest;

class tst_HxClient : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void helpForEveryCommand_data();
    void helpForEveryCommand();
    void badInputGivesOneLine_data();
    void badInputGivesOneLine();
    void demoDataIsDeterministic();
    void settingsPersistAndRefuseOutOfRange();
    void backUpThenRestoreChangedData();
    void cancelledBackUpLeavesNothing_data();
    void cancelledBackUpLeavesNothing();
    void failedRestoreNamesItsSafetyCopy();
    void runReportsTicksUntilInterrupted();
    void guiOpensAndClosesOnInterrupt();
    void guiWithoutDisplayGivesOneLine();

private:
    QProcessEnvironment Environment(const QString& _qstrDataPath) const;
    STRUCT_Result Run(const QString& _qstrDataPath, const QStringList& _lstArgs, int _iTimeoutMs = kQuickMs,
                      const QByteArray& _qbaInput = QByteArray(), const QStringList& _lstUnset = {});
    // Starts a command that runs until interrupted, collecting its standard output into _qstrOut.
    void Start(QProcess& _process, QString& _qstrOut, const QString& _qstrDataPath,
               const QStringList& _lstArgs);
    // Ctrl+C (or another signal), as a user stops a command: its exit code, -1 if it crashed or did not end.
    static int Interrupt(QProcess& _process, int _iTimeoutMs, int _iSignal = SIGINT);

    QTemporaryDir m_dir;
    QString m_qstrRuntimeDir;
};

void tst_HxClient::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(QFileInfo(HX_CLIENT_PATH).isExecutable(), HX_CLIENT_PATH);
    // Only the scheduler test reaches the parameter store from this process.
    qputenv("HX_DATA_PATH", m_dir.filePath("run/data").toUtf8());
    QVERIFY(WriteBytes(m_dir.filePath("not-an-archive.zip"), "this is text, not a zip archive\n"));
    QVERIFY(WriteBytes(m_dir.filePath("a-file"), "a file where a folder is expected\n"));
    // Qt wants a private runtime folder for windows, even offscreen ones.
    m_qstrRuntimeDir = m_dir.filePath("runtime");
    QVERIFY(QDir().mkpath(m_qstrRuntimeDir));
    QVERIFY(QFile::setPermissions(m_qstrRuntimeDir, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner));
}

QProcessEnvironment tst_HxClient::Environment(const QString& _qstrDataPath) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HX_DATA_PATH", _qstrDataPath);
    env.insert("QT_QPA_PLATFORM", "offscreen");
    // The one-line rule is about the program's own messages; the log file keeps the rest.
    env.remove("HX_LOG_LEVEL");
    env.insert("XDG_RUNTIME_DIR", m_qstrRuntimeDir);
    return env;
}

STRUCT_Result tst_HxClient::Run(const QString& _qstrDataPath, const QStringList& _lstArgs, int _iTimeoutMs,
                                const QByteArray& _qbaInput, const QStringList& _lstUnset)
{
    STRUCT_Result stResult;
    QProcessEnvironment env = Environment(_qstrDataPath);
    for (const QString& qstrName : _lstUnset) {
        env.remove(qstrName);
    }
    QProcess process;
    process.setProcessEnvironment(env);
    process.start(HX_CLIENT_PATH, _lstArgs);
    if (!process.waitForStarted(kQuickMs)) {
        return stResult;
    }
    process.write(_qbaInput);
    process.closeWriteChannel();
    stResult.blFinished = process.waitForFinished(_iTimeoutMs);
    if (!stResult.blFinished) {
        process.kill();
        process.waitForFinished(kQuickMs);
    }
    stResult.iExit = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    stResult.qstrOut = QString::fromUtf8(process.readAllStandardOutput());
    stResult.qstrErr = QString::fromUtf8(process.readAllStandardError());
    return stResult;
}

void tst_HxClient::Start(QProcess& _process, QString& _qstrOut, const QString& _qstrDataPath,
                         const QStringList& _lstArgs)
{
    _process.setProcessEnvironment(Environment(_qstrDataPath));
    connect(&_process, &QProcess::readyReadStandardOutput, &_process,
            [&]() { _qstrOut += QString::fromUtf8(_process.readAllStandardOutput()); });
    _process.start(HX_CLIENT_PATH, _lstArgs);
    QVERIFY(_process.waitForStarted(kQuickMs));
}

int tst_HxClient::Interrupt(QProcess& _process, int _iTimeoutMs, int _iSignal)
{
    if (::kill(static_cast<pid_t>(_process.processId()), _iSignal) != 0 ||
        !_process.waitForFinished(_iTimeoutMs)) {
        return -1;
    }
    return _process.exitStatus() == QProcess::NormalExit ? _process.exitCode() : -1;
}

void tst_HxClient::helpForEveryCommand_data()
{
    QTest::addColumn<QString>("command");
    for (const char* pCommand : {"backup", "recover", "settings", "run", "oplog", "demo-data", "gui"}) {
        QTest::newRow(pCommand) << QString(pCommand);
    }
}

void tst_HxClient::helpForEveryCommand()
{
    QFETCH(QString, command);
    const STRUCT_Result stResult = Run(m_dir.filePath("help/data"), {command, "--help"});
    QVERIFY(stResult.blFinished);
    QCOMPARE(stResult.iExit, 0);
    QVERIFY2(stResult.qstrOut.startsWith("Usage: HxClient " + command + " [options]"),
             qPrintable(stResult.qstrOut));
    QVERIFY(stResult.qstrOut.contains("--help"));
    QCOMPARE(stResult.qstrErr, QString());
}

void tst_HxClient::badInputGivesOneLine_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("exitCode");
    QTest::addColumn<QString>("message");

    const auto row = [](const char* _pName, const QStringList& _lstArgs, int _iExit, const char* _pMessage) {
        QTest::newRow(_pName) << _lstArgs << _iExit << QString(_pMessage);
    };
    const QString qstrFile = m_dir.filePath("a-file");
    row("unknown command", {"frobnicate"}, 2, "unknown command 'frobnicate'");
    row("unknown option", {"backup", "--frobnicate"}, 2, "frobnicate");
    row("extra argument", {"backup", "a", "b"}, 2, "unexpected argument 'b'");
    row("recover without archive", {"recover"}, 2, "missing argument");
    row("missing archive", {"recover", "--yes", m_dir.filePath("nope.zip")}, 1, "no such archive");
    row("not an archive", {"recover", "--yes", m_dir.filePath("not-an-archive.zip")}, 1, "not a zip archive");
    row("archive is a folder", {"recover", "--yes", m_dir.path()}, 1, "not a file");
    row("backup folder below a file", {"backup", qstrFile + "/backups"}, 1, "cannot create the folder");
    row("backup folder is a file", {"backup", qstrFile}, 1, "not a folder");
    row("settings path below a file", {"settings", "--path", qstrFile + "/x"}, 1, "cannot create the folder");
    row("count 0", {"settings", "--count", "0"}, 2, "--count must be 1 to 5");
    row("count 6", {"settings", "--count", "6"}, 2, "--count must be 1 to 5");
    row("interval 0", {"settings", "--interval", "0"}, 2, "--interval must be 1 to 15");
    row("interval 16", {"settings", "--interval", "16"}, 2, "--interval must be 1 to 15");
    row("enable maybe", {"settings", "--enable", "maybe"}, 2, "--enable takes on or off");
    row("bulk too large", {"demo-data", "--bulk", "5000"}, 2, "--bulk must be");
}

void tst_HxClient::badInputGivesOneLine()
{
    QFETCH(QStringList, args);
    QFETCH(int, exitCode);
    QFETCH(QString, message);

    const STRUCT_Result stResult = Run(m_dir.filePath("bad/data"), args);
    QVERIFY2(stResult.blFinished, "the command hung");
    QCOMPARE(stResult.iExit, exitCode);
    QVERIFY2(IsOneLine(stResult.qstrErr), qPrintable(stResult.qstrErr));
    QVERIFY2(stResult.qstrErr.contains(message), qPrintable(stResult.qstrErr));
    QCOMPARE(stResult.qstrOut, QString());
}

void tst_HxClient::demoDataIsDeterministic()
{
    const QString qstrFirst = m_dir.filePath("demoA");
    const QString qstrSecond = m_dir.filePath("demoB");
    for (const QString& qstrRoot : {qstrFirst, qstrSecond}) {
        const STRUCT_Result stResult = Run(qstrRoot + "/data", {"demo-data"});
        QVERIFY(stResult.blFinished);
        QCOMPARE(stResult.iExit, 0);
        QVERIFY(stResult.qstrOut.contains("Demo client data created"));
    }

    // Byte for byte the same, except the databases, which name folders of their own data folder.
    QMap<QString, QByteArray> mapFirst = FilesBelow(qstrFirst);
    QMap<QString, QByteArray> mapSecond = FilesBelow(qstrSecond);
    qint64 iTotal = 0;
    for (const QByteArray& qba : qAsConst(mapFirst)) {
        iTotal += qba.size();
    }
    QVERIFY2(iTotal > 1024 * 1024 && iTotal < 16 * 1024 * 1024, qPrintable(QString::number(iTotal)));
    for (const char* pDb : {"data/Db/Orvella.db", "data/Db/HxLang.db"}) {
        QVERIFY2(mapFirst.remove(pDb) == 1, pDb);
        QVERIFY2(mapSecond.remove(pDb) == 1, pDb);
    }
    QCOMPARE(mapFirst.keys(), mapSecond.keys());
    QVERIFY(mapFirst == mapSecond);
    for (const char* pPart :
         {"data/ClientConfig.json", "data/Network.ini", "data/FacePicture/face_001.png",
          "data/ElectronicMap/Floors/Floor_0.png", "DemoUser/Downloads/cam-01_2024-01-31_08-01.mp4",
          "DemoUser/Pictures/snapshot_cam-01.png"}) {
        QVERIFY2(mapFirst.contains(pPart), pPart);
    }
}

void tst_HxClient::settingsPersistAndRefuseOutOfRange()
{
    const QString qstrData = m_dir.filePath("settings/data");
    const QString qstrFolder = m_dir.filePath("settings/archives");
    const auto shown = [](const STRUCT_Result& _stResult) {
        QStringList lstValues{QString::number(_stResult.iExit)};
        for (const char* pLabel : {"archives kept", "interval (days)", "automatic backup", "save folder"}) {
            lstValues << LabelledValue(_stResult.qstrOut, pLabel);
        }
        return lstValues;
    };
    QCOMPARE(shown(Run(qstrData, {"settings"})),
             (QStringList{"0", "3", "7", "on", qstrData + "/AutoBackUp"}));

    STRUCT_Result stResult = Run(
        qstrData, {"settings", "--count", "5", "--interval", "15", "--enable", "off", "--path", qstrFolder});
    QVERIFY2(stResult.iExit == 0, qPrintable(stResult.qstrErr));
    QVERIFY(stResult.qstrOut.startsWith("Saved."));
    QVERIFY(QFileInfo(qstrFolder).isDir());

    // A new process reads what the last one saved; a refused value changes nothing.
    QCOMPARE(Run(qstrData, {"settings", "--count", "6", "--interval", "1"}).iExit, 2);
    QCOMPARE(shown(Run(qstrData, {"settings"})), (QStringList{"0", "5", "15", "off", qstrFolder}));
    QCOMPARE(shown(Run(qstrData, {"settings", "--count", "1", "--interval", "1", "--enable", "on"})),
             (QStringList{"0", "1", "1", "on", qstrFolder}));
}

void tst_HxClient::backUpThenRestoreChangedData()
{
    const QString qstrUnzip = QStandardPaths::findExecutable("unzip");
    if (qstrUnzip.isEmpty()) {
        QSKIP("unzip is not installed (scripts/setup.sh installs it)");
    }
    const QString qstrRoot = m_dir.filePath("main");
    const QString qstrData = qstrRoot + "/data";
    const QString qstrBackups = qstrRoot + "/backups";
    QCOMPARE(Run(qstrData, {"demo-data"}).iExit, 0);

    STRUCT_Result stResult = Run(qstrData, {"backup", qstrBackups}, kRunMs);
    QVERIFY2(stResult.blFinished && stResult.iExit == 0, qPrintable(stResult.qstrOut + stResult.qstrErr));
    const QVector<int> vecRates = ProgressRates(stResult.qstrOut);
    QVERIFY2(vecRates.size() >= 3, qPrintable(stResult.qstrOut));
    QVERIFY(std::is_sorted(vecRates.cbegin(), vecRates.cend()));
    const QFileInfo archive(LabelledValue(stResult.qstrOut, "Archive"));
    QVERIFY2(archive.isFile(), qPrintable(stResult.qstrOut));
    QVERIFY(QRegularExpression("^BackUp_\\d{4}_\\d\\d_\\d\\d_\\d\\d_\\d\\d\\.zip$")
                .match(archive.fileName())
                .hasMatch());
    QCOMPARE(archive.absolutePath(), qstrBackups);
    QVERIFY(LabelledValue(stResult.qstrOut, "Size").endsWith(QString("(%1 bytes)").arg(archive.size())));
    // No staging folder, nothing else beside the archive.
    QCOMPARE(QDir(qstrBackups).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList{archive.fileName()});

    // The archive holds the data folder's configuration, the database as "_backup", the face pictures,
    // the map, and the user's folders named by the database; nothing else.
    const QString qstrUser = qstrRoot + "/DemoUser";
    QMap<QString, QByteArray> mapExpected;
    for (const QFileInfo& file :
         QDir(qstrData).entryInfoList({"*.json", "*.ini"}, QDir::Files | QDir::Hidden)) {
        mapExpected.insert("data/" + file.fileName(), FileBytes(file.absoluteFilePath()));
    }
    const QVector<QPair<QString, QString>> vecTrees = {{"FacePicture", qstrData + "/FacePicture"},
                                                       {"ElectronicMap", qstrData + "/ElectronicMap"},
                                                       {"Downloads", qstrUser + "/Downloads"},
                                                       {"Pictures", qstrUser + "/Pictures"}};
    for (const auto& tree : vecTrees) {
        const QMap<QString, QByteArray> mapTree = FilesBelow(tree.second);
        for (auto it = mapTree.cbegin(); it != mapTree.cend(); ++it) {
            mapExpected.insert(tree.first + "/" + it.key(), it.value());
        }
    }
    QVERIFY(mapExpected.contains("data/HxParam.json"));
    QVERIFY(!mapExpected.contains("data/LastCrash.dmp"));
    QStringList lstExpected = mapExpected.keys();
    lstExpected.append("Db/Orvella_backup.db");
    lstExpected.sort();
    const QString qstrArchive = archive.absoluteFilePath();
    QStringList lstArchived =
        QString::fromUtf8(Unzip(qstrUnzip, {"-Z1", qstrArchive}, kQuickMs)).split('\n', Qt::SkipEmptyParts);
    lstArchived.sort();
    QCOMPARE(lstArchived, lstExpected);
    // Every entry's checksum holds.
    QVERIFY(Unzip(qstrUnzip, {"-tq", qstrArchive}, kQuickMs) != "<unzip failed>");
    const QByteArray qbaArchivedDb = Unzip(qstrUnzip, {"-p", qstrArchive, "Db/Orvella_backup.db"}, kQuickMs);
    QVERIFY(qbaArchivedDb.startsWith("SQLite format 3"));

    // The backup left a manual entry in the operation log, also as CSV.
    stResult = Run(qstrData, {"oplog"});
    QCOMPARE(stResult.iExit, 0);
    QVERIFY2(stResult.qstrOut.contains("manual"), qPrintable(stResult.qstrOut));
    const QString qstrCsv = qstrRoot + "/oplog.csv";
    stResult = Run(qstrData, {"oplog", "--csv", qstrCsv});
    QCOMPARE(stResult.iExit, 0);
    QList<QList<QString>> lstRows;
    QVERIFY(CLS_CSVOperate::ReadCSVFile(qstrCsv, lstRows));
    QVERIFY(lstRows.size() >= 2);
    QCOMPARE(lstRows.first().value(0), QString("time"));
    QCOMPARE(lstRows.last().value(3), QString("manual"));

    // Change the client: a picture, a configuration file gone, a download gone, a snapshot grown, a row.
    const QString qstrDb = qstrData + "/Db/Orvella.db";
    QVERIFY(WriteBytes(qstrData + "/FacePicture/face_001.png", "changed"));
    QVERIFY(QFile::remove(qstrData + "/Layout.json"));
    QVERIFY(QFile::remove(qstrUser + "/Downloads/cam-02_2024-01-31_08-02.mp4"));
    QVERIFY(WriteBytes(qstrUser + "/Pictures/snapshot_cam-01.png", "also changed"));
    QCOMPARE(Sql(qstrDb, "UPDATE tab_device SET s_name = 'Changed' WHERE i_id = 1"), QString("<no row>"));
    QCOMPARE(Sql(qstrDb, "SELECT s_name FROM tab_device WHERE i_id = 1"), QString("Changed"));

    // Declined: nothing happens.
    stResult = Run(qstrData, {"recover", archive.absoluteFilePath()}, kQuickMs, "n\n");
    QCOMPARE(stResult.iExit, 1);
    QVERIFY2(stResult.qstrErr.contains("not confirmed"), qPrintable(stResult.qstrErr));
    QVERIFY(!QFileInfo::exists(qstrData + "/Layout.json"));

    stResult = Run(qstrData, {"recover", "--yes", archive.absoluteFilePath()}, kRunMs);
    QVERIFY2(stResult.blFinished && stResult.iExit == 0, qPrintable(stResult.qstrOut + stResult.qstrErr));
    QVERIFY(stResult.qstrOut.contains("Restored " + archive.absoluteFilePath()));
    // The restore's own progress, after the safety copy's.
    const QString qstrRestoring = stResult.qstrOut.section("Restoring from ", 1);
    const QVector<int> vecRestoreRates = ProgressRates(qstrRestoring);
    QVERIFY2(!vecRestoreRates.isEmpty() && vecRestoreRates.last() == 100 && qstrRestoring.contains("Restoring..."),
             qPrintable(qstrRestoring));
    QVERIFY(std::is_sorted(vecRestoreRates.cbegin(), vecRestoreRates.cend()));
    // The data as it was before the restore, kept by the restore itself.
    const QString qstrSafety = LabelledValue(stResult.qstrOut, "Safety copy");
    QCOMPARE(QFileInfo(qstrSafety).absolutePath(), qstrData + "/AutoBackUp/PreRestore");
    QVERIFY(Unzip(qstrUnzip, {"-p", qstrSafety, "FacePicture/face_001.png"}, kQuickMs) == "changed");
    for (auto it = mapExpected.cbegin(); it != mapExpected.cend(); ++it) {
        // The store is rewritten by every start of the module.
        if (it.key() == "data/HxParam.json") {
            continue;
        }
        const QString qstrTop = it.key().section('/', 0, 0);
        const QString qstrRest = it.key().section('/', 1);
        const QString qstrPath = qstrTop == "data" ? qstrData + "/" + qstrRest
                                 : qstrTop == "Downloads" || qstrTop == "Pictures"
                                     ? qstrUser + "/" + it.key()
                                     : qstrData + "/" + it.key();
        QVERIFY2(FileBytes(qstrPath) == it.value(), qPrintable(qstrPath));
    }
    QVERIFY(FileBytes(qstrData + "/Db/Orvella_backup.db") == qbaArchivedDb);
    QVERIFY(QFileInfo::exists(qstrData + "/LastCrash.dmp"));
    // The unpacked copy is gone again; the live database waits for the next start.
    QCOMPARE(QDir(qstrBackups).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList{archive.fileName()});
    QCOMPARE(Sql(qstrDb, "SELECT s_name FROM tab_device WHERE i_id = 1"), QString("Changed"));

    // Start again: the restored database is taken up and the row is back.
    stResult = Run(qstrData, {"settings"});
    QCOMPARE(stResult.iExit, 0);
    QVERIFY(!QFileInfo::exists(qstrData + "/Db/Orvella_backup.db"));
    QCOMPARE(Sql(qstrDb, "SELECT s_name FROM tab_device WHERE i_id = 1"), QString("Lobby"));
}

void tst_HxClient::cancelledBackUpLeavesNothing_data()
{
    QTest::addColumn<bool>("beforeProgress");
    QTest::addColumn<int>("signal");
    // Early, the cancel may reach the module before the run has even started.
    QTest::newRow("as soon as it starts") << true << int(SIGINT);
    QTest::newRow("after the first progress") << false << int(SIGINT);
    QTest::newRow("terminated") << false << int(SIGTERM);
}

void tst_HxClient::cancelledBackUpLeavesNothing()
{
    QFETCH(bool, beforeProgress);
    QFETCH(int, signal);
    const QString qstrData = m_dir.filePath("cancel/data");
    const QString qstrBackups = m_dir.filePath("cancel/") + QTest::currentDataTag();
    // Enough recordings that the run is still copying or packing when the cancel comes.
    if (!QFileInfo::exists(qstrData)) {
        QCOMPARE(Run(qstrData, {"demo-data", "--bulk", "200"}, kRunMs).iExit, 0);
    }

    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, qstrData, {"backup", qstrBackups});
    QTRY_VERIFY_WITH_TIMEOUT(
        (beforeProgress ? qstrOut.contains("Backing up ") : !ProgressRates(qstrOut).isEmpty()) ||
            process.state() == QProcess::NotRunning,
        kRunMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(qstrOut));
    const int iExit = Interrupt(process, kRunMs, signal);
    qstrOut += QString::fromUtf8(process.readAllStandardOutput());
    const QString qstrErr = QString::fromUtf8(process.readAllStandardError());

    QVERIFY2(qstrOut.contains("Cancelling"), qPrintable(qstrOut));
    QVERIFY2(iExit == 130, qPrintable(qstrOut + qstrErr));
    QVERIFY2(IsOneLine(qstrErr) && qstrErr.contains("cancelled"), qPrintable(qstrErr));
    QCOMPARE(QDir(qstrBackups).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
             QStringList());
}

void tst_HxClient::failedRestoreNamesItsSafetyCopy()
{
    const QString qstrData = m_dir.filePath("safety/data");
    const QString qstrSafetyFolder = qstrData + "/AutoBackUp/PreRestore";
    QCOMPARE(Run(qstrData, {"demo-data"}).iExit, 0);
    // An older safety copy goes once a new one is made.
    QVERIFY(QDir().mkpath(qstrSafetyFolder));
    QVERIFY(WriteBytes(qstrSafetyFolder + "/BackUp_2020_01_01_00_00.zip", "older"));
    QVERIFY(WriteBytes(qstrData + "/FacePicture/face_001.png", "as it was"));

    // Its data fails a CRC check while unpacking, after the safety copy.
    const QString qstrBroken = QFINDTESTDATA("../engine/data/flipped_byte.zip");
    QVERIFY(!qstrBroken.isEmpty());
    STRUCT_Result stResult = Run(qstrData, {"recover", "--yes", qstrBroken}, kRunMs);
    QCOMPARE(stResult.iExit, 1);
    QVERIFY2(IsOneLine(stResult.qstrErr), qPrintable(stResult.qstrErr));
    const QStringList lstKept = QDir(qstrSafetyFolder).entryList(QDir::Files);
    QCOMPARE(lstKept.size(), 1);
    const QString qstrSafety = qstrSafetyFolder + "/" + lstKept.first();
    QVERIFY2(stResult.qstrErr.contains("HxClient recover --yes --no-safety-copy " + qstrSafety),
             qPrintable(stResult.qstrErr));

    // The command named puts the data back, and makes no new copy over the one it restores.
    QVERIFY(WriteBytes(qstrData + "/FacePicture/face_001.png", "changed"));
    stResult = Run(qstrData, {"recover", "--yes", qstrSafety}, kRunMs);
    QVERIFY2(stResult.iExit == 0, qPrintable(stResult.qstrErr));
    QVERIFY(stResult.qstrOut.contains("is a safety copy itself"));
    QCOMPARE(FileBytes(qstrData + "/FacePicture/face_001.png"), QByteArray("as it was"));
    QCOMPARE(QDir(qstrSafetyFolder).entryList(QDir::Files), lstKept);
}

void tst_HxClient::runReportsTicksUntilInterrupted()
{
    const QString qstrData = m_dir.filePath("run/data");
    QCOMPARE(qgetenv("HX_DATA_PATH"), qstrData.toUtf8());
    // A short scheduler period, and no automatic backup to wait for.
    QVERIFY(Param::SetParam("ModuleBackUp", "AutoBackThreadDetectTime", "300", 1) != 0);
    QVERIFY(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1) != 0);

    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, qstrData, {"run"});
    QTRY_VERIFY_WITH_TIMEOUT(qstrOut.contains("tick 3 at"), kQuickMs);
    QCOMPARE(Interrupt(process, kQuickMs), 0);
    qstrOut += QString::fromUtf8(process.readAllStandardOutput());
    QVERIFY(qstrOut.contains("the scheduler looks every 0.3 s"));
    QVERIFY(qstrOut.contains("tick 1 at"));
    QVERIFY(qstrOut.contains("automatic backup off"));
    QVERIFY(qstrOut.trimmed().endsWith("Stopping."));
    QVERIFY(QString::fromUtf8(FileBytes(qstrData + "/Log/hx.log")).contains("tick 2 at"));
}

void tst_HxClient::guiOpensAndClosesOnInterrupt()
{
    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, m_dir.filePath("gui/data"), {"gui"});
    QTRY_VERIFY_WITH_TIMEOUT(qstrOut.contains("Window open") || process.state() == QProcess::NotRunning,
                             kQuickMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(process.readAllStandardError()));
    QCOMPARE(Interrupt(process, kQuickMs), 0);
}

void tst_HxClient::guiWithoutDisplayGivesOneLine()
{
    const STRUCT_Result stResult = Run(m_dir.filePath("gui/data"), {"gui"}, kQuickMs, QByteArray(),
                                       {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"});
    QVERIFY(stResult.blFinished);
    QCOMPARE(stResult.iExit, 1);
    QVERIFY2(IsOneLine(stResult.qstrErr) && stResult.qstrErr.contains("no display"),
             qPrintable(stResult.qstrErr));
}

QTEST_GUILESS_MAIN(tst_HxClient)
#include "tst_HxClient.moc"
