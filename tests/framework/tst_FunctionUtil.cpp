#include <QJsonDocument>
#include <QJsonObject>
#include <QtTest>

#include "FunctionUtil.h"

class tst_FunctionUtil : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void callSiteText_data();
    void callSiteText();
    void guidsAreFreshAndWellFormed();
    void mapTextIsIndentedJson();
};

void tst_FunctionUtil::callSiteText_data()
{
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("expected");
    QTest::newRow("request dispatch")
        << QString()
        << R"({"file": "/src/include/CLS_ModuleBasic.cpp","line": "244", "function": "TaskRequest"})";
    QTest::newRow("periodic task with its class")
        << "19CLS_BackUpPresenter"
        << R"({"file": "/src/include/CLS_ModuleBasic.cpp","line": "244","class": "19CLS_BackUpPresenter", "function": "TaskRequest"})";
}

void tst_FunctionUtil::callSiteText()
{
    QFETCH(QString, className);
    QFETCH(QString, expected);
    const std::string strText = FunctionUtil::MakeCallSite("/src/include/CLS_ModuleBasic.cpp", 244,
                                                           "TaskRequest", className.toStdString());
    QCOMPARE(QString::fromStdString(strText), expected);
    // The host's tools read it as JSON.
    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray::fromStdString(strText), &error);
    QCOMPARE(error.error, QJsonParseError::NoError);
    QCOMPARE(doc.object().value("line").toString(), QString("244"));
}

void tst_FunctionUtil::guidsAreFreshAndWellFormed()
{
    QSet<QString> seen;
    const QRegularExpression shape("^\\{[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{12}\\}$");
    for (int i = 0; i < 1000; ++i) {
        const QString qstrGuid = FunctionUtil::GetNewGUID();
        QVERIFY2(shape.match(qstrGuid).hasMatch(), qPrintable(qstrGuid));
        seen.insert(qstrGuid);
    }
    QCOMPARE(seen.size(), 1000);
}

void tst_FunctionUtil::mapTextIsIndentedJson()
{
    const QVariantMap map{{"BackUpPath", QString::fromUtf8("/数据/备份")}, {"intRate", 40}, {"IsSend", true}};
    const QByteArray qbaText = QVariantMap2strString(map);
    QVERIFY(qbaText.contains("\n    \"intRate\": 40"));
    QCOMPARE(QJsonDocument::fromJson(qbaText).object().toVariantMap(), map);
    QCOMPARE(QVariantMap2strString({}), QByteArray("{\n}\n"));
}

QTEST_GUILESS_MAIN(tst_FunctionUtil)
#include "tst_FunctionUtil.moc"
