#include <atomic>
#include <memory>
#include <thread>

#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QtTest>
#include <sys/statvfs.h>

#include "CLS_BackUpPresenter.h"
#include "EngineTestSupport.h"

using namespace EngineTest;

namespace {

CLS_BackUpPresenter* Presenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

bool WriteSparse(const QString& _qstrPath, qint64 _iSize)
{
    QDir().mkpath(QFileInfo(_qstrPath).absolutePath());
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write("head") == 4 &&
           file.resize(_iSize);
}

// The biggest file in the folder, the archive being written under its temporary name.
qint64 LargestFile(const QString& _qstrFolder)
{
    qint64 iLargest = 0;
    for (const QFileInfo& info : QDir(_qstrFolder).entryInfoList(QDir::Files | QDir::Hidden)) {
        iLargest = std::max(iLargest, info.size());
    }
    return iLargest;
}

} // namespace

// DirToZip as the backup run uses it: a cancel of the run and a full volume.
class tst_DirToZip : public QObject
{
    Q_OBJECT

private slots:
    void init();
    void cleanup();
    void cancelOfTheRunStopsWithinAFile();
    void fullVolumeIsToldApart();

private:
    QString Path(const QString& _qstrRelative) const { return m_dir->path() + "/" + _qstrRelative; }
    int LogCount(const QString& _qstrNeedle) const
    {
        return LogLines(m_dir->path()).filter(_qstrNeedle).size();
    }

    std::unique_ptr<QTemporaryDir> m_dir;
};

void tst_DirToZip::init()
{
    // The archive grows to hundreds of MiB before the cancel: in memory where there is room.
    struct statvfs volume;
    const bool blRoom = statvfs("/dev/shm", &volume) == 0 &&
                        qint64(volume.f_bavail) * qint64(volume.f_frsize) > (qint64(2) << 30);
    m_dir = blRoom ? std::make_unique<QTemporaryDir>("/dev/shm/tst_DirToZip-XXXXXX")
                   : std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
    qputenv("HX_DATA_PATH", m_dir->path().toUtf8());
    Presenter()->SetBackUpCancel(0);
}

void tst_DirToZip::cleanup()
{
    Presenter()->SetBackUpCancel(0);
    m_dir.reset();
}

void tst_DirToZip::cancelOfTheRunStopsWithinAFile()
{
    QVERIFY(WriteFile(Path("S/first.txt"), "first"));
    QVERIFY(WriteSparse(Path("S/Download/clip.mp4"), (qint64(9) << 30) / 2));
    QVERIFY(QDir().mkpath(Path("out")));
    // The cancel comes once the clip is well under way, as the window's button would send it.
    std::atomic<bool> blCancelSent{false};
    QElapsedTimer sinceCancel;
    std::thread canceller([&] {
        QElapsedTimer waited;
        waited.start();
        while (LargestFile(Path("out")) < (qint64(200) << 20) && waited.elapsed() < 120000) {
            std::this_thread::yield();
        }
        sinceCancel.start();
        blCancelSent = true;
        Presenter()->SetBackUpCancel(-1);
    });
    QList<int> lstSeen;
    const bool blDone =
        Presenter()->DirToZip(Path("S"), Path("out"), ".X.partial", [&lstSeen](int _iPercent) {
            lstSeen << _iPercent;
            return 0;
        });
    const qint64 iElapsed = sinceCancel.elapsed();
    canceller.join();
    QVERIFY(blCancelSent);
    QVERIFY(!blDone);
    QVERIFY2(iElapsed < 1000, qPrintable(QString("%1 ms from the cancel to the end").arg(iElapsed)));
    QCOMPARE(lstSeen, QList<int>{50}); // per file: the first file only
    QVERIFY(!Presenter()->LastPackRanOutOfSpace());
    QCOMPARE(QDir(Path("out")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
    const QString qstrSource = QFileInfo(Path("S")).absoluteFilePath();
    QCOMPARE(LogCount("DirToZipWriter canceled [ _qstrCurrentPath :" + qstrSource +
                      "; _qstrBasePath :" + qstrSource + "]"),
             1);
}

void tst_DirToZip::fullVolumeIsToldApart()
{
    CLS_SmallVolume volume(Path("small"));
    if (!volume.IsMounted()) {
        QSKIP("a small tmpfs cannot be mounted here (needs root and mount rights)");
    }
    QVERIFY(WriteFile(Path("S/first.txt"), "first"));
    QVERIFY(WriteSparse(Path("S/clip.mp4"), qint64(80) << 20)); // more than the 64 MB volume
    QVERIFY(!Presenter()->DirToZip(Path("S"), Path("small"), "F", nullptr));
    QVERIFY(Presenter()->LastPackRanOutOfSpace());
    QCOMPARE(LogCount(" DirToZip failed write failed [_qstrZipName " + Path("small/F.zip") + "] "), 1);
    QCOMPARE(QDir(Path("small")).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
             QStringList());
    // The next packing that fits says so no more.
    QVERIFY(QFile::remove(Path("S/clip.mp4")));
    QVERIFY(Presenter()->DirToZip(Path("S"), Path("small"), "F", nullptr));
    QVERIFY(!Presenter()->LastPackRanOutOfSpace());
}

QTEST_GUILESS_MAIN(tst_DirToZip)
#include "tst_DirToZip.moc"
