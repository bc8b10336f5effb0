#include <functional>
#include <future>
#include <memory>
#include <thread>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_BackUpRun.h"
#include "CLS_DBDaoC.h"
#include "ClientDataSupport.h"
#include "Param.h"
#include "ZipRules.h"

using namespace EngineTest;

class tst_BackUpRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void archiveHoldsTheSourceSet();
    void progressOfTheFullSet();
    void copyBandSkipsMissingSources_data();
    void copyBandSkipsMissingSources();
    void threeSourcesReport13_26_40();
    void unchangedRateIsMarkedNotToSend();
    void emptySourceSetJumpsTo40();
    void databaseFilesArePrepared();
    void failedDatabaseRenameStopsTheRun();
    void cancelBeforePacking_data();
    void cancelBeforePacking();
    void cancelWhilePacking();
    void emptyCallBackThrowsAfterTheFirstSource();
    void tooLittleSpaceOnTheSaveVolume();
    void fileTooLargeForTheArchive();
    void archiveTooLargeToReadBack();
    void sameMinuteGivesOneArchive();
    void linksAreNotFollowed();

private:
    QString Save() const { return m_pDir->path() + "/save"; }
    QString LogText() const { return LogLines(m_client->Data()).join('\n'); }
    // The save folder holds nothing but what _lstExpected names.
    void CheckSaveFolder(const QStringList& _lstExpected);

    std::unique_ptr<QTemporaryDir> m_pDir;
    std::unique_ptr<CLS_ClientData> m_client;
};

void tst_BackUpRun::initTestCase()
{
    if (!HasUnzip()) {
        QSKIP("Info-ZIP unzip is needed as the independent reader");
    }
}

void tst_BackUpRun::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    m_client = std::make_unique<CLS_ClientData>(m_pDir->path());
    qputenv("HX_DATA_PATH", m_client->Data().toUtf8());
    QVERIFY(QDir().mkpath(Save()));
}

void tst_BackUpRun::cleanup()
{
    CLS_DBDaoC::ClearPools();
    m_client.reset();
    m_pDir.reset();
}

void tst_BackUpRun::CheckSaveFolder(const QStringList& _lstExpected)
{
    QStringList lstFound = QDir(Save()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    QStringList lstExpected = _lstExpected;
    lstFound.sort();
    lstExpected.sort();
    QCOMPARE(lstFound, lstExpected);
}

void tst_BackUpRun::archiveHoldsTheSourceSet()
{
    QVERIFY(m_client->Make());
    const QString qstrBefore = "BackUp_" + QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm") + ".zip";
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    const QString qstrAfter = "BackUp_" + QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm") + ".zip";
    QVERIFY(qmapResult.isEmpty());

    // The archive alone, staging gone, named after the minute of the run.
    const QStringList lstArchives = Archives(Save());
    QCOMPARE(lstArchives.size(), 1);
    QVERIFY(lstArchives.first() == qstrBefore || lstArchives.first() == qstrAfter);
    CheckSaveFolder(lstArchives);
    const QString qstrZip = Save() + "/" + lstArchives.first();
    QCOMPARE(QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpPath", "")), qstrZip);

    QStringList lstEntries = UnzipNames(qstrZip);
    lstEntries.sort();
    QCOMPARE(lstEntries, m_client->ExpectedEntries());
    QVERIFY(UnzipTestPasses(qstrZip));
    QCOMPARE(Unzip({"-p", qstrZip, "Db/main_backup.db"}).qstrOutput, QString("main database"));

    // The live data is read, never changed.
    QCOMPARE(ReadFile(m_client->Data() + "/Db/main.db"), QByteArray("main database"));
    QVERIFY(!QFileInfo::exists(m_client->Data() + "/Db/main_backup.db"));
    QVERIFY(QFileInfo::exists(m_client->Data() + "/Db/HxLang.db"));
}

void tst_BackUpRun::progressOfTheFullSet()
{
    QVERIFY(m_client->Make());
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));

    // Start; six sources; two of five database files renamed; 49; nine files packed.
    const QList<int> lstExpected{0, 6, 13, 20, 26, 33, 40, 41, 43, 49, 54, 60, 65, 71, 76, 82, 87, 93, 99};
    QCOMPARE(recorder.Rates(), lstExpected);
    const STRUCT_Report& start = recorder.lstReports.first();
    QCOMPARE(start.qstrText, CLS_BackUpPresenter::tr("lab_backuping"));
    QVERIFY(!start.varSend.isValid());
    for (const STRUCT_Report& report : recorder.lstReports) {
        QCOMPARE(report.qstrKey, QString("ProcessUpdate"));
        QCOMPARE(report.qstrText, start.qstrText);
        QVERIFY(report.iRate == 0 || report.varSend.toBool());
    }
}

void tst_BackUpRun::copyBandSkipsMissingSources_data()
{
    QTest::addColumn<QStringList>("missing");
    QTest::addColumn<QList<int>>("copyBand");
    QTest::newRow("none missing") << QStringList() << QList<int>{6, 13, 20, 26, 33, 40};
    QTest::newRow("face pictures missing") << QStringList{"FacePicture"} << QList<int>{6, 13, 20, 26, 33};
    QTest::newRow("the user's folders missing")
        << QStringList{"Downloads", "Pictures"} << QList<int>{6, 13, 20, 26};
}

void tst_BackUpRun::copyBandSkipsMissingSources()
{
    QFETCH(QStringList, missing);
    QFETCH(QList<int>, copyBand);
    QVERIFY(m_client->Make(missing));
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    // Straight from the end of the copy band to the database files.
    QCOMPARE(recorder.Rates().mid(1, copyBand.size() + 1), copyBand + QList<int>{41});
}

void tst_BackUpRun::threeSourcesReport13_26_40()
{
    for (const char* pName : {"A", "B", "C"}) {
        QVERIFY(WriteFile(m_pDir->path() + "/src/" + pName + "/file.txt", pName));
    }
    const QString qstrSrc = m_pDir->path() + "/src/";
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    CLS_BackUpRun run(*Presenter(), Save(), recorder.CallBack(), qmapResult);
    QVERIFY(run.Run({STRUCT_BackUpSource(qstrSrc + "A"), STRUCT_BackUpSource(qstrSrc + "B"),
                     STRUCT_BackUpSource(qstrSrc + "C")}));
    QCOMPARE(recorder.Rates(), (QList<int>{0, 13, 26, 40, 49, 65, 82, 99}));
    for (int i = 1; i < recorder.lstReports.size(); ++i) {
        QCOMPARE(recorder.lstReports.at(i).varSend, QVariant(true));
    }
    QStringList lstEntries = UnzipNames(Save() + "/" + run.ZipName() + ".zip");
    lstEntries.sort();
    QCOMPARE(lstEntries, (QStringList{"A/file.txt", "B/file.txt", "C/file.txt"}));
}

void tst_BackUpRun::unchangedRateIsMarkedNotToSend()
{
    QVector<STRUCT_BackUpSource> vecSources;
    for (int i = 0; i < 80; ++i) {
        const QString qstrFolder = QString("%1/src/s%2").arg(m_pDir->path()).arg(i);
        QVERIFY(WriteFile(qstrFolder + "/f.txt", "f"));
        vecSources << STRUCT_BackUpSource(qstrFolder);
    }
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    CLS_BackUpRun run(*Presenter(), Save(), recorder.CallBack(), qmapResult);
    QVERIFY(run.Run(vecSources));
    int iLast = 0;
    for (int i = 1; i <= 80; ++i) {
        const STRUCT_Report& report = recorder.lstReports.at(i);
        QCOMPARE(report.iRate, 40 * i / 80);
        QCOMPARE(report.varSend.toBool(), report.iRate != iLast);
        iLast = report.iRate;
    }
    // Packing 80 files moves the rate by half a percent per file, so every other report repeats.
    int iRepeats = 0;
    for (int i = 82; i < recorder.lstReports.size(); ++i) {
        iRepeats += recorder.lstReports.at(i).varSend.toBool() ? 0 : 1;
    }
    QCOMPARE(iRepeats, 30);
}

void tst_BackUpRun::emptySourceSetJumpsTo40()
{
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    CLS_BackUpRun run(*Presenter(), Save(), recorder.CallBack(), qmapResult);
    // Nothing is staged, so there is no folder to pack and the run fails as a failed packing.
    QVERIFY(!run.Run({}));
    QCOMPARE(recorder.Rates(), (QList<int>{0, 40, 49}));
    QCOMPARE(recorder.lstReports.at(1).varSend, QVariant(true));
    QVERIFY(LogText().contains(" BackUpData DirToZip failed [qstrSaveSourcePath " + run.StagingPath()));
    CheckSaveFolder({});
}

void tst_BackUpRun::databaseFilesArePrepared()
{
    QVERIFY(m_client->Make());
    QVERIFY(WriteFile(m_client->Data() + "/Db/.hidden.db", "h"));
    QVERIFY(WriteFile(m_client->Data() + "/Db/notes.txt", "n"));
    QVERIFY(WriteFile(m_client->Data() + "/Db/two.part.db", "t"));
    QVERIFY(WriteFile(m_client->Data() + "/Db/nested/inner.db", "i"));
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    const QString qstrZip = Save() + "/" + Archives(Save()).value(0);
    QStringList lstDb = UnzipNames(qstrZip).filter(QRegularExpression("^Db/"));
    lstDb.sort();
    // Only plain .db files at the top of Db, each under its _backup name; folders below are kept as they are.
    QCOMPARE(lstDb, (QStringList{"Db/Orvella_backup.db", "Db/main_backup.db", "Db/nested/inner.db",
                                 "Db/old_backup.db"}));
    QCOMPARE(Unzip({"-p", qstrZip, "Db/old_backup.db"}).qstrOutput, QString("old"));
}

void tst_BackUpRun::failedDatabaseRenameStopsTheRun()
{
    QVERIFY(m_client->Make());
    // A folder in the way of the renamed file.
    QVERIFY(WriteFile(m_client->Data() + "/Db/main_backup.db/inside.txt", "x"));
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    const QRegularExpression line(" BackUpData DirToZip failed  db rename faied \\[daname" +
                                  QRegularExpression::escape(Save()) +
                                  "/BackUp_\\d{4}(_\\d\\d){4}/Db/main_backup\\.db$");
    QVERIFY2(LogLines(m_client->Data()).filter(line).size() == 1, qPrintable(LogText()));
    QVERIFY(!recorder.Rates().contains(49));
    CheckSaveFolder({});
}

void tst_BackUpRun::cancelBeforePacking_data()
{
    QTest::addColumn<int>("cancelAt");
    QTest::newRow("first source") << 6;
    QTest::newRow("first database file") << 41;
    QTest::newRow("before packing") << 49;
}

void tst_BackUpRun::cancelBeforePacking()
{
    QFETCH(int, cancelAt);
    QVERIFY(m_client->Make());
    CLS_Recorder recorder;
    recorder.policy = [cancelAt](const STRUCT_Report& _report) { return _report.iRate == cancelAt ? -1 : 0; };
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QCOMPARE(recorder.Rates().last(), cancelAt);
    QVERIFY(qmapResult.isEmpty());
    const QRegularExpression line("backup cancel \\[ qstrSavePath :" + QRegularExpression::escape(Save()) +
                                  "/BackUp_\\d{4}(_\\d\\d){4}\\]$");
    QCOMPARE(LogLines(m_client->Data()).filter(line).size(), 1);
    CheckSaveFolder({});
}

void tst_BackUpRun::cancelWhilePacking()
{
    QVERIFY(m_client->Make());
    CLS_Recorder recorder;
    recorder.policy = [](const STRUCT_Report& _report) { return _report.iRate > 60 ? -1 : 0; };
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QCOMPARE(recorder.Rates().last(), 65);
    QCOMPARE(
        LogLines(m_client->Data()).filter(" BackUpData DirToZip failed [qstrSaveSourcePath " + Save()).size(),
        1);
    QCOMPARE(LogLines(m_client->Data()).filter("DirToZipWriter canceled").size(), 1);
    QCOMPARE(QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpPath", "none")), QString("none"));
    CheckSaveFolder({});
}

void tst_BackUpRun::emptyCallBackThrowsAfterTheFirstSource()
{
    QVERIFY(m_client->Make());
    QVariantMap qmapResult;
    QVERIFY_EXCEPTION_THROWN(Presenter()->BackUpData(Save(), QVariantMap(), nullptr, qmapResult),
                             std::bad_function_call);
    // The copies made so far stay: the first source, Db, and nothing after it.
    const QStringList lstLeft = QDir(Save()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot);
    QCOMPARE(lstLeft.size(), 1);
    QCOMPARE(QDir(Save() + "/" + lstLeft.first()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"Db"});
    QVERIFY(QFileInfo::exists(Save() + "/" + lstLeft.first() + "/Db/main.db"));

    // The backup mutex went with the exception: another run on another thread gets it.
    auto pDone = std::make_shared<std::promise<bool>>();
    std::future<bool> done = pDone->get_future();
    std::thread([pDone, qstrSave = Save()]() {
        CLS_Recorder recorder;
        QVariantMap qmapOther;
        pDone->set_value(Presenter()->BackUpData(qstrSave, QVariantMap(), recorder.CallBack(), qmapOther));
    }).detach();
    QCOMPARE(done.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    QVERIFY(done.get());
}

void tst_BackUpRun::tooLittleSpaceOnTheSaveVolume()
{
    QVERIFY(m_client->Make());
    CLS_SmallVolume volume(Save());
    if (!volume.IsMounted()) {
        QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
    }
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QCOMPARE(qmapResult, (QVariantMap{{"reason", CLS_BackUpPresenter::tr("msg_disk_less")}}));
    QCOMPARE(recorder.Rates(), QList<int>{0});
    QCOMPARE(LogLines(m_client->Data())
                 .filter(" DirToZip failed  qiDiskAvailableStorage is null [diskpath" + Save())
                 .size(),
             1);
    CheckSaveFolder({});
}

void tst_BackUpRun::fileTooLargeForTheArchive()
{
    QVERIFY(m_client->Make());
    // Sparse, so only its copy in the staging folder takes room.
    QFile huge(m_client->Data() + "/FacePicture/huge.mp4");
    QVERIFY(huge.open(QIODevice::WriteOnly));
    QVERIFY(huge.resize(ZipRules::kMaxEntryBytes + 1));
    huge.close();
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QCOMPARE(qmapResult, (QVariantMap{{"reason", CLS_BackUpPresenter::tr("msg_backup_file_too_large")}}));
    QVERIFY(!recorder.Rates().contains(49));
    QCOMPARE(
        LogLines(m_client->Data()).filter(" BackUpData DirToZip failed  file too large [filepath : ").size(),
        1);
    CheckSaveFolder({});
}

void tst_BackUpRun::archiveTooLargeToReadBack()
{
    // Writes and reads about 5 GB; run with HX_LARGE_TESTS=1.
    if (qEnvironmentVariableIntValue("HX_LARGE_TESTS") != 1) {
        QSKIP("set HX_LARGE_TESTS=1 to pack an archive over 2 GiB");
    }
    QVERIFY(m_client->Make());
    for (int i = 0; i < 3; ++i) {
        QFile video(QString("%1/clip%2.mp4").arg(m_client->Downloads()).arg(i));
        QVERIFY(video.open(QIODevice::WriteOnly));
        QVERIFY(video.resize(qint64(800) << 20));
    }
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QCOMPARE(qmapResult, (QVariantMap{{"reason", CLS_BackUpPresenter::tr("msg_backup_too_large")}}));
    QCOMPARE(recorder.Rates().last(), 99);
    QCOMPARE(LogLines(m_client->Data()).filter("archive check failed").size(), 1);
    CheckSaveFolder({});
}

void tst_BackUpRun::sameMinuteGivesOneArchive()
{
    QVERIFY(m_client->Make());
    for (int iAttempt = 0; iAttempt < 2; ++iAttempt) {
        const QString qstrMinute = QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm");
        CLS_Recorder first;
        CLS_Recorder second;
        QVariantMap qmapResult;
        QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), first.CallBack(), qmapResult));
        QVERIFY(WriteFile(m_client->Data() + "/FacePicture/later.jpg", "later"));
        QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), second.CallBack(), qmapResult));
        if (QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm") != qstrMinute) {
            QVERIFY(QDir(Save()).removeRecursively() && QDir().mkpath(Save()));
            continue;
        }
        CheckSaveFolder({"BackUp_" + qstrMinute + ".zip"});
        QVERIFY(UnzipNames(Save() + "/BackUp_" + qstrMinute + ".zip").contains("FacePicture/later.jpg"));
        return;
    }
    QFAIL("two minute boundaries in a row");
}

void tst_BackUpRun::linksAreNotFollowed()
{
    QVERIFY(m_client->Make());
    QVERIFY(WriteFile(m_pDir->path() + "/elsewhere/secret.txt", "s"));
    QVERIFY(
        QFile::link(m_pDir->path() + "/elsewhere/secret.txt", m_client->Data() + "/FacePicture/link.jpg"));
    QVERIFY(QFile::link(m_pDir->path() + "/elsewhere", m_client->Data() + "/ElectronicMap/linked"));
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    QVERIFY(Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult));
    QStringList lstEntries = UnzipNames(Save() + "/" + Archives(Save()).value(0));
    lstEntries.sort();
    QCOMPARE(lstEntries, m_client->ExpectedEntries());
}

QTEST_GUILESS_MAIN(tst_BackUpRun)
#include "tst_BackUpRun.moc"
