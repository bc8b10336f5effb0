#pragma once

#include <memory>

#include <QPointer>
#include <QString>
#include <QVariantMap>

#include "CLS_ViewBasic.h"

class Ui_CLS_BackUpProcess;

// The dialog that follows one backup run. What it shows is the host's loading widget, driven by keys.
class CLS_BackUpProcess : public CLS_ViewBasic
{
    Q_OBJECT

public:
    explicit CLS_BackUpProcess(QWidget* _pParent = nullptr);
    ~CLS_BackUpProcess() override;

    CLS_PresenterBasic* GetPresenter() override;
    void InitView() override;
    void InitData() override;
    bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                     QVariantMap& _qmapResult) override;
    bool TaskRequestHandler(const QString& _qstrKey, const QVariantMap& _qmapParam, const QString& _qstrUUID,
                            QVariantMap& _qmapResult) override;

public Q_SLOTS:
    void SlotDealProcessResult(QString _qstrKey, QVariantMap _qmapParam, QString _qstrUUID);

private:
    bool UpgradeProcess(const QVariantMap& _qmapParam);
    bool DealBackUpResult(const QVariantMap& _qmapParam);
    // A key for the loading widget; its handler's answer.
    bool SendToLoading(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult);
    bool SendToLoading(const QString& _qstrKey, const QVariantMap& _qmapParam);

    std::unique_ptr<Ui_CLS_BackUpProcess> m_pUi;
    QPointer<CLS_ViewBasic> m_pWgtProcess;
    QString m_qstrBackUpPath;
};
