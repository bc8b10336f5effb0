#pragma once

#include <QString>

#include "SharedRecords.h"

// The logged-in user as the host's application data knows it.
class I_UserInfo
{
public:
    virtual ~I_UserInfo() = default;
    virtual QString GetUserId() const = 0;
    virtual QString GetUserName() const = 0;
};

// The host's application data: who is logged in, and the operation log.
class I_AppData
{
public:
    virtual ~I_AppData() = default;
    // Null when nobody is logged in. The object stays owned by the application data.
    virtual I_UserInfo* GetCurrentUser() = 0;
    // Appends one entry to the operation log; true when it was stored.
    virtual bool WriteOperateLog(const STRUCT_searchResult& _stEntry) = 0;
};
