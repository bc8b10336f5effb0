#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>
#include <zlib.h>

#include "CLS_ParallelDeflater.h"
#include "EngineTestSupport.h"

using namespace EngineTest;

namespace {

const qint64 kChunk = CLS_ParallelDeflater::kChunkBytes;

quint32 Crc(const QByteArray& _qbaData)
{
    return quint32(crc32(0, reinterpret_cast<const Bytef*>(_qbaData.constData()), uInt(_qbaData.size())));
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

struct STRUCT_Pulled
{
    bool blDone = false;
    QByteArray qbaStream;
    quint32 iCrc = 0;
    qint64 iSize = -1;
    QString qstrError;
    int iPieces = 0;
};

// Pulls the whole stream of the file, _onPiece seeing every piece on the way.
STRUCT_Pulled PullAll(CLS_ParallelDeflater& _deflater, const QString& _qstrPath,
                      const std::function<void(const std::vector<char>&)>& _onPiece = {})
{
    STRUCT_Pulled pulled;
    _deflater.Begin(_qstrPath);
    std::vector<char> vecPiece;
    for (;;) {
        switch (_deflater.Pull(vecPiece, pulled.iCrc, pulled.iSize, pulled.qstrError)) {
        case CLS_ParallelDeflater::PULL_PIECE:
            ++pulled.iPieces;
            pulled.qbaStream.append(vecPiece.data(), int(vecPiece.size()));
            if (_onPiece) {
                _onPiece(vecPiece);
            }
            continue;
        case CLS_ParallelDeflater::PULL_END:
            pulled.blDone = true;
            return pulled;
        case CLS_ParallelDeflater::PULL_FAILED:
            return pulled;
        }
    }
}

} // namespace

class tst_ParallelDeflater : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void streamsReadBack_data();
    void streamsReadBack();
    void keepsOrder_data();
    void keepsOrder();
    void largeFileStaysWithinBudget();
    void abandonedFileIsDropped();

private:
    QString Work(const QString& _qstrName) const { return m_dir->path() + "/" + _qstrName; }

    QScopedPointer<QTemporaryDir> m_dir;
};

void tst_ParallelDeflater::init()
{
    m_dir.reset(new QTemporaryDir());
    QVERIFY(m_dir->isValid());
}

void tst_ParallelDeflater::streamsReadBack_data()
{
    QTest::addColumn<QByteArray>("content");

    QTest::newRow("empty") << QByteArray();
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("text one byte short of a chunk") << TextBytes(kChunk - 1);
    QTest::newRow("text of exactly one chunk") << TextBytes(kChunk);
    QTest::newRow("text one byte over a chunk") << TextBytes(kChunk + 1);
    QTest::newRow("text over several chunks") << TextBytes(3 * kChunk + 17);
    QTest::newRow("random over several chunks") << RandomBytes(2 * kChunk + 5, 7);
}

void tst_ParallelDeflater::streamsReadBack()
{
    QFETCH(QByteArray, content);
    QVERIFY(WriteFile(Work("f.dat"), content));
    CLS_ParallelDeflater deflater(3, 1, qint64(64) << 20);
    deflater.Announce(Work("f.dat"));
    const STRUCT_Pulled pulled = PullAll(deflater, Work("f.dat"));
    QVERIFY2(pulled.blDone, qPrintable(pulled.qstrError));
    QCOMPARE(pulled.iPieces, int(std::max<qint64>(1, (content.size() + kChunk - 1) / kChunk)));
    QCOMPARE(pulled.iSize, qint64(content.size()));
    QCOMPARE(pulled.iCrc, Crc(content));
    QCOMPARE(Inflate(pulled.qbaStream, pulled.iSize), content);
    if (content.startsWith("camera=")) {
        QVERIFY2(pulled.qbaStream.size() * 5 < content.size(),
                 "text is not deflated well across chunk borders");
    }
}

void tst_ParallelDeflater::keepsOrder_data()
{
    QTest::addColumn<int>("threads");
    QTest::addColumn<qint64>("budget");

    QTest::newRow("one thread, no room ahead") << 1 << qint64(1);
    QTest::newRow("three threads, no room ahead") << 3 << qint64(1);
    QTest::newRow("three threads, room for all") << 3 << (qint64(1) << 30);
}

void tst_ParallelDeflater::keepsOrder()
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
    // Files 4 and 5 are never begun, file 7 vanishes after its announcement, 11 is taken twice.
    QVERIFY(QFile::remove(Work("f7")));
    for (int i : {0, 1, 2, 3, 6, 7, 8, 9, 10, 11, 11}) {
        const STRUCT_Pulled pulled = PullAll(deflater, Work(QString("f%1").arg(i)));
        if (i == 7) {
            QVERIFY(!pulled.blDone);
            QVERIFY(!pulled.qstrError.isEmpty());
            continue;
        }
        QVERIFY2(pulled.blDone, qPrintable(pulled.qstrError));
        const QByteArray& qbaContent = vecContents[i];
        QCOMPARE(pulled.iSize, qint64(qbaContent.size()));
        QCOMPARE(pulled.iCrc, Crc(qbaContent));
        QCOMPARE(Inflate(pulled.qbaStream, pulled.iSize), qbaContent);
    }
}

void tst_ParallelDeflater::largeFileStaysWithinBudget()
{
    const int iThreads = 3;
    const qint64 iBudget = 2 * kChunk;
    const QByteArray qbaContent = RandomBytes(24 * kChunk, 11); // deflates to about its own size
    QVERIFY(WriteFile(Work("big"), qbaContent));
    CLS_ParallelDeflater deflater(iThreads, 1, iBudget);
    deflater.Announce(Work("big"));
    quint32 iBusyWork = 0; // the slow reader's work, kept so that it is done
    const STRUCT_Pulled pulled =
        PullAll(deflater, Work("big"), [&iBusyWork](const std::vector<char>& _vecPiece) {
            // A slow reader: the workers would run far ahead of it if nothing held them back.
            for (int i = 0; i < 60; ++i) {
                iBusyWork ^= quint32(
                    crc32(i, reinterpret_cast<const Bytef*>(_vecPiece.data()), uInt(_vecPiece.size())));
            }
        });
    QVERIFY2(pulled.blDone, qPrintable(pulled.qstrError));
    QCOMPARE(pulled.iSize, qint64(qbaContent.size()));
    QCOMPARE(pulled.iCrc, Crc(qbaContent));
    QVERIFY(pulled.qbaStream.size() > qbaContent.size());
    // Past the budget only the chunks needed next start, one per worker, each stored output a bit larger.
    QVERIFY2(deflater.PeakHeldBytes() <= iBudget + (iThreads + 1) * (kChunk + kChunk / 100),
             qPrintable(QString::number(deflater.PeakHeldBytes())));
}

void tst_ParallelDeflater::abandonedFileIsDropped()
{
    // A cancelled archive leaves a file half taken; the next one begun starts from its own beginning.
    const QByteArray qbaFirst = TextBytes(5 * kChunk);
    const QByteArray qbaSecond = TextBytes(kChunk + 99).toUpper();
    QVERIFY(WriteFile(Work("first"), qbaFirst));
    QVERIFY(WriteFile(Work("second"), qbaSecond));
    CLS_ParallelDeflater deflater(2, 1, qint64(64) << 20);
    deflater.Announce(Work("first"));
    deflater.Announce(Work("second"));
    deflater.Begin(Work("first"));
    std::vector<char> vecPiece;
    quint32 iCrc = 0;
    qint64 iSize = 0;
    QString qstrError;
    QCOMPARE(deflater.Pull(vecPiece, iCrc, iSize, qstrError), CLS_ParallelDeflater::PULL_PIECE);
    const STRUCT_Pulled pulled = PullAll(deflater, Work("second"));
    QVERIFY2(pulled.blDone, qPrintable(pulled.qstrError));
    QCOMPARE(pulled.iCrc, Crc(qbaSecond));
    QCOMPARE(Inflate(pulled.qbaStream, pulled.iSize), qbaSecond);
}

QTEST_GUILESS_MAIN(tst_ParallelDeflater)
#include "tst_ParallelDeflater.moc"
