#pragma once

#include "CLS_ModuleBasic.h"

// The backup module as the host sees it.
class CLS_ModuleBackUp : public CLS_ModuleBasic
{
    Q_OBJECT

public:
    explicit CLS_ModuleBackUp(QObject* _pParent = nullptr);
    ~CLS_ModuleBackUp() override;

    CLS_PresenterBasic* GetPresenter(const QVariantMap& _qmapParam) override;
    QWidget* CreateView(const QVariantMap& _qmapParam) override;
};
