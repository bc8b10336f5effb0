#include <memory>

#include <QTemporaryDir>
#include <QtTest>

#include "EngineTestSupport.h"
#include "FunctionUtil.h"

using namespace EngineTest;

namespace {

constexpr qint64 kBaseTime = 1700000000;

// Names of the listed files relative to the folder, in listing order.
QStringList Relative(const QString& _qstrFolder, const QList<QFileInfo>& _lstFiles)
{
    QStringList lstNames;
    for (const QFileInfo& info : _lstFiles) {
        lstNames << QDir(_qstrFolder).relativeFilePath(info.absoluteFilePath());
    }
    return lstNames;
}

} // namespace

class tst_FileHelpers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void listingOrderAndFilters_data();
    void listingOrderAndFilters();
    void patternMatchesTheEndOfTheSuffix();
    void hiddenFilesListedLinksNot();
    void missingOrEmptyFolderListsNothing();
    void fileSize_data();
    void fileSize();
    void copyProgress_data();
    void copyProgress();
    void copyOverwrite_data();
    void copyOverwrite();
    void copyKeepsTheTreeOrTheTopLevel();
    void copyReplacesEveryOccurrenceOfTheSource();
    void copyRefusesMissingSourceAndUncreatableTarget();

private:
    // p/ with files of known ages: a.json (oldest), sub/ (s2.txt, s1.json), b.ini, c.txt, README (newest).
    void MakeListingTree();
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_FileHelpers::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
}

void tst_FileHelpers::cleanup()
{
    m_pDir.reset();
}

void tst_FileHelpers::MakeListingTree()
{
    const QStringList lstFiles{"p/a.json", "p/b.ini", "p/c.txt", "p/README", "p/sub/s1.json", "p/sub/s2.txt"};
    for (const QString& qstrFile : lstFiles) {
        QVERIFY(WriteFile(Path(qstrFile), qstrFile.toUtf8()));
    }
    // Times are set once every file exists, since adding a file touches its folder.
    QVERIFY(SetModified(Path("p/a.json"), kBaseTime));
    QVERIFY(SetModified(Path("p/sub"), kBaseTime + 10));
    QVERIFY(SetModified(Path("p/b.ini"), kBaseTime + 20));
    QVERIFY(SetModified(Path("p/c.txt"), kBaseTime + 30));
    QVERIFY(SetModified(Path("p/README"), kBaseTime + 40));
    QVERIFY(SetModified(Path("p/sub/s1.json"), kBaseTime + 60));
    QVERIFY(SetModified(Path("p/sub/s2.txt"), kBaseTime + 50));
}

void tst_FileHelpers::listingOrderAndFilters_data()
{
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<bool>("topLevelOnly");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("everything, oldest first, a folder's files at its place")
        << QStringList() << false
        << QStringList{"a.json", "sub/s2.txt", "sub/s1.json", "b.ini", "c.txt", "README"};
    QTest::newRow("top level only") << QStringList() << true
                                    << QStringList{"a.json", "b.ini", "c.txt", "README"};
    QTest::newRow("json and ini on top, README once per pattern")
        << QStringList{"*.json", "*.ini"} << true << QStringList{"a.json", "b.ini", "README", "README"};
    QTest::newRow("json and ini below as well")
        << QStringList{"*.json", "*.ini"} << false
        << QStringList{"a.json", "sub/s1.json", "b.ini", "README", "README"};
    QTest::newRow("a file matching two patterns is listed twice")
        << QStringList{"*.json", "x.json"} << true << QStringList{"a.json", "a.json", "README", "README"};
}

void tst_FileHelpers::listingOrderAndFilters()
{
    QFETCH(QStringList, filters);
    QFETCH(bool, topLevelOnly);
    QFETCH(QStringList, expected);
    MakeListingTree();
    QCOMPARE(Relative(Path("p"), FunctionUtil::GetFileList(filters, Path("p"), topLevelOnly)), expected);
}

void tst_FileHelpers::patternMatchesTheEndOfTheSuffix()
{
    for (const char* pName : {"x.ini", "y.ni", "z.i", "w.ii", "v.INI", "u.json"}) {
        QVERIFY(WriteFile(Path("q/") + pName, "1"));
    }
    QStringList lstNames = Relative(Path("q"), FunctionUtil::GetFileList({"*.ini"}, Path("q"), true));
    lstNames.sort();
    QCOMPARE(lstNames, (QStringList{"x.ini", "y.ni", "z.i"}));
}

void tst_FileHelpers::hiddenFilesListedLinksNot()
{
    QVERIFY(WriteFile(Path("h/.hidden"), "h"));
    QVERIFY(WriteFile(Path("h/.cfg/inner.ini"), "i"));
    QVERIFY(WriteFile(Path("outside/target.txt"), "t"));
    QVERIFY(WriteFile(Path("outside/dir/deep.txt"), "d"));
    QVERIFY(QFile::link(Path("outside/target.txt"), Path("h/link.txt")));
    QVERIFY(QFile::link(Path("outside/dir"), Path("h/linkdir")));
    QStringList lstNames = Relative(Path("h"), FunctionUtil::GetFileList({}, Path("h"), false));
    lstNames.sort();
    QCOMPARE(lstNames, (QStringList{".cfg/inner.ini", ".hidden"}));
}

void tst_FileHelpers::missingOrEmptyFolderListsNothing()
{
    QVERIFY(FunctionUtil::GetFileList({}, Path("missing"), false).isEmpty());
    QCOMPARE(FunctionUtil::GetFileSize(Path("missing"), {}, false), qint64(0));
    // An empty path must not fall back to the working directory.
    QVERIFY(QDir::setCurrent(m_pDir->path()));
    QVERIFY(WriteFile(Path("in_cwd.txt"), "cwd"));
    QVERIFY(FunctionUtil::GetFileList({}, QString(), false).isEmpty());
}

void tst_FileHelpers::fileSize_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<bool>("topLevelOnly");
    QTest::addColumn<qint64>("expected");
    // Sizes: a.json 1, b.ini 22, c.txt 333, README 4444, sub/s1.json 55555.
    QTest::newRow("a plain file, filters ignored")
        << "s/c.txt" << QStringList{"*.json"} << true << qint64(333);
    QTest::newRow("a missing file") << "s/none.txt" << QStringList() << false << qint64(0);
    QTest::newRow("the whole tree") << "s" << QStringList() << false << qint64(1 + 22 + 333 + 4444 + 55555);
    QTest::newRow("top level") << "s" << QStringList() << true << qint64(1 + 22 + 333 + 4444);
    QTest::newRow("filtered, README counted twice")
        << "s" << QStringList{"*.json", "*.ini"} << true << qint64(1 + 22 + 2 * 4444);
}

void tst_FileHelpers::fileSize()
{
    QFETCH(QString, path);
    QFETCH(QStringList, filters);
    QFETCH(bool, topLevelOnly);
    QFETCH(qint64, expected);
    QVERIFY(WriteFile(Path("s/a.json"), QByteArray(1, 'a')));
    QVERIFY(WriteFile(Path("s/b.ini"), QByteArray(22, 'b')));
    QVERIFY(WriteFile(Path("s/c.txt"), QByteArray(333, 'c')));
    QVERIFY(WriteFile(Path("s/README"), QByteArray(4444, 'r')));
    QVERIFY(WriteFile(Path("s/sub/s1.json"), QByteArray(55555, 's')));
    QCOMPARE(FunctionUtil::GetFileSize(Path(path), filters, topLevelOnly), expected);
}

void tst_FileHelpers::copyProgress_data()
{
    QTest::addColumn<int>("fileCount");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("one") << 1 << QList<int>{100};
    QTest::newRow("three") << 3 << QList<int>{33, 66, 100};
    QTest::newRow("four") << 4 << QList<int>{25, 50, 75, 100};
    QList<int> lstEach;
    for (int i = 1; i <= 100; ++i) {
        lstEach << i;
    }
    QTest::newRow("three hundred, each value once") << 300 << lstEach;
}

void tst_FileHelpers::copyProgress()
{
    QFETCH(int, fileCount);
    QFETCH(QList<int>, expected);
    for (int i = 0; i < fileCount; ++i) {
        QVERIFY(WriteFile(Path(QString("src/d%1/f%2.txt").arg(i % 7).arg(i)), QByteArray::number(i)));
    }
    QList<int> lstSeen;
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst"), {}, false, false,
                                    [&lstSeen](int _iPercent) { lstSeen << _iPercent; }));
    QCOMPARE(lstSeen, expected);
    QCOMPARE(Snapshot(Path("dst")), Snapshot(Path("src")));
}

void tst_FileHelpers::copyOverwrite_data()
{
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<QByteArray>("expected");
    QTest::newRow("kept") << false << QByteArray("old");
    QTest::newRow("replaced") << true << QByteArray("new");
}

void tst_FileHelpers::copyOverwrite()
{
    QFETCH(bool, overwrite);
    QFETCH(QByteArray, expected);
    QVERIFY(WriteFile(Path("src/x.txt"), "new"));
    QVERIFY(WriteFile(Path("src/y.txt"), "fresh"));
    QVERIFY(WriteFile(Path("dst/x.txt"), "old"));
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst"), {}, false, overwrite, nullptr));
    QCOMPARE(ReadFile(Path("dst/x.txt")), expected);
    QCOMPARE(ReadFile(Path("dst/y.txt")), QByteArray("fresh"));
}

void tst_FileHelpers::copyKeepsTheTreeOrTheTopLevel()
{
    QVERIFY(WriteFile(Path("src/a.json"), "a"));
    QVERIFY(WriteFile(Path("src/b.txt"), "b"));
    QVERIFY(WriteFile(Path("src/sub/c.json"), "c"));
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("top/deeper/still"), {"*.json"}, true, true, nullptr));
    QCOMPARE(Snapshot(Path("top/deeper/still")), (QMap<QString, QByteArray>{{"a.json", "a"}}));
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("all"), {"*.json"}, false, true, nullptr));
    QCOMPARE(Snapshot(Path("all")),
             (QMap<QString, QByteArray>{{"a.json", "a"}, {"sub/", ""}, {"sub/c.json", "c"}}));
}

void tst_FileHelpers::copyReplacesEveryOccurrenceOfTheSource()
{
    // The source's own path, repeated below it: the text replacement changes both places.
    const QString qstrSource = Path("s");
    const QString qstrTarget = Path("t");
    QVERIFY(WriteFile(qstrSource + qstrSource + "/f.txt", "f"));
    QVERIFY(FunctionUtil::CopyFiles(qstrSource, qstrTarget, {}, false, true, nullptr));
    QCOMPARE(ReadFile(qstrTarget + qstrTarget + "/f.txt"), QByteArray("f"));
    QVERIFY(!QFileInfo::exists(qstrTarget + qstrSource + "/f.txt"));
}

void tst_FileHelpers::copyRefusesMissingSourceAndUncreatableTarget()
{
    QVERIFY(!FunctionUtil::CopyFiles(Path("missing"), Path("dst"), {}, false, true, nullptr));
    QVERIFY(!QFileInfo::exists(Path("dst")));
    QVERIFY(!FunctionUtil::CopyFiles(QString(), Path("dst"), {}, false, true, nullptr));
    QVERIFY(WriteFile(Path("src/a.txt"), "a"));
    QVERIFY(WriteFile(Path("plain.txt"), "p"));
    QVERIFY(!FunctionUtil::CopyFiles(Path("src"), Path("plain.txt/below"), {}, false, true, nullptr));
}

QTEST_GUILESS_MAIN(tst_FileHelpers)
#include "tst_FileHelpers.moc"
