#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

// Every text that the module and the host's widgets translate has an English text in the installed .qm
// files: the keys are collected from the sources by lupdate, so a new key without a text fails here.
class tst_Translations : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void everyKeyHasAnEnglishText();
};

void tst_Translations::everyKeyHasAnEnglishText()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString qstrKeys = dir.path() + "/keys.ts";
    QProcess lupdate;
    lupdate.setWorkingDirectory(HX_SOURCE_DIR);
    lupdate.start(HX_LUPDATE, {"-silent", "-no-obsolete", "BusinessLib/ModuleBackUp", "include", "Host/WgtLoading",
                               "Host/WgtMsgBox", "-ts", qstrKeys});
    QVERIFY(lupdate.waitForFinished(60000));
    QCOMPARE(lupdate.exitCode(), 0);

    QList<QTranslator*> lstTranslators;
    const QDir qmDir(QCoreApplication::applicationDirPath() + "/translations");
    for (const QString& qstrFile : qmDir.entryList({"*_en.qm"}, QDir::Files)) {
        auto* pTranslator = new QTranslator(this);
        QVERIFY(pTranslator->load(qmDir.filePath(qstrFile)));
        lstTranslators.append(pTranslator);
    }
    QVERIFY2(!lstTranslators.isEmpty(), qPrintable(qmDir.path()));

    QFile file(qstrKeys);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QXmlStreamReader xml(&file);
    QString qstrContext;
    QStringList lstMissing;
    int iKeys = 0;
    while (!xml.atEnd()) {
        if (xml.readNext() != QXmlStreamReader::StartElement) {
            continue;
        }
        if (xml.name() == QLatin1String("name")) {
            qstrContext = xml.readElementText();
        } else if (xml.name() == QLatin1String("source")) {
            const QString qstrSource = xml.readElementText();
            ++iKeys;
            bool blFound = false;
            for (QTranslator* pTranslator : lstTranslators) {
                blFound = blFound || !pTranslator->translate(qPrintable(qstrContext), qPrintable(qstrSource)).isEmpty();
            }
            if (!blFound) {
                lstMissing.append(qstrContext + "/" + qstrSource);
            }
        }
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QVERIFY2(iKeys > 30, qPrintable(QString::number(iKeys)));
    QVERIFY2(lstMissing.isEmpty(), qPrintable(lstMissing.join(", ")));
}

QTEST_GUILESS_MAIN(tst_Translations)
#include "tst_Translations.moc"
