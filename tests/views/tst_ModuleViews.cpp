#include <algorithm>

#include <dlfcn.h>

#include <QProcess>
#include <QTemporaryDir>
#include <QTranslator>
#include <QXmlStreamReader>
#include <QtTest>

#include "CLS_ModuleBasic.h"
#include "Util.h"

// The module's views as the client gets them: from the built library, through CreateView, with a text in the
// installed English .qm files for every key that the module and the host's widgets translate.
class tst_ModuleViews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase() { delete m_pModule; }
    void createView_data();
    void createView();
    void everyKeyHasAnEnglishText();

private:
    QTemporaryDir m_dir;
    CLS_ModuleBasic* m_pModule = nullptr;
};

void tst_ModuleViews::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    const std::string strLibrary = Util::GetModulePath() + "/" + Util::LibraryFileName("ModuleBackUp");
    void* pHandle = dlopen(strLibrary.c_str(), RTLD_NOW);
    QVERIFY2(pHandle != nullptr, dlerror());
    auto pGetModule = reinterpret_cast<PFN_GetModule>(dlsym(pHandle, "GetModule"));
    QVERIFY(pGetModule != nullptr);
    m_pModule = pGetModule();
    QVERIFY(m_pModule != nullptr);
}

void tst_ModuleViews::createView_data()
{
    QTest::addColumn<QVariantMap>("qmapParam");
    QTest::addColumn<QString>("qstrClass");
    QTest::newRow("no view type") << QVariantMap{} << "CLS_FrmBackUp";
    QTest::newRow("default") << QVariantMap{{"ViewType", "default"}} << "CLS_FrmBackUp";
    QTest::newRow("progress dialog") << QVariantMap{{"ViewType", "BackUpProcess"}} << "CLS_BackUpProcess";
    QTest::newRow("unknown type") << QVariantMap{{"ViewType", "Recover"}} << QString();
    QTest::newRow("unknown type with a parent")
        << QVariantMap{{"ViewType", "Recover"}, {"ParentObject", QVariant::fromValue<QWidget*>(nullptr)}}
        << QString();
}

void tst_ModuleViews::createView()
{
    QFETCH(QVariantMap, qmapParam);
    QFETCH(QString, qstrClass);
    std::unique_ptr<QWidget> pView(m_pModule->CreateView(qmapParam));
    if (qstrClass.isEmpty()) {
        QCOMPARE(pView.get(), nullptr);
        return;
    }
    QVERIFY(pView != nullptr);
    QCOMPARE(QString(pView->metaObject()->className()), qstrClass);
    QVERIFY(pView->inherits("CLS_ViewBasic"));
    QVERIFY(pView->parentWidget() == nullptr);

    // Given a parent object, the view keeps its window flags.
    QWidget parent;
    qmapParam.insert("ParentObject", QVariant::fromValue(&parent));
    QWidget* pChild = m_pModule->CreateView(qmapParam);
    QVERIFY(pChild != nullptr);
    QCOMPARE(pChild->parentWidget(), &parent);
    QCOMPARE(pChild->windowFlags(), pView->windowFlags());
}

void tst_ModuleViews::everyKeyHasAnEnglishText()
{
    if (QString(HX_LUPDATE).isEmpty()) {
        QSKIP("lupdate is not installed");
    }
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString qstrKeys = dir.path() + "/keys.ts";
    QProcess lupdate;
    lupdate.setWorkingDirectory(HX_SOURCE_DIR);
    lupdate.start(HX_LUPDATE, {"-silent", "-no-obsolete", "BusinessLib/ModuleBackUp", "include",
                               "Host/WgtLoading", "Host/WgtMsgBox", "-ts", qstrKeys});
    QVERIFY(lupdate.waitForFinished(60000));
    QCOMPARE(lupdate.exitCode(), 0);

    QList<QTranslator*> lstTranslators;
    const QDir qmDir(QCoreApplication::applicationDirPath() + "/translations");
    for (const QString& qstrFile : qmDir.entryList({"*_en.qm"}, QDir::Files)) {
        lstTranslators.append(new QTranslator(this));
        QVERIFY(lstTranslators.last()->load(qmDir.filePath(qstrFile)));
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
            const bool blFound =
                std::any_of(lstTranslators.begin(), lstTranslators.end(), [&](QTranslator* _pTranslator) {
                    return !_pTranslator->translate(qPrintable(qstrContext), qPrintable(qstrSource))
                                .isEmpty();
                });
            if (!blFound) {
                lstMissing.append(qstrContext + "/" + qstrSource);
            }
        }
    }
    QVERIFY2(!xml.hasError(), qPrintable(xml.errorString()));
    QVERIFY2(iKeys > 30, qPrintable(QString::number(iKeys)));
    QVERIFY2(lstMissing.isEmpty(), qPrintable(lstMissing.join(", ")));
}

QTEST_MAIN(tst_ModuleViews)
#include "tst_ModuleViews.moc"
