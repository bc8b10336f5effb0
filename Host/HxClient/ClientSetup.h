#pragma once

#include <QString>

class QCoreApplication;

// What the program does at start, before and besides the module.
namespace ClientSetup {

// The log library echoes failures on standard error by default, which would break the one-line
// messages of this program; the log file keeps everything. HX_LOG_LEVEL, when set, still wins.
void QuietLogUnlessAsked();

// Qt's own warnings go to the log instead of standard error, where only this
// program's one-line messages belong. A fatal message still reaches standard error.
void RouteQtMessagesToLog();

// The client data folder (HX_DATA_PATH when set).
QString DataPath();
// Where libraries' standard output goes (see ClientOutput).
QString LibraryOutputLog();

// The readable English texts of the module's translation keys, from the translations folder beside
// the executable, when they are there.
void InstallTranslators(QCoreApplication& _app);

// As the client does at start: opens its database, which takes up a database that the last restore
// put beside it.
bool OpenClientDatabase(QString& _qstrError);

} // namespace ClientSetup
