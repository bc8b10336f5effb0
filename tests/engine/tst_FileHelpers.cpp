#include <memory>
#include <stdexcept>

#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include "EngineTestSupport.h"
#include "FunctionUtil.h"

using namespace EngineTest;

class tst_FileHelpers : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void listing_data();
    void listing();
    void copyProgress_data();
    void copyProgress();
    void copyFiltersDepthAndOverwrite_data();
    void copyFiltersDepthAndOverwrite();
    void copyRefusesMissingSourceAndUncreatableTarget();
    void copiesAreWholeWithTheirPermissions_data();
    void copiesAreWholeWithTheirPermissions();
    void copyManyFilesOnWorkers_data();
    void copyManyFilesOnWorkers();
    void copyStopsCleanlyWhenProgressThrows();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    QMap<QString, QByteArray> MakeManyFiles(int _iCount);

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_FileHelpers::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
}

void tst_FileHelpers::listing_data()
{
    QTest::addColumn<QString>("folder");
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<bool>("topLevelOnly");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("oldest first, a folder's files at its place, hidden files but no links")
        << "p" << QStringList() << false
        << QStringList{"a.json", "sub/s2.txt", "sub/s1.json", "b.ini", ".y.ni", "c.txt", "e.INI", "README"};
    QTest::newRow("top level only") << "p" << QStringList() << true
                                    << QStringList{"a.json", "b.ini", ".y.ni", "c.txt", "e.INI", "README"};
    QTest::newRow("suffix matched by its end, README once per pattern")
        << "p" << QStringList{"*.json", "*.ini"} << true
        << QStringList{"a.json", "b.ini", ".y.ni", "README", "README"};
    QTest::newRow("filters below as well")
        << "p" << QStringList{"*.json", "*.ini"} << false
        << QStringList{"a.json", "sub/s1.json", "b.ini", ".y.ni", "README", "README"};
    QTest::newRow("a file matching two patterns is listed twice")
        << "p" << QStringList{"*.json", "x.json"} << true
        << QStringList{"a.json", "a.json", "README", "README"};
    QTest::newRow("missing folder") << "missing" << QStringList() << false << QStringList();
    QTest::newRow("an empty path is not the working directory")
        << "" << QStringList() << false << QStringList();
}

void tst_FileHelpers::listing()
{
    QFETCH(QString, folder);
    QFETCH(QStringList, filters);
    QFETCH(bool, topLevelOnly);
    QFETCH(QStringList, expected);
    // Times are set once every file exists, since adding a file touches its folder.
    const QStringList lstOrder{"a.json", "sub",    "b.ini",      ".y.ni",      "c.txt",
                               "e.INI",  "README", "sub/s2.txt", "sub/s1.json"};
    for (const QString& qstrFile : lstOrder) {
        QVERIFY(qstrFile == "sub" || WriteFile(Path("p/" + qstrFile), qstrFile.toUtf8()));
    }
    for (int i = 0; i < lstOrder.size(); ++i) {
        QVERIFY(SetModified(Path("p/" + lstOrder[i]), 1700000000 + 10 * i));
    }
    QVERIFY(WriteFile(Path("outside/dir/deep.txt"), "d"));
    QVERIFY(QFile::link(Path("outside/dir/deep.txt"), Path("p/link.txt")));
    QVERIFY(QFile::link(Path("outside/dir"), Path("p/linkdir")));
    QVERIFY(QDir::setCurrent(m_pDir->path()));

    const QString qstrFolder = folder.isEmpty() ? QString() : Path(folder);
    QStringList lstNames;
    for (const QFileInfo& info : FunctionUtil::GetFileList(filters, qstrFolder, topLevelOnly)) {
        lstNames << QDir(Path("p")).relativeFilePath(info.absoluteFilePath());
    }
    QCOMPARE(lstNames, expected);

    // A folder's size is that of its listing, duplicates included; a plain file's its own, whatever the
    // filters.
    qint64 iSize = 0;
    for (const QString& qstrName : expected) {
        iSize += QFileInfo(Path("p/" + qstrName)).size();
    }
    QCOMPARE(FunctionUtil::GetFileSize(qstrFolder, filters, topLevelOnly), iSize);
    QCOMPARE(FunctionUtil::GetFileSize(Path("p/c.txt"), {"*.json"}, true), qint64(5));
}

void tst_FileHelpers::copyProgress_data()
{
    QTest::addColumn<int>("fileCount");
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("three") << 3 << QStringList() << QList<int>{33, 66, 100};
    QTest::newRow("four") << 4 << QStringList() << QList<int>{25, 50, 75, 100};
    QTest::newRow("three listed twice count six")
        << 3 << QStringList{"*.txt", "x.txt"} << QList<int>{16, 33, 50, 66, 83, 100};
    QList<int> lstEach;
    for (int i = 1; i <= 100; ++i) {
        lstEach << i;
    }
    QTest::newRow("three hundred, each value once") << 300 << QStringList() << lstEach;
}

void tst_FileHelpers::copyProgress()
{
    QFETCH(int, fileCount);
    QFETCH(QStringList, filters);
    QFETCH(QList<int>, expected);
    for (int i = 0; i < fileCount; ++i) {
        QVERIFY(WriteFile(Path(QString("src/d%1/f%2.txt").arg(i % 7).arg(i)), QByteArray::number(i)));
    }
    QList<int> lstSeen;
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst/deeper"), filters, false, false,
                                    [&lstSeen](int _iPercent) { lstSeen << _iPercent; }));
    QCOMPARE(lstSeen, expected);
    QCOMPARE(Snapshot(Path("dst/deeper")), Snapshot(Path("src")));
}

void tst_FileHelpers::copyFiltersDepthAndOverwrite_data()
{
    QTest::addColumn<bool>("topLevelOnly");
    QTest::addColumn<bool>("overwrite");
    QTest::addColumn<QByteArray>("top");
    QTest::newRow("top level, existing file kept") << true << false << QByteArray("old");
    QTest::newRow("top level, existing file replaced") << true << true << QByteArray("a");
    QTest::newRow("whole tree") << false << true << QByteArray("a");
}

void tst_FileHelpers::copyFiltersDepthAndOverwrite()
{
    QFETCH(bool, topLevelOnly);
    QFETCH(bool, overwrite);
    QFETCH(QByteArray, top);
    QVERIFY(WriteFile(Path("src/a.json"), "a"));
    QVERIFY(WriteFile(Path("src/b.txt"), "b"));
    QVERIFY(WriteFile(Path("src/new.json"), "new"));
    QVERIFY(WriteFile(Path("src/sub/c.json"), "c"));
    QVERIFY(WriteFile(Path("dst/a.json"), "old"));
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst"), {"*.json"}, topLevelOnly, overwrite, nullptr));
    QMap<QString, QByteArray> mapExpected{{"a.json", top}, {"new.json", "new"}};
    if (!topLevelOnly) {
        mapExpected.insert("sub/", "");
        mapExpected.insert("sub/c.json", "c");
    }
    QCOMPARE(Snapshot(Path("dst")), mapExpected);
}

void tst_FileHelpers::copyRefusesMissingSourceAndUncreatableTarget()
{
    QVERIFY(!FunctionUtil::CopyFiles(Path("missing"), Path("dst"), {}, false, true, nullptr));
    QVERIFY(!FunctionUtil::CopyFiles(QString(), Path("dst"), {}, false, true, nullptr));
    QVERIFY(!QFileInfo::exists(Path("dst")));
    QVERIFY(WriteFile(Path("src/a.txt"), "a"));
    QVERIFY(WriteFile(Path("plain.txt"), "p"));
    QVERIFY(!FunctionUtil::CopyFiles(Path("src"), Path("plain.txt/below"), {}, false, true, nullptr));
}

void tst_FileHelpers::copiesAreWholeWithTheirPermissions_data()
{
    QTest::addColumn<bool>("otherVolume");
    QTest::newRow("same volume") << false;
    // /dev/shm is another file system, where the kernel's copy between files is refused.
    QTest::newRow("another volume") << true;
}

void tst_FileHelpers::copiesAreWholeWithTheirPermissions()
{
    QFETCH(bool, otherVolume);
    QTemporaryDir shm("/dev/shm/tst_FileHelpers-XXXXXX");
    if (otherVolume && !shm.isValid()) {
        QSKIP("no /dev/shm here");
    }
    const QString qstrTarget = otherVolume ? shm.path() + "/dst" : Path("dst");
    QMap<QString, QByteArray> mapFiles;
    for (const int iSize : {0, 1, (1 << 20) + 3, 3 << 20}) {
        QByteArray qbaData(iSize, Qt::Uninitialized);
        for (int i = 0; i < iSize; ++i) {
            qbaData[i] = char((i * 131) ^ (i >> 9));
        }
        const QString qstrName = QString("sizes/f%1.bin").arg(iSize);
        QVERIFY(WriteFile(Path("src/" + qstrName), qbaData));
        mapFiles.insert(qstrName, qbaData);
    }
    QFile::setPermissions(Path("src/sizes/f1.bin"), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    QVERIFY(FunctionUtil::CopyFiles(Path("src/sizes"), qstrTarget, {}, false, true, nullptr));
    QCOMPARE(QDir(qstrTarget).entryList(QDir::Files | QDir::Hidden).size(), mapFiles.size());
    for (auto it = mapFiles.cbegin(); it != mapFiles.cend(); ++it) {
        QCOMPARE(ReadFile(qstrTarget + "/" + it.key().mid(6)), it.value());
    }
    QCOMPARE(QFile::permissions(qstrTarget + "/f1.bin"), QFile::permissions(Path("src/sizes/f1.bin")));
}

// Small files of many sizes in a few folders, every other one a .json, and a few of several hundred KiB.
QMap<QString, QByteArray> tst_FileHelpers::MakeManyFiles(int _iCount)
{
    QMap<QString, QByteArray> mapFiles;
    for (int i = 0; i < _iCount; ++i) {
        const int iSize = i % 500 == 7 ? 300000 + i : (i * 37) % 5000;
        QByteArray qbaData(iSize, Qt::Uninitialized);
        for (int j = 0; j < iSize; ++j) {
            qbaData[j] = char(i + j * 7);
        }
        const QString qstrName = QString("d%1/f%2.%3").arg(i % 23).arg(i).arg(i % 2 ? "json" : "txt");
        mapFiles.insert(qstrName, qbaData);
        if (!WriteFile(Path("src/" + qstrName), qbaData)) {
            return {};
        }
    }
    return mapFiles;
}

static int ThreadCount()
{
    for (const QByteArray& qbaLine : ReadFile("/proc/self/status").split('\n')) {
        if (qbaLine.startsWith("Threads:")) {
            return qbaLine.mid(8).trimmed().toInt();
        }
    }
    return -1;
}

void tst_FileHelpers::copyManyFilesOnWorkers_data()
{
    QTest::addColumn<QStringList>("filters");
    QTest::addColumn<bool>("overwrite");
    QTest::newRow("an older copy replaced") << QStringList() << true;
    QTest::newRow("an older copy kept") << QStringList() << false;
    // Each .json is listed twice, so each is copied twice and counts twice.
    QTest::newRow("listed twice, older copy replaced") << QStringList{"*.json", "x.json"} << true;
    QTest::newRow("listed twice, older copy kept") << QStringList{"*.json", "x.json"} << false;
}

void tst_FileHelpers::copyManyFilesOnWorkers()
{
    QFETCH(QStringList, filters);
    QFETCH(bool, overwrite);
    const QMap<QString, QByteArray> mapSource = MakeManyFiles(2000);
    QVERIFY(!mapSource.isEmpty());
    QMap<QString, QByteArray> mapExpected;
    int iIndex = 0;
    for (auto it = mapSource.cbegin(); it != mapSource.cend(); ++it, ++iIndex) {
        const bool blListed = filters.isEmpty() || it.key().endsWith(".json");
        if (iIndex % 3 == 0) {
            QVERIFY(WriteFile(Path("dst/" + it.key()), "older " + it.key().toUtf8()));
            mapExpected.insert(it.key(), "older " + it.key().toUtf8());
        }
        if (blListed && (overwrite || !mapExpected.contains(it.key()))) {
            mapExpected.insert(it.key(), it.value());
        }
        if (mapExpected.contains(it.key())) {
            mapExpected.insert(it.key().section('/', 0, 0) + "/", QByteArray());
        }
    }
    const int iThreadsBefore = ThreadCount();

    QList<int> lstSeen;
    bool blAllOnCaller = true;
    QThread* pCaller = QThread::currentThread();
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst"), filters, false, overwrite,
                                    [&lstSeen, &blAllOnCaller, pCaller](int _iPercent) {
                                        lstSeen << _iPercent;
                                        blAllOnCaller = blAllOnCaller && QThread::currentThread() == pCaller;
                                    }));

    // At least a hundred listed files: every percentage once, in order.
    QList<int> lstEach;
    for (int i = 1; i <= 100; ++i) {
        lstEach << i;
    }
    QCOMPARE(lstSeen, lstEach);
    QVERIFY(blAllOnCaller);
    // Compared whole, so a leftover temporary file would show as well.
    QCOMPARE(Snapshot(Path("dst")), mapExpected);
    QTRY_COMPARE_WITH_TIMEOUT(ThreadCount(), iThreadsBefore, 5000);
}

void tst_FileHelpers::copyStopsCleanlyWhenProgressThrows()
{
    const QMap<QString, QByteArray> mapSource = MakeManyFiles(600);
    QVERIFY(!mapSource.isEmpty());
    const int iThreadsBefore = ThreadCount();
    bool blThrown = false;
    try {
        FunctionUtil::CopyFiles(Path("src"), Path("dst"), {}, false, false, [](int _iPercent) {
            if (_iPercent == 10) {
                throw std::runtime_error("stop");
            }
        });
    } catch (const std::runtime_error&) {
        blThrown = true;
    }
    QVERIFY(blThrown);
    QTRY_COMPARE_WITH_TIMEOUT(ThreadCount(), iThreadsBefore, 5000);
    // The ten percent reported were copied whole, and so is whatever the workers finished after.
    int iCopied = 0;
    for (auto it = mapSource.cbegin(); it != mapSource.cend(); ++it) {
        if (QFileInfo::exists(Path("dst/" + it.key()))) {
            QCOMPARE(ReadFile(Path("dst/" + it.key())), it.value());
            ++iCopied;
        }
    }
    QVERIFY(iCopied >= 60);
    QStringList lstStray;
    for (const QString& qstrName : Snapshot(Path("dst")).keys()) {
        if (!qstrName.endsWith('/') && !mapSource.contains(qstrName)) {
            lstStray << qstrName;
        }
    }
    QCOMPARE(lstStray, QStringList());
}

QTEST_GUILESS_MAIN(tst_FileHelpers)
#include "tst_FileHelpers.moc"
