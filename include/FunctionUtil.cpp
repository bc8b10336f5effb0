#include "FunctionUtil.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QUuid>

namespace FunctionUtil {

QString GetNewGUID()
{
    return QUuid::createUuid().toString();
}

std::string MakeCallSite(const char* _pFile, int _iLine, const char* _pFunction, const std::string& _strClass)
{
    std::string strText = std::string("{\"file\": \"") + (_pFile != nullptr ? _pFile : "") +
                          "\",\"line\": \"" + std::to_string(_iLine);
    if (!_strClass.empty()) {
        strText += "\",\"class\": \"" + _strClass;
    }
    strText += std::string("\", \"function\": \"") + (_pFunction != nullptr ? _pFunction : "") + "\"}";
    return strText;
}

} // namespace FunctionUtil

QByteArray QVariantMap2strString(const QVariantMap& _qmapParam)
{
    return QJsonDocument(QJsonObject::fromVariantMap(_qmapParam)).toJson();
}
