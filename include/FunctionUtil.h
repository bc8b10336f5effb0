#pragma once

#include <functional>
#include <string>

#include <QByteArray>
#include <QFileInfo>
#include <QJsonArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <QVariantMap>

class QWidget;

namespace FunctionUtil {

// A new unique request identifier.
QString GetNewGUID();

// The one-line JSON text that names the caller of a task-pool function:
// {"file": "<path>","line": "<n>", "function": "<name>"}, with a class member before function when given.
std::string MakeCallSite(const char* _pFile, int _iLine, const char* _pFunction,
                         const std::string& _strClass = "");

// Files of a folder. A pattern "*.suffix" matches a file when the pattern ends with the file's suffix;
// an empty pattern list matches every file. Sub-folders are entered unless _blTopLevelOnly.
QList<QFileInfo> GetFileList(const QStringList& _lstFilters, const QString& _qstrPath, bool _blTopLevelOnly);
// Bytes of a file, or of the listed files of a folder.
qint64 GetFileSize(const QString& _qstrPath, const QStringList& _lstFilters, bool _blTopLevelOnly);
// Copies the listed files of a folder into another, reporting whole percentages when they change.
bool CopyFiles(const QString& _qstrSourceDir, const QString& _qstrTargetDir, const QStringList& _lstFilters,
               bool _blTopLevelOnly, bool _blOverwrite, std::function<void(int)> _progress);

// The automatic-backup archive list: a JSON array of paths kept as compact JSON text.
QJsonArray QStringToQJsonArrary(const QString& _qstrText);
QString QJsonArrayToQstring(const QJsonArray& _jsonArray);

// Style sheets of the skin tree beside the application.
QString GetBinPath();
bool GetQssPath(const QString& _qstrModuleFolder, const QString& _qstrFileBase, QString& _qstrQssPath);
QString LoadStyle(const QString& _qstrModuleCode, QWidget* _pWidget, const QString& _qstrClassCode);
QString LoadStyleMini(const QString& _qstrModuleCode, QWidget* _pWidget, const QString& _qstrClassCode);

} // namespace FunctionUtil

// A parameter map as indented JSON text, for log lines.
QByteArray QVariantMap2strString(const QVariantMap& _qmapParam);

// The call-site text of the current source file, at a line fixed by the host's tools.
#define HX_CALL_SITE(line, function) FunctionUtil::MakeCallSite(__FILE__, (line), (function))
