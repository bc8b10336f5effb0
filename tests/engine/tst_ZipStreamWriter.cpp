#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>
#include <private/qzipreader_p.h>
#include <private/qzipwriter_p.h>
#include <zlib.h>

#include "CLS_ParallelDeflater.h"
#include "CLS_ZipLayout.h"
#include "CLS_ZipStreamWriter.h"
#include "EngineTestSupport.h"

using namespace EngineTest;

namespace {

const qint64 kChunk = CLS_ParallelDeflater::kChunkBytes;

QByteArray RandomBytes(qint64 _iSize, quint32 _iSeed)
{
    QRandomGenerator generator(_iSeed);
    QByteArray qbaData(static_cast<int>(_iSize), Qt::Uninitialized);
    for (char& c : qbaData) {
        c = static_cast<char>(generator.generate() & 0xFF);
    }
    return qbaData;
}

// Text that repeats at long and short range, so back-references across chunk borders matter.
QByteArray TextBytes(qint64 _iSize)
{
    QByteArray qbaData;
    for (int i = 0; qbaData.size() < _iSize; ++i) {
        qbaData += QByteArray("camera=") + QByteArray::number(i % 977) +
                   ";channel=" + QByteArray::number(i % 13) + ";name=entrance hall north\n";
    }
    qbaData.truncate(static_cast<int>(_iSize));
    return qbaData;
}

quint16 Short(const QByteArray& _qbaData, qint64 _iAt)
{
    return static_cast<quint16>(static_cast<uchar>(_qbaData[int(_iAt)]) |
                                (static_cast<uchar>(_qbaData[int(_iAt + 1)]) << 8));
}

quint32 Int(const QByteArray& _qbaData, qint64 _iAt)
{
    return Short(_qbaData, _iAt) | (quint32(Short(_qbaData, _iAt + 2)) << 16);
}

// Blanks the time stamps of every local header and directory record: the two writers add at other moments.
QByteArray WithoutTimes(QByteArray _qbaZip)
{
    const int iEnd = _qbaZip.lastIndexOf(QByteArray("PK\x05\x06", 4));
    if (iEnd < 0) {
        return QByteArray();
    }
    const int iEntries = Short(_qbaZip, iEnd + 10);
    qint64 iAt = Int(_qbaZip, iEnd + 16);
    for (int i = 0; i < iEntries; ++i) {
        const qint64 iLocal = Int(_qbaZip, iAt + 42);
        _qbaZip.replace(int(iLocal + 10), 4, QByteArray(4, '\0'));
        _qbaZip.replace(int(iAt + 12), 4, QByteArray(4, '\0'));
        iAt += 46 + Short(_qbaZip, iAt + 28) + Short(_qbaZip, iAt + 30) + Short(_qbaZip, iAt + 32);
    }
    return _qbaZip;
}

QByteArray Inflate(const QByteArray& _qbaDeflated, qint64 _iExpected)
{
    QByteArray qbaOut(static_cast<int>(_iExpected + 1), '\0');
    z_stream stream{};
    if (inflateInit2(&stream, -MAX_WBITS) != Z_OK) {
        return "inflateInit2 failed";
    }
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(_qbaDeflated.constData()));
    stream.avail_in = static_cast<uInt>(_qbaDeflated.size());
    stream.next_out = reinterpret_cast<Bytef*>(qbaOut.data());
    stream.avail_out = static_cast<uInt>(qbaOut.size());
    const int iResult = inflate(&stream, Z_FINISH);
    const bool blWhole = iResult == Z_STREAM_END && stream.avail_in == 0;
    qbaOut.truncate(static_cast<int>(stream.total_out));
    inflateEnd(&stream);
    return blWhole ? qbaOut : "stream did not end where the data ends";
}

} // namespace

class tst_ZipStreamWriter : public QObject
{
    Q_OBJECT

private slots:
    void init();

    void StoredArchiveMatchesQtWriter();
    void ContentReadsBack_data();
    void ContentReadsBack();
    void DeflaterKeepsOrder_data();
    void DeflaterKeepsOrder();
    void LargeFileStaysWithinBudget();
    void FailedFileLeavesNoTrace_data();
    void FailedFileLeavesNoTrace();
    void WriteErrorIsReported();

private:
    QString Work(const QString& _qstrName) const { return m_dir->path() + "/" + _qstrName; }

    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_ZipStreamWriter::init()
{
    m_dir.reset(new QTemporaryDir());
    QVERIFY(m_dir->isValid());
}

void tst_ZipStreamWriter::StoredArchiveMatchesQtWriter()
{
    const QList<QPair<QString, QByteArray>> lstFiles{{"a.txt", TextBytes(5000)},
                                                     {"empty.ini", QByteArray()},
                                                     {"Face/0001.jpg", RandomBytes(70000, 1)},
                                                     {QString::fromUtf8("地图/层.json"), "{\"x\": 1}"}};
    QZipWriter qtWriter(Work("qt.zip"));
    qtWriter.setCompressionPolicy(QZipWriter::NeverCompress);
    CLS_ZipStreamWriter ourWriter(Work("ours.zip"));
    for (const auto& file : lstFiles) {
        QVERIFY(WriteFile(Work("in/" + file.first), file.second));
        qtWriter.addFile(file.first, file.second);
        QString qstrError;
        QCOMPARE(ourWriter.AddFile(file.first, Work("in/" + file.first), false, qstrError),
                 CLS_ZipStreamWriter::ADD_DONE);
    }
    qtWriter.close();
    QVERIFY(ourWriter.Close());

    const QByteArray qbaQt = WithoutTimes(ReadFile(Work("qt.zip")));
    QVERIFY(!qbaQt.isEmpty());
    QCOMPARE(WithoutTimes(ReadFile(Work("ours.zip"))), qbaQt);
}

void tst_ZipStreamWriter::ContentReadsBack_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("deflate");

    QTest::newRow("empty, deflated") << QByteArray() << true;
    QTest::newRow("one byte, deflated") << QByteArray("x") << true;
    QTest::newRow("text one byte short of a chunk") << TextBytes(kChunk - 1) << true;
    QTest::newRow("text of exactly one chunk") << TextBytes(kChunk) << true;
    QTest::newRow("text one byte over a chunk") << TextBytes(kChunk + 1) << true;
    QTest::newRow("text over several chunks") << TextBytes(3 * kChunk + 17) << true;
    QTest::newRow("random over several chunks") << RandomBytes(2 * kChunk + 5, 7) << true;
    QTest::newRow("random over several chunks, stored") << RandomBytes(2 * kChunk + 5, 8) << false;
    QTest::newRow("empty, stored") << QByteArray() << false;
}

void tst_ZipStreamWriter::ContentReadsBack()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, deflate);
    QVERIFY(WriteFile(Work("in/f.dat"), content));
    QVERIFY(WriteFile(Work("in/tail.txt"), "after"));
    {
        CLS_ZipStreamWriter writer(Work("out.zip"));
        QString qstrError;
        writer.AnnounceDeflated(Work("in/f.dat"));
        QCOMPARE(writer.AddFile("dir/f.dat", Work("in/f.dat"), deflate, qstrError),
                 CLS_ZipStreamWriter::ADD_DONE);
        QCOMPARE(writer.AddFile("tail.txt", Work("in/tail.txt"), true, qstrError),
                 CLS_ZipStreamWriter::ADD_DONE);
        QVERIFY2(writer.Close(), qPrintable(writer.ErrorText()));
    }

    CLS_ZipLayout directory;
    QVERIFY2(directory.Read(Work("out.zip")), qPrintable(directory.ErrorText()));
    QCOMPARE(directory.Entries().size(), 2);
    const STRUCT_ZipEntryPlace& entry = directory.Entries().first();
    QCOMPARE(entry.qbaRawName, QByteArray("dir/f.dat"));
    QCOMPARE(entry.iMethod, quint16(deflate ? 8 : 0));
    QCOMPARE(entry.iSize, qint64(content.size()));
    QCOMPARE(entry.iCrc,
             quint32(crc32(0, reinterpret_cast<const Bytef*>(content.constData()), uInt(content.size()))));

    const QByteArray qbaZip = ReadFile(Work("out.zip"));
    const QByteArray qbaRaw = qbaZip.mid(int(entry.iDataOffset), int(entry.iCompressedSize));
    QCOMPARE(deflate ? Inflate(qbaRaw, entry.iSize) : qbaRaw, content);
    if (deflate && content.startsWith("camera=")) {
        QVERIFY2(entry.iCompressedSize * 5 < entry.iSize, "text is not deflated well across chunk borders");
    }

    QZipReader reader(Work("out.zip"));
    QCOMPARE(reader.fileData("dir/f.dat"), content);
    QCOMPARE(reader.fileData("tail.txt"), QByteArray("after"));
}

void tst_ZipStreamWriter::DeflaterKeepsOrder_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<qint64>("budget");

    QTest::newRow("one thread, no room ahead") << 1 << qint64(1);
    QTest::newRow("three threads, no room ahead") << 3 << qint64(1);
    QTest::newRow("three threads, room for all") << 3 << (qint64(1) << 30);
}

void tst_ZipStreamWriter::DeflaterKeepsOrder()
{
    QFETCH(int, threads);
    QFETCH(qint64, budget);
    QVector<QByteArray> vecContents;
    for (int i = 0; i < 12; ++i) {
        vecContents << (i % 3 == 0 ? TextBytes(kChunk * (i % 4) + 100 * i)
                                   : RandomBytes(5000 * i, quint32(i)));
        QVERIFY(WriteFile(Work(QString("f%1").arg(i)), vecContents.last()));
    }
    CLS_ParallelDeflater deflater(threads, 1, budget);
    for (int i = 0; i < vecContents.size(); ++i) {
        deflater.Announce(Work(QString("f%1").arg(i)));
    }
    // Files 4 and 5 are never asked for, file 7 vanishes after its announcement.
    QVERIFY(QFile::remove(Work("f7")));
    for (int i : {0, 1, 2, 3, 6, 7, 8, 9, 10, 11, 11}) {
        QByteArray qbaStream;
        quint32 iCrc = 0;
        qint64 iSize = -1;
        QString qstrError;
        const bool blDone = deflater.Deflate(
            Work(QString("f%1").arg(i)),
            [&](const char* _pData, qint64 _iSize) {
                qbaStream.append(_pData, int(_iSize));
                return true;
            },
            iCrc, iSize, qstrError);
        if (i == 7) {
            QVERIFY(!blDone);
            QVERIFY(!qstrError.isEmpty());
            continue;
        }
        QVERIFY2(blDone, qPrintable(qstrError));
        const QByteArray& qbaContent = vecContents[i];
        QCOMPARE(iSize, qint64(qbaContent.size()));
        QCOMPARE(iCrc, quint32(crc32(0, reinterpret_cast<const Bytef*>(qbaContent.constData()),
                                     uInt(qbaContent.size()))));
        QCOMPARE(Inflate(qbaStream, iSize), qbaContent);
    }
}

void tst_ZipStreamWriter::LargeFileStaysWithinBudget()
{
    const int iThreads = 3;
    const qint64 iBudget = 2 * kChunk;
    const QByteArray qbaContent = RandomBytes(24 * kChunk, 11); // deflates to about its own size
    QVERIFY(WriteFile(Work("big"), qbaContent));
    CLS_ParallelDeflater deflater(iThreads, 1, iBudget);
    deflater.Announce(Work("big"));
    quint32 iCrc = 0;
    qint64 iSize = 0;
    qint64 iStreamed = 0;
    quint32 iBusyWork = 0; // the slow writer's work, kept so that it is done
    QString qstrError;
    QVERIFY(deflater.Deflate(
        Work("big"),
        [&](const char* _pData, qint64 _iSize) {
            // A slow writer: the workers would run far ahead of it if nothing held them back.
            for (int i = 0; i < 60; ++i) {
                iBusyWork ^= quint32(crc32(i, reinterpret_cast<const Bytef*>(_pData), uInt(_iSize)));
            }
            iStreamed += _iSize;
            return true;
        },
        iCrc, iSize, qstrError));
    QCOMPARE(iSize, qint64(qbaContent.size()));
    QCOMPARE(iCrc, quint32(crc32(0, reinterpret_cast<const Bytef*>(qbaContent.constData()),
                                 uInt(qbaContent.size()))));
    QVERIFY(iStreamed > qbaContent.size());
    // Past the budget only the chunks needed next start, one per worker, each stored output a bit larger.
    QVERIFY2(deflater.PeakHeldBytes() <= iBudget + (iThreads + 1) * (kChunk + kChunk / 100),
             qPrintable(QString::number(deflater.PeakHeldBytes())));
}

void tst_ZipStreamWriter::FailedFileLeavesNoTrace_data()
{
    QTest::addColumn<QString>("failing");
    QTest::addColumn<bool>("deflate");

    // A folder opens but cannot be read: the header is already written when the read fails.
    QTest::newRow("unreadable, stored") << "folder" << false;
    QTest::newRow("unreadable, deflated") << "folder" << true;
    QTest::newRow("missing, stored") << "missing" << false;
    QTest::newRow("missing, deflated") << "missing" << true;
}

void tst_ZipStreamWriter::FailedFileLeavesNoTrace()
{
    QFETCH(QString, failing);
    QFETCH(bool, deflate);
    QVERIFY(QDir().mkpath(Work("folder")));
    QVERIFY(WriteFile(Work("a.txt"), TextBytes(3000)));
    QVERIFY(WriteFile(Work("b.bin"), RandomBytes(kChunk + 3, 3)));

    CLS_ZipStreamWriter writer(Work("out.zip"));
    QString qstrError;
    writer.AnnounceDeflated(Work("a.txt"));
    writer.AnnounceDeflated(Work(failing));
    QCOMPARE(writer.AddFile("a.txt", Work("a.txt"), true, qstrError), CLS_ZipStreamWriter::ADD_DONE);
    QCOMPARE(writer.AddFile("x", Work(failing), deflate, qstrError), CLS_ZipStreamWriter::ADD_READ_FAILED);
    QVERIFY(!qstrError.isEmpty());
    QCOMPARE(writer.AddFile("b.bin", Work("b.bin"), false, qstrError), CLS_ZipStreamWriter::ADD_DONE);
    QVERIFY(writer.Close());

    CLS_ZipLayout directory;
    QVERIFY2(directory.Read(Work("out.zip")), qPrintable(directory.ErrorText()));
    QCOMPARE(directory.Entries().size(), 2);
    QZipReader reader(Work("out.zip"));
    QCOMPARE(reader.fileData("a.txt"), TextBytes(3000));
    QCOMPARE(reader.fileData("b.bin"), RandomBytes(kChunk + 3, 3));
    // Nothing of the failed file is left between the two entries.
    QCOMPARE(directory.Entries().at(1).iDataOffset - 30 - 5,
             directory.Entries().at(0).iDataOffset + directory.Entries().at(0).iCompressedSize);
}

void tst_ZipStreamWriter::WriteErrorIsReported()
{
    if (!QFileInfo::exists("/dev/full")) {
        QSKIP("no /dev/full here");
    }
    QVERIFY(WriteFile(Work("big.bin"), RandomBytes(3 * kChunk, 9)));
    CLS_ZipStreamWriter writer("/dev/full");
    QVERIFY(writer.IsOpen());
    QString qstrError;
    QCOMPARE(writer.AddFile("big.bin", Work("big.bin"), false, qstrError),
             CLS_ZipStreamWriter::ADD_WRITE_FAILED);
    QVERIFY(!qstrError.isEmpty());
    QCOMPARE(writer.AddFile("big.bin", Work("big.bin"), false, qstrError),
             CLS_ZipStreamWriter::ADD_WRITE_FAILED);
    QVERIFY(!writer.Close());
    QCOMPARE(writer.ErrorText(), qstrError);
}

QTEST_GUILESS_MAIN(tst_ZipStreamWriter)
#include "tst_ZipStreamWriter.moc"
