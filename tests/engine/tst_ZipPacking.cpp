#include <memory>

#include <QTemporaryDir>
#include <QtTest>
#include <private/qzipreader_p.h>

#include "ArchiveCheck.h"
#include "CLS_BackUpPresenter.h"
#include "CLS_ZipDirectory.h"
#include "EngineTestSupport.h"
#include "ZipRules.h"

using namespace EngineTest;

namespace {

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

QStringList QtNames(const QString& _qstrZip)
{
    QZipReader reader(_qstrZip);
    QStringList lstNames;
    for (const QZipReader::FileInfo& info : reader.fileInfoList()) {
        lstNames << info.filePath;
    }
    return lstNames;
}

} // namespace

class tst_ZipPacking : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();
    void entriesRoundTrip();
    void entryOrderFollowsTheListing();
    void emptyFoldersGiveAnEmptyArchive_data();
    void emptyFoldersGiveAnEmptyArchive();
    void progressOncePerFile_data();
    void progressOncePerFile();
    void cancelOnFirstCallLeavesOneEntry();
    void onlyMinusOneCancels();
    void destinationIsCreated();
    void existingArchiveIsReplaced();
    void packingFailures();
    void compressedFormatsAreStored();
    void zipSize();
    void unpackOverAnExistingRoot();
    void hiddenTopLevelEntriesComeBackWhole();
    void unpackFailures();
    void archiveCheck_data();
    void archiveCheck();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    int LogCount(const QString& _qstrNeedle) const { return CountLogLines(m_pDir->path(), _qstrNeedle); }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_ZipPacking::initTestCase()
{
    if (!HasUnzip()) {
        QSKIP("Info-ZIP unzip is needed as the independent reader");
    }
}

void tst_ZipPacking::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
}

void tst_ZipPacking::cleanup()
{
    m_pDir.reset();
}

void tst_ZipPacking::entriesRoundTrip()
{
    QVERIFY(WriteFile(Path("S/a.txt"), "alpha"));
    QVERIFY(WriteFile(Path("S/sub/b.txt"), QByteArray(100000, 'b')));
    QVERIFY(WriteFile(Path("S/sub/deeper/数据.json"), "{}"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "X", nullptr));

    const QStringList lstExpected{"a.txt", "sub/b.txt", "sub/deeper/数据.json"};
    QStringList lstUnzip = UnzipNames(Path("out/X.zip"));
    QStringList lstQt = QtNames(Path("out/X.zip"));
    lstUnzip.sort();
    lstQt.sort();
    QCOMPARE(lstUnzip, lstExpected);
    QCOMPARE(lstQt, lstExpected);
    QVERIFY(UnzipTestPasses(Path("out/X.zip")));

    QVERIFY(Presenter()->ZipToDir(Path("out/X.zip"), Path("D")));
    QCOMPARE(Snapshot(Path("D/X")), Snapshot(Path("S")));
}

void tst_ZipPacking::entryOrderFollowsTheListing()
{
    QVERIFY(WriteFile(Path("S/newest.txt"), "n"));
    QVERIFY(WriteFile(Path("S/oldest.txt"), "o"));
    QVERIFY(WriteFile(Path("S/mid/inner2.txt"), "2"));
    QVERIFY(WriteFile(Path("S/mid/inner1.txt"), "1"));
    QVERIFY(SetModified(Path("S/oldest.txt"), 1700000000));
    QVERIFY(SetModified(Path("S/mid"), 1700000100));
    QVERIFY(SetModified(Path("S/mid/inner1.txt"), 1700000200));
    QVERIFY(SetModified(Path("S/mid/inner2.txt"), 1700000300));
    QVERIFY(SetModified(Path("S/newest.txt"), 1700000400));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "X", nullptr));
    const QStringList lstExpected{"oldest.txt", "mid/inner1.txt", "mid/inner2.txt", "newest.txt"};
    QCOMPARE(UnzipNames(Path("out/X.zip")), lstExpected);
    QCOMPARE(QtNames(Path("out/X.zip")), lstExpected);
}

void tst_ZipPacking::emptyFoldersGiveAnEmptyArchive_data()
{
    QTest::addColumn<QStringList>("folders");
    QTest::newRow("empty folder") << QStringList();
    QTest::newRow("only empty sub-folders") << QStringList{"a", "b/c/d"};
}

void tst_ZipPacking::emptyFoldersGiveAnEmptyArchive()
{
    QFETCH(QStringList, folders);
    QVERIFY(QDir().mkpath(Path("S")));
    for (const QString& qstrFolder : folders) {
        QVERIFY(QDir().mkpath(Path("S/" + qstrFolder)));
    }
    int iCalls = 0;
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "E", [&iCalls](int) { return ++iCalls, 0; }));
    QCOMPARE(iCalls, 0);
    const STRUCT_UnzipResult list = Unzip({"-l", Path("out/E.zip")});
    QVERIFY2(list.qstrOutput.contains("zipfile is empty"), qPrintable(list.qstrOutput));
    CLS_ZipDirectory directory;
    QVERIFY2(directory.Read(Path("out/E.zip")), qPrintable(directory.ErrorText()));
    QVERIFY(directory.Entries().isEmpty());
    QVERIFY(Presenter()->ZipToDir(Path("out/E.zip"), Path("D")));
    QVERIFY(QDir(Path("D/E")).isEmpty());
}

void tst_ZipPacking::progressOncePerFile_data()
{
    QTest::addColumn<int>("fileCount");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("ten") << 10 << QList<int>{10, 20, 30, 40, 50, 60, 70, 80, 90, 100};
    QTest::newRow("three") << 3 << QList<int>{33, 66, 100};
    QTest::newRow("one") << 1 << QList<int>{100};
}

void tst_ZipPacking::progressOncePerFile()
{
    QFETCH(int, fileCount);
    QFETCH(QList<int>, expected);
    for (int i = 0; i < fileCount; ++i) {
        QVERIFY(WriteFile(Path(QString("S/d%1/f%2.txt").arg(i % 2).arg(i)), QByteArray::number(i)));
    }
    QList<int> lstSeen;
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "P", [&lstSeen](int _iPercent) {
        lstSeen << _iPercent;
        return 0;
    }));
    QCOMPARE(lstSeen, expected);
    QCOMPARE(UnzipNames(Path("out/P.zip")).size(), fileCount);
}

void tst_ZipPacking::cancelOnFirstCallLeavesOneEntry()
{
    for (int i = 0; i < 5; ++i) {
        QVERIFY(WriteFile(Path(QString("S/f%1.txt").arg(i)), QByteArray(1000, char('a' + i))));
    }
    int iCalls = 0;
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("out"), "C", [&iCalls](int) { return ++iCalls, -1; }));
    QCOMPARE(iCalls, 1);
    QCOMPARE(UnzipNames(Path("out/C.zip")).size(), 1);
    QVERIFY(UnzipTestPasses(Path("out/C.zip")));
    const QString qstrSource = QFileInfo(Path("S")).absoluteFilePath();
    QCOMPARE(LogCount("DirToZipWriter canceled [ _qstrCurrentPath :" + qstrSource +
                      "; _qstrBasePath :" + qstrSource + "]"),
             1);
}

void tst_ZipPacking::onlyMinusOneCancels()
{
    for (int i = 0; i < 4; ++i) {
        QVERIFY(WriteFile(Path(QString("S/f%1.txt").arg(i)), "x"));
    }
    for (int iAnswer : {0, 1, -2, 100, 2147483647}) {
        const QString qstrName = QString("A%1").arg(iAnswer);
        QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), qstrName, [iAnswer](int) { return iAnswer; }));
        QCOMPARE(UnzipNames(Path("out/" + qstrName + ".zip")).size(), 4);
    }
}

void tst_ZipPacking::destinationIsCreated()
{
    QVERIFY(WriteFile(Path("S/a.txt"), "a"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("x/y/z"), "N", nullptr));
    QCOMPARE(UnzipNames(Path("x/y/z/N.zip")), QStringList{"a.txt"});
}

void tst_ZipPacking::existingArchiveIsReplaced()
{
    for (int i = 0; i < 20; ++i) {
        QVERIFY(WriteFile(Path(QString("Big/f%1.txt").arg(i)), QByteArray(5000, 'q')));
    }
    QVERIFY(WriteFile(Path("Small/only.txt"), "o"));
    QVERIFY(Presenter()->DirToZip(Path("Big"), Path("out"), "R", nullptr));
    QVERIFY(Presenter()->DirToZip(Path("Small"), Path("out"), "R", nullptr));
    QCOMPARE(UnzipNames(Path("out/R.zip")), QStringList{"only.txt"});
    QVERIFY(UnzipTestPasses(Path("out/R.zip")));
}

void tst_ZipPacking::packingFailures()
{
    QVERIFY(!Presenter()->DirToZip(Path("missing"), Path("out"), "M", nullptr));
    QCOMPARE(LogCount("DirToZip failed File: [SourcePath " + Path("missing") + " didn't Exist"), 1);
    QVERIFY(!QFileInfo::exists(Path("out")));

    QVERIFY(WriteFile(Path("S/a.txt"), "a"));
    QVERIFY(WriteFile(Path("plain.txt"), "p"));
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("plain.txt/out"), "M", nullptr));
    QCOMPARE(LogCount(" DirToZip failed CreateDir failed [_qstrDirDestination " + Path("plain.txt/out")), 1);

    // The archive's own name taken by a folder: the writer cannot open it, which it reports only in its
    // status.
    QVERIFY(QDir().mkpath(Path("out/W.zip")));
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("out"), "W", nullptr));
    QCOMPARE(LogCount(" DirToZip failed write failed [_qstrZipName " + Path("out/W.zip")), 1);
}

void tst_ZipPacking::compressedFormatsAreStored()
{
    QVERIFY(WriteFile(Path("S/face.jpg"), QByteArray(4000, 'j')));
    QVERIFY(WriteFile(Path("S/notes.txt"), QByteArray(4000, 't')));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "K", nullptr));
    const STRUCT_UnzipResult verbose = Unzip({"-v", Path("out/K.zip")});
    QCOMPARE(verbose.iExitCode, 0);
    QRegularExpression jpg("\\n\\s*4000\\s+Stored\\s+4000 .*face\\.jpg");
    QRegularExpression txt("\\n\\s*4000\\s+Defl:\\w\\s+\\d+ .*notes\\.txt");
    QVERIFY2(jpg.match(verbose.qstrOutput).hasMatch(), qPrintable(verbose.qstrOutput));
    QVERIFY2(txt.match(verbose.qstrOutput).hasMatch(), qPrintable(verbose.qstrOutput));
}

void tst_ZipPacking::zipSize()
{
    QVERIFY(WriteFile(Path("S/three.txt"), "abc"));
    QVERIFY(WriteFile(Path("S/sub/five.txt"), "defgh"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "Z", nullptr));
    QCOMPARE(Presenter()->GetZipSize(Path("out/Z.zip")), qint64(8));
    QCOMPARE(Presenter()->GetZipSize(Path("out/none.zip")), qint64(0));
    QCOMPARE(LogCount("GetZipSize failed Zip didn't exist [_qstrZipName " + Path("out/none.zip")), 1);
}

void tst_ZipPacking::unpackOverAnExistingRoot()
{
    QVERIFY(WriteFile(Path("S/same.txt"), "from archive"));
    QVERIFY(WriteFile(Path("S/sub/new.txt"), "new"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "U", nullptr));
    QVERIFY(WriteFile(Path("D/U/same.txt"), "old content, longer than the new one"));
    QVERIFY(WriteFile(Path("D/U/other.txt"), "untouched"));
    QVERIFY(Presenter()->ZipToDir(Path("out/U.zip"), Path("D")));
    QCOMPARE(
        Snapshot(Path("D/U")),
        (QMap<QString, QByteArray>{
            {"same.txt", "from archive"}, {"other.txt", "untouched"}, {"sub/", ""}, {"sub/new.txt", "new"}}));
}

void tst_ZipPacking::hiddenTopLevelEntriesComeBackWhole()
{
    // Qt's reader lists these without their leading "." and finds no data under the listed name.
    QVERIFY(WriteFile(Path("S/.hidden"), "secret"));
    QVERIFY(WriteFile(Path("S/.cfg/a.ini"), "[a]"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "H", nullptr));
    QZipReader reader(Path("out/H.zip"));
    QVERIFY(reader.fileData(reader.entryInfoAt(0).filePath).isEmpty());
    reader.close();
    QVERIFY(Presenter()->ZipToDir(Path("out/H.zip"), Path("D")));
    QCOMPARE(Snapshot(Path("D/H")), Snapshot(Path("S")));
}

void tst_ZipPacking::unpackFailures()
{
    QVERIFY(!Presenter()->ZipToDir(Path("none.zip"), Path("D")));
    QCOMPARE(LogCount("ZipToDir failed Zip didn't exist [_qstrZipName " + Path("none.zip")), 1);
    QVERIFY(!QFileInfo::exists(Path("D")));

    QVERIFY(WriteFile(Path("S/a.txt"), "a"));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "F", nullptr));
    QVERIFY(WriteFile(Path("plain.txt"), "p"));
    QVERIFY(!Presenter()->ZipToDir(Path("out/F.zip"), Path("plain.txt/D")));
    QCOMPARE(LogCount("ZipToDir failed dirDestination create failed [_qstrDirPath " + Path("plain.txt/D")),
             1);
}

void tst_ZipPacking::archiveCheck_data()
{
    QTest::addColumn<QString>("damage");
    QTest::addColumn<int>("expected");
    QTest::newRow("complete") << "" << int(ARCHIVE_COMPLETE);
    QTest::newRow("a packed file is missing") << "extra name" << int(ARCHIVE_INCOMPLETE);
    QTest::newRow("names differ") << "renamed" << int(ARCHIVE_INCOMPLETE);
    QTest::newRow("cut short") << "truncate" << int(ARCHIVE_INCOMPLETE);
    QTest::newRow("over 2 GiB") << "grow" << int(ARCHIVE_TOO_LARGE);
}

void tst_ZipPacking::archiveCheck()
{
    QFETCH(QString, damage);
    QFETCH(int, expected);
    QVERIFY(WriteFile(Path("S/.top"), "t"));
    QVERIFY(WriteFile(Path("S/Db/main_backup.db"), QByteArray(3000, 'd')));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("out"), "V", nullptr));
    QStringList lstNames = PackableEntryNames(Path("S"));
    QCOMPARE(lstNames.size(), 2);
    QFile archive(Path("out/V.zip"));
    if (damage == "extra name") {
        lstNames << "lost.txt";
    } else if (damage == "renamed") {
        lstNames[1] = "Db/other.db";
    } else if (damage == "truncate") {
        QVERIFY(archive.resize(archive.size() - 30));
    } else if (damage == "grow") {
        // Sparse: the size is what matters, not the bytes.
        QVERIFY(archive.resize(ZipRules::kMaxArchiveBytes + 1));
    }
    QString qstrDetail;
    QCOMPARE(int(CheckPackedArchive(Path("out/V.zip"), lstNames, qstrDetail)), expected);
    QCOMPARE(qstrDetail.isEmpty(), expected == ARCHIVE_COMPLETE);
}

QTEST_GUILESS_MAIN(tst_ZipPacking)
#include "tst_ZipPacking.moc"
