#pragma once

#include "CLS_PresenterBasic.h"
#include "CLS_Singleton.h"

// The backup module's presenter: settings, scheduler and backup runs, one per process.
class CLS_BackUpPresenter : public CLS_PresenterBasic, public CLS_Singleton<CLS_BackUpPresenter>
{
    Q_OBJECT

public:
    const char* GetModuleCode() override;
    int TaskHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                    QVariantMap& _qmapResult) override;
    void InitData() override;
    void UnInitData() override;

private:
    friend class CLS_Singleton<CLS_BackUpPresenter>;
    CLS_BackUpPresenter();
};
