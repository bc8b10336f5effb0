#include <dlfcn.h>

#include <QTemporaryDir>
#include <QtTest>

#include "CLS_ModuleBasic.h"
#include "Util.h"

// Drives the built module library the way the client does: dlopen, GetModule, virtual calls, signal.
class tst_ModuleHost : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void requestIsAnsweredWithItsIdentifier();

private:
    QTemporaryDir m_dir;
    PFN_GetModule m_pGetModule = nullptr;
};

void tst_ModuleHost::initTestCase()
{
    QVERIFY(m_dir.isValid());
    qputenv("HX_DATA_PATH", m_dir.path().toUtf8());
    const std::string strLibrary = Util::GetModulePath() + "/" + Util::LibraryFileName("ModuleBackUp");
    void* pHandle = dlopen(strLibrary.c_str(), RTLD_NOW);
    QVERIFY2(pHandle != nullptr, dlerror());
    m_pGetModule = reinterpret_cast<PFN_GetModule>(dlsym(pHandle, "GetModule"));
    QVERIFY(m_pGetModule != nullptr);
}

void tst_ModuleHost::requestIsAnsweredWithItsIdentifier()
{
    CLS_ModuleBasic* pModule = m_pGetModule();
    QVERIFY(pModule != nullptr);
    QVERIFY(pModule->parent() == nullptr);
    CLS_ModuleBasic* pSecond = m_pGetModule();
    QVERIFY(pSecond != pModule);
    delete pSecond;

    QCOMPARE(QByteArray(pModule->GetModuleCode()), QByteArray("ModuleBackUp"));
    QCOMPARE(pModule->GetModuleName(), QString("ModuleName"));
    QCOMPARE(pModule->GetModuleExplain(), QString("ModuleExplain"));
    pModule->InitModule({{"HostName", "tst_ModuleHost"}});

    // The module's own copy of the meta-object carries the signal; connect by its signature.
    QSignalSpy answers(pModule, SIGNAL(SignHandlerRsulted(QString, QVariantMap, QString)));
    QVERIFY(answers.isValid());
    const QString qstrId = "{5b1c7a52-2f0e-4c3b-9d55-0c7d7c6b2a10}";
    pModule->TaskRequest("UnknownKey", {{"x", 1}}, qstrId);
    QTRY_COMPARE_WITH_TIMEOUT(answers.count(), 1, 5000);
    QCOMPARE(answers.first().at(0).toString(), QString("UnknownKey"));
    QCOMPARE(answers.first().at(1).toMap().value("__result__").toString(), QString("success"));
    QCOMPARE(answers.first().at(2).toString(), qstrId);

    QCOMPARE(pModule->CreateView({{"ViewType", "NoSuchView"}, {"ParentObject", QVariant()}}), nullptr);
    pModule->UnInitModule({});
    delete pModule;
}

QTEST_GUILESS_MAIN(tst_ModuleHost)
#include "tst_ModuleHost.moc"
