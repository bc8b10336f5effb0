#include <memory>

#include <QTemporaryDir>
#include <QtTest>
#include <private/qzipwriter_p.h>

#include "CLS_DBDaoC.h"
#include "ClientDataSupport.h"

using namespace EngineTest;

class tst_RecoverRun : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void backupComesBack();
    void sameFolderNameGoesToBothSources();
    void unmatchedFolderIsDropped();
    void badArchiveTouchesNothing_data();
    void badArchiveTouchesNothing();
    void missingArchive();
    void tooLittleSpaceToUnpack();
    void uncreatableTargetStopsAtOnce();
    void archiveWithoutBaseName();
    void folderOfTheArchiveNameIsLeftAlone();

private:
    QString Save() const { return m_pDir->path() + "/save"; }
    // A backup of the client data as it is now; its path.
    QString BackUp();
    // An archive written directly with the given entries; its path.
    QString WriteArchive(const QString& _qstrName, const QList<QPair<QString, QByteArray>>& _lstEntries);
    int LogCount(const QString& _qstrNeedle) const
    {
        return LogLines(m_client->Data()).filter(_qstrNeedle).size();
    }
    // The client's files, without what the host's own libraries write while the test runs.
    QMap<QString, QByteArray> LiveData() const;

    std::unique_ptr<QTemporaryDir> m_pDir;
    std::unique_ptr<CLS_ClientData> m_client;
};

void tst_RecoverRun::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    m_client = std::make_unique<CLS_ClientData>(m_pDir->path());
    qputenv("HX_DATA_PATH", m_client->Data().toUtf8());
    QVERIFY(QDir().mkpath(Save()));
}

void tst_RecoverRun::cleanup()
{
    CLS_DBDaoC::ClearPools();
    m_client.reset();
    m_pDir.reset();
}

QString tst_RecoverRun::BackUp()
{
    CLS_Recorder recorder;
    QVariantMap qmapResult;
    if (!Presenter()->BackUpData(Save(), QVariantMap(), recorder.CallBack(), qmapResult)) {
        return QString();
    }
    const QStringList lstArchives = Archives(Save());
    return lstArchives.size() == 1 ? Save() + "/" + lstArchives.first() : QString();
}

QString tst_RecoverRun::WriteArchive(const QString& _qstrName,
                                     const QList<QPair<QString, QByteArray>>& _lstEntries)
{
    const QString qstrZip = Save() + "/" + _qstrName;
    QZipWriter writer(qstrZip);
    for (const auto& entry : _lstEntries) {
        writer.addFile(entry.first, entry.second);
    }
    return qstrZip;
}

QMap<QString, QByteArray> tst_RecoverRun::LiveData() const
{
    QMap<QString, QByteArray> mapFiles = Snapshot(m_pDir->path());
    for (auto it = mapFiles.begin(); it != mapFiles.end();) {
        const bool blHost = it.key().startsWith("data/Log/") || it.key() == "data/HxParam.json" ||
                            it.key().startsWith("save/");
        it = blHost ? mapFiles.erase(it) : std::next(it);
    }
    return mapFiles;
}

void tst_RecoverRun::backupComesBack()
{
    QVERIFY(m_client->Make());
    const QString qstrZip = BackUp();
    QVERIFY(!qstrZip.isEmpty());

    QVERIFY(WriteFile(m_client->Data() + "/a.json", "{\"a\": 2}"));
    QVERIFY(QFile::remove(m_client->Data() + "/FacePicture/f1.jpg"));
    QVERIFY(QDir(m_client->Downloads()).removeRecursively());
    QVERIFY(WriteFile(m_client->Data() + "/Db/main.db", "changed since"));

    QVERIFY(Presenter()->RecoverData(qstrZip));
    QCOMPARE(ReadFile(m_client->Data() + "/a.json"), QByteArray("{\"a\": 1}"));
    QCOMPARE(ReadFile(m_client->Data() + "/FacePicture/f1.jpg"), QByteArray("FacePicture content"));
    QCOMPARE(ReadFile(m_client->Downloads() + "/clip.mp4"), QByteArray("Downloads content"));
    // Databases come back beside the live files, for the host to take up; the live file is left alone.
    QCOMPARE(ReadFile(m_client->Data() + "/Db/main_backup.db"), QByteArray("main database"));
    QCOMPARE(ReadFile(m_client->Data() + "/Db/main.db"), QByteArray("changed since"));

    // The unpack root is gone, the archive stays.
    QCOMPARE(QDir(Save()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{QFileInfo(qstrZip).fileName()});
    QVERIFY(LogCount(" RecoverData CopyFile success [filepath : " + m_client->Data()) >= 1);
    QCOMPARE(LogCount(" RecoverData CopyFile failed"), 0);
}

void tst_RecoverRun::sameFolderNameGoesToBothSources()
{
    // Both of the user's folders are named Shared; the backup merges them into one folder.
    QVERIFY(m_client->Make({"Downloads", "Pictures"}));
    const QString qstrDown = m_pDir->path() + "/x/Shared";
    const QString qstrPics = m_pDir->path() + "/y/Shared";
    QVERIFY(m_client->Configure(qstrDown, qstrPics));
    QVERIFY(WriteFile(qstrDown + "/from_downloads.txt", "d"));
    QVERIFY(WriteFile(qstrPics + "/from_pictures.txt", "p"));
    const QString qstrZip = BackUp();
    QVERIFY(!qstrZip.isEmpty());
    QVERIFY(QDir(m_pDir->path() + "/x").removeRecursively());
    QVERIFY(QDir(m_pDir->path() + "/y").removeRecursively());

    QVERIFY(Presenter()->RecoverData(qstrZip));
    const QMap<QString, QByteArray> mapBoth{{"from_downloads.txt", "d"}, {"from_pictures.txt", "p"}};
    QCOMPARE(Snapshot(qstrDown), mapBoth);
    QCOMPARE(Snapshot(qstrPics), mapBoth);
    QCOMPARE(LogCount(" RecoverData CopyFile success [filepath : " + qstrDown), 1);
    QCOMPARE(LogCount(" RecoverData CopyFile success [filepath : " + qstrPics), 1);
}

void tst_RecoverRun::unmatchedFolderIsDropped()
{
    QVERIFY(m_client->Make());
    const QString qstrZip =
        WriteArchive("BackUp_2024_01_31_08_05.zip", {{"Moved/x.txt", "x"}, {"FacePicture/n.jpg", "n"}});
    const QMap<QString, QByteArray> mapBefore = LiveData();
    QVERIFY(Presenter()->RecoverData(qstrZip));
    QMap<QString, QByteArray> mapExpected = mapBefore;
    mapExpected.insert("data/FacePicture/n.jpg", "n");
    QCOMPARE(LiveData(), mapExpected);
    QVERIFY(!QFileInfo::exists(Save() + "/BackUp_2024_01_31_08_05"));
}

void tst_RecoverRun::badArchiveTouchesNothing_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::newRow("truncated") << "truncated";
    QTest::newRow("flipped byte") << "flipped_byte";
    QTest::newRow("claims 3 GiB") << "claims_3gib";
    QTest::newRow("compressed size of 3 GiB") << "compressed_3gib";
    QTest::newRow("inflates past its size") << "inflates_past_size";
    QTest::newRow("empty file") << "";
    QTest::newRow("random bytes") << "random";
}

void tst_RecoverRun::badArchiveTouchesNothing()
{
    QFETCH(QString, fixture);
    QVERIFY(m_client->Make());
    // A sound backup whose later part is damaged: its Db entry comes first and must not come back.
    const QString qstrZip = Save() + "/BackUp_2024_01_31_08_05.zip";
    if (fixture.isEmpty()) {
        QVERIFY(WriteFile(qstrZip, QByteArray()));
    } else if (fixture == "random") {
        QByteArray qbaRandom(4096, '\0');
        QRandomGenerator random(3);
        for (char& c : qbaRandom) {
            c = char(random.bounded(256));
        }
        QVERIFY(WriteFile(qstrZip, qbaRandom));
    } else {
        QVERIFY(QFile::copy(QFINDTESTDATA("data/" + fixture + ".zip"), qstrZip));
    }
    const QMap<QString, QByteArray> mapBefore = LiveData();
    QVERIFY(!Presenter()->RecoverData(qstrZip));
    QCOMPARE(LiveData(), mapBefore);
    QCOMPARE(LogCount(" RecoverData failed  ZipToDir failed  [filepath : " + qstrZip), 1);
    QCOMPARE(QDir(Save()).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
             QStringList{"BackUp_2024_01_31_08_05.zip"});
}

void tst_RecoverRun::missingArchive()
{
    QVERIFY(!Presenter()->RecoverData(Save() + "/none.zip"));
    QVERIFY(!Presenter()->RecoverData(QString()));
    QCOMPARE(LogCount("RecoverData"), 0);
}

void tst_RecoverRun::tooLittleSpaceToUnpack()
{
    QVERIFY(m_client->Make());
    const QString qstrZip = BackUp();
    QVERIFY(!qstrZip.isEmpty());
    const QString qstrSmall = m_pDir->path() + "/small";
    CLS_SmallVolume volume(qstrSmall);
    if (!volume.IsMounted()) {
        QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
    }
    QVERIFY(QFile::copy(qstrZip, qstrSmall + "/copy.zip"));
    QVERIFY(WriteFile(m_client->Data() + "/a.json", "changed"));
    QVERIFY(!Presenter()->RecoverData(qstrSmall + "/copy.zip"));
    QCOMPARE(LogCount(" RecoverData failed  NonAvailableStorage  [filepath : " + qstrSmall), 1);
    QCOMPARE(QDir(qstrSmall).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"copy.zip"});
    QCOMPARE(ReadFile(m_client->Data() + "/a.json"), QByteArray("changed"));
}

void tst_RecoverRun::uncreatableTargetStopsAtOnce()
{
    QVERIFY(m_client->Make({"Downloads", "Pictures"}));
    QVERIFY(WriteFile(m_pDir->path() + "/plain.txt", "p"));
    QVERIFY(m_client->Configure(m_pDir->path() + "/plain.txt/Pictures", m_client->Pictures()));
    const QString qstrZip = WriteArchive("BackUp_2024_01_31_08_05.zip", {{"Pictures/p.jpg", "p"}});
    QVERIFY(!Presenter()->RecoverData(qstrZip));
    QCOMPARE(LogCount(" RecoverData CopyFile failed dirRecover create failed [filepath : " + m_pDir->path() +
                      "/plain.txt/Pictures"),
             1);
    // Stopped before the second source of the same name was reached.
    QVERIFY(!QFileInfo::exists(m_client->Pictures()));
    QVERIFY(!QFileInfo::exists(Save() + "/BackUp_2024_01_31_08_05"));
}

void tst_RecoverRun::archiveWithoutBaseName()
{
    // Its unpack root would be the folder that holds it.
    const QString qstrZip = WriteArchive(".zip", {{"save/x.txt", "x"}});
    QVERIFY(WriteFile(Save() + "/keep.txt", "keep"));
    QVERIFY(!Presenter()->RecoverData(qstrZip));
    QCOMPARE(ReadFile(Save() + "/keep.txt"), QByteArray("keep"));
    QVERIFY(QFileInfo::exists(qstrZip));
}

void tst_RecoverRun::folderOfTheArchiveNameIsLeftAlone()
{
    // A folder of the user's beside the archive, named like it: never a place to unpack into and delete.
    QVERIFY(m_client->Make());
    const QString qstrZip =
        WriteArchive("Documents.zip", {{"FacePicture/n.jpg", "n"}, {"Documents/x.txt", "x"}});
    QVERIFY(WriteFile(Save() + "/Documents/FacePicture/mine.jpg", "mine"));
    const QMap<QString, QByteArray> mapMine = Snapshot(Save() + "/Documents");
    QVERIFY(Presenter()->RecoverData(qstrZip));
    QCOMPARE(Snapshot(Save() + "/Documents"), mapMine);
    QCOMPARE(ReadFile(m_client->Data() + "/FacePicture/n.jpg"), QByteArray("n"));
    QStringList lstSave = QDir(Save()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    lstSave.sort();
    QCOMPARE(lstSave, (QStringList{"Documents", "Documents.zip"}));
}

QTEST_GUILESS_MAIN(tst_RecoverRun)
#include "tst_RecoverRun.moc"
