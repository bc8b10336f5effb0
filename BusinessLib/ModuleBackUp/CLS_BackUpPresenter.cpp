#include "CLS_BackUpPresenter.h"

#include "SharedRecords.h"

CLS_BackUpPresenter::CLS_BackUpPresenter()
{
    RegisterSharedRecordTypes();
}

const char* CLS_BackUpPresenter::GetModuleCode()
{
    return "ModuleBackUp";
}

int CLS_BackUpPresenter::TaskHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                                     QVariantMap& _qmapResult)
{
    Q_UNUSED(_qstrBusinessKey)
    Q_UNUSED(_qmapParam)
    Q_UNUSED(_qmapResult)
    // A key this presenter does not know is ignored and answered as done.
    return 1;
}

void CLS_BackUpPresenter::InitData()
{
}

void CLS_BackUpPresenter::UnInitData()
{
}
