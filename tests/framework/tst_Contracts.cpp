#include <QTemporaryDir>
#include <QtTest>

#include "CLS_BaseContract.h"

namespace {

QStringList g_lstHooks;

class CLS_TestViewContract : public CLS_BaseViewContract
{
    Q_OBJECT

public:
    void InitUi() override { g_lstHooks << "InitUi"; }
    void InitConnect() override { g_lstHooks << "InitConnect"; }
    void OnPresenterBound() override { g_lstHooks << "OnPresenterBound"; }
};

class CLS_TestPresenterContract : public CLS_BasePresenterContract
{
    Q_OBJECT

public:
    void OnViewBound() override { g_lstHooks << "OnViewBound"; }
};

class CLS_Receiver : public QObject
{
    Q_OBJECT

public:
    QList<QVariantList> m_lstCalls;
    QList<int> m_lstShortCalls;

public Q_SLOTS:
    void OnRequest(int _iCmd, QString _qstrModuleType, QString _qstrJsonData, bool _blReuse)
    {
        m_lstCalls << QVariantList{_iCmd, _qstrModuleType, _qstrJsonData, _blReuse};
    }
    void OnShortRequest(int _iCmd, QString, QString) { m_lstShortCalls << _iCmd; }
};

} // namespace

class tst_Contracts : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void bindingPointsBothWaysAndRunsTheHooksInOrder();
    void threeArgumentRequestSendsReuseFalse();
    void styleComesFromAFile();
};

void tst_Contracts::bindingPointsBothWaysAndRunsTheHooksInOrder()
{
    CLS_TestViewContract view;
    CLS_TestPresenterContract first;
    CLS_TestPresenterContract second;
    QCOMPARE(view.GetBoundPresenter(), nullptr);
    g_lstHooks.clear();
    view.BindPresenter(&first);
    QCOMPARE(view.GetBoundPresenter(), &first);
    QCOMPARE(first.GetBoundView(), &view);
    QCOMPARE(g_lstHooks, (QStringList{"InitConnect", "OnPresenterBound", "OnViewBound"}));

    g_lstHooks.clear();
    view.BindPresenter(&second);
    QCOMPARE(view.GetBoundPresenter(), &second);
    QCOMPARE(second.GetBoundView(), &view);
    QCOMPARE(g_lstHooks.size(), 3);
}

void tst_Contracts::threeArgumentRequestSendsReuseFalse()
{
    CLS_TestViewContract view;
    CLS_Receiver receiver;
    QVERIFY(QObject::connect(&view, SIGNAL(SignSendRequset(int, QString, QString, bool)), &receiver,
                             SLOT(OnRequest(int, QString, QString, bool))));
    QVERIFY(QObject::connect(&view, SIGNAL(SignSendRequset(int, QString, QString)), &receiver,
                             SLOT(OnShortRequest(int, QString, QString))));
    Q_EMIT view.SignSendRequset(3, "ModuleBackUp", "{}");
    Q_EMIT view.SignSendRequset(4, "ModuleBackUp", "{\"a\":1}", true);
    QCOMPARE(receiver.m_lstCalls.size(), 2);
    QCOMPARE(receiver.m_lstCalls.at(0), (QVariantList{3, "ModuleBackUp", "{}", false}));
    QCOMPARE(receiver.m_lstCalls.at(1), (QVariantList{4, "ModuleBackUp", "{\"a\":1}", true}));
    // Both forms are one signal: the short connection hears every emission.
    QCOMPARE(receiver.m_lstShortCalls, (QList<int>{3, 4}));
}

void tst_Contracts::styleComesFromAFile()
{
    QTemporaryDir dir;
    QFile file(dir.filePath("view.qss"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write("QDialog { background: #202020; }");
    file.close();

    CLS_TestViewContract view;
    QVERIFY(view.LoadStyle(file.fileName()));
    QCOMPARE(view.styleSheet(), QString("QDialog { background: #202020; }"));
    QVERIFY(!view.LoadStyle(dir.filePath("missing.qss")));
    QCOMPARE(view.styleSheet(), QString("QDialog { background: #202020; }"));
}

QTEST_MAIN(tst_Contracts)
#include "tst_Contracts.moc"
