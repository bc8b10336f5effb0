#include <memory>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ZipReader.h"
#include "CLS_ZipUnpacker.h"
#include "EngineTestSupport.h"
#include "PackedArchiveCheck.h"
#include "ZipTestSupport.h"

using namespace EngineTest;

// Entries and offsets past 4 GiB, in a suite of their own: they write gigabytes.
class tst_ZipLargeArchive : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void entriesPast4GiB_data();
    void entriesPast4GiB();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    QString Root() const { return Path("root"); }

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_ZipLargeArchive::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    QVERIFY(QDir().mkpath(Root()));
}

void tst_ZipLargeArchive::entriesPast4GiB_data()
{
    QTest::addColumn<bool>("stored");
    QTest::newRow("deflated, zip64 sizes") << false;
    QTest::newRow("stored, zip64 offsets in an archive over 4 GiB") << true;
}

void tst_ZipLargeArchive::entriesPast4GiB()
{
    QFETCH(bool, stored);
    if (!HasPython()) {
        QSKIP("python3 is needed as the independent writer");
    }
    // A sparse source keeps the writing cheap; the unpacked file is written whole.
    const qint64 iBig = (qint64(9) << 30) / 2;
    const QString qstrBig = stored ? "clip.mp4" : "clip.db";
    QFile source(Path("src/" + qstrBig));
    QVERIFY(QDir().mkpath(Path("src")) && source.open(QIODevice::WriteOnly) && source.resize(iBig));
    source.close();
    QVERIFY(WriteFile(Path("src/z_after.txt"), "after the big one"));
    QVERIFY(RunPython(kPythonZip, {Path("src"), Path("big.zip")}));
    QVERIFY(QFile::remove(source.fileName()));
    QCOMPARE(QFileInfo(Path("big.zip")).size() > (qint64(4) << 30), stored);

    QString qstrDetail;
    QCOMPARE(ZipUnpackedSize(Path("big.zip"), qstrDetail), iBig + 17);
    QCOMPARE(CheckPackedArchive(Path("big.zip"), {qstrBig, "z_after.txt"}, qstrDetail), ARCHIVE_COMPLETE);
    CLS_ZipUnpacker unpacker;
    QCOMPARE(unpacker.Unpack(Path("big.zip"), Root()), CLS_ZipUnpacker::UNPACKED);
    QCOMPARE(QFileInfo(Root() + "/" + qstrBig).size(), iBig);
    QCOMPARE(ReadFile(Root() + "/z_after.txt"), QByteArray("after the big one"));
}

QTEST_GUILESS_MAIN(tst_ZipLargeArchive)
#include "tst_ZipLargeArchive.moc"
