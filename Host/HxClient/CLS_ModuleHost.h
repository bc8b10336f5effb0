#pragma once

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

class CLS_ModuleBasic;
class QWidget;

// The backup module as a client sees it: the library opened at run time, its module object initialised,
// requests by key answered by identifier, the presenter's notifications, views on demand. Nothing of the
// module's own code is linked; every call goes through the module object's virtual operations and
// signals looked up by their signatures.
class CLS_ModuleHost : public QObject
{
    Q_OBJECT

public:
    explicit CLS_ModuleHost(QObject* _pParent = nullptr);
    // Tears the module down (UnInitModule, then the module object) if it was loaded.
    ~CLS_ModuleHost() override;

    CLS_ModuleHost(const CLS_ModuleHost&) = delete;
    CLS_ModuleHost& operator=(const CLS_ModuleHost&) = delete;

    // Opens libModuleBackUp from the framework folder, gets its module object and initialises it.
    bool Load(QString& _qstrError);

    // Queues a request and returns its identifier; the answer comes as SignAnswer.
    QString Send(const QString& _qstrKey, const QVariantMap& _qmapParam);
    // Runs the event loop until the answer to _qstrUuid has come (or _iTimeoutMs has passed, when it is
    // not negative). False on time-out.
    bool WaitForAnswer(const QString& _qstrUuid, QVariantMap& _qmapResult, int _iTimeoutMs);
    // Send and wait.
    bool Request(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult,
                 int _iTimeoutMs);

    // A view of the module (the settings form for an empty map, "ViewType" "BackUpProcess" for the
    // progress dialog); the caller owns it.
    QWidget* CreateView(const QVariantMap& _qmapParam);

Q_SIGNALS:
    void SignAnswer(QString _qstrUuid, QString _qstrKey, QVariantMap _qmapResult);
    // A "ProcessUpdate" notification that asks to be shown.
    void SignProgress(int _iRate, QString _qstrText);
    // The presenter's answer to a request that one of the module's views sent (the progress dialog's
    // "BackUp"); "__object__" names the view.
    void SignViewAnswer(QString _qstrKey, QVariantMap _qmapResult);

private Q_SLOTS:
    void SlotHandlerResult(QString _qstrBusinessKey, QVariantMap _qmapParam, QString _qstrBusinessUUID);
    void SlotPresenterResult(QString _qstrBusinessKey, QVariantMap _qmapParam, QString _qstrBusinessUUID);

private:
    CLS_ModuleBasic* m_pModule = nullptr;
    QHash<QString, QVariantMap> m_hashAnswers;
};
