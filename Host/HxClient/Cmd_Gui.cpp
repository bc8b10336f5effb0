#include <QApplication>
#include <QPointer>

#include "BackUpOutcomeText.h"
#include "CLS_CommandParser.h"
#include "CLS_MainWindow.h"
#include "CLS_ModuleHost.h"
#include "CLS_SignalWatcher.h"
#include "ClientOutput.h"
#include "Commands.h"

namespace Commands {

int Gui(const QStringList& _lstArgs)
{
    CLS_CommandParser parser(
        "gui", "",
        "Opens a window with the module's settings form and a \"Back up now\" button that "
        "opens the module's progress dialog. Closing the window, Quit or Ctrl-C ends it; during a "
        "backup they cancel the run and wait for it to clean up (exit status 130).");
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }
    CLS_ModuleHost host;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    int iResult = ExitCode::kSuccess;
    {
        CLS_MainWindow window(host);
        // The window says when it is done: after a run that a way out cancelled, not before the run has
        // cleaned up.
        QApplication::setQuitOnLastWindowClosed(false);
        QObject::connect(&window, &CLS_MainWindow::SignFinished, qApp, &QCoreApplication::exit);
        CLS_SignalWatcher watcher;
        QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, &window, [&window]() {
            if (window.IsBackUpRunning()) {
                ClientOutput::Print("Cancelling the backup; waiting for the run to end...");
            }
            window.Quit();
        });
        window.show();
        ClientOutput::Print("Window open; close it (or press Ctrl-C) to quit.");
        iResult = QApplication::exec();
    }
    // Views still open (a progress dialog) go before the module does; children go with their parents.
    QList<QPointer<QWidget>> lstOpen;
    for (QWidget* pWidget : QApplication::topLevelWidgets()) {
        lstOpen.append(pWidget);
    }
    for (const QPointer<QWidget>& pWidget : lstOpen) {
        if (pWidget != nullptr && pWidget->parentWidget() == nullptr) {
            delete pWidget.data();
        }
    }
    if (iResult == ExitCode::kInterrupted) {
        ClientOutput::PrintError(parser.Command(), BackUpOutcomeText::Cancelled());
    }
    return iResult;
}

} // namespace Commands
