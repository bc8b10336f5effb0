#pragma once

#include <string>

#include <QByteArray>
#include <QString>
#include <QVariantMap>

namespace FunctionUtil {

// A new unique request identifier.
QString GetNewGUID();

// The one-line JSON text that names the caller of a task-pool function:
// {"file": "<path>","line": "<n>", "function": "<name>"}, with a class member before function when given.
std::string MakeCallSite(const char* _pFile, int _iLine, const char* _pFunction, const std::string& _strClass = "");

} // namespace FunctionUtil

// A parameter map as indented JSON text, for log lines.
QByteArray QVariantMap2strString(const QVariantMap& _qmapParam);

// The call-site text of the current source file, at a line fixed by the host's tools.
#define HX_CALL_SITE(line, function) FunctionUtil::MakeCallSite(__FILE__, (line), (function))
