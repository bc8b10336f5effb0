#include "CLS_AppData.h"

CLS_AppData& CLS_AppData::Instance()
{
    // Never destroyed: callers keep the pointer for the life of the process.
    static CLS_AppData* pAppData = new CLS_AppData();
    return *pAppData;
}

I_UserInfo* CLS_AppData::GetCurrentUser()
{
    return &m_user;
}

bool CLS_AppData::WriteOperateLog(const STRUCT_searchResult& _stEntry)
{
    return m_operateLog.Write(_stEntry);
}

QVector<STRUCT_searchResult> CLS_AppData::ReadOperateLog()
{
    return m_operateLog.Read();
}
