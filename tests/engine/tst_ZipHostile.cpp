#include <memory>

#include <QBuffer>
#include <QElapsedTimer>
#include <QRandomGenerator>
#include <QSet>
#include <QTemporaryDir>
#include <QtTest>
#include <private/qzipwriter_p.h>

#include "CLS_BackUpPresenter.h"
#include "CLS_ZipDirectory.h"
#include "Crc32.h"
#include "EngineTestSupport.h"
#include "InflateScan.h"

using namespace EngineTest;

namespace {

// Nothing in these tests may take longer than this; Qt's reader alone hangs on some of the inputs.
constexpr qint64 kMaxMilliseconds = 5000;

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

struct STRUCT_RawEntry
{
    QByteArray qbaName;
    QByteArray qbaBody; // as stored
    quint16 iMethod;
    quint32 iCrc;
    quint32 iSize;
};

void PutU16(QByteArray& _qba, quint16 _iValue)
{
    _qba.append(char(_iValue & 0xFF)).append(char(_iValue >> 8));
}

void PutU32(QByteArray& _qba, quint32 _iValue)
{
    PutU16(_qba, quint16(_iValue & 0xFFFF));
    PutU16(_qba, quint16(_iValue >> 16));
}

// A zip archive laid out by hand, with whatever the entries claim.
QByteArray RawArchive(const QList<STRUCT_RawEntry>& _lstEntries)
{
    QByteArray qbaLocal;
    QByteArray qbaCentral;
    for (const STRUCT_RawEntry& entry : _lstEntries) {
        const quint32 iOffset = quint32(qbaLocal.size());
        PutU32(qbaLocal, 0x04034b50);
        for (quint16 iValue : {quint16(20), quint16(0), entry.iMethod, quint16(0), quint16(0x21)}) {
            PutU16(qbaLocal, iValue);
        }
        PutU32(qbaLocal, entry.iCrc);
        PutU32(qbaLocal, quint32(entry.qbaBody.size()));
        PutU32(qbaLocal, entry.iSize);
        PutU16(qbaLocal, quint16(entry.qbaName.size()));
        PutU16(qbaLocal, 0);
        qbaLocal += entry.qbaName + entry.qbaBody;

        PutU32(qbaCentral, 0x02014b50);
        for (quint16 iValue :
             {quint16(0x0314), quint16(20), quint16(0), entry.iMethod, quint16(0), quint16(0x21)}) {
            PutU16(qbaCentral, iValue);
        }
        PutU32(qbaCentral, entry.iCrc);
        PutU32(qbaCentral, quint32(entry.qbaBody.size()));
        PutU32(qbaCentral, entry.iSize);
        PutU16(qbaCentral, quint16(entry.qbaName.size()));
        for (int i = 0; i < 4; ++i) {
            PutU16(qbaCentral, 0);
        }
        PutU32(qbaCentral, 0100644U << 16);
        PutU32(qbaCentral, iOffset);
        qbaCentral += entry.qbaName;
    }
    QByteArray qbaArchive = qbaLocal + qbaCentral;
    PutU32(qbaArchive, 0x06054b50);
    PutU32(qbaArchive, 0);
    PutU16(qbaArchive, quint16(_lstEntries.size()));
    PutU16(qbaArchive, quint16(_lstEntries.size()));
    PutU32(qbaArchive, quint32(qbaCentral.size()));
    PutU32(qbaArchive, quint32(qbaLocal.size()));
    PutU16(qbaArchive, 0);
    return qbaArchive;
}

// A raw deflate stream of one fixed-code block: a zero byte, then _iRepeats copies of 258 bytes at
// distance 1.
QByteArray ZeroRun(int _iRepeats)
{
    QByteArray qbaStream;
    quint64 iBits = 0;
    int iCount = 0;
    auto put = [&](quint32 _iValue, int _iLength, bool _blCode) {
        for (int i = 0; i < _iLength; ++i) {
            // Huffman codes go in from their top bit, other fields from their low bit.
            const int iBit = _blCode ? _iLength - 1 - i : i;
            iBits |= quint64((_iValue >> iBit) & 1) << iCount;
            if (++iCount == 64) {
                qbaStream.append(reinterpret_cast<const char*>(&iBits), 8);
                iBits = 0;
                iCount = 0;
            }
        }
    };
    put(1, 1, false);   // last block
    put(1, 2, false);   // fixed codes
    put(0x30, 8, true); // literal 0
    for (int i = 0; i < _iRepeats; ++i) {
        put(0xC5, 8, true); // length 258
        put(0, 5, true);    // distance 1
    }
    put(0, 7, true); // end of block
    for (int i = 0; i < iCount; i += 8) {
        qbaStream.append(char((iBits >> i) & 0xFF));
    }
    return qbaStream;
}

// The data of an entry as stored, located through the archive's directory.
QByteArray StoredBody(const QString& _qstrZip, const STRUCT_ZipEntry& _entry)
{
    QFile file(_qstrZip);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(_entry.iDataOffset)) {
        return QByteArray();
    }
    return file.read(_entry.iCompressedSize);
}

} // namespace

class tst_ZipHostile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void hostileFixtures_data();
    void hostileFixtures();
    void craftedArchives_data();
    void craftedArchives();
    void dataLongerThanRecordedIsRefusedBeforeTheReader();
    void linksInsideTheRootAreNotFollowed();
    void inflatedLengthMatchesTheData_data();
    void inflatedLengthMatchesTheData();
    void mutatedArchivesStayInsideTheRoot();

private:
    QString Path(const QString& _qstrRelative) const { return m_pDir->path() + "/" + _qstrRelative; }
    // The sandbox box/ holds the unpacking; the log stays outside it.
    QString Box(const QString& _qstrRelative) const { return Path("box/" + _qstrRelative); }
    QString Work(const QString& _qstrRelative) const
    {
        return Box("d1/d2/d3/d4/d5/d6/work/" + _qstrRelative);
    }
    // Unpacks work/<name>.zip within the time bound; the sandbox outside work/<name> must stay as it was.
    bool UnpackInSandbox(const QString& _qstrName);

    std::unique_ptr<QTemporaryDir> m_pDir;
    QMap<QString, QByteArray> m_mapOutside;
};

void tst_ZipHostile::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    // Deep enough that no climbing name of these archives reaches past the temporary folder.
    QVERIFY(WriteFile(Box("sentinel.txt"), "outer"));
    QVERIFY(WriteFile(Box("d1/d2/d3/d4/d5/d6/sentinel.txt"), "inner"));
    QVERIFY(QDir().mkpath(Work("")));
}

void tst_ZipHostile::cleanup()
{
    m_pDir.reset();
}

bool tst_ZipHostile::UnpackInSandbox(const QString& _qstrName)
{
    const QString qstrWork = Work("");
    QMap<QString, QByteArray> mapBefore = Snapshot(Box(""));
    QElapsedTimer timer;
    timer.start();
    const bool blResult = Presenter()->ZipToDir(qstrWork + _qstrName + ".zip", QDir::cleanPath(qstrWork));
    const qint64 iElapsed = timer.elapsed();
    [&]() { QVERIFY2(iElapsed < kMaxMilliseconds, qPrintable(QString("%1 ms").arg(iElapsed))); }();

    // The root itself may change in any way; nothing else in the box may.
    const QString qstrRoot = "d1/d2/d3/d4/d5/d6/work/" + _qstrName + "/";
    QMap<QString, QByteArray> mapAfter = Snapshot(Box(""));
    for (QMap<QString, QByteArray>* pMap : {&mapBefore, &mapAfter}) {
        for (auto it = pMap->begin(); it != pMap->end();) {
            it = it.key().startsWith(qstrRoot) ? pMap->erase(it) : std::next(it);
        }
    }
    [&]() { QCOMPARE(mapAfter, mapBefore); }();
    return blResult;
}

void tst_ZipHostile::hostileFixtures_data()
{
    QTest::addColumn<QString>("fixture");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("files");
    QTest::addColumn<QString>("logged");
    QTest::newRow("names that climb out") << "zip_slip" << true << QStringList{"good/", "good/ok.txt"}
                                          << "ZipToDir passed over entry [../slip_parent.txt] name leads out";
    QTest::newRow("truncated") << "truncated" << false << QStringList()
                               << "ZipToDir failed archive unreadable";
    QTest::newRow("flipped byte") << "flipped_byte" << false << QStringList() << "CRC-32 check failed";
    QTest::newRow("claims 3 GiB") << "claims_3gib" << false << QStringList() << "more than can be unpacked";
    QTest::newRow("compressed size of 3 GiB")
        << "compressed_3gib" << false << QStringList() << "more than can be unpacked";
    QTest::newRow("inflates past its size")
        << "inflates_past_size" << false << QStringList() << "does not inflate to the recorded 1000 bytes";
}

void tst_ZipHostile::hostileFixtures()
{
    QFETCH(QString, fixture);
    QFETCH(bool, expected);
    QFETCH(QStringList, files);
    QFETCH(QString, logged);
    const QString qstrFixture = QFINDTESTDATA("data/" + fixture + ".zip");
    QVERIFY(!qstrFixture.isEmpty());
    QVERIFY(QFile::copy(qstrFixture, Work("" + fixture + ".zip")));
    QVERIFY(!QFileInfo::exists("/hx_zip_slip_abs"));

    QCOMPARE(UnpackInSandbox(fixture), expected);
    QCOMPARE(Snapshot(Work("" + fixture)).keys(), files);
    QVERIFY(!QFileInfo::exists("/hx_zip_slip_abs"));
    QVERIFY2(CountLogLines(m_pDir->path(), logged) == 1, qPrintable(LogLines(m_pDir->path()).join('\n')));
}

void tst_ZipHostile::craftedArchives_data()
{
    QTest::addColumn<QByteArray>("archive");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QString>("logged");
    QTest::newRow("empty file") << QByteArray() << false << "too short for a zip archive";
    QByteArray qbaRandom(65536, '\0');
    QRandomGenerator random(7);
    for (char& c : qbaRandom) {
        c = char(random.bounded(256));
    }
    QTest::newRow("random bytes") << qbaRandom << false << "ZipToDir failed archive unreadable";
    QTest::newRow("no entries") << RawArchive({}) << true << QString();
    const QByteArray qbaOne("one");
    const QByteArray qbaTwo("two");
    QTest::newRow("the same name twice")
        << RawArchive({{"same.txt", qbaOne, 0, Crc32(qbaOne), 3}, {"same.txt", qbaTwo, 0, Crc32(qbaTwo), 3}})
        << false << "CRC-32 check failed";
    QTest::newRow("stored with two sizes")
        << RawArchive({{"s.txt", qbaOne, 0, Crc32(qbaOne), 2}}) << false << "with two different sizes";
    QTest::newRow("unknown method") << RawArchive({{"m.txt", qbaOne, 12, Crc32(qbaOne), 3}}) << false
                                    << "uses compression method 12";
    QByteArray qbaLocalMethod = RawArchive({{"l.txt", qbaOne, 0, Crc32(qbaOne), 3}});
    qbaLocalMethod[8] = 8;
    QTest::newRow("local header names another method")
        << qbaLocalMethod << false << "names another compression method";
    QByteArray qbaCommented = RawArchive({{"c.txt", qbaOne, 0, Crc32(qbaOne), 3}});
    qbaCommented[qbaCommented.size() - 2] = 5;
    QTest::newRow("comment length beyond the end") << qbaCommented << false << "does not match its comment";
}

void tst_ZipHostile::craftedArchives()
{
    QFETCH(QByteArray, archive);
    QFETCH(bool, expected);
    QFETCH(QString, logged);
    QVERIFY(WriteFile(Work("crafted.zip"), archive));
    QCOMPARE(UnpackInSandbox("crafted"), expected);
    if (!logged.isEmpty()) {
        QCOMPARE(CountLogLines(m_pDir->path(), logged), 1);
    }
    if (expected) {
        QVERIFY(QDir(Work("crafted")).isEmpty());
    }
}

void tst_ZipHostile::dataLongerThanRecordedIsRefusedBeforeTheReader()
{
    // 2 GB of zeros from 13 MB, recorded as 1,000 bytes: Qt's reader doubles its buffer past 2 GiB and
    // writes beyond it (measured: a crash), so the entry must never reach it.
    const QByteArray qbaStream = ZeroRun(8400000);
    QVERIFY(WriteFile(Work("bomb.zip"), RawArchive({{"zeros.bin", qbaStream, 8, 0, 1000}})));
    QVERIFY(!UnpackInSandbox("bomb"));
    QCOMPARE(CountLogLines(m_pDir->path(), "does not inflate to the recorded 1000 bytes"), 1);

    // The same stream is valid deflate data: counted to the end it gives its real length.
    QBuffer buffer;
    buffer.setData(qbaStream);
    QVERIFY(buffer.open(QIODevice::ReadOnly));
    qint64 iLength = 0;
    QVERIFY(InflatedLength(buffer, qbaStream.size(), qint64(1) << 40, iLength));
    QCOMPARE(iLength, 1 + qint64(258) * 8400000);
}

void tst_ZipHostile::linksInsideTheRootAreNotFollowed()
{
    const QString qstrWork = Work("");
    const QByteArray qbaData("from the archive");
    QVERIFY(WriteFile(qstrWork + "links.zip", RawArchive({{"sub/x.txt", qbaData, 0, Crc32(qbaData), 16},
                                                          {"top.txt", qbaData, 0, Crc32(qbaData), 16}})));
    // A root left over from before, holding links that lead out of it.
    QVERIFY(QDir().mkpath(qstrWork + "links"));
    QVERIFY(QFile::link(Box("d1"), qstrWork + "links/sub"));
    QVERIFY(QFile::link(Box("sentinel.txt"), qstrWork + "links/top.txt"));
    QVERIFY(UnpackInSandbox("links"));
    QCOMPARE(ReadFile(Box("sentinel.txt")), QByteArray("outer"));
    QVERIFY(!QFileInfo::exists(Box("d1/x.txt")));
    QCOMPARE(CountLogLines(m_pDir->path(), "ZipToDir passed over entry [sub/x.txt]"), 1);
    QCOMPARE(CountLogLines(m_pDir->path(), "ZipToDir passed over entry [top.txt] target is a symbolic link"),
             1);
}

void tst_ZipHostile::inflatedLengthMatchesTheData_data()
{
    QTest::addColumn<QByteArray>("data");
    QByteArray qbaRandom(70000, '\0');
    QRandomGenerator random(11);
    for (char& c : qbaRandom) {
        c = char(random.bounded(256));
    }
    QByteArray qbaText;
    for (int i = 0; i < 5000; ++i) {
        qbaText += "line " + QByteArray::number(i * 7919 % 1000) + " of the client's configuration\n";
    }
    QTest::newRow("empty") << QByteArray();
    QTest::newRow("three bytes") << QByteArray("abc");
    QTest::newRow("text") << qbaText;
    QTest::newRow("random") << qbaRandom;
    QTest::newRow("zeros") << QByteArray(300000, '\0');
}

void tst_ZipHostile::inflatedLengthMatchesTheData()
{
    QFETCH(QByteArray, data);
    {
        QZipWriter writer(Path("scan.zip"));
        writer.setCompressionPolicy(QZipWriter::AlwaysCompress);
        writer.addFile("data.bin", data);
    }
    CLS_ZipDirectory directory;
    QVERIFY2(directory.Read(Path("scan.zip")), qPrintable(directory.ErrorText()));
    const STRUCT_ZipEntry entry = directory.Entries().value(0);
    QCOMPARE(entry.iMethod, quint16(8));
    QCOMPARE(entry.iSize, qint64(data.size()));
    const QByteArray qbaBody = StoredBody(Path("scan.zip"), entry);
    QCOMPARE(Crc32(data), entry.iCrc);

    auto scan = [&qbaBody](qint64 _iBytes, qint64 _iLimit, qint64& _iLength) {
        QBuffer buffer;
        buffer.setData(qbaBody);
        buffer.open(QIODevice::ReadOnly);
        return InflatedLength(buffer, _iBytes, _iLimit, _iLength);
    };
    qint64 iLength = -1;
    QVERIFY(scan(qbaBody.size(), data.size(), iLength));
    QCOMPARE(iLength, qint64(data.size()));
    if (!data.isEmpty()) {
        QVERIFY(!scan(qbaBody.size(), data.size() - 1, iLength));
    }
    QVERIFY(!scan(qbaBody.size() / 2, data.size(), iLength));
}

void tst_ZipHostile::mutatedArchivesStayInsideTheRoot()
{
    // The original: stored and deflated entries, nested, hidden, empty, and two names that climb out.
    const QString qstrWork = Work("");
    QByteArray qbaPicture(3000, '\0');
    QByteArray qbaDb;
    QRandomGenerator random(20240131);
    for (char& c : qbaPicture) {
        c = char(random.bounded(256));
    }
    for (int i = 0; i < 4000; ++i) {
        qbaDb += QByteArray::number(random.bounded(100));
    }
    const QList<QPair<QString, QByteArray>> lstFiles{
        {"config.json", "{\"skin\": \"dark\", \"lang\": \"en\"}"},
        {"FacePicture/p.jpg", qbaPicture},
        {"Db/main_backup.db", qbaDb},
        {".hidden", "h"},
        {"empty.txt", QByteArray()},
        {"../escape.txt", "escape"},
        {"x/../../climb.txt", "climb"}};
    QSet<QByteArray> setContents;
    {
        QZipWriter writer(Path("original.zip"));
        for (const auto& file : lstFiles) {
            writer.setCompressionPolicy(file.first.endsWith(".jpg") ? QZipWriter::NeverCompress
                                                                    : QZipWriter::AlwaysCompress);
            writer.addFile(file.first, file.second);
            setContents.insert(file.second);
        }
    }
    const QByteArray qbaOriginal = ReadFile(Path("original.zip"));
    QVERIFY(WriteFile(qstrWork + "m.zip", qbaOriginal));
    QVERIFY(UnpackInSandbox("m"));
    QCOMPARE(Snapshot(qstrWork + "m").size(), 7);
    QVERIFY(QDir(qstrWork + "m").removeRecursively());

    // Every other mutant changes only headers and the directory, where the checks have most to do.
    CLS_ZipDirectory directory;
    QVERIFY(directory.Read(Path("original.zip")));
    auto inData = [&directory](int _iPos) {
        for (const STRUCT_ZipEntry& entry : directory.Entries()) {
            if (_iPos >= entry.iDataOffset && _iPos < entry.iDataOffset + entry.iCompressedSize) {
                return true;
            }
        }
        return false;
    };

    int iAccepted = 0;
    for (int iMutant = 0; iMutant < 1000; ++iMutant) {
        QByteArray qbaMutant = qbaOriginal;
        const int iChanges = 1 + int(random.bounded(3));
        for (int i = 0; i < iChanges; ++i) {
            int iPos = int(random.bounded(qbaMutant.size()));
            while (iMutant % 2 == 1 && inData(iPos)) {
                iPos = int(random.bounded(qbaMutant.size()));
            }
            qbaMutant[iPos] = char(qbaMutant[iPos] ^ char(1 + random.bounded(255)));
        }
        QVERIFY(WriteFile(qstrWork + "m.zip", qbaMutant));
        // The recover run measures an archive with the reader before anything has checked it.
        QVERIFY(Presenter()->GetZipSize(qstrWork + "m.zip") >= 0);
        const bool blAccepted = UnpackInSandbox("m");
        if (QTest::currentTestFailed()) {
            QFAIL(qPrintable(QString("mutant %1: %2").arg(iMutant).arg(QString(qbaMutant.toBase64()))));
        }
        // A mutant may rename an entry, but whatever comes out is an original file's exact content.
        if (blAccepted) {
            ++iAccepted;
            const QMap<QString, QByteArray> mapOut = Snapshot(qstrWork + "m");
            for (auto it = mapOut.cbegin(); it != mapOut.cend(); ++it) {
                QVERIFY2(it.key().endsWith('/') || setContents.contains(it.value()),
                         qPrintable(QString("mutant %1 wrote %2").arg(iMutant).arg(it.key())));
            }
        }
        QVERIFY(QDir(qstrWork + "m").removeRecursively());
    }
    qInfo("%d of 1000 mutants unpacked, the rest refused", iAccepted);
}

QTEST_GUILESS_MAIN(tst_ZipHostile)
#include "tst_ZipHostile.moc"
