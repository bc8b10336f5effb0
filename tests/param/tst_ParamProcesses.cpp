#include <algorithm>
#include <memory>
#include <string>

#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "ParamTestSupport.h"

using namespace ParamTest;

// The store shared by processes: values outlive the process that wrote them, a reader sees another
// process's write, writers do not lose each other's keys, and a writer killed half-way breaks nothing.
class CLS_ParamProcessesTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void valueOutlivesWriterProcess_data();
    void valueOutlivesWriterProcess();
    void readerSeesOtherProcessWrite();
    void writersInSeveralProcessesKeepAllKeys();
    void killedWriterLeavesWholeFile_data();
    void killedWriterLeavesWholeFile();

private:
    QString DataPath() const { return m_pDir->path(); }

    std::unique_ptr<QTemporaryDir> m_pDir;
    Param::PFN_UnInit m_pUnInit = nullptr;
};

namespace {

constexpr int kProcessTimeoutMs = 60000;

QString Hex(const std::string& _str)
{
    return QString::fromLatin1(QByteArray(_str.data(), static_cast<int>(_str.size())).toHex());
}

// Runs the helper to its end; false when it did not exit normally with code 0. *_pbaValue receives the
// value it printed.
bool RunTool(const QStringList& _lstArgs, QByteArray* _pbaValue = nullptr)
{
    QProcess process;
    process.start(PARAM_TOOL_PATH, _lstArgs);
    if (!process.waitForFinished(kProcessTimeoutMs)) {
        process.kill();
        process.waitForFinished();
        return false;
    }
    if (_pbaValue != nullptr) {
        const QList<QByteArray> lstLines = process.readAllStandardOutput().split('\n');
        const auto it = std::find_if(lstLines.begin(), lstLines.end(),
                                     [](const QByteArray& _baLine) { return _baLine.startsWith("value="); });
        if (it == lstLines.end()) {
            return false;
        }
        *_pbaValue = QByteArray::fromHex(it->mid(int(sizeof("value=")) - 1));
    }
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
}

// Whole values written by "churn": "<n>:" then a letter chosen by n, repeated.
bool IsWholeChurnValue(const QString& _qstrValue, int _iSize, long long* _pllNumber)
{
    const int iColon = _qstrValue.indexOf(':');
    bool blNumber = false;
    const long long llNumber = _qstrValue.left(iColon).toLongLong(&blNumber);
    if (iColon <= 0 || !blNumber) {
        return false;
    }
    *_pllNumber = llNumber;
    return _qstrValue.mid(iColon + 1) == QString(_iSize, QChar('a' + int(llNumber % 26)));
}

} // namespace

void CLS_ParamProcessesTest::initTestCase()
{
    m_pUnInit = StoreFunction<Param::PFN_UnInit>("UnInit");
    QVERIFY(m_pUnInit);
    QVERIFY2(QFileInfo(PARAM_TOOL_PATH).isExecutable(), PARAM_TOOL_PATH);
}

void CLS_ParamProcessesTest::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    qputenv("HX_DATA_PATH", QFile::encodeName(DataPath()));
}

void CLS_ParamProcessesTest::cleanup()
{
    m_pUnInit();
    m_pDir.reset();
}

void CLS_ParamProcessesTest::valueOutlivesWriterProcess_data()
{
    QTest::addColumn<std::string>("value");
    QTest::newRow("plain") << std::string("/home/op/AutoBackUp");
    QTest::newRow("empty") << std::string();
    QTest::newRow("chinese") << Utf8(QString::fromUtf8("自动备份 /数据/备份"));
    QTest::newRow("quotes and backslashes") << std::string(R"(a "b" \c\\ \u0041)");
    QTest::newRow("json text") << std::string(R"(["/x/BackUp_2024_01_01_00_00.zip"])");
    QTest::newRow("long") << std::string(20000, 'q');
}

void CLS_ParamProcessesTest::valueOutlivesWriterProcess()
{
    QFETCH(std::string, value);

    QVERIFY(RunTool({"set", Hex("ModuleBackUp"), Hex("BackUpPath"), Hex(value)}));
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpPath", "default"), value);

    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpFileSavePath", value, 1), 1);
    QByteArray baOutput;
    QVERIFY(RunTool({"get", Hex("ModuleBackUp"), Hex("BackUpFileSavePath"), Hex("default")}, &baOutput));
    QCOMPARE(baOutput, QByteArray(value.data(), static_cast<int>(value.size())));
}

void CLS_ParamProcessesTest::readerSeesOtherProcessWrite()
{
    // Same length each time: only the file's identity tells the versions apart.
    for (int i = 0; i < 5; ++i) {
        const std::string strValue = "v" + std::to_string(i);
        QVERIFY(RunTool({"set", Hex("S"), Hex("k"), Hex(strValue)}));
        QCOMPARE(Param::GetParam("S", "k", "default"), strValue);
        QCOMPARE(Param::SetParam("S", "mine" + std::to_string(i), "x", 1), 1);
    }
    QByteArray baOutput;
    QVERIFY(RunTool({"get", Hex("S"), Hex("mine4"), Hex("default")}, &baOutput));
    QCOMPARE(baOutput, QByteArray("x"));
}

void CLS_ParamProcessesTest::writersInSeveralProcessesKeepAllKeys()
{
    constexpr int kKeys = 150;
    QProcess first;
    QProcess second;
    first.start(PARAM_TOOL_PATH, {"fill", Hex("Fill"), Hex("a"), QString::number(kKeys)});
    second.start(PARAM_TOOL_PATH, {"fill", Hex("Fill"), Hex("b"), QString::number(kKeys)});
    QVERIFY(first.waitForStarted() && second.waitForStarted());
    // This process writes at the same time.
    for (int i = 0; i < kKeys; ++i) {
        QCOMPARE(Param::SetParam("Fill", "c" + std::to_string(i), std::to_string(i), 1), 1);
    }
    QVERIFY(first.waitForFinished(kProcessTimeoutMs) && second.waitForFinished(kProcessTimeoutMs));
    QCOMPARE(first.exitStatus(), QProcess::NormalExit);
    QCOMPARE(first.exitCode(), 0);
    QCOMPARE(second.exitStatus(), QProcess::NormalExit);
    QCOMPARE(second.exitCode(), 0);

    bool blParsed = false;
    const QJsonObject jsonSection = ReadStoreFile(DataPath(), &blParsed).value("Fill").toObject();
    QVERIFY(blParsed);
    QCOMPARE(jsonSection.size(), 3 * kKeys);
    for (const char* pPrefix : {"a", "b", "c"}) {
        for (int i = 0; i < kKeys; ++i) {
            const std::string strKey = pPrefix + std::to_string(i);
            QCOMPARE(Param::GetParam("Fill", strKey, "lost"), std::to_string(i));
        }
    }
}

void CLS_ParamProcessesTest::killedWriterLeavesWholeFile_data()
{
    QTest::addColumn<int>("writesBeforeKill");
    QTest::addColumn<int>("microsecondsIntoWrite");
    // A write of this size takes tens of milliseconds; the rows spread the kill over it.
    QTest::newRow("1 write, as the lock appears") << 1 << 0;
    QTest::newRow("2 writes, 1 ms in") << 2 << 1000;
    QTest::newRow("3 writes, 3 ms in") << 3 << 3000;
    QTest::newRow("4 writes, 6 ms in") << 4 << 6000;
    QTest::newRow("5 writes, 10 ms in") << 5 << 10000;
    QTest::newRow("6 writes, 15 ms in") << 6 << 15000;
    QTest::newRow("7 writes, 25 ms in") << 7 << 25000;
}

void CLS_ParamProcessesTest::killedWriterLeavesWholeFile()
{
    QFETCH(int, writesBeforeKill);
    QFETCH(int, microsecondsIntoWrite);
    constexpr int kSize = 2 * 1024 * 1024;
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);

    QProcess churn;
    churn.start(PARAM_TOOL_PATH, {"churn", Hex("ModuleBackUp"), Hex("Big"), QString::number(kSize)});
    QVERIFY(churn.waitForStarted());
    int iSeen = 0;
    while (iSeen < writesBeforeKill) {
        QVERIFY2(churn.waitForReadyRead(kProcessTimeoutMs), "the writer stopped reporting");
        while (churn.canReadLine()) {
            if (churn.readLine().startsWith("wrote=")) {
                ++iSeen;
            }
        }
    }
    // The lock file exists while the writer reloads, changes and writes the store: the kill lands in there,
    // at a chosen moment, so the spin below picks that moment rather than waiting for anything.
    const QString qstrLock = StoreFile(DataPath()) + ".lock";
    QElapsedTimer timer;
    timer.start();
    while (!QFileInfo::exists(qstrLock) && timer.elapsed() < kProcessTimeoutMs) {
    }
    QVERIFY2(QFileInfo::exists(qstrLock), "the writer took no lock");
    timer.restart();
    while (timer.nsecsElapsed() < qint64(microsecondsIntoWrite) * 1000) {
    }
    churn.kill();
    QVERIFY(churn.waitForFinished(kProcessTimeoutMs));
    QCOMPARE(churn.exitStatus(), QProcess::CrashExit);

    bool blParsed = false;
    const QJsonObject jsonSection = ReadStoreFile(DataPath(), &blParsed).value("ModuleBackUp").toObject();
    QVERIFY(blParsed);
    long long llNumber = 0;
    QVERIFY(IsWholeChurnValue(jsonSection.value("Big").toString(), kSize, &llNumber));
    QVERIFY2(llNumber >= iSeen,
             qPrintable(QString("found write %1 after %2 reported").arg(llNumber).arg(iSeen)));
    QCOMPARE(jsonSection.value("AutoEnable").toString(), QString("1"));

    // The library agrees, and its next write takes over a lock the killed writer may have left.
    const std::string strBig = Param::GetParam("ModuleBackUp", "Big", "");
    QCOMPARE(strBig.size(), size_t(kSize) + std::to_string(llNumber).size() + 1);
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "1"), std::string("0"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "Big", ""), strBig);
    QVERIFY(QDir(DataPath()).entryList({"HxParam.json.corrupt-*"}).isEmpty());
}

QTEST_GUILESS_MAIN(CLS_ParamProcessesTest)
#include "tst_ParamProcesses.moc"
