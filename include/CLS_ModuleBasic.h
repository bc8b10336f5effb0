#pragma once

#include <QMutex>
#include <QObject>
#include <QString>
#include <QVariantMap>

class CLS_PresenterBasic;
class QWidget;

class CLS_ModuleBasic;
// The entry point that a module library exports as "GetModule".
using PFN_GetModule = CLS_ModuleBasic* (*)();

// The module object that the host drives: life cycle, requests by key, views on demand.
class CLS_ModuleBasic : public QObject
{
    Q_OBJECT

public:
    explicit CLS_ModuleBasic(QObject* _pParent = nullptr);
    ~CLS_ModuleBasic() override;

    virtual const char* GetModuleCode();
    virtual QString GetModuleName();
    virtual QString GetModuleExplain();
    virtual void InitModule(const QVariantMap& _qmapParam);
    virtual void UnInitModule(const QVariantMap& _qmapParam);
    // Queues the request on the host's task pool; the answer comes as SignHandlerRsulted.
    virtual void TaskRequest(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                             const QString& _qstrBusinessUUID);
    virtual CLS_PresenterBasic* GetPresenter(const QVariantMap& _qmapParam) = 0;
    virtual QWidget* CreateView(const QVariantMap& _qmapParam) = 0;

Q_SIGNALS:
    void SignHandlerRsulted(QString _qstrBusinessKey, QVariantMap _qmapParam, QString _qstrBusinessUUID);

protected:
    // Drops this module's queued requests and waits for its running ones.
    void RemoveQueuedTasks();

private:
    QMutex m_mutex;
};
