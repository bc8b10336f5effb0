#include <QDir>
#include <QFileInfo>

#include "CLS_ArchiveContents.h"
#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "CLS_SignalWatcher.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace Commands {
namespace {

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

} // namespace

int Recover(const QStringList& _lstArgs)
{
    CLS_CommandParser parser("recover", "ARCHIVE",
                             "Restores the client data from a backup archive. Asks for confirmation first "
                             "unless --yes is given, then reports what was restored.");
    parser.Parser().addPositionalArgument("ARCHIVE", "The backup archive (BackUp_*.zip).");
    parser.Parser().addOption({{"y", "yes"}, "Restore without asking."});
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
    // A restore has no cancel: stopping half-way would leave the data half old, half new.
    CLS_SignalWatcher watcher;
    QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, &host,
                     [] { ClientOutput::Print("A restore cannot be cancelled; waiting for it to end..."); });
    ClientOutput::Print("Restoring from " + qstrArchive + " ...");
    QVariantMap qmapResult;
    host.WaitForAnswer(host.Send("Recover", {{"RecoverPath", qstrArchive}}), qmapResult, -1);
    if (qmapResult.value("__result__").toString() != "success") {
        ClientOutput::PrintError(parser.Command(),
                                 "restore failed; see the log " + ClientSetup::DataPath() + "/Log/hx.log");
        return ExitCode::kFailure;
    }
    PrintRestored(qstrArchive, contents);
    return ExitCode::kSuccess;
}

} // namespace Commands
