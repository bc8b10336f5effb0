#include <memory>
#include <string>

#include <QDir>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include "ParamTestSupport.h"

using namespace ParamTest;

// A store file that cannot be used: the store answers defaults, says so once, and never destroys it.
class CLS_ParamBrokenFileTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void cleanup();

    void brokenFileIsKeptAside_data();
    void brokenFileIsKeptAside();
    void unreadableFileIsKeptAside();
    void secondBrokenFileDoesNotReplaceFirst();
    void fileThatCannotBeMovedIsNeverOverwritten();

private:
    void UseDataPath(const QString& _qstrPath);
    QStringList AsideFiles() const;
    QStringList StoreLogErrors() const;

    std::unique_ptr<QTemporaryDir> m_pDir;
    QString m_qstrDataPath;
    Param::PFN_UnInit m_pUnInit = nullptr;
    Param::PFN_DeleteParam m_pDelete = nullptr;
};

void CLS_ParamBrokenFileTest::initTestCase()
{
    m_pUnInit = StoreFunction<Param::PFN_UnInit>("UnInit");
    m_pDelete = StoreFunction<Param::PFN_DeleteParam>("DeleteParam");
    QVERIFY(m_pUnInit && m_pDelete);
}

void CLS_ParamBrokenFileTest::init()
{
    m_pDir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_pDir->isValid());
    UseDataPath(m_pDir->path());
}

void CLS_ParamBrokenFileTest::cleanup()
{
    m_pUnInit();
    m_pDir.reset();
}

void CLS_ParamBrokenFileTest::UseDataPath(const QString& _qstrPath)
{
    m_qstrDataPath = _qstrPath;
    qputenv("HX_DATA_PATH", QFile::encodeName(_qstrPath));
}

QStringList CLS_ParamBrokenFileTest::AsideFiles() const
{
    QStringList lstNames =
        QDir(m_qstrDataPath)
            .entryList({"HxParam.json.corrupt-*"}, QDir::Files | QDir::Dirs | QDir::NoDotAndDotDot);
    for (QString& qstrName : lstNames) {
        qstrName = m_qstrDataPath + "/" + qstrName;
    }
    return lstNames;
}

// Failure lines of the store that name its file, from the host's log.
QStringList CLS_ParamBrokenFileTest::StoreLogErrors() const
{
    const QString qstrLog = QString::fromUtf8(ReadBytes(m_qstrDataPath + "/Log/hx.log"));
    QStringList lstLines;
    for (const QString& qstrLine : qstrLog.split('\n')) {
        if (qstrLine.contains("[ERROR]") && qstrLine.contains(" HxParam ") &&
            qstrLine.contains(StoreFile(m_qstrDataPath))) {
            lstLines << qstrLine;
        }
    }
    return lstLines;
}

void CLS_ParamBrokenFileTest::brokenFileIsKeptAside_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QString>("problem");
    QTest::newRow("cut off") << QByteArray("{\n    \"ModuleBackUp\": {\n        \"AutoEnable\": \"0\"")
                             << "is not valid JSON";
    QTest::newRow("binary") << QByteArray("\x00\xff\xfePK\x03\x04garbage", 15) << "is not valid JSON";
    QTest::newRow("empty") << QByteArray() << "is not valid JSON";
    QTest::newRow("trailing garbage")
        << QByteArray(R"({"ModuleBackUp": {"AutoEnable": "0"}} x)") << "is not valid JSON";
    QTest::newRow("array") << QByteArray(R"([{"AutoEnable": "0"}])") << "is not a JSON object";
    QTest::newRow("section is text") << QByteArray(R"({"ModuleBackUp": "AutoEnable=0"})")
                                     << "section \"ModuleBackUp\"";
}

void CLS_ParamBrokenFileTest::brokenFileIsKeptAside()
{
    QFETCH(QByteArray, content);
    QFETCH(QString, problem);
    const QString qstrFile = StoreFile(m_qstrDataPath);
    QVERIFY(WriteBytes(qstrFile, content));

    for (int i = 0; i < 3; ++i) {
        QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    }

    const QStringList lstAside = AsideFiles();
    QCOMPARE(lstAside.size(), 1);
    QVERIFY2(QRegularExpression(R"(/HxParam\.json\.corrupt-\d{8}-\d{6}$)").match(lstAside.first()).hasMatch(),
             qPrintable(lstAside.first()));
    QCOMPARE(ReadBytes(lstAside.first()), content);
    QVERIFY(!QFile::exists(qstrFile));

    const QStringList lstErrors = StoreLogErrors();
    QCOMPARE(lstErrors.size(), 1);
    QVERIFY2(lstErrors.first().contains(problem), qPrintable(lstErrors.first()));
    QVERIFY2(lstErrors.first().contains(lstAside.first()), qPrintable(lstErrors.first()));

    // The store goes on in a new file; the kept one stays as it was.
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("1"));
    QCOMPARE(ReadBytes(lstAside.first()), content);
    QCOMPARE(AsideFiles().size(), 1);
}

void CLS_ParamBrokenFileTest::unreadableFileIsKeptAside()
{
    // A folder in the file's place cannot be read by anyone, root included.
    const QString qstrFile = StoreFile(m_qstrDataPath);
    QVERIFY(QDir().mkpath(qstrFile));
    QVERIFY(WriteBytes(qstrFile + "/inside.txt", "kept"));

    QCOMPARE(Param::GetParam("SystemConfig", "skin", "default"), std::string("default"));
    const QStringList lstAside = AsideFiles();
    QCOMPARE(lstAside.size(), 1);
    QCOMPARE(ReadBytes(lstAside.first() + "/inside.txt"), QByteArray("kept"));

    const QStringList lstErrors = StoreLogErrors();
    QCOMPARE(lstErrors.size(), 1);
    QVERIFY2(lstErrors.first().contains("cannot be read"), qPrintable(lstErrors.first()));

    QCOMPARE(Param::SetParam("SystemConfig", "skin", "dark", 1), 1);
    QVERIFY(QFileInfo(qstrFile).isFile());
}

void CLS_ParamBrokenFileTest::secondBrokenFileDoesNotReplaceFirst()
{
    const QString qstrFile = StoreFile(m_qstrDataPath);
    QVERIFY(WriteBytes(qstrFile, "first {"));
    QCOMPARE(Param::GetParam("S", "k", "d"), std::string("d"));
    // Broken again within the same second: the name with the time is taken.
    QVERIFY(WriteBytes(qstrFile, "second {"));
    QCOMPARE(Param::GetParam("S", "k", "d"), std::string("d"));

    const QStringList lstAside = AsideFiles();
    QCOMPARE(lstAside.size(), 2);
    QStringList lstContents{QString(ReadBytes(lstAside.at(0))), QString(ReadBytes(lstAside.at(1)))};
    lstContents.sort();
    QCOMPARE(lstContents, QStringList({"first {", "second {"}));
    QCOMPARE(StoreLogErrors().size(), 2);
}

void CLS_ParamBrokenFileTest::fileThatCannotBeMovedIsNeverOverwritten()
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
    QCOMPARE(qstrData.size(), iDataLength);
    QVERIFY(QDir().mkpath(qstrData));
    UseDataPath(qstrData);

    const QString qstrFile = StoreFile(qstrData);
    const QByteArray baBroken = R"({"ModuleBackUp": {"AutoEnable": "0")";
    QVERIFY(WriteBytes(qstrFile, baBroken));

    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 0);
    QCOMPARE(Param::SetParam("ModuleBackUp", "BackUpCount", "3", 0), 0);
    QCOMPARE(m_pDelete("ModuleBackUp", "AutoEnable"), 0);
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("default"));
    QCOMPARE(ReadBytes(qstrFile), baBroken);
    QVERIFY(AsideFiles().isEmpty());

    const QStringList lstErrors = StoreLogErrors();
    QCOMPARE(lstErrors.size(), 1);
    QVERIFY2(lstErrors.first().contains("could not be moved aside"), qPrintable(lstErrors.first()));

    // Once someone repairs it, the store reads it and writes again.
    QVERIFY(WriteBytes(qstrFile, R"({"ModuleBackUp": {"AutoEnable": "0"}})"));
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("0"));
    QCOMPARE(Param::SetParam("ModuleBackUp", "AutoEnable", "1", 1), 1);
    m_pUnInit();
    QCOMPARE(Param::GetParam("ModuleBackUp", "AutoEnable", "default"), std::string("1"));
}

QTEST_GUILESS_MAIN(CLS_ParamBrokenFileTest)
#include "tst_ParamBrokenFile.moc"
