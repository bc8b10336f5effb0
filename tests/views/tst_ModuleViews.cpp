#include <dlfcn.h>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ModuleBasic.h"
#include "Util.h"

// The module's views as the client gets them: from the built library, through CreateView.
class tst_ModuleViews : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void createView_data();
    void createView();
    void parentObjectKeepsTheWindowFlags();

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

void tst_ModuleViews::cleanupTestCase()
{
    delete m_pModule;
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
}

void tst_ModuleViews::parentObjectKeepsTheWindowFlags()
{
    QWidget parent;
    std::unique_ptr<QWidget> pPlain(m_pModule->CreateView({{"ViewType", "BackUpProcess"}}));
    QWidget* pView = m_pModule->CreateView(
        {{"ViewType", "BackUpProcess"}, {"ParentObject", QVariant::fromValue(&parent)}});
    QVERIFY(pView != nullptr);
    QCOMPARE(pView->parentWidget(), &parent);
    QCOMPARE(pView->windowFlags(), pPlain->windowFlags());
}

QTEST_MAIN(tst_ModuleViews)
#include "tst_ModuleViews.moc"
