#include <signal.h>
#include <sys/types.h>

#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "HostTestSupport.h"
#include "Param.h"

namespace {

constexpr int kQuickMs = 60000;
constexpr int kRunMs = 300000;
// A cancelled run cleans up and the program ends within this.
constexpr int kCancelMs = 5000;

const QRegularExpression kArchiveName("^BackUp_\\d{4}(_\\d\\d){4}\\.zip$");

} // namespace

using namespace HostTest;

// HxClient killed or stopped at awkward moments, as a real process: what it leaves must be whole archives
// or nothing, and a restore must end wholly done.
class tst_HxClientCrash : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void killedBackUpLeavesOnlyWholeArchives_data();
    void killedBackUpLeavesOnlyWholeArchives();
    void killedRestoreIsFinishedAtTheNextStart();
    void secondBackUpEndsAtOnce();
    void interruptedRestoreTouchesNothing();
    void terminatedAutomaticBackUpLeavesNothing();

private:
    QString Data() const { return m_dir.filePath("client/data"); }
    QProcessEnvironment Environment(const QString& _qstrDataPath) const;
    // Starts HxClient, collecting its standard output into _qstrOut.
    void Start(QProcess& _process, QString& _qstrOut, const QStringList& _lstArgs,
               const QProcessEnvironment& _env);
    int Run(const QString& _qstrDataPath, const QStringList& _lstArgs, QString* _pErr = nullptr);
    static int LastRate(const QString& _qstrOut);
    // What is in a destination folder besides archives, hidden names included.
    static QStringList NotArchives(const QString& _qstrFolder);
    // Archives under their real name that Info-ZIP finds broken.
    QStringList BrokenArchives(const QString& _qstrFolder) const;

    QTemporaryDir m_dir;
    QString m_qstrUnzip;
};

void tst_HxClientCrash::initTestCase()
{
    QVERIFY(m_dir.isValid());
    m_qstrUnzip = QStandardPaths::findExecutable("unzip");
    if (m_qstrUnzip.isEmpty()) {
        QSKIP("unzip is not installed (scripts/setup.sh installs it)");
    }
    // A few hundred MiB in 1 MiB recordings: a backup runs a few seconds, with a progress step per file.
    QCOMPARE(Run(Data(), {"demo-data", "--bulk", "300"}), 0);
}

QProcessEnvironment tst_HxClientCrash::Environment(const QString& _qstrDataPath) const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("HX_DATA_PATH", _qstrDataPath);
    env.insert("QT_QPA_PLATFORM", "offscreen");
    env.remove("HX_LOG_LEVEL");
    return env;
}

void tst_HxClientCrash::Start(QProcess& _process, QString& _qstrOut, const QStringList& _lstArgs,
                              const QProcessEnvironment& _env)
{
    _process.setProcessEnvironment(_env);
    connect(&_process, &QProcess::readyReadStandardOutput, &_process,
            [&]() { _qstrOut += QString::fromUtf8(_process.readAllStandardOutput()); });
    _process.start(HX_CLIENT_PATH, _lstArgs);
    QVERIFY(_process.waitForStarted(kQuickMs));
}

int tst_HxClientCrash::Run(const QString& _qstrDataPath, const QStringList& _lstArgs, QString* _pErr)
{
    QProcess process;
    process.setProcessEnvironment(Environment(_qstrDataPath));
    process.start(HX_CLIENT_PATH, _lstArgs);
    process.closeWriteChannel();
    if (!process.waitForFinished(kRunMs)) {
        process.kill();
        process.waitForFinished(kQuickMs);
        return -1;
    }
    if (_pErr) {
        *_pErr = QString::fromUtf8(process.readAllStandardError());
    }
    return process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
}

int tst_HxClientCrash::LastRate(const QString& _qstrOut)
{
    const QVector<int> vecRates = ProgressRates(_qstrOut);
    return vecRates.isEmpty() ? -1 : vecRates.last();
}

QStringList tst_HxClientCrash::NotArchives(const QString& _qstrFolder)
{
    QStringList lstOthers;
    for (const QString& qstrName :
         QDir(_qstrFolder).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot)) {
        if (!kArchiveName.match(qstrName).hasMatch()) {
            lstOthers << qstrName;
        }
    }
    return lstOthers;
}

QStringList tst_HxClientCrash::BrokenArchives(const QString& _qstrFolder) const
{
    QStringList lstBroken;
    for (const QString& qstrName : QDir(_qstrFolder).entryList({"BackUp_*.zip"}, QDir::Files)) {
        if (Unzip(m_qstrUnzip, {"-tq", _qstrFolder + "/" + qstrName}, kQuickMs) == "<unzip failed>") {
            lstBroken << qstrName;
        }
    }
    return lstBroken;
}

void tst_HxClientCrash::killedBackUpLeavesOnlyWholeArchives_data()
{
    // SIGKILL once the run has printed a progress of at least this much; -1: once it holds the run lock.
    QTest::addColumn<int>("killAt");
    QTest::newRow("as it starts") << -1;
    QTest::newRow("copying the sources") << 6;
    QTest::newRow("packing") << 60;
    QTest::newRow("near the end of packing") << 95;
}

void tst_HxClientCrash::killedBackUpLeavesOnlyWholeArchives()
{
    QFETCH(int, killAt);
    const QString qstrBackups = m_dir.filePath("killed/") + QTest::currentDataTag();
    // An archive of an earlier run is there already; nothing may break it.
    QCOMPARE(Run(Data(), {"backup", qstrBackups}), 0);
    QCOMPARE(NotArchives(qstrBackups), QStringList());

    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, {"backup", qstrBackups}, Environment(Data()));
    const QString qstrLock = Data() + "/HxBackUp.lock";
    QTRY_VERIFY_WITH_TIMEOUT((killAt < 0 ? QFileInfo::exists(qstrLock) : LastRate(qstrOut) >= killAt) ||
                                 process.state() == QProcess::NotRunning,
                             kRunMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(qstrOut));
    ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
    QVERIFY(process.waitForFinished(kQuickMs));
    qInfo("killed at %d%%, left: %s", LastRate(qstrOut), qPrintable(NotArchives(qstrBackups).join(' ')));
    QCOMPARE(BrokenArchives(qstrBackups), QStringList());

    // The next run takes over the dead run's lock and removes what it left.
    QCOMPARE(Run(Data(), {"backup", qstrBackups}), 0);
    QCOMPARE(NotArchives(qstrBackups), QStringList());
    QCOMPARE(BrokenArchives(qstrBackups), QStringList());
    QVERIFY(!QFileInfo::exists(qstrLock));
}

void tst_HxClientCrash::killedRestoreIsFinishedAtTheNextStart()
{
    const QString qstrBackups = m_dir.filePath("restore");
    QCOMPARE(Run(Data(), {"backup", qstrBackups}), 0);
    const QStringList lstArchives = QDir(qstrBackups).entryList({"BackUp_*.zip"}, QDir::Files);
    QCOMPARE(lstArchives.size(), 1);
    const QString qstrArchive = qstrBackups + "/" + lstArchives.first();
    const QString qstrPictures = Data() + "/FacePicture";
    const QString qstrDownloads = m_dir.filePath("client/DemoUser/Downloads");
    const QMap<QString, QByteArray> mapPictures = FilesBelow(qstrPictures);
    const QMap<QString, QByteArray> mapDownloads = FilesBelow(qstrDownloads);
    QVERIFY(WriteBytes(qstrPictures + "/face_001.png", "changed"));
    QVERIFY(QFile::remove(qstrDownloads + "/cam-02_2024-01-31_08-02.mp4"));
    const QMap<QString, QByteArray> mapChanged = FilesBelow(qstrPictures);

    // The restore stops with its journal written; meanwhile every other run is refused at once.
    QProcessEnvironment env = Environment(Data());
    env.insert("HX_TEST_PAUSE_AFTER_JOURNAL", "120000");
    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, {"recover", "--yes", "--no-safety-copy", qstrArchive}, env);
    const QString qstrJournal = Data() + "/HxRestore.journal";
    QTRY_VERIFY_WITH_TIMEOUT(QFileInfo::exists(qstrJournal) || process.state() == QProcess::NotRunning,
                             kRunMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(qstrOut));
    QString qstrErr;
    QCOMPARE(Run(Data(), {"backup", m_dir.filePath("refused")}, &qstrErr), 1);
    QVERIFY2(IsOneLine(qstrErr) && qstrErr.contains("another backup or restore"), qPrintable(qstrErr));
    QCOMPARE(NotArchives(m_dir.filePath("refused")), QStringList());
    QCOMPARE(Run(Data(), {"recover", "--yes", "--no-safety-copy", qstrArchive}, &qstrErr), 1);
    QVERIFY2(IsOneLine(qstrErr) && qstrErr.contains("another backup or restore"), qPrintable(qstrErr));

    ::kill(static_cast<pid_t>(process.processId()), SIGKILL);
    QVERIFY(process.waitForFinished(kQuickMs));
    QCOMPARE(FilesBelow(qstrPictures), mapChanged);

    // Any start of the module finishes the restore first.
    QCOMPARE(Run(Data(), {"settings"}), 0);
    QCOMPARE(FilesBelow(qstrPictures), mapPictures);
    QCOMPARE(FilesBelow(qstrDownloads), mapDownloads);
    QVERIFY(!QFileInfo::exists(qstrJournal));
    QCOMPARE(NotArchives(qstrBackups), QStringList());
    QVERIFY(
        QString::fromUtf8(FileBytes(Data() + "/Log/hx.log")).contains("finishing an interrupted restore"));
}

void tst_HxClientCrash::secondBackUpEndsAtOnce()
{
    const QString qstrFirst = m_dir.filePath("first");
    const QString qstrSecond = m_dir.filePath("second");
    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, {"backup", qstrFirst}, Environment(Data()));
    QTRY_VERIFY_WITH_TIMEOUT(LastRate(qstrOut) >= 6 || process.state() == QProcess::NotRunning, kRunMs);
    QString qstrErr;
    QCOMPARE(Run(Data(), {"backup", qstrSecond}, &qstrErr), 1);
    QVERIFY2(process.state() == QProcess::Running, "the first run ended before the second was refused");
    QVERIFY2(IsOneLine(qstrErr) && qstrErr.contains("another backup or restore"), qPrintable(qstrErr));
    QCOMPARE(NotArchives(qstrSecond), QStringList());
    QCOMPARE(QDir(qstrSecond).entryList({"BackUp_*.zip"}), QStringList());

    QVERIFY(process.waitForFinished(kRunMs));
    QCOMPARE(process.exitCode(), 0);
    QCOMPARE(NotArchives(qstrFirst), QStringList());
    QCOMPARE(QDir(qstrFirst).entryList({"BackUp_*.zip"}).size(), 1);
}

// Ctrl-C while the archive is unpacked and checked: nothing goes into place.
void tst_HxClientCrash::interruptedRestoreTouchesNothing()
{
    const QString qstrBackups = m_dir.filePath("interrupted");
    QCOMPARE(Run(Data(), {"backup", qstrBackups}), 0);
    const QStringList lstArchives = QDir(qstrBackups).entryList({"BackUp_*.zip"}, QDir::Files);
    QCOMPARE(lstArchives.size(), 1);
    const QString qstrPictures = Data() + "/FacePicture";
    QVERIFY(WriteBytes(qstrPictures + "/face_001.png", "changed"));
    const QMap<QString, QByteArray> mapChanged = FilesBelow(qstrPictures);

    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, {"recover", "--yes", "--no-safety-copy", qstrBackups + "/" + lstArchives.first()},
          Environment(Data()));
    QTRY_VERIFY_WITH_TIMEOUT(qstrOut.contains("Restoring from") || process.state() == QProcess::NotRunning,
                             kQuickMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(qstrOut));
    ::kill(static_cast<pid_t>(process.processId()), SIGINT);
    QVERIFY(process.waitForFinished(kQuickMs));
    const QString qstrErr = QString::fromUtf8(process.readAllStandardError());
    QCOMPARE(process.exitCode(), 130);
    QVERIFY2(IsOneLine(qstrErr) && qstrErr.contains("cancelled; nothing was restored"), qPrintable(qstrErr));
    QCOMPARE(FilesBelow(qstrPictures), mapChanged);
    QCOMPARE(NotArchives(qstrBackups), QStringList());
    QVERIFY(!QFileInfo::exists(Data() + "/HxRestore.journal"));
}

void tst_HxClientCrash::terminatedAutomaticBackUpLeavesNothing()
{
    // The automatic backup copies the database folder first; large files there keep it busy.
    const QString qstrData = m_dir.filePath("auto/data");
    const QString qstrBackups = m_dir.filePath("auto/backups");
    QCOMPARE(Run(qstrData, {"demo-data"}), 0);
    QByteArray qbaBlock(1 << 20, '\0');
    for (int i = 0; i < qbaBlock.size(); ++i) {
        qbaBlock[i] = static_cast<char>((i * 2654435761u) >> 13);
    }
    for (int iFile = 0; iFile < 4; ++iFile) {
        QFile file(QString("%1/Db/record_%2.db").arg(qstrData).arg(iFile));
        QVERIFY(file.open(QIODevice::WriteOnly));
        for (int i = 0; i < 128; ++i) {
            QCOMPARE(file.write(qbaBlock), qint64(qbaBlock.size()));
        }
    }
    qputenv("HX_DATA_PATH", qstrData.toUtf8());
    QVERIFY(Param::SetParam("ModuleBackUp", "AutoBackThreadDetectTime", "200", 1) != 0);
    QVERIFY(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1) != 0);
    QVERIFY(Param::SetParam("ModuleBackUp", "BackUpFileSavePath", qstrBackups.toStdString(), 1) != 0);
    QVERIFY(Param::SetParam("ModuleBackUp", "AutoBackUpTime", "2020-01-01T00:00:00", 1) != 0);
    QVERIFY(QDir().mkpath(qstrBackups));

    QProcess process;
    QString qstrOut;
    Start(process, qstrOut, {"run"}, Environment(qstrData));
    QTRY_VERIFY_WITH_TIMEOUT(
        !QDir(qstrBackups).entryList({".BackUp_*.staging"}, QDir::Files | QDir::Hidden).isEmpty() ||
            process.state() == QProcess::NotRunning,
        kQuickMs);
    QVERIFY2(process.state() == QProcess::Running, qPrintable(qstrOut));
    ::kill(static_cast<pid_t>(process.processId()), SIGTERM);
    QVERIFY(process.waitForFinished(kCancelMs));
    qstrOut += QString::fromUtf8(process.readAllStandardOutput());
    QVERIFY2(qstrOut.contains("Cancelling the running backup"), qPrintable(qstrOut));
    QCOMPARE(process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(process.exitCode(), 130);
    QCOMPARE(QDir(qstrBackups).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

QTEST_GUILESS_MAIN(tst_HxClientCrash)
#include "tst_HxClientCrash.moc"
