#include "CLS_ModuleBase.h"

CLS_ModuleBase::CLS_ModuleBase(QObject* _pParent) : QObject(_pParent) {}

CLS_ModuleBase::~CLS_ModuleBase() = default;

QWidget* CLS_ModuleBase::GetPageFrame(const QVariantMap& _qmapParam)
{
    return CreatePageFrame(_qmapParam);
}

void CLS_ModuleBase::DealModuleRequest(int _iCmd, QString _qstrModuleType, QString _qstrJsonData,
                                       bool _blReuse)
{
    HandleModuleRequest(_iCmd, _qstrModuleType, _qstrJsonData, _blReuse);
}
