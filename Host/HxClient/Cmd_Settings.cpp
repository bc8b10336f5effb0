#include <QDir>

#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "ClientOutput.h"
#include "Commands.h"

namespace Commands {
namespace {

// The limits of the settings form.
constexpr int kMinCount = 1;
constexpr int kMaxCount = 5;
constexpr int kMinInterval = 1;
constexpr int kMaxInterval = 15;

void PrintSettings(const STRUCT_BackUpSettings& _stSettings)
{
    ClientOutput::Print("automatic backup:      " + QString(_stSettings.blEnable ? "on" : "off"));
    ClientOutput::Print("archives kept:         " + QString::number(_stSettings.iCount));
    ClientOutput::Print("interval (days):       " + QString::number(_stSettings.iInterval));
    ClientOutput::Print("save folder:           " + _stSettings.qstrPath);
    ClientOutput::Print("next automatic backup: " +
                        (_stSettings.qstrNextTime.isEmpty() ? QString("(none)") : _stSettings.qstrNextTime));
}

bool ParseSwitch(const QString& _qstrText, bool& _blValue)
{
    const QString qstrText = _qstrText.toLower();
    if (qstrText == "on" || qstrText == "1" || qstrText == "yes" || qstrText == "true") {
        _blValue = true;
        return true;
    }
    if (qstrText == "off" || qstrText == "0" || qstrText == "no" || qstrText == "false") {
        _blValue = false;
        return true;
    }
    return false;
}

bool ParseInRange(const QString& _qstrText, int _iMin, int _iMax, int& _iValue)
{
    bool blOk = false;
    const int iValue = _qstrText.trimmed().toInt(&blOk);
    if (!blOk || iValue < _iMin || iValue > _iMax) {
        return false;
    }
    _iValue = iValue;
    return true;
}

} // namespace

int Settings(const QStringList& _lstArgs)
{
    CLS_CommandParser parser(
        "settings", "",
        "Shows the backup settings. With options, changes them first (the same limits as "
        "the settings form) and shows the result.");
    QCommandLineParser& options = parser.Parser();
    options.addOption({"enable", "Automatic backup on or off.", "on|off"});
    options.addOption({"count", "Automatic archives to keep, 1 to 5.", "n"});
    options.addOption({"interval", "Days between automatic backups, 1 to 15.", "days"});
    options.addOption({"path", "Folder that backups are written to (created when missing).", "folder"});
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }

    // Every value is checked before the module is even loaded: a bad one changes nothing.
    bool blEnable = false;
    int iCount = 0;
    int iInterval = 0;
    QString qstrPath;
    const bool blChange = options.isSet("enable") || options.isSet("count") || options.isSet("interval") ||
                          options.isSet("path");
    if (options.isSet("enable") && !ParseSwitch(options.value("enable"), blEnable)) {
        return parser.UsageError("--enable takes on or off, not '" + options.value("enable") + "'");
    }
    if (options.isSet("count") && !ParseInRange(options.value("count"), kMinCount, kMaxCount, iCount)) {
        return parser.UsageError(QString("--count must be %1 to %2, not '%3'")
                                     .arg(kMinCount)
                                     .arg(kMaxCount)
                                     .arg(options.value("count")));
    }
    if (options.isSet("interval") &&
        !ParseInRange(options.value("interval"), kMinInterval, kMaxInterval, iInterval)) {
        return parser.UsageError(QString("--interval must be %1 to %2 days, not '%3'")
                                     .arg(kMinInterval)
                                     .arg(kMaxInterval)
                                     .arg(options.value("interval")));
    }
    QString qstrError;
    if (options.isSet("path")) {
        if (options.value("path").trimmed().isEmpty()) {
            return parser.UsageError("--path needs a folder");
        }
        qstrPath = QDir::cleanPath(QDir::current().absoluteFilePath(options.value("path")));
        if (!PrepareWritableFolder(qstrPath, qstrError)) {
            ClientOutput::PrintError(parser.Command(), qstrError);
            return ExitCode::kFailure;
        }
    }

    CLS_ModuleHost host;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    STRUCT_BackUpSettings stSettings;
    if (!ReadSettings(host, stSettings, qstrError)) {
        ClientOutput::PrintError(parser.Command(), qstrError);
        return ExitCode::kFailure;
    }
    if (blChange) {
        // The module takes all four values at once.
        const QVariantMap qmapSave = {
            {"AutoEnable", options.isSet("enable") ? blEnable : stSettings.blEnable},
            {"BackUpCount", QString::number(options.isSet("count") ? iCount : stSettings.iCount)},
            {"BackUpFileSavePath", options.isSet("path") ? qstrPath : stSettings.qstrPath},
            {"AutoBackUpInteval",
             QString::number(options.isSet("interval") ? iInterval : stSettings.iInterval)}};
        QVariantMap qmapResult;
        if (!host.Request("SaveSettint", qmapSave, qmapResult, kRequestTimeoutMs)) {
            ClientOutput::PrintError(parser.Command(), "the backup module did not answer SaveSettint");
            return ExitCode::kFailure;
        }
        if (qmapResult.value("__result__").toString() != "success") {
            ClientOutput::PrintError(parser.Command(), "the settings were not saved");
            return ExitCode::kFailure;
        }
        if (!ReadSettings(host, stSettings, qstrError)) {
            ClientOutput::PrintError(parser.Command(), qstrError);
            return ExitCode::kFailure;
        }
        ClientOutput::Print("Saved.");
    }
    PrintSettings(stSettings);
    return ExitCode::kSuccess;
}

} // namespace Commands
