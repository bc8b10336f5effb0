#include <memory>

#include <QTemporaryDir>
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

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }

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
    QTest::addColumn<QList<int>>("expected");
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
    QVERIFY(FunctionUtil::CopyFiles(Path("src"), Path("dst/deeper"), {}, false, false,
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

QTEST_GUILESS_MAIN(tst_FileHelpers)
#include "tst_FileHelpers.moc"
