#include <algorithm>
#include <memory>

#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ZipLayout.h"
#include "CLS_ZipReader.h"
#include "CLS_ZipUnpacker.h"
#include "EngineTestSupport.h"
#include "EntryExtract.h"
#include "PackedArchiveCheck.h"
#include "ZipTestSupport.h"

using namespace EngineTest;

namespace {

// Every archive here is small or refused from its directory; none may take longer.
constexpr qint64 kMaxMilliseconds = 5000;

} // namespace

class tst_ZipReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void refusedBeforeWriting_data();
    void refusedBeforeWriting();
    void damagedEntryFails_data();
    void damagedEntryFails();
    void namesThatLeadOut_data();
    void namesThatLeadOut();
    void archiveWithoutEntries();
    void parallelUnpackIsExact_data();
    void parallelUnpackIsExact();
    void mutatedArchives_data();
    void mutatedArchives();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    // The unpack root lies deep below the temporary folder, so that no climbing name gets past it.
    QString Root() const { return Path("d1/d2/d3/d4/d5/d6/d7/d8/root"); }
    // Unpacks within the time bound; nothing outside the root may change.
    CLS_ZipUnpacker::n_Result UnpackInSandbox(const QString& _qstrZip, CLS_ZipUnpacker& _unpacker);

    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_ZipReader::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    QVERIFY(WriteFile(Path("sentinel.txt"), "outer"));
    QVERIFY(WriteFile(Path("d1/d2/d3/d4/d5/d6/d7/d8/sentinel.txt"), "inner"));
    QVERIFY(QDir().mkpath(Root()));
}

CLS_ZipUnpacker::n_Result tst_ZipReader::UnpackInSandbox(const QString& _qstrZip, CLS_ZipUnpacker& _unpacker)
{
    auto outside = [this]() {
        QMap<QString, QByteArray> mapFiles = Snapshot(m_pDir->path());
        for (auto it = mapFiles.begin(); it != mapFiles.end();) {
            it = it.key().startsWith("d1/d2/d3/d4/d5/d6/d7/d8/root/") ? mapFiles.erase(it) : std::next(it);
        }
        return mapFiles;
    };
    const QMap<QString, QByteArray> mapBefore = outside();
    QElapsedTimer timer;
    timer.start();
    const CLS_ZipUnpacker::n_Result result = _unpacker.Unpack(_qstrZip, Root());
    const qint64 iElapsed = timer.elapsed();
    [&]() { QVERIFY2(iElapsed < kMaxMilliseconds, qPrintable(QString("%1 ms").arg(iElapsed))); }();
    [&]() { QCOMPARE(outside(), mapBefore); }();
    return result;
}

void tst_ZipReader::refusedBeforeWriting_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::addColumn<QString>("reason");
    QTest::newRow("zip64: 2^40 entries, directory to match") << "zip64_2pow40_entries"
                                                             << "lies outside the archive";
    QTest::newRow("zip64: 2^40 entries in a small directory") << "zip64_2pow40_entries_small_directory"
                                                              << "1099511627776 entries claimed";
    QTest::newRow("zip64: 2^50 bytes deflated") << "zip64_2pow50_deflated"
                                                << "more than deflate gives";
    QTest::newRow("zip64: 2^50 bytes stored") << "zip64_2pow50_stored"
                                              << "outside the archive";
    QTest::newRow("3 GiB from a few hundred bytes") << "claims_3gib"
                                                    << "more than deflate gives";
    QTest::newRow("3 GiB compressed") << "compressed_3gib"
                                      << "outside the archive";
    QTest::newRow("local header past the end") << "local_offset_past_end"
                                               << "outside the archive";
    QTest::newRow("directory past the end") << "directory_offset_past_end"
                                            << "lies outside the archive";
    QTest::newRow("stored, two sizes") << "stored_two_sizes"
                                       << "with two different sizes";
    QTest::newRow("unknown method") << "unknown_method"
                                    << "uses compression method 12";
    QTest::newRow("local header, other method") << "local_method"
                                                << "names another compression method";
    QTest::newRow("comment past the end") << "comment_past_end"
                                          << "no end of central directory";
    QTest::newRow("truncated") << "truncated"
                               << "no end of central directory";
    QTest::newRow("random bytes") << "random"
                                  << "no end of central directory";
    QTest::newRow("empty file") << "empty"
                                << "too short for a zip archive";
    QTest::newRow("one name twice") << "same_name_twice"
                                    << "already exists";
}

void tst_ZipReader::refusedBeforeWriting()
{
    QFETCH(QString, fixture);
    QFETCH(QString, reason);
    const QString qstrZip = QFINDTESTDATA("data/" + fixture + ".zip");
    QVERIFY(!qstrZip.isEmpty());
    CLS_ZipUnpacker unpacker;
    QCOMPARE(UnpackInSandbox(qstrZip, unpacker), CLS_ZipUnpacker::ARCHIVE_REFUSED);
    QVERIFY2(unpacker.Failure().qstrDetail.contains(reason), qPrintable(unpacker.Failure().qstrDetail));
    QVERIFY(QDir(Root()).isEmpty());
    QString qstrDetail;
    QCOMPARE(CheckPackedArchive(qstrZip, {"a.txt"}, qstrDetail), ARCHIVE_INCOMPLETE);
    QVERIFY(!qstrDetail.isEmpty());
}

void tst_ZipReader::damagedEntryFails_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::addColumn<QString>("entry");
    QTest::addColumn<QString>("reason");
    QTest::newRow("stored, a byte flipped") << "flipped_byte"
                                            << "config.json"
                                            << "CRC-32 check failed";
    QTest::newRow("inflates past its size") << "inflates_past_size"
                                            << "zeros.bin"
                                            << "does not inflate to the recorded 1000 bytes";
    QTest::newRow("one byte more") << "inflates_one_past"
                                   << "big.db"
                                   << "does not inflate to the recorded 3145728";
    QTest::newRow("one byte less") << "inflates_one_short"
                                   << "big.db"
                                   << "does not inflate to the recorded 3145730";
    QTest::newRow("stream cut short") << "stream_cut_short"
                                      << "c.bin"
                                      << "does not inflate to the recorded 3145729";
    QTest::newRow("deflated, CRC-32 changed") << "deflated_bad_crc"
                                              << "big.db"
                                              << "CRC-32 check failed";
}

void tst_ZipReader::damagedEntryFails()
{
    QFETCH(QString, fixture);
    QFETCH(QString, entry);
    QFETCH(QString, reason);
    CLS_ZipUnpacker unpacker;
    QCOMPARE(UnpackInSandbox(QFINDTESTDATA("data/" + fixture + ".zip"), unpacker),
             CLS_ZipUnpacker::ENTRY_FAILED);
    QCOMPARE(unpacker.Failure().qstrEntry, entry);
    QVERIFY2(unpacker.Failure().qstrDetail.contains(reason), qPrintable(unpacker.Failure().qstrDetail));
    // However much of it was written, the damaged file is gone.
    QVERIFY(!QFileInfo::exists(Root() + "/" + entry));
}

void tst_ZipReader::namesThatLeadOut_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QStringList>("passedOver");
    QTest::newRow("absolute and ..") << "zip_slip" << QStringList{"good/", "good/ok.txt"}
                                     << QStringList{"../slip_parent.txt", "/hx_zip_slip_abs/slip.txt",
                                                    "a/../../slip_climb.txt"};
    // A link entry comes out as a folder that the file below it needs; no link is ever made.
    QTest::newRow("through a link entry")
        << "through_link" << QStringList{"link/", "link/escaped.txt"} << QStringList();
}

void tst_ZipReader::namesThatLeadOut()
{
    QFETCH(QString, fixture);
    QFETCH(QStringList, files);
    QFETCH(QStringList, passedOver);
    CLS_ZipUnpacker unpacker;
    QCOMPARE(UnpackInSandbox(QFINDTESTDATA("data/" + fixture + ".zip"), unpacker), CLS_ZipUnpacker::UNPACKED);
    QCOMPARE(Snapshot(Root()).keys(), files);
    QStringList lstPassedOver;
    for (const CLS_ZipUnpacker::STRUCT_Note& note : unpacker.PassedOver()) {
        lstPassedOver << note.qstrEntry;
    }
    QCOMPARE(lstPassedOver, passedOver);
    QVERIFY(!QFileInfo::exists("/hx_zip_slip_abs"));
}

void tst_ZipReader::archiveWithoutEntries()
{
    const QString qstrZip = QFINDTESTDATA("data/no_entries.zip");
    CLS_ZipUnpacker unpacker;
    QCOMPARE(UnpackInSandbox(qstrZip, unpacker), CLS_ZipUnpacker::UNPACKED);
    QVERIFY(QDir(Root()).isEmpty());
    QString qstrDetail;
    QCOMPARE(ZipUnpackedSize(qstrZip, qstrDetail), qint64(0));
    QCOMPARE(CheckPackedArchive(qstrZip, {}, qstrDetail), ARCHIVE_COMPLETE);
    QCOMPARE(CheckPackedArchive(qstrZip, {"a.txt"}, qstrDetail), ARCHIVE_INCOMPLETE);
}

void tst_ZipReader::parallelUnpackIsExact_data()
{
    QTest::addColumn<QString>("damage");
    QTest::newRow("sound") << "";
    // A stored entry of many buffers, a byte flipped deep inside it.
    QTest::newRow("stored entry damaged past 8 MiB") << "flip";
    QTest::newRow("stopped by its progress") << "stop";
}

void tst_ZipReader::parallelUnpackIsExact()
{
    QFETCH(QString, damage);
    if (!HasPython()) {
        QSKIP("python3 is needed as the independent writer");
    }
    // Many entries, stored and deflated, small and across the buffers' sizes, nested and empty.
    const QByteArray qbaText = QByteArray("row,camera,2024-01-31 08:05\n").repeated(150000);
    QMap<QString, QByteArray> mapSource{{"Db/main_backup.db", qbaText},
                                        {"Db/empty.db", QByteArray()},
                                        {"video/clip.mp4", RandomBytes((9 << 20) + 5, 1)},
                                        {"noise.bin", RandomBytes((1 << 20) + 3, 2)}};
    for (int i = 0; i < 300; ++i) {
        mapSource.insert(QString("FacePicture/%1/p%2.jpg").arg(i % 7).arg(i),
                         RandomBytes(1000 + 97 * i, 10 + i));
        mapSource.insert(QString("config/c%1.json").arg(i), QByteArray::number(i).repeated(i));
    }
    for (auto it = mapSource.cbegin(); it != mapSource.cend(); ++it) {
        QVERIFY(WriteFile(Path("src/" + it.key()), it.value()));
    }
    QVERIFY(RunPython(kPythonZip, {Path("src"), Path("x.zip")}));
    if (damage == "flip") {
        CLS_ZipLayout layout;
        QVERIFY(layout.Read(Path("x.zip")));
        QFile archive(Path("x.zip"));
        QVERIFY(archive.open(QIODevice::ReadWrite));
        for (const STRUCT_ZipEntryPlace& entry : layout.Entries()) {
            if (entry.qbaRawName == "video/clip.mp4") {
                QVERIFY(entry.iMethod == 0 && archive.seek(entry.iDataOffset + (8 << 20) + 77));
                const char c = archive.peek(1).at(0);
                QCOMPARE(archive.write(QByteArray(1, char(c ^ 0x10))), qint64(1));
            }
        }
    }
    // Without a progress the calling thread works as well; with one it only reports.
    for (const auto& run : {qMakePair(1, false), qMakePair(4, false), qMakePair(2, true)}) {
        QVERIFY(QDir(Root()).removeRecursively() && QDir().mkpath(Root()));
        CLS_ZipUnpacker unpacker(run.first);
        QList<int> lstPercents;
        bool blOffThread = false;
        CLS_ZipUnpacker::Progress progress = [&](int _iPercent) {
            blOffThread |= QThread::currentThread() != thread();
            lstPercents << _iPercent;
            return damage != "stop" || _iPercent < 30;
        };
        const CLS_ZipUnpacker::n_Result result =
            unpacker.Unpack(Path("x.zip"), Root(), run.second ? progress : CLS_ZipUnpacker::Progress());
        QVERIFY(!blOffThread);
        if (run.second && damage != "flip") {
            QVERIFY(std::is_sorted(lstPercents.cbegin(), lstPercents.cend()));
            QCOMPARE(QSet<int>(lstPercents.cbegin(), lstPercents.cend()).size(), lstPercents.size());
        }
        if (damage == "stop" && run.second) {
            QCOMPARE(result, CLS_ZipUnpacker::ENTRY_FAILED);
            QCOMPARE(unpacker.Failure().qstrDetail, EntryExtract::kStopped);
            QVERIFY(lstPercents.last() >= 30);
        } else if (damage != "flip") {
            QCOMPARE(result, CLS_ZipUnpacker::UNPACKED);
            QCOMPARE(Snapshot(Root()), Snapshot(Path("src")));
            if (run.second) {
                QCOMPARE(lstPercents.last(), 100);
            }
        } else {
            QCOMPARE(result, CLS_ZipUnpacker::ENTRY_FAILED);
            QCOMPARE(unpacker.Failure().qstrEntry, QString("video/clip.mp4"));
            QVERIFY(unpacker.Failure().qstrDetail.startsWith("CRC-32 check failed"));
            QVERIFY(!QFileInfo::exists(Root() + "/video/clip.mp4"));
        }
    }
}

void tst_ZipReader::mutatedArchives_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::newRow("plain") << "mutate_plain";
    QTest::newRow("zip64") << "mutate_zip64";
}

void tst_ZipReader::mutatedArchives()
{
    QFETCH(QString, fixture);
    const QByteArray qbaOriginal = ReadFile(QFINDTESTDATA("data/" + fixture + ".zip"));
    QVERIFY(!qbaOriginal.isEmpty());
    const QString qstrZip = Path("m.zip");
    QVERIFY(WriteFile(qstrZip, qbaOriginal));
    CLS_ZipUnpacker original;
    QCOMPARE(UnpackInSandbox(qstrZip, original), CLS_ZipUnpacker::UNPACKED);
    QSet<QByteArray> setContents;
    for (const QByteArray& qbaContent : Snapshot(Root())) {
        setContents.insert(qbaContent);
    }
    QCOMPARE(setContents.size(), 5);

    // Every other mutant changes only headers and the directory, where the checks have most to do.
    CLS_ZipLayout layout;
    QVERIFY(layout.Read(qstrZip));
    auto inData = [&layout](int _iPos) {
        for (const STRUCT_ZipEntryPlace& entry : layout.Entries()) {
            if (_iPos >= entry.iDataOffset && _iPos < entry.iDataOffset + entry.iCompressedSize) {
                return true;
            }
        }
        return false;
    };
    QRandomGenerator random(20240131);
    int iAccepted = 0;
    for (int iMutant = 0; iMutant < 1000; ++iMutant) {
        QVERIFY(QDir(Root()).removeRecursively() && QDir().mkpath(Root()));
        QByteArray qbaMutant = qbaOriginal;
        for (int i = 1 + int(random.bounded(3)); i > 0; --i) {
            int iPos = int(random.bounded(qbaMutant.size()));
            while (iMutant % 2 == 1 && inData(iPos)) {
                iPos = int(random.bounded(qbaMutant.size()));
            }
            qbaMutant[iPos] = char(qbaMutant[iPos] ^ char(1 + random.bounded(255)));
        }
        QVERIFY(WriteFile(qstrZip, qbaMutant));
        QString qstrDetail;
        QVERIFY(ZipUnpackedSize(qstrZip, qstrDetail) >= -1);
        CLS_ZipUnpacker unpacker;
        const bool blAccepted = UnpackInSandbox(qstrZip, unpacker) == CLS_ZipUnpacker::UNPACKED;
        if (QTest::currentTestFailed()) {
            QFAIL(qPrintable(QString("mutant %1: %2").arg(iMutant).arg(QString(qbaMutant.toBase64()))));
        }
        // A mutant may rename an entry, but whatever comes out is an original file's exact content.
        const QMap<QString, QByteArray> mapOut = Snapshot(Root());
        for (auto it = mapOut.cbegin(); blAccepted && it != mapOut.cend(); ++it) {
            QVERIFY2(it.key().endsWith('/') || setContents.contains(it.value()),
                     qPrintable(QString("mutant %1 wrote %2").arg(iMutant).arg(it.key())));
        }
        iAccepted += blAccepted ? 1 : 0;
    }
    qInfo("%d of 1000 mutants unpacked, the rest refused", iAccepted);
}

QTEST_GUILESS_MAIN(tst_ZipReader)
#include "tst_ZipReader.moc"
