#include <atomic>

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/statvfs.h>
#include <zip.h>
#include <zlib.h>

#include "CLS_ParallelDeflater.h"
#include "CLS_ZipWriter.h"
#include "EngineTestSupport.h"

using namespace EngineTest;

namespace {

const qint64 kMiB = qint64(1) << 20;
const qint64 kGiB = qint64(1) << 30;

quint32 Crc(const QByteArray& _qbaData)
{
    return quint32(crc32(0, reinterpret_cast<const Bytef*>(_qbaData.constData()), uInt(_qbaData.size())));
}

// A file of _iSize bytes, all holes but a head, and the CRC-32 of that content without reading it.
bool WriteSparse(const QString& _qstrPath, qint64 _iSize, const QByteArray& _qbaHead, quint32& _iCrc)
{
    QDir().mkpath(QFileInfo(_qstrPath).absolutePath());
    QFile file(_qstrPath);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(_qbaHead) != _qbaHead.size() ||
        !file.resize(_iSize)) {
        return false;
    }
    const QByteArray qbaZeros(int(kMiB), '\0');
    const uLong iZerosCrc = crc32(0, reinterpret_cast<const Bytef*>(qbaZeros.constData()), uInt(kMiB));
    uLong iCrc = Crc(_qbaHead);
    qint64 iLeft = _iSize - _qbaHead.size();
    for (; iLeft >= kMiB; iLeft -= kMiB) {
        iCrc = crc32_combine(iCrc, iZerosCrc, z_off_t(kMiB));
    }
    iCrc = crc32_combine(iCrc, crc32(0, reinterpret_cast<const Bytef*>(qbaZeros.constData()), uInt(iLeft)),
                         z_off_t(iLeft));
    _iCrc = quint32(iCrc);
    return true;
}

// Python's zipfile, a reader independent of libzip and Info-ZIP: every CRC tested, then per entry
// [name, size, CRC, Unix mode, local date and time].
const char* const kPythonCheck = R"(
import json, sys, zipfile
with zipfile.ZipFile(sys.argv[1]) as z:
    bad = z.testzip()
    if bad is not None:
        sys.exit('bad CRC in ' + bad)
    print(json.dumps([[i.filename, i.file_size, i.CRC, i.external_attr >> 16, list(i.date_time)]
                      for i in z.infolist()]))
)";

bool PythonCheck(const QString& _qstrZip, QJsonArray& _jsonEntries, QString& _qstrOutput)
{
    QProcess process;
    process.start("python3", {"-c", kPythonCheck, _qstrZip});
    const bool blDone = process.waitForFinished(240000) && process.exitStatus() == QProcess::NormalExit &&
                        process.exitCode() == 0;
    const QByteArray qbaOut = process.readAllStandardOutput();
    _qstrOutput = QString::fromUtf8(qbaOut + process.readAllStandardError());
    _jsonEntries = QJsonDocument::fromJson(qbaOut).array();
    return blDone;
}

// Info-ZIP's verdict on every entry's data and CRC, and the listing it prints.
bool UnzipTest(const QString& _qstrZip, QString& _qstrOutput)
{
    QProcess process;
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.start("unzip", {"-tq", _qstrZip});
    const bool blDone = process.waitForFinished(240000) && process.exitStatus() == QProcess::NormalExit;
    _qstrOutput = QString::fromUtf8(process.readAll());
    return blDone && process.exitCode() == 0 && _qstrOutput.contains("No errors detected");
}

struct STRUCT_Expected
{
    QString qstrName;
    qint64 iSize;
    quint32 iCrc;
    bool blStored;
};

quint16 Short(const QByteArray& _qbaData, qint64 _iAt)
{
    return quint16(uchar(_qbaData[int(_iAt)]) | (uchar(_qbaData[int(_iAt + 1)]) << 8));
}

quint32 Int(const QByteArray& _qbaData, qint64 _iAt)
{
    return Short(_qbaData, _iAt) | (quint32(Short(_qbaData, _iAt + 2)) << 16);
}

// The ids of the extra fields of every local header and directory record of a plain (small) zip.
QList<quint16> ExtraFieldIds(const QByteArray& _qbaZip)
{
    QList<quint16> lstIds;
    auto collect = [&](qint64 _iAt, int _iLength) {
        for (qint64 i = _iAt; i + 4 <= _iAt + _iLength; i += 4 + Short(_qbaZip, i + 2)) {
            lstIds << Short(_qbaZip, i);
        }
    };
    const int iEnd = _qbaZip.lastIndexOf(QByteArray("PK\x05\x06", 4));
    qint64 iAt = Int(_qbaZip, iEnd + 16);
    for (int i = 0; i < Short(_qbaZip, iEnd + 10); ++i) {
        const qint64 iLocal = Int(_qbaZip, iAt + 42);
        collect(iLocal + 30 + Short(_qbaZip, iLocal + 26), Short(_qbaZip, iLocal + 28));
        collect(iAt + 46 + Short(_qbaZip, iAt + 28), Short(_qbaZip, iAt + 30));
        iAt += 46 + Short(_qbaZip, iAt + 28) + Short(_qbaZip, iAt + 30) + Short(_qbaZip, iAt + 32);
    }
    return lstIds;
}

// The tail of the archive, where the end records are.
QByteArray Tail(const QString& _qstrZip)
{
    QFile file(_qstrZip);
    if (!file.open(QIODevice::ReadOnly)) {
        return QByteArray();
    }
    file.seek(std::max<qint64>(0, file.size() - 200));
    return file.readAll();
}

} // namespace

class tst_ZipWriter : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();
    void packsFolders_data();
    void packsFolders();
    void deflatedStreamIsCopiedAsIs();
    void keepsTimesAndPermissions();
    void unreadableFilesAreNotQueued();
    void cancels_data();
    void cancels();
    void failures_data();
    void failures();

private:
    QString Work(const QString& _qstrName) const { return m_dir->path() + "/" + _qstrName; }
    // Adds the files, writes the archive and checks it with libzip, Info-ZIP and Python.
    void PackAndCheck(const QList<STRUCT_Expected>& _lstExpected, bool _blZip64, bool _blRemoveAfterReading);

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_ZipWriter::initTestCase()
{
    if (QStandardPaths::findExecutable("unzip").isEmpty() ||
        QStandardPaths::findExecutable("python3").isEmpty()) {
        QSKIP("Info-ZIP unzip and python3 are needed as independent readers");
    }
}

void tst_ZipWriter::init()
{
    // Archives of several GiB: in memory where there is room for them, the disk is many times slower.
    struct statvfs volume;
    const bool blRoom =
        statvfs("/dev/shm", &volume) == 0 && qint64(volume.f_bavail) * qint64(volume.f_frsize) > 12 * kGiB;
    m_dir = blRoom ? std::make_unique<QTemporaryDir>("/dev/shm/tst_ZipWriter-XXXXXX")
                   : std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void tst_ZipWriter::cleanup()
{
    m_dir.reset();
}

void tst_ZipWriter::packsFolders_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<bool>("zip64");
    QTest::addColumn<bool>("removeAfterReading");

    QTest::newRow("small archive stays plain zip") << "small" << false << true;
    QTest::newRow("empty folder") << "empty" << false << false;
    QTest::newRow("70,000 small files") << "many" << true << false;
    QTest::newRow("sparse 4.5 GiB clip, then a file past 4 GiB") << "clip" << true << true;
    QTest::newRow("archive over 4 GiB of two 2.1 GiB clips") << "two clips" << true << false;
    QTest::newRow("sparse 4.5 GiB deflated") << "deflated" << true << true;
}

void tst_ZipWriter::packsFolders()
{
    QFETCH(QString, layout);
    QFETCH(bool, zip64);
    QFETCH(bool, removeAfterReading);
    QList<STRUCT_Expected> lstExpected;
    auto add = [&](const QString& _qstrName, const QByteArray& _qbaContent, bool _blStored) {
        lstExpected.append({_qstrName, _qbaContent.size(), Crc(_qbaContent), _blStored});
        return WriteFile(Work("in/" + _qstrName), _qbaContent);
    };
    auto addSparse = [&](const QString& _qstrName, qint64 _iSize, bool _blStored) {
        quint32 iCrc = 0;
        lstExpected.append({_qstrName, _iSize, 0, _blStored});
        const bool blWritten = WriteSparse(Work("in/" + _qstrName), _iSize, _qstrName.toUtf8(), iCrc);
        lstExpected.last().iCrc = iCrc;
        return blWritten;
    };
    if (layout == "small") {
        QVERIFY(add("a.txt", TextBytes(5000), false));
        QVERIFY(add("empty.ini", QByteArray(), true));
        QVERIFY(add("Face/0001.jpg", RandomBytes(70000, 1), true));
        QVERIFY(add(QString::fromUtf8("地图/层.json"), "{\"x\": 1}", false));
        QVERIFY(add("Db/rows.db", TextBytes(3 * kMiB + 17), false));
        QVERIFY(add("noise.bin", RandomBytes(2 * kMiB + 5, 7), false));
    } else if (layout == "many") {
        for (int i = 0; i < 70000; ++i) {
            const bool blPicture = i % 2 == 0;
            QVERIFY(add(QString("Face/%1/%2.%3").arg(i / 1000).arg(i).arg(blPicture ? "jpg" : "txt"),
                        QByteArray::number(i), blPicture));
        }
    } else if (layout == "clip") {
        QVERIFY(addSparse("Download/clip.mp4", 4 * kGiB + kGiB / 2, true));
        QVERIFY(add("after.txt", "past 4 GiB", false));
    } else if (layout == "two clips") {
        QVERIFY(addSparse("a.mp4", 2 * kGiB + 100 * kMiB, true));
        QVERIFY(addSparse("b.mp4", 2 * kGiB + 100 * kMiB, true));
    } else if (layout == "deflated") {
        QVERIFY(addSparse("zeros.log", 4 * kGiB + kGiB / 2, false));
    }
    PackAndCheck(lstExpected, zip64, removeAfterReading);
}

void tst_ZipWriter::PackAndCheck(const QList<STRUCT_Expected>& _lstExpected, bool _blZip64,
                                 bool _blRemoveAfterReading)
{
    const QString qstrZip = Work("out/x.zip");
    QVERIFY(QDir().mkpath(Work("out")));
    {
        CLS_ZipWriter writer(qstrZip);
        QVERIFY2(writer.IsOpen(), qPrintable(writer.ErrorText()));
        writer.SetRemoveAfterReading(_blRemoveAfterReading);
        QStringList lstFiles;
        for (const STRUCT_Expected& expected : _lstExpected) {
            QVERIFY(writer.AddFile(expected.qstrName, Work("in/" + expected.qstrName)));
            lstFiles << Work("in/" + expected.qstrName);
        }
        QCOMPARE(writer.QueuedFiles(), lstFiles);
        int iAdded = 0;
        QCOMPARE(writer.Write([&iAdded] { return ++iAdded, true; }), CLS_ZipWriter::WRITE_DONE);
        QCOMPARE(iAdded, _lstExpected.size());
    }
    int iLeft = 0;
    for (QDirIterator it(Work("in"), QDir::Files | QDir::Hidden, QDirIterator::Subdirectories); it.hasNext();
         it.next()) {
        ++iLeft;
    }
    QCOMPARE(iLeft, _blRemoveAfterReading ? 0 : _lstExpected.size());
    QCOMPARE(QDir(Work("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList{"x.zip"});

    // libzip reads it back: names in order, sizes, CRCs and methods as packed.
    int iError = 0;
    zip_t* pArchive = zip_open(QFile::encodeName(qstrZip).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &iError);
    QVERIFY2(pArchive != nullptr, qPrintable(QString("libzip error %1").arg(iError)));
    const std::unique_ptr<zip_t, int (*)(zip_t*)> closer(pArchive, zip_close);
    QCOMPARE(zip_get_num_entries(pArchive, 0), zip_int64_t(_lstExpected.size()));
    for (int i = 0; i < _lstExpected.size(); ++i) {
        zip_stat_t st;
        QCOMPARE(zip_stat_index(pArchive, zip_uint64_t(i), 0, &st), 0);
        QCOMPARE(QString::fromUtf8(st.name), _lstExpected[i].qstrName);
        QCOMPARE(qint64(st.size), _lstExpected[i].iSize);
        QCOMPARE(quint32(st.crc), _lstExpected[i].iCrc);
        QCOMPARE(st.comp_method, zip_uint16_t(_lstExpected[i].blStored ? ZIP_CM_STORE : ZIP_CM_DEFLATE));
    }

    // Two independent readers test every byte.
    QString qstrOutput;
    if (_lstExpected.isEmpty()) {
        Unzip({"-tq", qstrZip}, &qstrOutput);
        QVERIFY2(qstrOutput.contains("zipfile is empty"), qPrintable(qstrOutput));
        QCOMPARE(ReadFile(qstrZip), QByteArray("PK\x05\x06", 4) + QByteArray(18, '\0'));
    } else {
        QVERIFY2(UnzipTest(qstrZip, qstrOutput), qPrintable(qstrOutput));
    }
    QJsonArray jsonEntries;
    QVERIFY2(PythonCheck(qstrZip, jsonEntries, qstrOutput), qPrintable(qstrOutput));
    QCOMPARE(jsonEntries.size(), _lstExpected.size());
    for (int i = 0; i < _lstExpected.size(); ++i) {
        const QJsonArray jsonEntry = jsonEntries[i].toArray();
        QCOMPARE(jsonEntry[0].toString(), _lstExpected[i].qstrName);
        QCOMPARE(qint64(jsonEntry[1].toDouble()), _lstExpected[i].iSize);
        QCOMPARE(quint32(jsonEntry[2].toDouble()), _lstExpected[i].iCrc);
    }

    // zip64 records only where a limit needs them.
    const QByteArray qbaTail = Tail(qstrZip);
    QCOMPARE(qbaTail.contains(QByteArray("PK\x06\x06", 4)), _blZip64);
    QCOMPARE(qbaTail.contains(QByteArray("PK\x06\x07", 4)), _blZip64);
    if (!_blZip64) {
        QVERIFY(!ExtraFieldIds(ReadFile(qstrZip)).contains(0x0001));
    }
}

void tst_ZipWriter::deflatedStreamIsCopiedAsIs()
{
    // libzip must take our stream as it is, not deflate it again: the entry's data is byte for byte what
    // the deflater makes of the file.
    const QByteArray qbaContent = TextBytes(3 * kMiB + 5);
    QVERIFY(WriteFile(Work("rows.db"), qbaContent));
    {
        CLS_ZipWriter writer(Work("x.zip"));
        QVERIFY(writer.AddFile("rows.db", Work("rows.db")));
        QCOMPARE(writer.Write(), CLS_ZipWriter::WRITE_DONE);
    }
    CLS_ParallelDeflater deflater(2, CLS_ZipWriter::kDefaultLevel, 64 * kMiB);
    deflater.Begin(Work("rows.db"));
    QByteArray qbaStream;
    std::vector<char> vecPiece;
    quint32 iCrc = 0;
    qint64 iSize = 0;
    QString qstrError;
    while (deflater.Pull(vecPiece, iCrc, iSize, qstrError) == CLS_ParallelDeflater::PULL_PIECE) {
        qbaStream.append(vecPiece.data(), int(vecPiece.size()));
    }
    QCOMPARE(iSize, qint64(qbaContent.size()));
    const QByteArray qbaZip = ReadFile(Work("x.zip"));
    QCOMPARE(Short(qbaZip, 8), quint16(8));
    QCOMPARE(Int(qbaZip, 14), Crc(qbaContent));
    QCOMPARE(qint64(Int(qbaZip, 18)), qint64(qbaStream.size()));
    const qint64 iData = 30 + Short(qbaZip, 26) + Short(qbaZip, 28);
    QCOMPARE(qbaZip.mid(int(iData), qbaStream.size()), qbaStream);
}

void tst_ZipWriter::keepsTimesAndPermissions()
{
    const QList<QPair<QString, int>> lstFiles{{"owner.txt", 0600},
                                              {"group.db", 0640},
                                              {"run.sh", 0755},
                                              {"frozen.jpg", 0444},
                                              {"odd second.ini", 0664}};
    const qint64 iBase = 1700000001; // an odd second: DOS times keep even ones
    CLS_ZipWriter writer(Work("x.zip"));
    for (int i = 0; i < lstFiles.size(); ++i) {
        const QString qstrPath = Work("in/" + lstFiles[i].first);
        QVERIFY(WriteFile(qstrPath, "content " + QByteArray::number(i)));
        QCOMPARE(chmod(QFile::encodeName(qstrPath).constData(), mode_t(lstFiles[i].second)), 0);
        QVERIFY(SetModified(qstrPath, iBase + i * 86401));
        QVERIFY(writer.AddFile(lstFiles[i].first, qstrPath));
    }
    QCOMPARE(writer.Write(), CLS_ZipWriter::WRITE_DONE);

    QJsonArray jsonEntries;
    QString qstrOutput;
    QVERIFY2(PythonCheck(Work("x.zip"), jsonEntries, qstrOutput), qPrintable(qstrOutput));
    QCOMPARE(jsonEntries.size(), lstFiles.size());
    for (int i = 0; i < lstFiles.size(); ++i) {
        const QJsonArray jsonEntry = jsonEntries[i].toArray();
        QCOMPARE(jsonEntry[3].toInt(), 0100000 | lstFiles[i].second);
        const QDateTime local = QDateTime::fromSecsSinceEpoch(iBase + i * 86401).toLocalTime();
        const QJsonArray jsonTime = jsonEntry[4].toArray();
        QCOMPARE(QDateTime(QDate(jsonTime[0].toInt(), jsonTime[1].toInt(), jsonTime[2].toInt()),
                           QTime(jsonTime[3].toInt(), jsonTime[4].toInt(), jsonTime[5].toInt())),
                 local.addSecs(-(local.time().second() % 2)));
    }
}

void tst_ZipWriter::unreadableFilesAreNotQueued()
{
    QVERIFY(WriteFile(Work("in/ok.txt"), "ok"));
    QVERIFY(WriteFile(Work("in/locked.txt"), "locked"));
    QVERIFY(QDir().mkpath(Work("in/folder")));
    QVERIFY(QFile::setPermissions(Work("in/locked.txt"), QFileDevice::WriteOwner));
    const bool blLockedReadable = QFile(Work("in/locked.txt")).open(QIODevice::ReadOnly); // root reads it
    CLS_ZipWriter writer(Work("x.zip"));
    QVERIFY(!writer.AddFile("missing.txt", Work("in/missing.txt")));
    QVERIFY(!writer.AddFile("folder", Work("in/folder")));
    QCOMPARE(writer.AddFile("locked.txt", Work("in/locked.txt")), blLockedReadable);
    QVERIFY(writer.AddFile("ok.txt", Work("in/ok.txt")));
    QVERIFY(!writer.AddFile("ok.txt", Work("in/ok.txt"))); // a name once only
    QCOMPARE(writer.Write(), CLS_ZipWriter::WRITE_DONE);
    QCOMPARE(UnzipNames(Work("x.zip")),
             blLockedReadable ? QStringList({"locked.txt", "ok.txt"}) : QStringList({"ok.txt"}));
}

void tst_ZipWriter::cancels_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<int>("cancelAtPoll");
    QTest::addColumn<int>("cancelAtFile");

    QTest::newRow("within a 4.5 GiB stored clip") << "clip.mp4" << 200 << 0;
    QTest::newRow("within a 4.5 GiB deflated file") << "zeros.log" << 200 << 0;
    QTest::newRow("when the first file is added") << "zeros.log" << 0 << 1;
}

void tst_ZipWriter::cancels()
{
    QFETCH(QString, file);
    QFETCH(int, cancelAtPoll);
    QFETCH(int, cancelAtFile);
    quint32 iCrc = 0;
    QVERIFY(WriteSparse(Work("in/" + file), cancelAtPoll > 0 ? 4 * kGiB + kGiB / 2 : 3 * kMiB, "head", iCrc));
    QVERIFY(WriteFile(Work("in/after.txt"), "after"));
    QVERIFY(QDir().mkpath(Work("out")));
    // An older archive of the same name does not survive a cancelled one either.
    QVERIFY(WriteFile(Work("out/x.zip"), "older"));
    CLS_ZipWriter writer(Work("out/x.zip"));
    QVERIFY(writer.AddFile(file, Work("in/" + file)));
    QVERIFY(writer.AddFile("after.txt", Work("in/after.txt")));
    int iPolls = 0;
    int iFiles = 0;
    QElapsedTimer sinceCancel;
    const CLS_ZipWriter::n_Result result = writer.Write(
        [&] {
            if (++iFiles == cancelAtFile) {
                sinceCancel.start();
                return false;
            }
            return true;
        },
        [&] {
            if (++iPolls == cancelAtPoll) {
                sinceCancel.start();
            }
            return sinceCancel.isValid();
        });
    const qint64 iElapsed = sinceCancel.elapsed();
    QCOMPARE(result, CLS_ZipWriter::WRITE_CANCELLED);
    QVERIFY2(iElapsed < 1000, qPrintable(QString("%1 ms from the cancel to the end").arg(iElapsed)));
    QCOMPARE(iFiles, cancelAtFile);
    QVERIFY(writer.ErrorText().isEmpty());
    QVERIFY(!writer.RanOutOfSpace());
    QCOMPARE(QDir(Work("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

void tst_ZipWriter::failures_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<QString>("file");
    QTest::addColumn<bool>("outOfSpace");

    // A deflated file may be read ahead, before it changes: only stored ones are read at their turn.
    QTest::newRow("full volume") << "full"
                                 << "clip.mp4" << true;
    QTest::newRow("file gone after listing") << "gone"
                                             << "clip.mp4" << false;
    QTest::newRow("file shortened after listing") << "shortened"
                                                  << "clip.mp4" << false;
    QTest::newRow("file grown after listing") << "grown"
                                              << "clip.mp4" << false;
}

void tst_ZipWriter::failures()
{
    QFETCH(QString, failure);
    QFETCH(QString, file);
    QFETCH(bool, outOfSpace);
    std::unique_ptr<CLS_SmallVolume> volume;
    if (failure == "full") {
        volume = std::make_unique<CLS_SmallVolume>(Work("out"));
        if (!volume->IsMounted()) {
            QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
        }
    }
    QVERIFY(QDir().mkpath(Work("out")));
    quint32 iCrc = 0;
    QVERIFY(WriteFile(Work("in/first.txt"), TextBytes(5000)));
    QVERIFY(WriteSparse(Work("in/" + file), 80 * kMiB, "head", iCrc)); // more than the 64 MB volume
    CLS_ZipWriter writer(Work("out/x.zip"));
    QVERIFY(writer.AddFile("first.txt", Work("in/first.txt")));
    QVERIFY(writer.AddFile(file, Work("in/" + file)));
    if (failure == "gone") {
        QVERIFY(QFile::remove(Work("in/" + file)));
    } else if (failure == "shortened") {
        QVERIFY(QFile::resize(Work("in/" + file), 50 * kMiB));
    } else if (failure == "grown") {
        QVERIFY(QFile::resize(Work("in/" + file), 90 * kMiB));
    }
    QCOMPARE(writer.Write(), CLS_ZipWriter::WRITE_FAILED);
    QVERIFY(!writer.ErrorText().isEmpty());
    if (!outOfSpace) {
        QVERIFY2(writer.ErrorText().contains(Work("in/" + file)), qPrintable(writer.ErrorText()));
    }
    QCOMPARE(writer.RanOutOfSpace(), outOfSpace);
    QCOMPARE(QDir(Work("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
}

QTEST_GUILESS_MAIN(tst_ZipWriter)
#include "tst_ZipWriter.moc"
