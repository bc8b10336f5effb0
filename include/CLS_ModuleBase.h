#pragma once

#include <QObject>
#include <QString>
#include <QVariantMap>

class QWidget;

// The host's interface of a module that exchanges commands with other modules.
class CLS_ModuleBase : public QObject
{
    Q_OBJECT

public:
    explicit CLS_ModuleBase(QObject* _pParent = nullptr);
    ~CLS_ModuleBase() override;

    virtual bool InitModule(const QVariantMap& _qmapParam) = 0;
    virtual bool UnInitModule(const QVariantMap& _qmapParam) = 0;
    virtual QWidget* GetPageFrame(const QVariantMap& _qmapParam);
    virtual QWidget* CreatePageFrame(const QVariantMap& _qmapParam) = 0;
    virtual void HandleModuleRequest(int _iCmd, const QString& _qstrModuleType, const QString& _qstrJsonData,
                                     bool _blReuse) = 0;

public Q_SLOTS:
    void DealModuleRequest(int _iCmd, QString _qstrModuleType, QString _qstrJsonData, bool _blReuse);

Q_SIGNALS:
    void SignSendRequset(int _iCmd, QString _qstrModuleType, QString _qstrJsonData, bool _blReuse = false);
};
