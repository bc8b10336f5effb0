#include "FunctionUtil.h"

#include <QJsonDocument>

namespace FunctionUtil {

QJsonArray QStringToQJsonArrary(const QString& _qstrText)
{
    // Anything but a JSON array (empty, broken, an object) is an empty list.
    return QJsonDocument::fromJson(_qstrText.toUtf8()).array();
}

QString QJsonArrayToQstring(const QJsonArray& _jsonArray)
{
    return QString::fromUtf8(QJsonDocument(_jsonArray).toJson(QJsonDocument::Compact));
}

} // namespace FunctionUtil
