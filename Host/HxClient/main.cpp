#include <memory>

#include <QApplication>
#include <QCoreApplication>

#include "CLS_CommandParser.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace {

struct STRUCT_Command
{
    const char* pName;
    const char* pSyntax;
    const char* pSummary;
    int (*pRun)(const QStringList&);
};

const STRUCT_Command kCommands[] = {
    {"backup", "[DIR]", "back up now, into DIR or the saved folder, with a progress bar", &Commands::BackUp},
    {"recover", "ARCHIVE [--yes]", "restore the client data from a backup archive", &Commands::Recover},
    {"settings", "[--enable ...]", "show or change the backup settings", &Commands::Settings},
    {"run", "", "run as the client does: the scheduler makes automatic backups", &Commands::Run},
    {"oplog", "[--csv FILE]", "list the operation log, or write it as CSV", &Commands::OpLog},
    {"demo-data", "[--bulk MIB]", "create a sample client data folder", &Commands::DemoData},
    {"gui", "", "a window with the settings form and a \"Back up now\" button", &Commands::Gui},
};

QString Usage()
{
    QString qstrText =
        "Usage: HxClient <command> [options] [arguments]\n\n"
        "The stand-alone host of the backup module: it loads libModuleBackUp as the client does.\n\n"
        "Commands:\n";
    for (const STRUCT_Command& command : kCommands) {
        qstrText += QString("  %1 %2\n")
                        .arg(QString(command.pName) + " " + command.pSyntax, -30)
                        .arg(command.pSummary);
    }
    qstrText += "\n'HxClient <command> --help' shows the options of a command.\n\n"
                "Environment:\n"
                "  HX_DATA_PATH   the client data folder (default: ~/Library/Application Support/HxClient)\n"
                "  HX_LOG_LEVEL   lowest log level (0-3) echoed on standard error; the log file\n"
                "                 <data>/Log/hx.log always has everything\n";
    return qstrText;
}

const STRUCT_Command* FindCommand(const QString& _qstrName)
{
    for (const STRUCT_Command& command : kCommands) {
        if (_qstrName == command.pName) {
            return &command;
        }
    }
    return nullptr;
}

} // namespace

int main(int argc, char* argv[])
{
    ClientSetup::QuietLogUnlessAsked();
    ClientSetup::RouteQtMessagesToLog();
    const QString qstrCommand = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    const STRUCT_Command* pCommand = FindCommand(qstrCommand);

    std::unique_ptr<QCoreApplication> pApp;
    if (pCommand != nullptr && pCommand->pRun == &Commands::Gui &&
        qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        // Qt would abort with several lines; one is enough.
        ClientOutput::PrintError("gui",
                                 "no display (set DISPLAY, or QT_QPA_PLATFORM=offscreen to try it headless)");
        return ExitCode::kFailure;
    }
    if (pCommand != nullptr && pCommand->pRun == &Commands::Gui) {
        pApp = std::make_unique<QApplication>(argc, argv);
    } else {
        pApp = std::make_unique<QCoreApplication>(argc, argv);
    }
    QCoreApplication::setApplicationName("HxClient");
    QCoreApplication::setApplicationVersion(PROJECT_VERSION);

    if (qstrCommand.isEmpty()) {
        ClientOutput::PrintPart(Usage());
        return ExitCode::kUsage;
    }
    if (qstrCommand == "--help" || qstrCommand == "-h" || qstrCommand == "help") {
        ClientOutput::PrintPart(Usage());
        return ExitCode::kSuccess;
    }
    if (qstrCommand == "--version") {
        ClientOutput::Print("HxClient " + QCoreApplication::applicationVersion());
        return ExitCode::kSuccess;
    }
    if (pCommand == nullptr) {
        ClientOutput::PrintError("", "unknown command '" + qstrCommand + "' (see HxClient --help)");
        return ExitCode::kUsage;
    }

    ClientSetup::InstallTranslators(*pApp);
    QStringList lstArgs = QCoreApplication::arguments();
    lstArgs.erase(lstArgs.begin(), lstArgs.begin() + 2);
    return pCommand->pRun(lstArgs);
}
