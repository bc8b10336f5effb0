#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <QSaveFile>
#include <QTemporaryDir>
#include <QtTest>

#include "ParamTestSupport.h"

using namespace ParamTest;

// The parameter store within one process, through the module's facade and the real library.
class CLS_ParamStoreTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void roundTrip_data();
    void roundTrip();
    void missingValuesGiveDefault_data();
    void missingValuesGiveDefault();
    void badArgumentsAreRefused_data();
    void badArgumentsAreRefused();
    void unwritableFolderFailsWrite();
    void everyFlagIsPersisted_data();
    void everyFlagIsPersisted();
    void overwriteAndDelete();
    void dataPathChangeSwitchesFile();
    void lifecycle();
    void fileIsIndentedJsonOfSections();
    void changeOnDiskIsNoticed_data();
    void changeOnDiskIsNoticed();
    void concurrentWritersLoseNothing();

private:
    QString DataPath() const { return m_pDir->path(); }
    void UseDataPath(const QString& _qstrPath) { qputenv("HX_DATA_PATH", QFile::encodeName(_qstrPath)); }

    std::unique_ptr<QTemporaryDir> m_pDir;
    Param::PFN_Init m_pInit = nullptr;
    Param::PFN_IsInit m_pIsInit = nullptr;
    Param::PFN_DeleteParam m_pDelete = nullptr;
    Param::PFN_UnInit m_pUnInit = nullptr;
};

void CLS_ParamStoreTest::initTestCase()
{
    m_pInit = StoreFunction<Param::PFN_Init>("Init");
    m_pIsInit = StoreFunction<Param::PFN_IsInit>("IsInit");
    m_pDelete = StoreFunction<Param::PFN_DeleteParam>("DeleteParam");
    m_pUnInit = StoreFunction<Param::PFN_UnInit>("UnInit");
    QVERIFY(m_pInit && m_pIsInit && m_pDelete && m_pUnInit);
    QVERIFY(Param::GetModuleFun("GetParam", "") && Param::GetModuleFun("SetParam", ""));
}

void CLS_ParamStoreTest::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    UseDataPath(DataPath());
}

void CLS_ParamStoreTest::cleanup()
{
    m_pUnInit();
    m_pDir.reset();
}

void CLS_ParamStoreTest::roundTrip_data()
{
    QTest::addColumn<std::string>("value");
    QTest::newRow("plain") << std::string("/home/op/AutoBackUp");
    QTest::newRow("empty") << std::string();
    QTest::newRow("chinese") << Utf8(QString::fromUtf8("备份路径/用户数据 自动备份"));
    QTest::newRow("quotes and backslashes") << std::string(R"(C:\Backup\"x" \n \\ "")");
    QTest::newRow("json text") << std::string(R"(["/data/BackUp_2024_01_01_00_00.zip","/data/b.zip"])");
    QTest::newRow("json object text") << std::string(R"({"ModuleBackUp": {"AutoEnable": "0"}})");
    QTest::newRow("control characters") << std::string("line1\nline2\ttab\r\x01");
    QTest::newRow("surrounding blanks") << std::string("  7  ");
    QTest::newRow("long") << std::string(1 << 20, 'x') + "end";
}

void CLS_ParamStoreTest::roundTrip()
{
    QFETCH(std::string, value);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpFileSavePath", value, 1), 1);
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpFileSavePath", "default"), value);

    // From the file, not the cache.
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpFileSavePath", "default"), value);

    bool blParsed = false;
    const QJsonObject jsonRoot = ReadStoreFile(DataPath(), &blParsed);
    QVERIFY(blParsed);
    const QJsonValue jsonValue = jsonRoot.value("ModuleBackUp").toObject().value("BackUpFileSavePath");
    QVERIFY(jsonValue.isString());
    QCOMPARE(Utf8(jsonValue.toString()), value);
}

void CLS_ParamStoreTest::missingValuesGiveDefault_data()
{
    QTest::addColumn<std::string>("section");
    QTest::addColumn<std::string>("key");
    QTest::addColumn<std::string>("defaultValue");
    QTest::newRow("missing key") << std::string("ModuleBackUp") << std::string("BackUpCount")
                                 << std::string("3");
    QTest::newRow("missing section") << std::string("SystemConfig") << std::string("skin")
                                     << std::string("dark");
    QTest::newRow("key of another section")
        << std::string("SystemConfig") << std::string("AutoEnable") << std::string("fallback");
    QTest::newRow("empty default") << std::string("ModuleBackUp") << std::string("AutoBackUpTime")
                                   << std::string();
    QTest::newRow("empty section") << std::string() << std::string("AutoEnable") << std::string("d1");
    QTest::newRow("empty key") << std::string("ModuleBackUp") << std::string() << std::string("d2");
    QTest::newRow("key differs by case")
        << std::string("ModuleBackUp") << std::string("autoenable") << std::string("d3");
}

void CLS_ParamStoreTest::missingValuesGiveDefault()
{
    QFETCH(std::string, section);
    QFETCH(std::string, key);
    QFETCH(std::string, defaultValue);
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    QCOMPARE(Param::GetParam(section, key, defaultValue), defaultValue);
}

void CLS_ParamStoreTest::badArgumentsAreRefused_data()
{
    QTest::addColumn<std::string>("section");
    QTest::addColumn<std::string>("key");
    QTest::newRow("empty section") << std::string() << std::string("AutoEnable");
    QTest::newRow("empty key") << std::string("ModuleBackUp") << std::string();
    QTest::newRow("both empty") << std::string() << std::string();
}

void CLS_ParamStoreTest::badArgumentsAreRefused()
{
    QFETCH(std::string, section);
    QFETCH(std::string, key);
    QCOMPARE(Param::SetParam(section, key, "1", 1), 0);
    QCOMPARE(m_pDelete(section, key), 0);
    QCOMPARE(Param::GetParam(section, key, "d"), std::string("d"));
    QVERIFY(!QFile::exists(StoreFile(DataPath())));
}

void CLS_ParamStoreTest::unwritableFolderFailsWrite()
{
    // A data folder below a plain file can be created by nobody, root included.
    const QString qstrBlocker = DataPath() + "/plain-file";
    QVERIFY(WriteBytes(qstrBlocker, "x"));
    UseDataPath(qstrBlocker + "/data");
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1), 0);
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "1"), std::string("1"));
    QCOMPARE(m_pDelete("ModuleBackUp", "AutoEnable"), 0);
}

void CLS_ParamStoreTest::everyFlagIsPersisted_data()
{
    QTest::addColumn<int>("flag");
    QTest::addColumn<std::string>("extra");
    QTest::newRow("flag 1") << 1 << std::string();
    QTest::newRow("flag 0") << 0 << std::string();
    QTest::newRow("other flag and extra text") << 5 << std::string("note");
}

void CLS_ParamStoreTest::everyFlagIsPersisted()
{
    QFETCH(int, flag);
    QFETCH(std::string, extra);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpPath", "/a/BackUp.zip", flag, extra), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpPath", "none"), std::string("/a/BackUp.zip"));
}

void CLS_ParamStoreTest::overwriteAndDelete()
{
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpCount", "3", 1), 1);
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpCount", "5", 1), 1);
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpCount", "d"), std::string("5"));

    QCOMPARE(m_pDelete("ModuleBackUp", "BackUpCount"), 1);
    QCOMPARE(m_pDelete("ModuleBackUp", "BackUpCount"), 0);
    QCOMPARE(m_pDelete("NoSection", "BackUpCount"), 0);
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpCount", "d"), std::string("d"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "d"), std::string("1"));

    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "BackUpCount", "d"), std::string("d"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "d"), std::string("1"));
}

void CLS_ParamStoreTest::dataPathChangeSwitchesFile()
{
    QTemporaryDir otherDir;
    QVERIFY(otherDir.isValid());
    QCOMPARE(Param::SetParam("SystemConfig", "skin", "dark", 1), 1);

    UseDataPath(otherDir.path());
    QCOMPARE(Param::GetParam("SystemConfig", "skin", "none"), std::string("none"));
    QCOMPARE(Param::SetParam("SystemConfig", "skin", "light", 1), 1);

    UseDataPath(DataPath());
    QCOMPARE(Param::GetParam("SystemConfig", "skin", "none"), std::string("dark"));
    UseDataPath(otherDir.path());
    QCOMPARE(Param::GetParam("SystemConfig", "skin", "none"), std::string("light"));
    UseDataPath(DataPath());
}

void CLS_ParamStoreTest::lifecycle()
{
    QCOMPARE(m_pIsInit(), 0);
    QCOMPARE(m_pInit(), 1);
    QCOMPARE(m_pIsInit(), 1);

    QTemporaryDir otherDir;
    QVERIFY(otherDir.isValid());
    UseDataPath(otherDir.path());
    QCOMPARE(m_pIsInit(), 0);
    UseDataPath(DataPath());
    QCOMPARE(m_pIsInit(), 1);

    m_pUnInit();
    QCOMPARE(m_pIsInit(), 0);
    // Without Init the store still answers; the call loads what it needs.
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "0", 1), 1);
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "1"), std::string("0"));
    QCOMPARE(m_pIsInit(), 1);
}

void CLS_ParamStoreTest::fileIsIndentedJsonOfSections()
{
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpCount", "3", 1), 1);
    QCOMPARE(Param::SetParam("SystemConfig", "clientid", "admin", 1), 1);

    bool blParsed = false;
    const QJsonObject jsonRoot = ReadStoreFile(DataPath(), &blParsed);
    QVERIFY(blParsed);
    const QJsonObject jsonExpected{
        {"ModuleBackUp", QJsonObject{{"AutoEnable", "1"}, {"BackUpCount", "3"}}},
        {"SystemConfig", QJsonObject{{"clientid", "admin"}}},
    };
    QCOMPARE(jsonRoot, jsonExpected);
    QCOMPARE(ReadBytes(StoreFile(DataPath())), QJsonDocument(jsonExpected).toJson(QJsonDocument::Indented));
}

void CLS_ParamStoreTest::changeOnDiskIsNoticed_data()
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
    QTest::newRow("hand-written boolean")
        << QByteArray(R"({"S": {"k": true}})") << true << std::string("true");
    QTest::newRow("non-text value") << QByteArray(R"({"S": {"k": [1, 2]}})") << true
                                    << std::string("default");
    QTest::newRow("key removed") << QByteArray(R"({"S": {}})") << true << std::string("default");
}

void CLS_ParamStoreTest::changeOnDiskIsNoticed()
{
    QFETCH(QByteArray, newContent);
    QFETCH(bool, replaceByRename);
    QFETCH(std::string, expected);
    QCOMPARE(Param::SetParam("S", "k", "a", 1), 1);
    QCOMPARE(Param::GetParam("S", "k", "default"), std::string("a"));

    const QString qstrFile = StoreFile(DataPath());
    if (replaceByRename) {
        QSaveFile file(qstrFile);
        QVERIFY(file.open(QIODevice::WriteOnly));
        QCOMPARE(file.write(newContent), newContent.size());
        QVERIFY(file.commit());
    } else {
        QVERIFY(WriteBytes(qstrFile, newContent));
    }
    QCOMPARE(Param::GetParam("S", "k", "default"), expected);

    // A write keeps what was edited by hand in other keys.
    QCOMPARE(Param::SetParam("S", "other", "x", 1), 1);
    QCOMPARE(Param::GetParam("S", "k", "default"), expected);
}

void CLS_ParamStoreTest::concurrentWritersLoseNothing()
{
    constexpr int kThreads = 8;
    constexpr int kKeysPerThread = 40;
    std::atomic<int> iFailed{0};
    std::vector<std::thread> vecThreads;
    for (int t = 0; t < kThreads; ++t) {
        vecThreads.emplace_back([t, &iFailed]() {
            for (int i = 0; i < kKeysPerThread; ++i) {
                const std::string strKey = "t" + std::to_string(t) + "k" + std::to_string(i);
                if (Param::SetParam("Threads", strKey, strKey + "=" + std::to_string(i), 1) != 1) {
                    ++iFailed;
                }
                // Readers run alongside the writers.
                Param::GetParam("Threads", "t0k0", "");
            }
        });
    }
    for (std::thread& thread : vecThreads) {
        thread.join();
    }
    QCOMPARE(iFailed.load(), 0);

    bool blParsed = false;
    const QJsonObject jsonSection = ReadStoreFile(DataPath(), &blParsed).value("Threads").toObject();
    QVERIFY(blParsed);
    QCOMPARE(jsonSection.size(), kThreads * kKeysPerThread);
    m_pUnInit();
    for (int t = 0; t < kThreads; ++t) {
        for (int i = 0; i < kKeysPerThread; ++i) {
            const std::string strKey = "t" + std::to_string(t) + "k" + std::to_string(i);
            QCOMPARE(Param::GetParam("Threads", strKey, "lost"), strKey + "=" + std::to_string(i));
        }
    }
}

QTEST_GUILESS_MAIN(CLS_ParamStoreTest)
#include "tst_ParamStore.moc"
