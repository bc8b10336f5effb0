#include "CLS_CSVOperate.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <random>

using Table = QList<QList<QString>>;

namespace {

const char* const c_pcharWriteRefused = "CLS_CSVOperate:records is empty or _pcharCodec is empty";
const char* const c_pcharCharSetUnknown =
    "CLS_CSVOperate:ReadRecords neither UTF8-BOM or GBK or UTF8, return";
const QByteArray c_baMark("\xEF\xBB\xBF");
// 0x81 is a stray continuation byte for UTF-8 and opens a GBK pair that a blank cannot close. (0xFF would
// not do: the GBK codec maps it to a private-use character and back.)
const QByteArray c_baNeitherCharSet("a,\x81\x20\n");

QString U(const char* _pcharUtf8)
{
    return QString::fromUtf8(_pcharUtf8);
}

bool HasGbk()
{
    return QTextCodec::codecForName("GBK") != nullptr;
}

bool LocaleIsUtf8()
{
    return QTextCodec::codecForLocale()->mibEnum() == 106;
}

// Collects the warnings of one stretch of a test instead of letting them reach the test log.
struct STRUCT_CapturedMessage
{
    QString qstrText;
    QString qstrFile;
    QString qstrFunction;
    QString qstrCategory;
    int iLine = 0;
};

QList<STRUCT_CapturedMessage> g_lstCaptured;

void CaptureMessage(QtMsgType, const QMessageLogContext& _context, const QString& _qstrText)
{
    g_lstCaptured.append({_qstrText, QString::fromUtf8(_context.file), QString::fromUtf8(_context.function),
                          QString::fromUtf8(_context.category), _context.line});
}

class CLS_MessageCapture
{
public:
    CLS_MessageCapture() : m_pPrevious(qInstallMessageHandler(CaptureMessage)) { g_lstCaptured.clear(); }
    ~CLS_MessageCapture() { qInstallMessageHandler(m_pPrevious); }
    CLS_MessageCapture(const CLS_MessageCapture&) = delete;
    CLS_MessageCapture& operator=(const CLS_MessageCapture&) = delete;

private:
    QtMessageHandler m_pPrevious;
};

} // namespace

class tst_CLS_CSVOperate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();

    void writtenBytes_data();
    void writtenBytes();
    void roundTrip_data();
    void roundTrip();
    void readsFileBytes_data();
    void readsFileBytes();
    void markMeansUtf8WhateverFollows();
    void undetectableCharSetIsRefused();
    void codecFormRefusesInput_data();
    void codecFormRefusesInput();
    void warningsCarryFixedLines_data();
    void warningsCarryFixedLines();
    void everyFieldFormEmptyTable();
    void missingFileAndEmptyPath();
    void writeCSVFileReplacesContent();
    void readOnlyFileIsRead();
    void checkCSVFile_data();
    void checkCSVFile();
    void sharedInstance();
    void randomTablesRoundTrip();
    void randomBytesNeverCrash();

private:
    QString NewPath();
    static QByteArray ReadBytes(const QString& _qstrPath);
    static void WriteBytes(const QString& _qstrPath, const QByteArray& _baBytes);
    static bool WriteTable(const QString& _qstrPath, const Table& _lstTable, const QByteArray& _baCodec);

    QTemporaryDir m_tmpDir;
    int m_iFileCount = 0;
};

void tst_CLS_CSVOperate::initTestCase()
{
    QVERIFY(m_tmpDir.isValid());
    qputenv("HX_DATA_PATH", m_tmpDir.path().toUtf8());
}

void tst_CLS_CSVOperate::init()
{
    g_lstCaptured.clear();
}

QString tst_CLS_CSVOperate::NewPath()
{
    return m_tmpDir.filePath(QStringLiteral("table_%1.csv").arg(++m_iFileCount));
}

QByteArray tst_CLS_CSVOperate::ReadBytes(const QString& _qstrPath)
{
    QFile file(_qstrPath);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

void tst_CLS_CSVOperate::WriteBytes(const QString& _qstrPath, const QByteArray& _baBytes)
{
    QFile file(_qstrPath);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    QCOMPARE(file.write(_baBytes), qint64(_baBytes.size()));
}

// An empty codec name selects the every-field-quoted form.
bool tst_CLS_CSVOperate::WriteTable(const QString& _qstrPath, const Table& _lstTable,
                                    const QByteArray& _baCodec)
{
    CLS_CSVOperate csv;
    if (!csv.OpenCSVFile(_qstrPath)) {
        return false;
    }
    const bool blWritten =
        _baCodec.isEmpty() ? csv.WriteRecords(_lstTable) : csv.WriteRecords(_lstTable, _baCodec.constData());
    csv.CloseCSVFile();
    return blWritten;
}

void tst_CLS_CSVOperate::writtenBytes_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<QByteArray>("expected");

    const Table lstMixed{{"a", "b,c", "d\"e"}};
    QTest::newRow("every field quoted")
        << lstMixed << QByteArray() << c_baMark + "\"a\",\"b,c\",\"d\"\"e\"\n";
    QTest::newRow("codec form quotes only commas")
        << lstMixed << QByteArray("UTF-8") << c_baMark + "a,\"b,c\",d\"\"e\n";
    const Table lstRows{{"", "x"}, {}, {"y", ""}};
    QTest::newRow("every field, empty fields and rows")
        << lstRows << QByteArray() << c_baMark + "\"\",\"x\"\n\n\"y\",\"\"\n";
    QTest::newRow("codec form, empty fields and rows")
        << lstRows << QByteArray("UTF-8") << c_baMark + ",x\n\ny,\n";
    QTest::newRow("codec form in GBK has no mark")
        << Table{{U("中文"), U("1,2")}} << QByteArray("GBK") << QByteArray("\xD6\xD0\xCE\xC4,\"1,2\"\n");
}

void tst_CLS_CSVOperate::writtenBytes()
{
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    QFETCH(QByteArray, expected);
    if (codec.isEmpty() && !LocaleIsUtf8()) {
        QSKIP("the every-field form writes in the locale's codec, which is not UTF-8 here");
    }
    if (codec == "GBK" && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    QVERIFY(WriteTable(qstrPath, table, codec));
    QCOMPARE(ReadBytes(qstrPath), expected);
}

void tst_CLS_CSVOperate::roundTrip_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<Table>("expected");

    struct STRUCT_Case
    {
        const char* pcharName;
        Table lstTable;
        Table lstExpected;
    };
    const QList<STRUCT_Case> lstCases{
        {"commas", {{"a,b", ",", "x,", ",y"}, {"1,2,3", "plain"}}, {}},
        {"quotation marks", {{"say \"hi\"", "\"a\"", "x\"", "\"y", "a\"\"b"}, {"q\"uo,te", "\",\""}}, {}},
        {"chinese", {{U("姓名"), U("操作内容"), U("张三,李四")}, {U("备份\"成功\""), U("中文")}}, {}},
        {"empty fields", {{"", "", ""}, {"a", "", "b"}, {""}}, {}},
        // A row without fields comes back as one empty field: a line cannot hold less.
        {"empty rows", {{"a"}, {}, {"b"}, {}}, {{"a"}, {""}, {"b"}, {""}}},
        {"spaces kept", {{" a ", "  ", "b ,c"}}, {}},
    };
    const QList<QByteArray> lstForms{QByteArray(), QByteArray("UTF-8"), QByteArray("GBK")};
    for (const STRUCT_Case& stCase : lstCases) {
        for (const QByteArray& baForm : lstForms) {
            const QByteArray baName =
                QByteArray(stCase.pcharName) + ", " + (baForm.isEmpty() ? QByteArray("every field") : baForm);
            QTest::newRow(baName.constData())
                << stCase.lstTable << baForm
                << (stCase.lstExpected.isEmpty() ? stCase.lstTable : stCase.lstExpected);
        }
    }
}

void tst_CLS_CSVOperate::roundTrip()
{
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    QFETCH(Table, expected);
    if (codec == "GBK" && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    QVERIFY(WriteTable(qstrPath, table, codec));

    CLS_CSVOperate csv(qstrPath);
    Table lstRead;
    QVERIFY(csv.ReadRecords(lstRead));
    QCOMPARE(lstRead, expected);
    QVERIFY(csv.isOpen());
    QVERIFY(csv.isWritable());
    csv.CloseCSVFile();
    QVERIFY(!csv.isOpen());
}

void tst_CLS_CSVOperate::readsFileBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Table>("expected");

    QTest::newRow("quoted comma") << QByteArray("x,\"1,2\",y\n") << Table{{"x", "1,2", "y"}};
    QTest::newRow("doubled quotes inside quoted comma")
        << QByteArray("\"he said \"\"hi, there\"\"\",z\n") << Table{{"he said \"hi, there\"", "z"}};
    QTest::newRow("utf-8 with mark") << c_baMark + U("名,值\n").toUtf8() << Table{{U("名"), U("值")}};
    QTest::newRow("utf-8 without mark")
        << U("备份,\"成功,完成\"\n").toUtf8() << Table{{U("备份"), U("成功,完成")}};
    QTest::newRow("gbk, not valid utf-8")
        << QByteArray("\xD0\xD5\xC3\xFB,\xD6\xD0\xCE\xC4\n\xD5\xC5\xC8\xFD,\"1,2\"\n")
        << Table{{U("姓名"), U("中文")}, {U("张三"), "1,2"}};
    QTest::newRow("empty file") << QByteArray() << Table{};
    QTest::newRow("mark only") << c_baMark << Table{};
    QTest::newRow("last line without line end") << QByteArray("a,b\nc") << Table{{"a", "b"}, {"c"}};
    QTest::newRow("ragged row lengths")
        << QByteArray("a,b,c\nd\n,\n") << Table{{"a", "b", "c"}, {"d"}, {"", ""}};
    QTest::newRow("empty line in the middle") << QByteArray("a\n\nb\n") << Table{{"a"}, {""}, {"b"}};
    QTest::newRow("windows line ends") << QByteArray("a,b\r\nc,d\r\n") << Table{{"a", "b"}, {"c", "d"}};
    QTest::newRow("quote left open at line end") << QByteArray("a,\"b,c\nd\n") << Table{{"a", "b,c"}, {"d"}};
}

void tst_CLS_CSVOperate::readsFileBytes()
{
    QFETCH(QByteArray, bytes);
    QFETCH(Table, expected);
    if (QByteArray(QTest::currentDataTag()).startsWith("gbk") && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, bytes);

    CLS_CSVOperate csv(qstrPath);
    Table lstRead{{"kept"}};
    QVERIFY(csv.ReadRecords(lstRead));
    QCOMPARE(lstRead, Table{{"kept"}} + expected);
}

void tst_CLS_CSVOperate::markMeansUtf8WhateverFollows()
{
    // The GBK bytes after the mark are not UTF-8, yet the mark alone decides.
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, c_baMark + "ok,\xD6\xD0\xCE\xC4\n");

    Table lstRead;
    QVERIFY(CLS_CSVOperate::ReadCSVFile(qstrPath, lstRead));
    QCOMPARE(lstRead.size(), 1);
    QCOMPARE(lstRead.at(0).size(), 2);
    QCOMPARE(lstRead.at(0).at(0), QStringLiteral("ok"));
    QVERIFY(lstRead.at(0).at(1) != U("中文"));
    QVERIFY(lstRead.at(0).at(1).contains(QChar::ReplacementCharacter));
}

void tst_CLS_CSVOperate::undetectableCharSetIsRefused()
{
    if (!HasGbk()) {
        QSKIP("without a GBK codec every non-UTF-8 file is refused, which this case cannot tell apart");
    }
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, c_baNeitherCharSet);

    CLS_CSVOperate csv(qstrPath);
    Table lstRead{{"kept"}};
    QTest::ignoreMessage(QtWarningMsg, c_pcharCharSetUnknown);
    QVERIFY(!csv.ReadRecords(lstRead));
    QCOMPARE(lstRead, Table{{"kept"}});

    Table lstWhole{{"kept"}};
    QTest::ignoreMessage(QtWarningMsg, c_pcharCharSetUnknown);
    QVERIFY(!CLS_CSVOperate::ReadCSVFile(qstrPath, lstWhole));
    QCOMPARE(lstWhole, Table{{"kept"}});
}

void tst_CLS_CSVOperate::codecFormRefusesInput_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<bool>("warns");

    QTest::newRow("empty table") << Table{} << QByteArray("UTF-8") << true;
    QTest::newRow("no codec") << Table{{"a"}} << QByteArray() << true;
    QTest::newRow("empty codec name") << Table{{"a"}} << QByteArray("") << true;
    QTest::newRow("unknown codec") << Table{{"a"}} << QByteArray("no-such-codec") << false;
}

void tst_CLS_CSVOperate::codecFormRefusesInput()
{
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    QFETCH(bool, warns);
    const char* pcharCodec = codec.isNull() ? nullptr : codec.constData();
    const QByteArray baBefore("earlier,content\n");

    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, baBefore);
    CLS_CSVOperate csv;
    QVERIFY(csv.OpenCSVFile(qstrPath));
    if (warns) {
        QTest::ignoreMessage(QtWarningMsg, c_pcharWriteRefused);
    }
    QVERIFY(!csv.WriteRecords(table, pcharCodec));
    csv.CloseCSVFile();
    QCOMPARE(ReadBytes(qstrPath), baBefore);

    // The whole-file writer refuses before it truncates anything.
    if (warns) {
        QTest::ignoreMessage(QtWarningMsg, c_pcharWriteRefused);
    }
    QVERIFY(!CLS_CSVOperate::WriteCSVFile(qstrPath, table, pcharCodec));
    QCOMPARE(ReadBytes(qstrPath), baBefore);
}

void tst_CLS_CSVOperate::warningsCarryFixedLines_data()
{
    QTest::addColumn<bool>("reading");
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("function");

    QTest::newRow("write refused") << false << QString::fromLatin1(c_pcharWriteRefused) << 46
                                   << QStringLiteral("WriteRecords");
    QTest::newRow("character set unknown")
        << true << QString::fromLatin1(c_pcharCharSetUnknown) << 171 << QStringLiteral("ReadRecords");
}

void tst_CLS_CSVOperate::warningsCarryFixedLines()
{
    QFETCH(bool, reading);
    QFETCH(QString, text);
    QFETCH(int, line);
    QFETCH(QString, function);
    if (reading && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, c_baNeitherCharSet);
    CLS_CSVOperate csv(qstrPath);
    {
        CLS_MessageCapture capture;
        Table lstTable;
        if (reading) {
            QVERIFY(!csv.ReadRecords(lstTable));
        } else {
            QVERIFY(csv.OpenCSVFile(qstrPath));
            QVERIFY(!csv.WriteRecords(lstTable, "UTF-8"));
        }
    }
    QCOMPARE(g_lstCaptured.size(), 1);
    const STRUCT_CapturedMessage& stMessage = g_lstCaptured.at(0);
    QCOMPARE(stMessage.qstrText, text);
    QCOMPARE(stMessage.iLine, line);
    QCOMPARE(stMessage.qstrCategory, QStringLiteral("default"));
    QVERIFY2(stMessage.qstrFile.endsWith(QStringLiteral("CLS_CSVOperate.cpp")),
             qPrintable(stMessage.qstrFile));
    QVERIFY2(stMessage.qstrFunction.contains(function), qPrintable(stMessage.qstrFunction));
}

void tst_CLS_CSVOperate::everyFieldFormEmptyTable()
{
    const QString qstrPath = NewPath();
    QVERIFY(WriteTable(qstrPath, Table{}, QByteArray()));
    QVERIFY(QFileInfo::exists(qstrPath));
    QCOMPARE(QFileInfo(qstrPath).size(), qint64(0));

    Table lstRead;
    QVERIFY(CLS_CSVOperate::ReadCSVFile(qstrPath, lstRead));
    QVERIFY(lstRead.isEmpty());

    // Nothing open for writing: not even an empty table is reported as written.
    CLS_CSVOperate csv(qstrPath);
    QVERIFY(!csv.WriteRecords(Table{}));
    QVERIFY(!csv.WriteRecords(Table{{"a"}}));
}

void tst_CLS_CSVOperate::missingFileAndEmptyPath()
{
    CLS_CSVOperate csv;
    QVERIFY(!csv.OpenCSVFile(QString()));
    Table lstRead;
    QVERIFY(!csv.ReadRecords(lstRead));

    const QString qstrMissing = m_tmpDir.filePath(QStringLiteral("missing.csv"));
    CLS_CSVOperate missing(qstrMissing);
    QVERIFY(!missing.ReadRecords(lstRead));
    QVERIFY(!CLS_CSVOperate::ReadCSVFile(qstrMissing, lstRead));
    QVERIFY(!CLS_CSVOperate::ReadCSVFile(QString(), lstRead));
    QVERIFY(lstRead.isEmpty());
    QVERIFY2(!QFileInfo::exists(qstrMissing), "reading must not create the file");

    QVERIFY(!CLS_CSVOperate::WriteCSVFile(QString(), Table{{"a"}}));
    QVERIFY(
        !CLS_CSVOperate::WriteCSVFile(m_tmpDir.filePath(QStringLiteral("no/such/dir.csv")), Table{{"a"}}));
}

void tst_CLS_CSVOperate::writeCSVFileReplacesContent()
{
    const QString qstrPath = NewPath();
    QVERIFY(CLS_CSVOperate::WriteCSVFile(qstrPath, Table{{"long", "row"}, {"second"}, {"third"}}));
    QVERIFY(CLS_CSVOperate::WriteCSVFile(qstrPath, Table{{U("时间"), U("内容, 备注")}}));
    QCOMPARE(ReadBytes(qstrPath), c_baMark + U("时间,\"内容, 备注\"\n").toUtf8());

    Table lstRead{{"replaced"}};
    QVERIFY(CLS_CSVOperate::ReadCSVFile(qstrPath, lstRead));
    QCOMPARE(lstRead, (Table{{U("时间"), U("内容, 备注")}}));

    if (HasGbk()) {
        QVERIFY(CLS_CSVOperate::WriteCSVFile(qstrPath, Table{{U("中文")}}, "GBK"));
        QCOMPARE(ReadBytes(qstrPath), QByteArray("\xD6\xD0\xCE\xC4\n"));
    }
}

void tst_CLS_CSVOperate::readOnlyFileIsRead()
{
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, QByteArray("a,b\n"));
    QVERIFY(QFile::setPermissions(qstrPath, QFile::ReadOwner));
    {
        QFile probe(qstrPath);
        if (probe.open(QIODevice::ReadWrite)) {
            QSKIP("this user may write read-only files (root), so the case cannot be set up");
        }
    }
    CLS_CSVOperate csv(qstrPath);
    Table lstRead;
    QVERIFY(csv.ReadRecords(lstRead));
    QCOMPARE(lstRead, (Table{{"a", "b"}}));
}

void tst_CLS_CSVOperate::checkCSVFile_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("expected");

    QTest::newRow("file with content") << QByteArray("a\n") << QStringLiteral("file") << true;
    QTest::newRow("empty file") << QByteArray() << QStringLiteral("file") << false;
    QTest::newRow("missing") << QByteArray() << QStringLiteral("none") << false;
    QTest::newRow("folder") << QByteArray() << QStringLiteral("folder") << false;
    QTest::newRow("empty path") << QByteArray() << QStringLiteral("empty") << false;
}

void tst_CLS_CSVOperate::checkCSVFile()
{
    QFETCH(QByteArray, bytes);
    QFETCH(QString, kind);
    QFETCH(bool, expected);
    QString qstrPath = NewPath();
    if (kind == QLatin1String("file")) {
        WriteBytes(qstrPath, bytes);
    } else if (kind == QLatin1String("folder")) {
        QVERIFY(QDir().mkpath(qstrPath));
    } else if (kind == QLatin1String("empty")) {
        qstrPath.clear();
    }
    QCOMPARE(CLS_CSVOperate::CheckCSVFile(qstrPath), expected);
    QCOMPARE(CLS_CSVOperate::GetInstance()->CheckCSVFile(qstrPath), expected);
}

void tst_CLS_CSVOperate::sharedInstance()
{
    CLS_CSVOperate* pInstance = CLS_CSVOperate::GetInstance();
    QVERIFY(pInstance);
    QCOMPARE(CLS_CSVOperate::GetInstance(), pInstance);
    QVERIFY(pInstance->fileName().isEmpty());

    const QString qstrPath = NewPath();
    const Table lstTable{{"id", "name"}, {"1", U("管理员")}};
    QVERIFY(pInstance->OpenCSVFile(qstrPath));
    QVERIFY(pInstance->WriteRecords(lstTable, "UTF-8"));
    pInstance->CloseCSVFile();

    Table lstRead;
    QVERIFY(pInstance->ReadRecords(lstRead));
    QCOMPARE(lstRead, lstTable);
    pInstance->CloseCSVFile();
    QCOMPARE(pInstance->fileName(), qstrPath);
}

void tst_CLS_CSVOperate::randomTablesRoundTrip()
{
    // Pieces chosen to meet the quoting rules: separators, quotation marks, wide characters, blanks.
    const QStringList lstAlphabet{"a", "Z", ",", "\"", " ", U("中"), U("é"), "1", ";"};
    std::mt19937 generator(20240611u);
    auto fnPick = [&generator](int _iBound) { return int(generator() % unsigned(_iBound)); };

    for (int iRound = 0; iRound < 300; ++iRound) {
        Table lstTable;
        const int iRows = 1 + fnPick(4);
        for (int iRow = 0; iRow < iRows; ++iRow) {
            QList<QString> lstRow;
            const int iFields = 1 + fnPick(5);
            for (int iField = 0; iField < iFields; ++iField) {
                QString qstrField;
                const int iLength = fnPick(7);
                for (int i = 0; i < iLength; ++i) {
                    qstrField += lstAlphabet.at(fnPick(lstAlphabet.size()));
                }
                lstRow.append(qstrField);
            }
            lstTable.append(lstRow);
        }
        const bool blCodecForm = iRound % 2 == 1;
        if (blCodecForm) {
            // Bare fields made only of quotation marks lose their outer pair on reading in this form.
            for (QList<QString>& lstRow : lstTable) {
                for (QString& qstrField : lstRow) {
                    if (!qstrField.isEmpty() && qstrField.count(QLatin1Char('"')) == qstrField.size()) {
                        qstrField.prepend(QLatin1Char('a'));
                    }
                }
            }
        } else if (!LocaleIsUtf8()) {
            continue;
        }
        const QString qstrPath = NewPath();
        QVERIFY(WriteTable(qstrPath, lstTable, blCodecForm ? QByteArray("UTF-8") : QByteArray()));
        Table lstRead;
        QVERIFY(CLS_CSVOperate::ReadCSVFile(qstrPath, lstRead));
        QVERIFY(QFile::remove(qstrPath));
        if (lstRead != lstTable) {
            QString qstrShown;
            for (const QList<QString>& lstRow : lstTable) {
                qstrShown += QLatin1Char('[') + lstRow.join(QLatin1Char('|')) + QLatin1String("] ");
            }
            QFAIL(qPrintable(QStringLiteral("round %1 (%2) lost the table %3")
                                 .arg(iRound)
                                 .arg(blCodecForm ? "codec form" : "every field")
                                 .arg(qstrShown)));
        }
    }
}

void tst_CLS_CSVOperate::randomBytesNeverCrash()
{
    // Half the inputs are plain noise; the other half are built from the bytes the reader reacts to.
    const QList<QByteArray> lstTokens{"\"",
                                      ",",
                                      "\n",
                                      "\r",
                                      "a",
                                      "\"\"",
                                      c_baMark,
                                      "\xD6\xD0",
                                      "\xE4\xB8\xAD",
                                      "\xFF",
                                      "\x80",
                                      "\xE4",
                                      QByteArray(1, '\0')};
    std::mt19937 generator(7u);
    auto fnPick = [&generator](int _iBound) { return int(generator() % unsigned(_iBound)); };
    const QString qstrPath = m_tmpDir.filePath(QStringLiteral("fuzz.csv"));

    int iRefused = 0;
    int iRead = 0;
    CLS_MessageCapture capture;
    for (int iRound = 0; iRound < 10000; ++iRound) {
        QByteArray baInput;
        const int iLength = fnPick(64);
        for (int i = 0; i < iLength; ++i) {
            if (iRound % 2 == 0) {
                baInput += char(fnPick(256));
            } else {
                baInput += lstTokens.at(fnPick(lstTokens.size()));
            }
        }
        {
            QFile file(qstrPath);
            if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) ||
                file.write(baInput) != baInput.size()) {
                QFAIL("cannot write the fuzz input");
            }
        }
        CLS_CSVOperate csv(qstrPath);
        Table lstRead;
        if (!csv.ReadRecords(lstRead)) {
            ++iRefused;
            QVERIFY(lstRead.isEmpty());
            continue;
        }
        ++iRead;
        QVERIFY(lstRead.size() <= baInput.count('\n') + baInput.count('\r') + 1);
        for (const QList<QString>& lstRow : lstRead) {
            QVERIFY(!lstRow.isEmpty());
            for (const QString& qstrField : lstRow) {
                QVERIFY(!qstrField.contains(QLatin1Char('\n')));
            }
        }
    }
    // Every refusal, and nothing else, raised the unknown-character-set warning.
    QCOMPARE(g_lstCaptured.size(), iRefused);
    for (const STRUCT_CapturedMessage& stMessage : qAsConst(g_lstCaptured)) {
        QCOMPARE(stMessage.qstrText, QString::fromLatin1(c_pcharCharSetUnknown));
    }
    QVERIFY(iRead > 0);
    QVERIFY(iRefused > 0);
}

QTEST_GUILESS_MAIN(tst_CLS_CSVOperate)
#include "tst_CLS_CSVOperate.moc"
