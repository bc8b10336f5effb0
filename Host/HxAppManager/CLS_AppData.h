#pragma once

#include "CLS_OperateLog.h"
#include "CLS_UserInfo.h"
#include "I_AppData.h"

// The application data of the stand-alone host, one per process.
class CLS_AppData : public I_AppData
{
public:
    static CLS_AppData& Instance();

    // Never null: this host always has a user, the one the parameter store names.
    I_UserInfo* GetCurrentUser() override;
    bool WriteOperateLog(const STRUCT_searchResult& _stEntry) override;
    // Every entry of the operation log, oldest first.
    QVector<STRUCT_searchResult> ReadOperateLog();

private:
    CLS_AppData() = default;

    CLS_UserInfo m_user;
    CLS_OperateLog m_operateLog;
};
