#include <memory>

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_BackUpPresenter.h"
#include "EngineTestSupport.h"
#include "PackedArchiveCheck.h"

using namespace EngineTest;

namespace {

// Nothing here may take longer: hostile archives are refused from their directory.
constexpr qint64 kMaxMilliseconds = 5000;

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

} // namespace

class tst_ZipArchive : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void packAndUnpack();
    void emptyFoldersGiveAnEmptyArchive();
    void progressAndCancel_data();
    void progressAndCancel();
    void replacingArchiveAndRoot();
    void failuresAreLogged();
    void archiveCheck_data();
    void archiveCheck();
    void hostileArchives_data();
    void hostileArchives();
    void targetsInTheWay_data();
    void targetsInTheWay();
    void writeFailureLeavesNoPartialFile();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    int LogCount(const QString& _qstrNeedle) const
    {
        return LogLines(m_pDir->path()).filter(_qstrNeedle).size();
    }
    // Unpacking happens deep in box/, so that no climbing name of these archives gets past the
    // temporary folder; the log stays outside box/.
    QString Work(const QString& _qstrRelative) const
    {
        return Path("box/d1/d2/d3/d4/d5/d6/work/" + _qstrRelative);
    }
    // Unpacks work/<name>.zip within the time bound; box/ outside work/<name> must stay as it was.
    bool UnpackInSandbox(const QString& _qstrName);

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_ZipArchive::initTestCase()
{
    if (QStandardPaths::findExecutable("unzip").isEmpty()) {
        QSKIP("Info-ZIP unzip is needed as the independent reader");
    }
}

void tst_ZipArchive::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    QVERIFY(WriteFile(Path("box/sentinel.txt"), "outer"));
    QVERIFY(WriteFile(Path("box/d1/d2/d3/d4/d5/d6/sentinel.txt"), "inner"));
    QVERIFY(QDir().mkpath(Work("")));
}

bool tst_ZipArchive::UnpackInSandbox(const QString& _qstrName)
{
    // The root itself may change in any way; nothing else in box/ may.
    auto outside = [this, qstrRoot = "d1/d2/d3/d4/d5/d6/work/" + _qstrName + "/"]() {
        QMap<QString, QByteArray> mapFiles = Snapshot(Path("box"));
        for (auto it = mapFiles.begin(); it != mapFiles.end();) {
            it = it.key().startsWith(qstrRoot) ? mapFiles.erase(it) : std::next(it);
        }
        return mapFiles;
    };
    const QMap<QString, QByteArray> mapBefore = outside();
    QElapsedTimer timer;
    timer.start();
    const bool blResult = Presenter()->ZipToDir(Work(_qstrName + ".zip"), QDir::cleanPath(Work("")));
    const qint64 iElapsed = timer.elapsed();
    [&]() { QVERIFY2(iElapsed < kMaxMilliseconds, qPrintable(QString("%1 ms").arg(iElapsed))); }();
    [&]() { QCOMPARE(outside(), mapBefore); }();
    return blResult;
}

void tst_ZipArchive::packAndUnpack()
{
    // In listing order: oldest first, a folder's files at the place of the folder, which takes the time
    // of its last file. Sizes lie around the unpacker's block, stored (.jpg) and deflated; random data
    // deflates to stored blocks.
    const QList<QPair<QString, QByteArray>> lstFiles{{"oldest.txt", "oldest"},
                                                     {"mid/inner1.txt", QByteArray("inner1 ").repeated(500)},
                                                     {"mid/inner2.txt", QByteArray()},
                                                     {".hidden", "h"},
                                                     {".cfg/a.ini", "[a]"},
                                                     {"face.jpg", RandomBytes((1 << 20) + 1, 3)},
                                                     {"Db/block.db", QByteArray(1 << 20, 'b')},
                                                     {"Db/rows.db", QByteArray("row\n").repeated(1200000)},
                                                     {"sub/deeper/数据.json", "{}"},
                                                     {"noise.bin", RandomBytes(3 << 20, 5)}};
    QStringList lstNames;
    for (int i = 0; i < lstFiles.size(); ++i) {
        const QString& qstrName = lstFiles[i].first;
        lstNames << qstrName;
        QVERIFY(WriteFile(Path("S/" + qstrName), lstFiles[i].second));
        QVERIFY(SetModified(Path("S/" + qstrName), 1700000000 + i));
        QVERIFY(SetModified(Path("S/" + qstrName.section('/', 0, 0)), 1700000000 + i));
    }
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "X", nullptr));

    QCOMPARE(UnzipNames(Path("out/X.zip")), lstNames);
    QVERIFY(UnzipTestPasses(Path("out/X.zip")));
    QVERIFY(Presenter()->ZipToDir(Path("out/X.zip"), Path("D")));
    QCOMPARE(Snapshot(Path("D/X")), Snapshot(Path("S")));
}

void tst_ZipArchive::emptyFoldersGiveAnEmptyArchive()
{
    QVERIFY(QDir().mkpath(Path("S/a")) && QDir().mkpath(Path("S/b/c/d")));
    int iCalls = 0;
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "E", [&iCalls](int) { return ++iCalls, 0; }));
    QCOMPARE(iCalls, 0);
    QString qstrList;
    Unzip({"-l", Path("out/E.zip")}, &qstrList);
    QVERIFY2(qstrList.contains("zipfile is empty"), qPrintable(qstrList));
    QVERIFY(Presenter()->ZipToDir(Path("out/E.zip"), Path("D")));
    QVERIFY(QDir(Path("D/E")).isEmpty());
}

void tst_ZipArchive::progressAndCancel_data()
{
    QTest::addColumn<int>("fileCount");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("ten files") << 10 << 0 << QList<int>{10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    QTest::newRow("only -1 cancels") << 3 << -2 << QList<int>{33, 66, 100};
    QTest::newRow("-1 on the first call cancels") << 5 << -1 << QList<int>{20};
}

void tst_ZipArchive::progressAndCancel()
{
    QFETCH(int, fileCount);
    QFETCH(int, answer);
    QFETCH(QList<int>, expected);
    for (int i = 0; i < fileCount; ++i) {
        QVERIFY(WriteFile(Path(QString("S/d%1/f%2.txt").arg(i % 2).arg(i)), QByteArray(1000, char('a' + i))));
    }
    QList<int> lstSeen;
    const bool blDone = Presenter()->DirToZip(Path("S"), Path("out"), "P", [&lstSeen, answer](int _iPercent) {
        lstSeen << _iPercent;
        return answer;
    });
    QCOMPARE(blDone, answer != -1);
    QCOMPARE(lstSeen, expected);
    // A cancelled packing leaves no archive behind.
    QCOMPARE(UnzipNames(Path("out/P.zip")).size(), blDone ? expected.size() : 0);
    QCOMPARE(UnzipTestPasses(Path("out/P.zip")), blDone);
    const QString qstrSource = QFileInfo(Path("S")).absoluteFilePath();
    QCOMPARE(LogCount("DirToZipWriter canceled [ _qstrCurrentPath :" + qstrSource +
                      "; _qstrBasePath :" + qstrSource + "]"),
             blDone ? 0 : 1);
}

void tst_ZipArchive::replacingArchiveAndRoot()
{
    for (int i = 0; i < 20; ++i) {
        QVERIFY(WriteFile(Path(QString("Big/f%1.txt").arg(i)), QByteArray(5000, 'q')));
    }
    QVERIFY(WriteFile(Path("S/same.txt"), "abc"));
    QVERIFY(WriteFile(Path("S/sub/new.txt"), "defgh"));
    // The destination is created, parents included; an archive of the same name is replaced, not appended to.
    QVERIFY(Presenter()->DirToZip(Path("Big"), Path("x/y/z"), "R", nullptr));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("x/y/z"), "R", nullptr));
    QStringList lstNames = UnzipNames(Path("x/y/z/R.zip"));
    lstNames.sort();
    QCOMPARE(lstNames, (QStringList{"same.txt", "sub/new.txt"}));
    QVERIFY(UnzipTestPasses(Path("x/y/z/R.zip")));
    QCOMPARE(Presenter()->GetZipSize(Path("x/y/z/R.zip")), qint64(8));

    // Unpacking over an existing root writes over files of the same names and leaves the others.
    QVERIFY(WriteFile(Path("D/R/same.txt"), "old content, longer than the new one"));
    QVERIFY(WriteFile(Path("D/R/other.txt"), "untouched"));
    QVERIFY(Presenter()->ZipToDir(Path("x/y/z/R.zip"), Path("D")));
    QCOMPARE(Snapshot(Path("D/R")),
             (QMap<QString, QByteArray>{
                 {"same.txt", "abc"}, {"other.txt", "untouched"}, {"sub/", ""}, {"sub/new.txt", "defgh"}}));
}

void tst_ZipArchive::failuresAreLogged()
{
    QVERIFY(WriteFile(Path("S/a.txt"), "a"));
    QVERIFY(WriteFile(Path("plain.txt"), "p"));
    QVERIFY(!Presenter()->DirToZip(Path("missing"), Path("out"), "M", nullptr));
    QVERIFY(!Presenter()->ZipToDir(Path("none.zip"), Path("D")));
    QVERIFY(!QFileInfo::exists(Path("out")) && !QFileInfo::exists(Path("D")));
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("plain.txt/out"), "M", nullptr));
    // A folder in the archive's place: the writer reports that only in its status.
    QVERIFY(QDir().mkpath(Path("out/W.zip")));
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("out"), "W", nullptr));
    QCOMPARE(Presenter()->GetZipSize(Path("none.zip")), qint64(0));
    // A claim of 2^50 bytes is refused, not summed.
    const QString qstrHuge = QFINDTESTDATA("data/zip64_2pow50_deflated.zip");
    QCOMPARE(Presenter()->GetZipSize(qstrHuge), qint64(0));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "F", nullptr));
    QVERIFY(!Presenter()->ZipToDir(Path("out/F.zip"), Path("plain.txt/D")));
    for (const QString& qstrLine :
         {"DirToZip failed File: [SourcePath " + Path("missing") + " didn't Exist",
          "ZipToDir failed Zip didn't exist [_qstrZipName " + Path("none.zip"),
          " DirToZip failed CreateDir failed [_qstrDirDestination " + Path("plain.txt/out"),
          " DirToZip failed write failed [_qstrZipName " + Path("out/W.zip"),
          "GetZipSize failed Zip didn't exist [_qstrZipName " + Path("none.zip"),
          "GetZipSize failed archive unreadable [_qstrZipName " + qstrHuge + "] entry huge.db claims",
          "ZipToDir failed dirDestination create failed [_qstrDirPath " + Path("plain.txt/D")}) {
        QVERIFY2(LogCount(qstrLine) == 1, qPrintable(qstrLine));
    }
}

void tst_ZipArchive::archiveCheck_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<int>("expected");
    QTest::newRow("complete") << "" << int(ARCHIVE_COMPLETE);
    QTest::newRow("a packed file is missing") << "extra name" << int(ARCHIVE_INCOMPLETE);
    QTest::newRow("names differ") << "renamed" << int(ARCHIVE_INCOMPLETE);
    QTest::newRow("cut short") << "truncate" << int(ARCHIVE_INCOMPLETE);
}

void tst_ZipArchive::archiveCheck()
{
    QFETCH(QString, damage);
    QFETCH(int, expected);
    QVERIFY(WriteFile(Path("S/.top"), "t"));
    QVERIFY(WriteFile(Path("S/Db/main_backup.db"), QByteArray(3000, 'd')));
    QStringList lstNames;
    QVERIFY(Presenter()->PackFolder(Path("S"), Path("out"), "V", nullptr, false, &lstNames));
    QCOMPARE(QSet<QString>(lstNames.begin(), lstNames.end()), (QSet<QString>{".top", "Db/main_backup.db"}));
    QFile archive(Path("out/V.zip"));
    if (damage == "extra name") {
        lstNames << "lost.txt";
    } else if (damage == "renamed") {
        lstNames[1] = "Db/other.db";
    } else if (damage == "truncate") {
        QVERIFY(archive.resize(archive.size() - 30));
    }
    QString qstrDetail;
    QCOMPARE(int(CheckPackedArchive(Path("out/V.zip"), lstNames, qstrDetail)), expected);
    QCOMPARE(qstrDetail.isEmpty(), expected == ARCHIVE_COMPLETE);
}

void tst_ZipArchive::hostileArchives_data()
{
    // One row for each way out; the engine's own suite holds every hostile archive.
    QTest::addColumn<QString>("fixture");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("logged"); // <zip>: the archive's path
    QTest::newRow("names that climb out") << "zip_slip" << true << QStringList{"good/", "good/ok.txt"}
                                          << "ZipToDir passed over entry [../slip_parent.txt] name leads out";
    QTest::newRow("truncated")
        << "truncated" << false << QStringList()
        << "ZipToDir failed archive unreadable [_qstrZipName <zip>] no end of central directory";
    QTest::newRow("2^50 bytes claimed")
        << "zip64_2pow50_deflated" << false << QStringList() << "more than deflate gives";
    QTest::newRow("damaged entry")
        << "deflated_bad_crc" << false << QStringList()
        << "ZipToDir failed entry [big.db] CRC-32 check failed: 3145729 bytes read, "
           "3145729 recorded [_qstrZipName <zip>";
}

void tst_ZipArchive::hostileArchives()
{
    QFETCH(QString, fixture);
    QFETCH(bool, expected);
    QFETCH(QStringList, files);
    QFETCH(QString, logged);
    const QString qstrFixture = QFINDTESTDATA("data/" + fixture + ".zip");
    QVERIFY(!qstrFixture.isEmpty());
    QVERIFY(QFile::copy(qstrFixture, Work(fixture + ".zip")));
    QCOMPARE(UnpackInSandbox(fixture), expected);
    // On failure the caller removes the root, whatever threads had written before the stop.
    if (expected) {
        QCOMPARE(Snapshot(Work(fixture)).keys(), files);
    }
    QVERIFY(!QFileInfo::exists("/hx_zip_slip_abs"));
    logged.replace("<zip>", Work(fixture + ".zip"));
    QVERIFY2(LogCount(logged) == 1, qPrintable(LogLines(m_pDir->path()).join('\n')));
}

void tst_ZipArchive::targetsInTheWay_data()
{
    QTest::addColumn<QString>("archive"); // a fixture; empty: two sound entries
    QTest::addColumn<QString>("inTheWay");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("logged");
    const QStringList lstCrc{
        "ZipToDir failed entry [config.json] CRC-32 check failed: 840 bytes read, 840 recorded"};
    // Damaged data fails the archive whatever stands at its target.
    QTest::newRow("an older file") << "flipped_byte"
                                   << "file" << QStringList() << lstCrc;
    QTest::newRow("a link that is passed over") << "flipped_byte"
                                                << "link" << QStringList{"config.json"} << lstCrc;
    // A root left over from before, holding links that lead out of it: nothing is written through them.
    QTest::newRow("links out of the root")
        << ""
        << "links" << QStringList{"sub", "top.txt"}
        << QStringList{"ZipToDir passed over entry [sub/x.txt]",
                       "ZipToDir passed over entry [top.txt] target is a symbolic link"};
}

void tst_ZipArchive::targetsInTheWay()
{
    QFETCH(QString, archive);
    QFETCH(QString, inTheWay);
    QFETCH(QStringList, files);
    QFETCH(QStringList, logged);
    if (archive.isEmpty()) {
        QVERIFY(WriteFile(Path("src/sub/x.txt"), "from the archive"));
        QVERIFY(WriteFile(Path("src/top.txt"), "from the archive"));
        QVERIFY(Presenter()->DirToZip(Path("src"), Work(""), "f", nullptr));
    } else {
        QVERIFY(QFile::copy(QFINDTESTDATA("data/" + archive + ".zip"), Work("f.zip")));
    }
    QVERIFY(QDir().mkpath(Work("f")));
    if (inTheWay == "file") {
        QVERIFY(WriteFile(Work("f/config.json"), "older"));
    } else if (inTheWay == "link") {
        QVERIFY(QFile::link(Path("box/sentinel.txt"), Work("f/config.json")));
    } else {
        QVERIFY(QFile::link(Path("box/d1"), Work("f/sub")));
        QVERIFY(QFile::link(Path("box/sentinel.txt"), Work("f/top.txt")));
    }
    QCOMPARE(UnpackInSandbox("f"), archive.isEmpty());
    QCOMPARE(Snapshot(Work("f")).keys(), files);
    for (const QString& qstrLine : logged) {
        QVERIFY2(LogCount(qstrLine) == 1, qPrintable(qstrLine));
    }
}

void tst_ZipArchive::writeFailureLeavesNoPartialFile()
{
    CLS_SmallVolume volume(Path("small"));
    if (!volume.IsMounted()) {
        QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
    }
    // 80 MB of zeros deflate to little and do not fit on the 64 MB volume.
    QVERIFY(WriteFile(Path("src/small.txt"), "fits"));
    QVERIFY(WriteFile(Path("src/zeros.bin"), QByteArray(80 << 20, '\0')));
    QVERIFY(Presenter()->DirToZip(Path("src"), Path(""), "full", nullptr));
    QVERIFY(!Presenter()->ZipToDir(Path("full.zip"), Path("small")));
    QVERIFY(!QFileInfo::exists(Path("small/full/zeros.bin")));
    QCOMPARE(LogCount("ZipToDir failed entry [zeros.bin] write failed: "), 1);
}

QTEST_GUILESS_MAIN(tst_ZipArchive)
#include "tst_ZipArchive.moc"
