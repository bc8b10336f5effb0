#include "CLS_UserInfo.h"

#include "Param.h"

namespace {
constexpr const char* kSection = "SystemConfig";
} // namespace

QString CLS_UserInfo::GetUserId() const
{
    return QString::fromStdString(Param::GetParam(kSection, "clientid", Common::DEFAULT_CLIENT_ID));
}

QString CLS_UserInfo::GetUserName() const
{
    const std::string strId = GetUserId().toStdString();
    return QString::fromStdString(Param::GetParam(kSection, "username", strId));
}
