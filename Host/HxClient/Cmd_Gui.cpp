#include <QApplication>
#include <QPointer>

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
        "opens the module's progress dialog. Closing the window (or Ctrl-C) ends it.");
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }
    CLS_ModuleHost host;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    CLS_SignalWatcher watcher;
    QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, qApp, &QApplication::closeAllWindows);
    int iResult = ExitCode::kSuccess;
    {
        CLS_MainWindow window(host);
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
    return iResult;
}

} // namespace Commands
