#include <QDir>
#include <QFileInfo>

#include "BackUpOutcomeText.h"
#include "CLS_BackUpCancel.h"
#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "CLS_ProgressBar.h"
#include "CLS_SignalWatcher.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace Commands {

int BackUp(const QStringList& _lstArgs)
{
    CLS_CommandParser parser(
        "backup", "[DIR]",
        "Backs up the client data now into one zip archive, in DIR or in the folder of the "
        "settings. Shows the progress; Ctrl-C cancels the run and waits for it to end. "
        "Prints the archive's path and size.");
    parser.Parser().addPositionalArgument(
        "DIR", "Folder to write the archive to (default: the saved folder).", "[DIR]");
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 1, iExit)) {
        return iExit;
    }

    // A folder given is checked before anything is loaded; the saved one needs the module to be known.
    QString qstrError;
    QString qstrFolder;
    if (!parser.Parser().positionalArguments().isEmpty()) {
        qstrFolder =
            QDir::cleanPath(QDir::current().absoluteFilePath(parser.Parser().positionalArguments().first()));
        if (!PrepareWritableFolder(qstrFolder, qstrError)) {
            ClientOutput::PrintError(parser.Command(), qstrError);
            return ExitCode::kFailure;
        }
    }
    CLS_ModuleHost host;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    if (qstrFolder.isEmpty()) {
        STRUCT_BackUpSettings stSettings;
        if (!ReadSettings(host, stSettings, qstrError)) {
            ClientOutput::PrintError(parser.Command(), qstrError);
            return ExitCode::kFailure;
        }
        qstrFolder = QDir::cleanPath(QDir::current().absoluteFilePath(stSettings.qstrPath));
        if (!PrepareWritableFolder(qstrFolder, qstrError)) {
            ClientOutput::PrintError(parser.Command(), qstrError);
            return ExitCode::kFailure;
        }
    }

    ClientOutput::Print("Backing up " + ClientSetup::DataPath() + " into " + qstrFolder);
    const STRUCT_BackUpOutcome outcome = RunBackUp(host, qstrFolder);
    if (outcome.blSucceeded) {
        const QFileInfo archive(outcome.qstrArchive);
        if (outcome.qstrArchive.isEmpty() || !archive.isFile()) {
            ClientOutput::PrintError(parser.Command(), "the run reported success but no archive was found: " +
                                                           outcome.qstrArchive);
            return ExitCode::kFailure;
        }
        if (outcome.blCancelled) {
            ClientOutput::Print("The run had finished before the cancel reached it.");
        }
        ClientOutput::Print("Archive: " + archive.absoluteFilePath());
        ClientOutput::Print("Size: " + ClientOutput::HumanSize(archive.size()));
        return ExitCode::kSuccess;
    }
    if (outcome.blCancelled) {
        ClientOutput::PrintError(parser.Command(), BackUpOutcomeText::Cancelled());
        return ExitCode::kInterrupted;
    }
    ClientOutput::PrintError(parser.Command(), outcome.qstrFailure);
    return ExitCode::kFailure;
}

STRUCT_BackUpOutcome RunBackUp(CLS_ModuleHost& _host, const QString& _qstrFolder)
{
    STRUCT_BackUpOutcome outcome;
    CLS_ProgressBar bar;
    CLS_BackUpCancel cancel(_host);
    // The host outlives this run; the connection must not.
    const QMetaObject::Connection progress =
        QObject::connect(&_host, &CLS_ModuleHost::SignProgress, &_host, [&](int _iRate, const QString& _qstrText) {
            if (!cancel.IsRequested()) {
                bar.Update(_iRate, _qstrText);
            }
        });
    CLS_SignalWatcher watcher;
    QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, &_host, [&]() {
        if (cancel.IsRequested()) {
            return;
        }
        bar.Finish();
        ClientOutput::Print("Cancelling; waiting for the run to end...");
        cancel.Request();
    });

    QVariantMap qmapResult;
    _host.WaitForAnswer(_host.Send("BackUp", {{"BackUpPath", _qstrFolder}}), qmapResult, -1);
    bar.Finish();
    QObject::disconnect(progress);

    outcome.blSucceeded = qmapResult.value("__result__").toString() == "success" &&
                          qmapResult.value("TaskResult", -1).toInt() == 0;
    outcome.qstrArchive = qmapResult.value("BackUpPath").toString();
    outcome.blCancelled = cancel.IsRequested();
    outcome.qstrFailure = BackUpOutcomeText::Failed(qmapResult);
    return outcome;
}

} // namespace Commands
