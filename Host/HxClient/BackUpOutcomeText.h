#pragma once

#include <QString>
#include <QVariantMap>

// The words for a backup that ended without an archive, the same on the command line and in the window.
namespace BackUpOutcomeText {

// "backup failed: " and the run's "reason", or where the log tells more when it gave none.
QString Failed(const QVariantMap& _qmapResult);
QString Cancelled();

} // namespace BackUpOutcomeText
