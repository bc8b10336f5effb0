#include "BackUpOutcomeText.h"

#include "Util.h"

namespace BackUpOutcomeText {

QString Failed(const QVariantMap& _qmapResult)
{
    const QString qstrReason = _qmapResult.value("reason").toString();
    return "backup failed: " +
           (qstrReason.isEmpty()
                ? "see the log " + QString::fromStdString(Util::GetDataPath()) + "/Log/hx.log"
                : qstrReason);
}

QString Cancelled()
{
    return "cancelled; no archive was written";
}

} // namespace BackUpOutcomeText
