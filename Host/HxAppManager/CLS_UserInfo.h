#pragma once

#include "I_AppData.h"

// The logged-in user of the stand-alone host: whoever the parameter store names. Read at each call, so
// that a change of user is seen at once and no thread reads a half-updated value.
class CLS_UserInfo : public I_UserInfo
{
public:
    // "SystemConfig"/"clientid", "admin" when not set.
    QString GetUserId() const override;
    // "SystemConfig"/"username", the user id when not set.
    QString GetUserName() const override;
};
