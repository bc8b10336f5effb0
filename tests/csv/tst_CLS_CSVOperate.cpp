#include "CLS_CSVOperate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>
#include <QTextCodec>

#include <algorithm>
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

// The warnings of one stretch of a test, kept from the test log: text, line, category, file name, function.
QList<QStringList> g_lstCaptured;

class CLS_MessageCapture
{
public:
    CLS_MessageCapture() : m_pPrevious(qInstallMessageHandler(Capture)) { g_lstCaptured.clear(); }
    ~CLS_MessageCapture() { qInstallMessageHandler(m_pPrevious); }

private:
    static void Capture(QtMsgType, const QMessageLogContext& _context, const QString& _qstrText)
    {
        g_lstCaptured.append({_qstrText, QString::number(_context.line), _context.category,
                              QFileInfo(QString(_context.file)).fileName(), _context.function});
    }

    QtMessageHandler m_pPrevious;
};

} // namespace

class tst_CLS_CSVOperate : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void writtenBytes_data();
    void writtenBytes();
    void roundTrip_data();
    void roundTrip();
    void readsFileBytes_data();
    void readsFileBytes();
    void refusedInputLeavesEverythingAsItWas_data();
    void refusedInputLeavesEverythingAsItWas();
    void missingOrEmptyFiles();
    void readOnlyFileIsRead();
    void randomBytesNeverCrash();

private:
    QString NewPath() { return m_tmpDir.filePath(QStringLiteral("table_%1.csv").arg(++m_iFileCount)); }
    static QByteArray ReadBytes(const QString& _qstrPath)
    {
        QFile file(_qstrPath);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    static void WriteBytes(const QString& _qstrPath, const QByteArray& _baBytes)
    {
        QFile file(_qstrPath);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
        QCOMPARE(file.write(_baBytes), qint64(_baBytes.size()));
    }
    // An empty codec name selects the every-field-quoted form.
    static bool WriteTable(const QString& _qstrPath, const Table& _lstTable, const QByteArray& _baCodec)
    {
        CLS_CSVOperate csv;
        return csv.OpenCSVFile(_qstrPath) &&
               (_baCodec.isEmpty() ? csv.WriteRecords(_lstTable)
                                   : csv.WriteRecords(_lstTable, _baCodec.constData()));
    }

    QTemporaryDir m_tmpDir;
    int m_iFileCount = 0;
};

void tst_CLS_CSVOperate::initTestCase()
{
    QVERIFY(m_tmpDir.isValid());
    qputenv("HX_DATA_PATH", m_tmpDir.path().toUtf8());
}

void tst_CLS_CSVOperate::writtenBytes_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec");
    QTest::addColumn<bool>("wholeFile");
    QTest::addColumn<QByteArray>("expected");

    const Table lstMixed{{"a", "b,c", "d\"e"}};
    const Table lstRows{{"", "x"}, {}, {"y", ""}};
    QTest::newRow("every field quoted")
        << lstMixed << QByteArray() << false << c_baMark + "\"a\",\"b,c\",\"d\"\"e\"\n";
    QTest::newRow("codec form quotes only commas")
        << lstMixed << QByteArray("UTF-8") << false << c_baMark + "a,\"b,c\",d\"\"e\n";
    QTest::newRow("every field, empty fields and rows")
        << lstRows << QByteArray() << false << c_baMark + "\"\",\"x\"\n\n\"y\",\"\"\n";
    QTest::newRow("codec form, empty fields and rows")
        << lstRows << QByteArray("UTF-8") << false << c_baMark + ",x\n\ny,\n";
    QTest::newRow("every field, empty table writes nothing")
        << Table{} << QByteArray() << false << QByteArray();
    QTest::newRow("codec form in GBK has no mark") << Table{{U("中文"), U("1,2")}} << QByteArray("GBK")
                                                   << false << QByteArray("\xD6\xD0\xCE\xC4,\"1,2\"\n");
    QTest::newRow("whole file replaced") << Table{{U("时间"), U("内容, 备注")}} << QByteArray("UTF-8") << true
                                         << c_baMark + U("时间,\"内容, 备注\"\n").toUtf8();
}

void tst_CLS_CSVOperate::writtenBytes()
{
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    QFETCH(bool, wholeFile);
    QFETCH(QByteArray, expected);
    if (codec.isEmpty() && QTextCodec::codecForLocale()->mibEnum() != 106) {
        QSKIP("the every-field form writes in the locale's codec, which is not UTF-8 here");
    }
    if (codec == "GBK" && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    if (wholeFile) {
        WriteBytes(qstrPath, "a longer,earlier table\nwith,two,rows\n");
        QVERIFY(CLS_CSVOperate::WriteCSVFile(qstrPath, table, codec.constData()));
    } else {
        QVERIFY(WriteTable(qstrPath, table, codec));
    }
    QCOMPARE(ReadBytes(qstrPath), expected);
}

void tst_CLS_CSVOperate::roundTrip_data()
{
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec");
    const QList<QPair<const char*, Table>> lstCases{
        {"commas", {{"a,b", ",", "x,", ",y"}, {"1,2,3", "plain"}}},
        {"quotation marks", {{"say \"hi\"", "\"a\"", "x\"", "\"y", "a\"\"b"}, {"q\"uo,te", "\",\""}}},
        {"chinese", {{U("姓名"), U("操作内容"), U("张三,李四")}, {U("备份\"成功\""), U("中文")}}},
        {"empty fields", {{"", "", ""}, {"a", "", "b"}, {""}}},
        {"empty rows", {{"a"}, {}, {"b"}, {}}},
        {"spaces kept", {{" a ", "  ", "b ,c"}}},
    };
    for (const auto& stCase : lstCases) {
        for (const QByteArray& baForm : {QByteArray(), QByteArray("UTF-8"), QByteArray("GBK")}) {
            QTest::addRow("%s, %s", stCase.first, baForm.isEmpty() ? "every field" : baForm.constData())
                << stCase.second << baForm;
        }
    }
}

void tst_CLS_CSVOperate::roundTrip()
{
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    if (codec == "GBK" && !HasGbk()) {
        QSKIP("this Qt has no GBK codec");
    }
    const QString qstrPath = NewPath();
    QVERIFY(WriteTable(qstrPath, table, codec));
    CLS_CSVOperate csv(qstrPath);
    Table lstRead;
    QVERIFY(csv.ReadRecords(lstRead));
    // A row without fields comes back as one empty field: a line cannot hold less.
    std::replace(table.begin(), table.end(), QList<QString>(), QList<QString>{""});
    QCOMPARE(lstRead, table);
    // The file stays open for reading and writing until it is closed.
    QVERIFY(csv.isOpen() && csv.isWritable());
    csv.CloseCSVFile();
    QVERIFY(!csv.isOpen());
}

void tst_CLS_CSVOperate::readsFileBytes_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<Table>("expected");

    // The mark alone decides: the GBK bytes after it are decoded as UTF-8.
    QTest::newRow("mark, then GBK bytes") << c_baMark + "ok,\xD6\xD0\xCE\xC4\n"
                                          << Table{{"ok", U("\xD6\xD0\xCE\xC4")}};
    QTest::newRow("utf-8 without mark")
        << U("备份,\"成功,完成\"\n").toUtf8() << Table{{U("备份"), U("成功,完成")}};
    QTest::newRow("gbk, not valid utf-8")
        << QByteArray("\xD0\xD5\xC3\xFB,\xD6\xD0\xCE\xC4\n\xD5\xC5\xC8\xFD,\"1,2\"\n")
        << Table{{U("姓名"), U("中文")}, {U("张三"), "1,2"}};
    QTest::newRow("empty file") << QByteArray() << Table{};
    QTest::newRow("mark only") << c_baMark << Table{};
    QTest::newRow("last line without line end") << QByteArray("a,b\nc") << Table{{"a", "b"}, {"c"}};
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
    // Rows are appended to what the table held.
    Table lstRead{{"kept"}};
    QVERIFY(CLS_CSVOperate(qstrPath).ReadRecords(lstRead));
    QCOMPARE(lstRead, Table{{"kept"}} + expected);
}

void tst_CLS_CSVOperate::refusedInputLeavesEverythingAsItWas_data()
{
    QTest::addColumn<QString>("call");
    QTest::addColumn<Table>("table");
    QTest::addColumn<QByteArray>("codec"); // null: no codec at all
    QTest::addColumn<QString>("warning");  // empty: none
    QTest::addColumn<int>("line");
    const auto row = [](const char* _pName, const char* _pCall, const Table& _lstTable,
                        const QByteArray& _baCodec, const char* _pWarning, int _iLine) {
        QTest::newRow(_pName) << _pCall << _lstTable << _baCodec << QString(_pWarning) << _iLine;
    };
    // The host's log tools key on the fixed line numbers of the two warnings.
    row("unknown character set", "ReadRecords", {}, {}, c_pcharCharSetUnknown, 171);
    row("unknown character set, whole file", "ReadCSVFile", {}, {}, c_pcharCharSetUnknown, 171);
    row("empty table", "WriteRecords", {}, "UTF-8", c_pcharWriteRefused, 46);
    row("no codec", "WriteRecords", {{"a"}}, {}, c_pcharWriteRefused, 46);
    row("empty codec name", "WriteRecords", {{"a"}}, "", c_pcharWriteRefused, 46);
    row("unknown codec", "WriteRecords", {{"a"}}, "no-such-codec", "", 0);
    // The whole-file writer refuses before it truncates anything.
    row("empty table, whole file", "WriteCSVFile", {}, "UTF-8", c_pcharWriteRefused, 46);
    row("unknown codec, whole file", "WriteCSVFile", {{"a"}}, "no-such-codec", "", 0);
}

void tst_CLS_CSVOperate::refusedInputLeavesEverythingAsItWas()
{
    QFETCH(QString, call);
    QFETCH(Table, table);
    QFETCH(QByteArray, codec);
    QFETCH(QString, warning);
    QFETCH(int, line);
    const char* pcharCodec = codec.isNull() ? nullptr : codec.constData();
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, c_baNeitherCharSet);
    Table lstRead{{"kept"}};
    bool blDone = true;
    {
        CLS_MessageCapture capture;
        CLS_CSVOperate csv(qstrPath);
        if (call == "ReadRecords") {
            blDone = csv.ReadRecords(lstRead);
        } else if (call == "ReadCSVFile") {
            blDone = CLS_CSVOperate::ReadCSVFile(qstrPath, lstRead);
        } else if (call == "WriteRecords") {
            QVERIFY(csv.OpenCSVFile(qstrPath));
            blDone = csv.WriteRecords(table, pcharCodec);
        } else {
            blDone = CLS_CSVOperate::WriteCSVFile(qstrPath, table, pcharCodec);
        }
    }
    QVERIFY(!blDone);
    QCOMPARE(lstRead, Table{{"kept"}});
    QCOMPARE(ReadBytes(qstrPath), c_baNeitherCharSet);
    QCOMPARE(g_lstCaptured.size(), warning.isEmpty() ? 0 : 1);
    if (!warning.isEmpty()) {
        const QStringList lstMessage = g_lstCaptured.first();
        QCOMPARE(lstMessage.mid(0, 4),
                 (QStringList{warning, QString::number(line), "default", "CLS_CSVOperate.cpp"}));
        // The whole-file reader warns through the reader it uses.
        QVERIFY2(lstMessage.at(4).contains(call == "ReadCSVFile" ? "ReadRecords" : call),
                 qPrintable(lstMessage.at(4)));
    }
}

void tst_CLS_CSVOperate::missingOrEmptyFiles()
{
    Table lstRead;
    CLS_CSVOperate csv;
    QVERIFY(!csv.OpenCSVFile(QString()));
    QVERIFY(!csv.ReadRecords(lstRead));
    // Nothing open for writing: not even an empty table is reported as written.
    QVERIFY(!csv.WriteRecords(Table{}));
    QVERIFY(!csv.WriteRecords(Table{{"a"}}));

    const QString qstrMissing = m_tmpDir.filePath(QStringLiteral("missing.csv"));
    QVERIFY(!CLS_CSVOperate(qstrMissing).ReadRecords(lstRead));
    QVERIFY(!CLS_CSVOperate::ReadCSVFile(qstrMissing, lstRead));
    QVERIFY(!CLS_CSVOperate::ReadCSVFile(QString(), lstRead));
    QVERIFY(lstRead.isEmpty());
    QVERIFY2(!QFileInfo::exists(qstrMissing), "reading must not create the file");
    QVERIFY(!CLS_CSVOperate::WriteCSVFile(QString(), Table{{"a"}}));
    QVERIFY(
        !CLS_CSVOperate::WriteCSVFile(m_tmpDir.filePath(QStringLiteral("no/such/dir.csv")), Table{{"a"}}));

    // Only a file with something in it is a table to read.
    const QString qstrFull = NewPath();
    const QString qstrEmpty = NewPath();
    WriteBytes(qstrFull, "a\n");
    WriteBytes(qstrEmpty, "");
    QVERIFY(CLS_CSVOperate::CheckCSVFile(qstrFull));
    QVERIFY(!CLS_CSVOperate::CheckCSVFile(qstrEmpty));
    QVERIFY(!CLS_CSVOperate::CheckCSVFile(qstrMissing));
    QVERIFY(!CLS_CSVOperate::CheckCSVFile(m_tmpDir.path()));
}

void tst_CLS_CSVOperate::readOnlyFileIsRead()
{
    const QString qstrPath = NewPath();
    WriteBytes(qstrPath, QByteArray("a,b\n"));
    QVERIFY(QFile::setPermissions(qstrPath, QFile::ReadOwner));
    if (QFile(qstrPath).open(QIODevice::ReadWrite)) {
        QSKIP("this user may write read-only files (root), so the case cannot be set up");
    }
    Table lstRead;
    QVERIFY(CLS_CSVOperate(qstrPath).ReadRecords(lstRead));
    QCOMPARE(lstRead, (Table{{"a", "b"}}));
}

void tst_CLS_CSVOperate::randomBytesNeverCrash()
{
    // Even rounds are plain noise; odd rounds are built from the bytes the reader reacts to.
    const QList<QByteArray> lstTokens =
        QByteArray("\"|,|\n|\r|a|\"\"|\xEF\xBB\xBF|\xD6\xD0|\xE4\xB8\xAD|\xFF|\x80|\xE4").split('|')
        << QByteArray(1, '\0');
    std::mt19937 generator(7u);
    const auto pick = [&generator](int _iBound) { return int(generator() % unsigned(_iBound)); };
    const QString qstrPath = NewPath();
    int iRefused = 0;
    CLS_MessageCapture capture;
    for (int iRound = 0; iRound < 10000; ++iRound) {
        QByteArray baInput;
        for (int i = pick(64); i > 0; --i) {
            baInput +=
                iRound % 2 == 0 ? QByteArray(1, char(pick(256))) : lstTokens.at(pick(lstTokens.size()));
        }
        WriteBytes(qstrPath, baInput);
        Table lstRead;
        if (!CLS_CSVOperate(qstrPath).ReadRecords(lstRead)) {
            ++iRefused;
            QVERIFY(lstRead.isEmpty());
            continue;
        }
        QVERIFY(lstRead.size() <= baInput.count('\n') + baInput.count('\r') + 1);
        for (const QList<QString>& lstRow : qAsConst(lstRead)) {
            QVERIFY(!lstRow.isEmpty());
            for (const QString& qstrField : lstRow) {
                QVERIFY(!qstrField.contains('\n'));
            }
        }
    }
    // Every refusal, and nothing else, raised the unknown-character-set warning.
    QCOMPARE(g_lstCaptured.size(), iRefused);
    for (const QStringList& lstMessage : qAsConst(g_lstCaptured)) {
        QCOMPARE(lstMessage.first(), QString(c_pcharCharSetUnknown));
    }
    QVERIFY(iRefused > 0 && iRefused < 10000);
}

QTEST_GUILESS_MAIN(tst_CLS_CSVOperate)
#include "tst_CLS_CSVOperate.moc"
