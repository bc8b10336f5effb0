#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <QDir>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTemporaryDir>
#include <QtTest>

#include "Param.h"
#include "Util.h"

Q_DECLARE_METATYPE(std::string)

namespace {

constexpr int kProcessTimeoutMs = 60000;

QByteArray ReadBytes(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool WriteBytes(const QString& _qstrPath, const QByteArray& _baBytes)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(_baBytes) == _baBytes.size();
}

QString Hex(const std::string& _str)
{
    return QString::fromLatin1(QByteArray::fromStdString(_str).toHex());
}

} // namespace

// The parameter store through the module's facade and the real library, within and across processes.
class tst_ParamStore : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void roundTrip_data();
    void roundTrip();
    void missingOrBadNamesGiveDefault_data();
    void missingOrBadNamesGiveDefault();
    void dataPathChanges();
    void changeOnDiskIsNoticed_data();
    void changeOnDiskIsNoticed();
    void concurrentWritersLoseNothing();
    void killedWriterLeavesWholeFile_data();
    void killedWriterLeavesWholeFile();
    void brokenFileIsKeptAside_data();
    void brokenFileIsKeptAside();
    void fileThatCannotBeMovedIsNeverOverwritten();

private:
    QString StoreFile() const { return m_qstrDataPath + "/HxParam.json"; }
    // The store's file read without the library: not an object when it is missing or does not parse.
    QJsonDocument StoreDocument() const { return QJsonDocument::fromJson(ReadBytes(StoreFile())); }
    void UseDataPath(const QString& _qstrPath);
    QStringList AsideFiles() const;
    // Failure lines of the store that name its file, from the host's log.
    QStringList StoreLogErrors() const;

    std::unique_ptr<QTemporaryDir> m_pDir;
    QString m_qstrDataPath;
    Param::PFN_DeleteParam m_pDelete = nullptr;
    Param::PFN_UnInit m_pUnInit = nullptr;
};

void tst_ParamStore::initTestCase()
{
    m_pDelete = Util::FunctionCast<Param::PFN_DeleteParam>(Param::GetModuleFun("DeleteParam", ""));
    m_pUnInit = Util::FunctionCast<Param::PFN_UnInit>(Param::GetModuleFun("UnInit", ""));
    QVERIFY(m_pDelete && m_pUnInit);
    QVERIFY(Param::GetModuleFun("GetParam", "") && Param::GetModuleFun("SetParam", ""));
    QVERIFY2(QFileInfo(PARAM_TOOL_PATH).isExecutable(), PARAM_TOOL_PATH);
}

void tst_ParamStore::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    UseDataPath(m_pDir->path());
}

void tst_ParamStore::cleanup()
{
    m_pUnInit();
    m_pDir.reset();
}

void tst_ParamStore::UseDataPath(const QString& _qstrPath)
{
    m_qstrDataPath = _qstrPath;
    qputenv("HX_DATA_PATH", QFile::encodeName(_qstrPath));
}

QStringList tst_ParamStore::AsideFiles() const
{
    QStringList lstNames =
        QDir(m_qstrDataPath).entryList({"HxParam.json.corrupt-*"}, QDir::Files | QDir::Dirs);
    for (QString& qstrName : lstNames) {
        qstrName = m_qstrDataPath + "/" + qstrName;
    }
    return lstNames;
}

QStringList tst_ParamStore::StoreLogErrors() const
{
    QStringList lstLines;
    for (const QString& qstrLine : QString::fromUtf8(ReadBytes(m_qstrDataPath + "/Log/hx.log")).split('\n')) {
        if (qstrLine.contains("[ERROR]") && qstrLine.contains(" HxParam ") &&
            qstrLine.contains(StoreFile())) {
            lstLines << qstrLine;
        }
    }
    return lstLines;
}

void tst_ParamStore::roundTrip_data()
{
    QTest::addColumn<std::string>("value");
    QTest::newRow("empty") << std::string();
    QTest::newRow("chinese") << std::string("备份路径/用户数据 自动备份");
    QTest::newRow("quotes and backslashes") << std::string(R"(C:\Backup\"x" \n \\ "" \u0041)");
    QTest::newRow("control characters") << std::string("line1\nline2\ttab\r\x01");
    QTest::newRow("surrounding blanks") << std::string("  7  ");
    QTest::newRow("long") << std::string(60000, 'x') + "end";
}

void tst_ParamStore::roundTrip()
{
    QFETCH(std::string, value);
    // Every flag stores the value, whatever the extra text; a deleted key leaves no trace.
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpFileSavePath", "old", 0), 1);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpFileSavePath", value, 5, "note"), 1);
    QCOMPARE(Param::SetParam("SystemConfig", "clientid", "admin", 1), 1);
    QCOMPARE(Param::SetParam("SystemConfig", "Gone", "x", 1), 1);
    QCOMPARE(m_pDelete("SystemConfig", "Gone"), 1);
    QCOMPARE(m_pDelete("SystemConfig", "Gone"), 0);
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpFileSavePath", "default"), value);

    // From the file, not the cache; the file is a JSON object of sections, each an object of texts.
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpFileSavePath", "default"), value);
    QCOMPARE(Param::GetParam("SystemConfig", "Gone", "default"), std::string("default"));
    const QJsonObject jsonExpected{
        {"ModuleBackUp", QJsonObject{{"BackUpFileSavePath", QString::fromStdString(value)}}},
        {"SystemConfig", QJsonObject{{"clientid", "admin"}}},
    };
    QCOMPARE(StoreDocument().object(), jsonExpected);
}

void tst_ParamStore::missingOrBadNamesGiveDefault_data()
{
    QTest::addColumn<std::string>("section");
    QTest::addColumn<std::string>("key");
    QTest::newRow("missing section") << std::string("SystemConfig") << std::string("skin");
    QTest::newRow("key differs by case") << std::string("ModuleBackUp") << std::string("autoenable");
    QTest::newRow("empty section") << std::string() << std::string("AutoEnable");
    QTest::newRow("empty key") << std::string("ModuleBackUp") << std::string();
}

void tst_ParamStore::missingOrBadNamesGiveDefault()
{
    QFETCH(std::string, section);
    QFETCH(std::string, key);
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    QCOMPARE(Param::GetParam(section, key, "d"), std::string("d"));
    if (section.empty() || key.empty()) {
        QCOMPARE(Param::SetParam(section, key, "2", 1), 0);
        QCOMPARE(m_pDelete(section, key), 0);
        QCOMPARE(Param::GetParam(section, key, "d"), std::string("d"));
    }
}

void tst_ParamStore::dataPathChanges()
{
    // Suites and hosts change HX_DATA_PATH within one process: each data folder has its own file.
    QTemporaryDir otherDir;
    QVERIFY(otherDir.isValid());
    const QString qstrHome = m_qstrDataPath;
    QCOMPARE(Param::SetParam("SystemConfig", "skin", "dark", 1), 1);
    UseDataPath(otherDir.path());
    QCOMPARE(Param::GetParam("SystemConfig", "skin", "none"), std::string("none"));
    QCOMPARE(Param::SetParam("SystemConfig", "skin", "light", 1), 1);
    UseDataPath(qstrHome);
    QCOMPARE(Param::GetParam("SystemConfig", "skin", "none"), std::string("dark"));
    QVERIFY(ReadBytes(otherDir.path() + "/HxParam.json").contains("light"));

    // A data folder below a plain file can be created by nobody, root included.
    QVERIFY(WriteBytes(qstrHome + "/plain-file", "x"));
    UseDataPath(qstrHome + "/plain-file/data");
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1), 0);
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "1"), std::string("1"));
    QCOMPARE(m_pDelete("ModuleBackUp", "AutoEnable"), 0);
}

void tst_ParamStore::changeOnDiskIsNoticed_data()
{
    QTest::addColumn<QByteArray>("newContent");
    QTest::addColumn<bool>("replaceByRename");
    QTest::addColumn<std::string>("expected");
    // Same length as the cached file: only the identity of the file tells the versions apart.
    QTest::newRow("same size, renamed in")
        << QJsonDocument(QJsonObject{{"S", QJsonObject{{"k", "b"}}}}).toJson() << true << std::string("b");
    QTest::newRow("rewritten in place")
        << QByteArray(R"({"S": {"k": "rewritten"}})") << false << std::string("rewritten");
    QTest::newRow("hand-written number") << QByteArray(R"({"S": {"k": 42}})") << true << std::string("42");
    QTest::newRow("non-text value") << QByteArray(R"({"S": {"k": [1, 2]}})") << true
                                    << std::string("default");
    QTest::newRow("key removed") << QByteArray(R"({"S": {}})") << true << std::string("default");
}

void tst_ParamStore::changeOnDiskIsNoticed()
{
    QFETCH(QByteArray, newContent);
    QFETCH(bool, replaceByRename);
    QFETCH(std::string, expected);
    QCOMPARE(Param::SetParam("S", "k", "a", 1), 1);
    QCOMPARE(Param::GetParam("S", "k", "default"), std::string("a"));
    if (replaceByRename) {
        QSaveFile file(StoreFile());
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(newContent), newContent.size());
        QVERIFY(file.commit());
    } else {
        QVERIFY(WriteBytes(StoreFile(), newContent));
    }
    QCOMPARE(Param::GetParam("S", "k", "default"), expected);
    // A write keeps what was edited by hand in other keys.
    QCOMPARE(Param::SetParam("S", "other", "x", 1), 1);
    QCOMPARE(Param::GetParam("S", "k", "default"), expected);
}

void tst_ParamStore::concurrentWritersLoseNothing()
{
    // Two other processes and four threads of this one write at once, with readers alongside.
    constexpr int kKeys = 150;
    QProcess fillers[2];
    for (int p = 0; p < 2; ++p) {
        fillers[p].start(PARAM_TOOL_PATH,
                         {"fill", Hex("Fill"), Hex(p == 0 ? "a" : "b"), QString::number(kKeys)});
        QVERIFY(fillers[p].waitForStarted());
    }
    std::atomic<int> iFailed{0};
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < 4; ++t) {
        vecThreads.emplace_back([t, &iFailed] {
            for (int i = t; i < kKeys; i += 4) {
                iFailed += Param::SetParam("Fill", "c" + std::to_string(i), std::to_string(i), 1) != 1;
                Param::GetParam("Fill", "a0", "");
            }
        });
    }
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    QCOMPARE(iFailed.load(), 0);
    // The tool's exit code counts its failed writes.
    for (QProcess& filler : fillers) {
        QVERIFY(filler.waitForFinished(kProcessTimeoutMs));
        QCOMPARE(filler.exitStatus(), QProcess::NormalExit);
        QCOMPARE(filler.exitCode(), 0);
    }

    QCOMPARE(StoreDocument().object().value("Fill").toObject().size(), 3 * kKeys);
    m_pUnInit();
    for (const char* pPrefix : {"a", "b", "c"}) {
        for (int i = 0; i < kKeys; ++i) {
            QCOMPARE(Param::GetParam("Fill", pPrefix + std::to_string(i), "lost"), std::to_string(i));
        }
    }
}

void tst_ParamStore::killedWriterLeavesWholeFile_data()
{
    QTest::addColumn<int>("writesBeforeKill");
    QTest::addColumn<int>("microsecondsIntoWrite");
    // A write of this size takes tens of milliseconds; the rows spread the kill over it.
    QTest::newRow("1 write, as the lock appears") << 1 << 0;
    QTest::newRow("2 writes, 1 ms in") << 2 << 1000;
    QTest::newRow("3 writes, 4 ms in") << 3 << 4000;
    QTest::newRow("4 writes, 10 ms in") << 4 << 10000;
    QTest::newRow("5 writes, 17 ms in") << 5 << 17000;
    QTest::newRow("7 writes, 25 ms in") << 7 << 25000;
}

void tst_ParamStore::killedWriterLeavesWholeFile()
{
    QFETCH(int, writesBeforeKill);
    QFETCH(int, microsecondsIntoWrite);
    constexpr int kSize = 2 * 1024 * 1024;
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);

    // The tool rewrites "<n>:" and kSize copies of a letter chosen by n, and reports each write.
    QProcess churn;
    churn.start(PARAM_TOOL_PATH, {"churn", Hex("ModuleBackUp"), Hex("Big"), QString::number(kSize)});
    QVERIFY(churn.waitForStarted());
    int iSeen = 0;
    while (iSeen < writesBeforeKill) {
        QVERIFY2(churn.waitForReadyRead(kProcessTimeoutMs), "the writer stopped reporting");
        while (churn.canReadLine()) {
            iSeen += churn.readLine().startsWith("wrote=");
        }
    }
    // The lock file exists while the writer reloads, changes and writes the store: the kill lands in there,
    // at a chosen moment, so the spin picks that moment rather than waiting for anything.
    const QString qstrLock = StoreFile() + ".lock";
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

    const QJsonDocument doc = StoreDocument();
    QVERIFY(doc.isObject());
    const QJsonObject jsonSection = doc.object().value("ModuleBackUp").toObject();
    const QString qstrBig = jsonSection.value("Big").toString();
    const long long llNumber = qstrBig.section(':', 0, 0).toLongLong();
    QVERIFY2(llNumber >= iSeen,
             qPrintable(QString("found write %1 after %2 reported").arg(llNumber).arg(iSeen)));
    QVERIFY2(qstrBig.section(':', 1) == QString(kSize, QChar('a' + int(llNumber % 26))), "a torn value");
    QCOMPARE(jsonSection.value("AutoEnable").toString(), QString("1"));

    // The library agrees, and its next write takes over a lock the killed writer may have left.
    QCOMPARE(Param::GetParam("ModuleBackUp", "Big", ""), qstrBig.toStdString());
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "1"), std::string("0"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "Big", ""), qstrBig.toStdString());
    QVERIFY(AsideFiles().isEmpty());
}

void tst_ParamStore::brokenFileIsKeptAside_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<bool>("blFolder"); // a folder in the file's place, the content inside it
    QTest::addColumn<QString>("problem");
    QTest::newRow("cut off") << QByteArray("{\n    \"ModuleBackUp\": {\n        \"AutoEnable\": \"0\"")
                             << false << "is not valid JSON";
    QTest::newRow("empty") << QByteArray() << false << "is not valid JSON";
    QTest::newRow("array") << QByteArray(R"([{"AutoEnable": "0"}])") << false << "is not a JSON object";
    QTest::newRow("section is text") << QByteArray(R"({"ModuleBackUp": "AutoEnable=0"})") << false
                                     << "section \"ModuleBackUp\"";
    // Nobody reads a folder as a file, root included.
    QTest::newRow("unreadable") << QByteArray("kept") << true << "cannot be read";
}

void tst_ParamStore::brokenFileIsKeptAside()
{
    QFETCH(QByteArray, content);
    QFETCH(bool, blFolder);
    QFETCH(QString, problem);
    const QString qstrInside = blFolder ? "/inside.txt" : "";
    QVERIFY(!blFolder || QDir().mkpath(StoreFile()));
    QVERIFY(WriteBytes(StoreFile() + qstrInside, content));

    for (int i = 0; i < 3; ++i) {
        QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    }
    // Kept aside once, unchanged, under a name with the time; one log line names the problem and the copy.
    const QStringList lstAside = AsideFiles();
    QCOMPARE(lstAside.size(), 1);
    QVERIFY2(QRegularExpression(R"(/HxParam\.json\.corrupt-\d{8}-\d{6}$)").match(lstAside.first()).hasMatch(),
             qPrintable(lstAside.first()));
    QCOMPARE(ReadBytes(lstAside.first() + qstrInside), content);
    QVERIFY(!QFileInfo::exists(StoreFile()));
    const QStringList lstErrors = StoreLogErrors();
    QCOMPARE(lstErrors.size(), 1);
    QVERIFY2(lstErrors.first().contains(problem) && lstErrors.first().contains(lstAside.first()),
             qPrintable(lstErrors.first()));

    // The store goes on in a new file; the kept one stays as it was.
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    m_pUnInit();
    QVERIFY(QFileInfo(StoreFile()).isFile());
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("1"));

    // Broken again, most likely within the same second: the first copy is not replaced.
    QVERIFY(WriteBytes(StoreFile(), "second {"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    QStringList lstNow = AsideFiles();
    QCOMPARE(lstNow.size(), 2);
    QVERIFY(lstNow.removeOne(lstAside.first()));
    QCOMPARE(ReadBytes(lstNow.first()), QByteArray("second {"));
    QCOMPARE(ReadBytes(lstAside.first() + qstrInside), content);
    QCOMPARE(StoreLogErrors().size(), 2);
}

void tst_ParamStore::fileThatCannotBeMovedIsNeverOverwritten()
{
    // Running as root ignores permissions, so the move is made to fail by its name instead: a path of 4080
    // characters fits the system's limit of 4095, and with ".corrupt-<time>" added it does not. The lock file
    // and the temporary file of a write still fit, so only the refusal to write keeps the file as it is.
    const int iDataLength = 4080 - int(QString("/HxParam.json").size());
    QString qstrData = m_pDir->path();
    while (qstrData.size() < iDataLength) {
        const int iRemaining = iDataLength - qstrData.size() - 1;
        const int iSegment = iRemaining > 200 && iRemaining < 203 ? 150 : qMin(iRemaining, 200);
        qstrData += "/" + QString(iSegment, 'd');
    }
    QVERIFY(QDir().mkpath(qstrData));
    UseDataPath(qstrData);
    const QByteArray baBroken = R"({"ModuleBackUp": {"AutoEnable": "0")";
    QVERIFY(WriteBytes(StoreFile(), baBroken));

    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 0);
    QCOMPARE(m_pDelete("ModuleBackUp", "AutoEnable"), 0);
    QCOMPARE(ReadBytes(StoreFile()), baBroken);
    QVERIFY(AsideFiles().isEmpty());
    const QStringList lstErrors = StoreLogErrors();
    QCOMPARE(lstErrors.size(), 1);
    QVERIFY2(lstErrors.first().contains("could not be moved aside"), qPrintable(lstErrors.first()));

    // Once someone repairs it, the store reads it and writes again.
    QVERIFY(WriteBytes(StoreFile(), R"({"ModuleBackUp": {"AutoEnable": "0"}})"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("0"));
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("1"));
}

QTEST_GUILESS_MAIN(tst_ParamStore)
#include "tst_ParamStore.moc"
