#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include "CLS_ArchiveContents.h"
#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "CLS_ProgressBar.h"
#include "CLS_SignalWatcher.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace Commands {
namespace {

constexpr const char* kSafetyFolder = "PreRestore";
constexpr int kCancelResendMs = 100;

bool Confirmed(const QString& _qstrArchive)
{
    QString qstrAnswer;
    if (!ClientOutput::Ask("Restore the client data in " + ClientSetup::DataPath() + " from " + _qstrArchive +
                               "? Files of the same names are overwritten. [y/N] ",
                           qstrAnswer)) {
        return false;
    }
    return qstrAnswer.compare("y", Qt::CaseInsensitive) == 0 ||
           qstrAnswer.compare("yes", Qt::CaseInsensitive) == 0;
}

void PrintRestored(const QString& _qstrArchive, const CLS_ArchiveContents& _contents)
{
    ClientOutput::Print("Restored " + _qstrArchive + " into the client data in " + ClientSetup::DataPath() +
                        ":");
    for (auto it = _contents.Folders().cbegin(); it != _contents.Folders().cend(); ++it) {
        const QString qstrName = it.key().isEmpty() ? QString("(top level)") : it.key();
        ClientOutput::Print(QString("  %1  %2 file(s), %3")
                                .arg(qstrName, -16)
                                .arg(it.value().iFiles)
                                .arg(ClientOutput::HumanSize(it.value().iBytes)));
    }
    if (_contents.Folders().contains("Db")) {
        ClientOutput::Print("The restored database is taken up at the next start of the client.");
    }
}

// The current data into <save folder>/PreRestore, through the module's own backup, so that a wrong
// restore can be undone; only the newest such copy is kept. An archive restored from there is itself the
// safety copy: a new one of the same minute would replace it.
int MakeSafetyCopy(CLS_ModuleHost& _host, const QString& _qstrCommand, const QString& _qstrArchive,
                   QString& _qstrSafetyArchive)
{
    STRUCT_BackUpSettings stSettings;
    QString qstrError;
    if (!ReadSettings(_host, stSettings, qstrError)) {
        ClientOutput::PrintError(_qstrCommand, qstrError);
        return ExitCode::kFailure;
    }
    const QString qstrFolder =
        QDir::cleanPath(QDir::current().absoluteFilePath(stSettings.qstrPath) + "/" + kSafetyFolder);
    if (QFileInfo(_qstrArchive).absolutePath() == qstrFolder) {
        ClientOutput::Print("The archive is a safety copy itself; no new safety copy is made.");
        return ExitCode::kSuccess;
    }
    if (!PrepareWritableFolder(qstrFolder, qstrError)) {
        ClientOutput::PrintError(_qstrCommand, "no safety copy: " + qstrError + "; nothing was restored");
        return ExitCode::kFailure;
    }
    ClientOutput::Print("Backing up the current data into " + qstrFolder + " first ...");
    const STRUCT_BackUpOutcome outcome = RunBackUp(_host, qstrFolder);
    if (!outcome.blSucceeded) {
        if (outcome.blCancelled) {
            ClientOutput::PrintError(_qstrCommand, "cancelled; nothing was restored");
            return ExitCode::kInterrupted;
        }
        ClientOutput::PrintError(_qstrCommand,
                                 "no safety copy, " + outcome.qstrFailure +
                                     "; nothing was restored (--no-safety-copy restores without one)");
        return ExitCode::kFailure;
    }
    _qstrSafetyArchive = QFileInfo(outcome.qstrArchive).absoluteFilePath();
    for (const QFileInfo& older : QDir(qstrFolder).entryInfoList({"BackUp_*.zip"}, QDir::Files)) {
        if (older.absoluteFilePath() != _qstrSafetyArchive) {
            QFile::remove(older.absoluteFilePath());
        }
    }
    ClientOutput::Print("Safety copy: " + _qstrSafetyArchive);
    return ExitCode::kSuccess;
}

// The "Recover" request, with a progress bar like the backup's. Ctrl-C and SIGTERM ask for a cancel, which the module honours until files go
// into place; the run clears the flag when it starts, so the request is repeated until the answer comes.
// True when a cancel was asked for.
bool RunRestore(CLS_ModuleHost& _host, const QString& _qstrArchive, QVariantMap& _qmapResult)
{
    bool blCancelled = false;
    CLS_ProgressBar bar;
    // The host outlives this run; the connection must not.
    const QMetaObject::Connection progress = QObject::connect(
        &_host, &CLS_ModuleHost::SignProgress, &_host, [&](int _iRate, const QString& _qstrText) {
            if (!blCancelled) {
                bar.Update(_iRate, _qstrText);
            }
        });
    QTimer resend;
    resend.setInterval(kCancelResendMs);
    QObject::connect(&resend, &QTimer::timeout, &_host, [&_host] { _host.Send("CanCelBackUp", {}); });
    CLS_SignalWatcher watcher;
    QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, &_host, [&] {
        if (blCancelled) {
            return;
        }
        blCancelled = true;
        bar.Finish();
        ClientOutput::Print(
            "Cancelling; waiting for the restore to stop (once files go into place, it finishes)...");
        _host.Send("CanCelBackUp", {});
        resend.start();
    });
    _host.WaitForAnswer(_host.Send("Recover", {{"RecoverPath", _qstrArchive}}), _qmapResult, -1);
    bar.Finish();
    QObject::disconnect(progress);
    return blCancelled;
}

} // namespace

int Recover(const QStringList& _lstArgs)
{
    CLS_CommandParser parser(
        "recover", "ARCHIVE",
        "Restores the client data from a backup archive. Asks for confirmation first "
        "unless --yes is given. First backs the current data up into PreRestore/ in the "
        "save folder, keeping only the last such copy, unless --no-safety-copy is given. "
        "Ctrl-C cancels until files start going into place. Reports what was restored.");
    parser.Parser().addPositionalArgument("ARCHIVE", "The backup archive (BackUp_*.zip).");
    parser.Parser().addOption({{"y", "yes"}, "Restore without asking."});
    parser.Parser().addOption({"no-safety-copy", "Restore without backing up the current data first."});
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 1, 1, iExit)) {
        return iExit;
    }

    const QString qstrArchive =
        QDir::cleanPath(QDir::current().absoluteFilePath(parser.Parser().positionalArguments().first()));
    CLS_ArchiveContents contents;
    QString qstrError;
    if (!contents.Read(qstrArchive, qstrError)) {
        ClientOutput::PrintError(parser.Command(), qstrError);
        return ExitCode::kFailure;
    }
    if (!parser.Parser().isSet("yes") && !Confirmed(qstrArchive)) {
        ClientOutput::PrintError(parser.Command(), "not confirmed; nothing was restored");
        return ExitCode::kFailure;
    }

    CLS_ModuleHost host;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    QString qstrSafetyArchive;
    if (!parser.Parser().isSet("no-safety-copy")) {
        const int iSafetyExit = MakeSafetyCopy(host, parser.Command(), qstrArchive, qstrSafetyArchive);
        if (iSafetyExit != ExitCode::kSuccess) {
            return iSafetyExit;
        }
    }

    ClientOutput::Print("Restoring from " + qstrArchive + " ...");
    QVariantMap qmapResult;
    const bool blCancelled = RunRestore(host, qstrArchive, qmapResult);
    if (qmapResult.value("__result__").toString() != "success") {
        if (blCancelled) {
            ClientOutput::PrintError(parser.Command(), "cancelled; nothing was restored");
            return ExitCode::kInterrupted;
        }
        const QString qstrReason = qmapResult.value("reason").toString();
        QString qstrMessage =
            "restore failed: " +
            (qstrReason.isEmpty() ? "see the log " + ClientSetup::DataPath() + "/Log/hx.log" : qstrReason);
        if (!qstrSafetyArchive.isEmpty()) {
            qstrMessage += "; the data as it was is in " + qstrSafetyArchive +
                           ", put it back with: HxClient recover --yes --no-safety-copy " + qstrSafetyArchive;
        }
        ClientOutput::PrintError(parser.Command(), qstrMessage);
        return ExitCode::kFailure;
    }
    if (blCancelled) {
        ClientOutput::Print("The restore was putting files in place when the cancel came; it finished.");
    }
    PrintRestored(qstrArchive, contents);
    return ExitCode::kSuccess;
}

} // namespace Commands
