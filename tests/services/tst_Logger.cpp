#include <thread>
#include <vector>

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "CLS_StreamCapture.h"
#include "Logger.h"
#include "Util.h"

namespace {

QStringList LogLines(const QString& _qstrDataPath)
{
    QFile file(_qstrDataPath + "/Log/hx.log");
    if (!file.open(QIODevice::ReadOnly)) {
        return {};
    }
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

template <typename F>
F LogFunction(const char* _pName)
{
    return Util::FunctionCast<F>(Logger::GetModuleFun(_pName, ""));
}

} // namespace

class tst_Logger : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();
    void lineCarriesItsSourceAndText_data();
    void lineCarriesItsSourceAndText();
    void fixedLineNumberIsKept();
    void standardErrorFromConfiguredLevel_data();
    void standardErrorFromConfiguredLevel();
    void moduleLevelsFilterTheFile();
    void linesFromManyThreadsStayWhole();
    void largeLogIsRotated();
    void followsTheDataFolder();

private:
    std::unique_ptr<QTemporaryDir> m_pDir;
};

void tst_Logger::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());
    qputenv("HX_LOG_LEVEL", "9");
}

void tst_Logger::cleanup()
{
    if (auto pAll = LogFunction<Logger::PFN_SetLoggerConfigAll>("SetLoggerConfigAll")) {
        pAll(0);
    }
    m_pDir.reset();
}

void tst_Logger::lineCarriesItsSourceAndText_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("levelName");
    QTest::addColumn<QString>("message");
    QTest::newRow("entry line") << 0 << "DEBUG"
                                << "run function _qmapParam - [{}]";
    QTest::newRow("note") << 1 << "INFO"
                          << "handle 1 key:[LoadLastSaveSetting]";
    QTest::newRow("failure, odd spacing kept") << 2 << "WARN"
                                               << " DirToZip failed  qiDiskAvailableStorage";
    QTest::newRow("Chinese text") << 3 << "ERROR" << QString::fromUtf8("备份失败 [路径");
}

void tst_Logger::lineCarriesItsSourceAndText()
{
    QFETCH(int, level);
    QFETCH(QString, levelName);
    QFETCH(QString, message);
    const int iLine = __LINE__ + 1;
    HX_LOG(level, "ModuleBackUp") << message;

    const QStringList lines = LogLines(m_pDir->path());
    QCOMPARE(lines.size(), 1);
    const QString qstrExpectedTail = QString("[%1] ").arg(levelName);
    QVERIFY2(lines.first().contains(qstrExpectedTail), qPrintable(lines.first()));
    QVERIFY2(lines.first().contains(
                 QString(" ModuleBackUp tst_Logger.cpp:%1 lineCarriesItsSourceAndText - ").arg(iLine)),
             qPrintable(lines.first()));
    QVERIFY2(lines.first().endsWith(" - " + message), qPrintable(lines.first()));
}

void tst_Logger::fixedLineNumberIsKept()
{
    HX_LOG_AT(3, "ModuleBackUp", 248) << "Request Fail" << 42 << ' ' << QByteArray("bytes");
    const QStringList lines = LogLines(m_pDir->path());
    QCOMPARE(lines.size(), 1);
    QVERIFY2(lines.first().contains("tst_Logger.cpp:248 fixedLineNumberIsKept - Request Fail42 bytes"),
             qPrintable(lines.first()));
}

void tst_Logger::standardErrorFromConfiguredLevel_data()
{
    QTest::addColumn<QByteArray>("configured");
    QTest::addColumn<int>("level");
    QTest::addColumn<bool>("echoed");
    QTest::newRow("below the level") << QByteArray("2") << 1 << false;
    QTest::newRow("at the level") << QByteArray("2") << 2 << true;
    QTest::newRow("above the level") << QByteArray("2") << 3 << true;
    QTest::newRow("everything") << QByteArray("0") << 0 << true;
    QTest::newRow("failures by default") << QByteArray() << 2 << true;
    QTest::newRow("notes hidden by default") << QByteArray() << 1 << false;
}

void tst_Logger::standardErrorFromConfiguredLevel()
{
    QFETCH(QByteArray, configured);
    QFETCH(int, level);
    QFETCH(bool, echoed);
    if (configured.isNull()) {
        qunsetenv("HX_LOG_LEVEL");
    } else {
        qputenv("HX_LOG_LEVEL", configured);
    }
    CLS_StreamCapture err(STDERR_FILENO);
    HX_LOG(level, "ModuleBackUp") << "echo check";
    const QString qstrErr = QString::fromStdString(err.Text());
    QCOMPARE(qstrErr.contains("echo check"), echoed);
    // The file gets the line whatever is echoed.
    QCOMPARE(LogLines(m_pDir->path()).size(), 1);
}

void tst_Logger::moduleLevelsFilterTheFile()
{
    auto pModule = LogFunction<Logger::PFN_SetLoggerConfig>("SetLoggerConfig");
    auto pAll = LogFunction<Logger::PFN_SetLoggerConfigAll>("SetLoggerConfigAll");
    QVERIFY(pModule != nullptr && pAll != nullptr);

    QCOMPARE(pModule("Quiet", 2), 1);
    HX_LOG(1, "Quiet") << "dropped";
    HX_LOG(2, "Quiet") << "kept warn";
    HX_LOG(0, "Other") << "kept other";
    QCOMPARE(pAll(3), 1);
    HX_LOG(2, "Other") << "dropped too";
    HX_LOG(3, "Quiet") << "kept error";

    const QString qstrLog = LogLines(m_pDir->path()).join('\n');
    QVERIFY(!qstrLog.contains("dropped"));
    QVERIFY(qstrLog.contains("kept warn"));
    QVERIFY(qstrLog.contains("kept other"));
    QVERIFY(qstrLog.contains("kept error"));
}

void tst_Logger::linesFromManyThreadsStayWhole()
{
    constexpr int kThreads = 8;
    constexpr int kLines = 250;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < kLines; ++i) {
                HX_LOG(1, "ModuleBackUp") << "thread " << t << " line " << i << " end";
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    const QStringList lines = LogLines(m_pDir->path());
    QCOMPARE(lines.size(), kThreads * kLines);
    const QRegularExpression whole(" - thread (\\d) line (\\d+) end$");
    QSet<QString> seen;
    for (const QString& line : lines) {
        const QRegularExpressionMatch match = whole.match(line);
        QVERIFY2(match.hasMatch(), qPrintable(line));
        seen.insert(match.captured(1) + ':' + match.captured(2));
    }
    QCOMPARE(seen.size(), kThreads * kLines);
}

void tst_Logger::largeLogIsRotated()
{
    const std::string strChunk(4096, 'x');
    for (int i = 0; i < 2700; ++i) { // a little over 10 MiB
        HX_LOG(1, "ModuleBackUp") << i << ' ' << strChunk;
    }
    HX_LOG(1, "ModuleBackUp") << "after rotation";
    const QFileInfo current(m_pDir->path() + "/Log/hx.log");
    const QFileInfo previous(m_pDir->path() + "/Log/hx.log.1");
    QVERIFY(previous.exists());
    QVERIFY(previous.size() >= 10L * 1024 * 1024);
    QVERIFY(current.size() < previous.size());
    QVERIFY(LogLines(m_pDir->path()).last().endsWith("after rotation"));
}

void tst_Logger::followsTheDataFolder()
{
    HX_LOG(1, "ModuleBackUp") << "first folder";
    QTemporaryDir other;
    qputenv("HX_DATA_PATH", other.path().toUtf8());
    HX_LOG(1, "ModuleBackUp") << "second folder";
    qputenv("HX_DATA_PATH", m_pDir->path().toUtf8());

    QCOMPARE(LogLines(m_pDir->path()).size(), 1);
    QCOMPARE(LogLines(other.path()).size(), 1);
    QVERIFY(LogLines(other.path()).first().endsWith("second folder"));
}

QTEST_GUILESS_MAIN(tst_Logger)
#include "tst_Logger.moc"
