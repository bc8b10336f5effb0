#include "CLS_BackUpPresenter.h"

#include "HxAppManager.h"
#include "I_AppData.h"
#include "Logger.h"
#include "Util.h"

void CLS_BackUpPresenter::WriteLogInOperateLog(int _iType, const QString& _qstrTime, bool _blSuccess)
{
    auto pGetAppData =
        Util::FunctionCast<HxAppManager::PFN_GetAppData>(HxAppManager::GetModuleFun("GetAppData", ""));
    I_AppData* pAppData = pGetAppData != nullptr ? pGetAppData() : nullptr;
    if (pAppData == nullptr) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << LogPrefix() << "nullptr == pAppData ";
        return;
    }
    // Nobody logged in: there is nobody to name in the entry.
    I_UserInfo* pUser = pAppData->GetCurrentUser();
    if (pUser == nullptr) {
        return;
    }

    STRUCT_searchResult stEntry;
    stEntry.qstrUserId = pUser->GetUserId();
    stEntry.qstrUserName = pUser->GetUserName();
    stEntry.qstrTime = _qstrTime;
    stEntry.qstrDescription = tr("lab_users") + " " + stEntry.qstrUserName + " " + tr("btn_backup") + " " +
                              tr("lab_operation_result") + " " +
                              (_blSuccess ? tr("msg_success") : tr("msg_Failed"));
    stEntry.iType = _iType;
    pAppData->WriteOperateLog(stEntry);
}
