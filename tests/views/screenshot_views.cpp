// Opens the window of `HxClient gui` on the built backup module (loaded as the client does: dlopen,
// GetModule, InitModule, CreateView), with the English texts installed, and saves PNG pictures:
// the window with saved settings loaded at its default size (hxclient_window.png), the settings form at
// its minimum size with one field empty (backup_settings_min.png), its message for that field
// (backup_message.png), the progress dialog of a real backup, running and done
// (backup_progress_running.png, backup_progress_done.png), and the window after the run
// (hxclient_window_done.png).
// Usage: HX_DATA_PATH=<scratch folder, which the backup reads> screenshot_views <output folder>
#include <cstdio>
#include <memory>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QLabel>
#include <QLineEdit>
#include <QProgressBar>
#include <QPushButton>
#include <QRandomGenerator>
#include <QTimer>
#include <QTranslator>

#include "CLS_MainWindow.h"
#include "CLS_ModuleHost.h"

namespace {

// Pictures for the backup to pack, so that it runs long enough to be seen running.
bool WriteDemoPictures(const QString& _qstrFolder)
{
    if (!QDir().mkpath(_qstrFolder)) {
        return false;
    }
    QByteArray baPicture(4 * 1024 * 1024, '\0');
    for (int i = 0; i < 48; ++i) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(baPicture.data()),
                                              baPicture.size() / 4);
        QFile file(QString("%1/face_%2.jpg").arg(_qstrFolder).arg(i, 3, 10, QChar('0')));
        if (!file.open(QIODevice::WriteOnly) || file.write(baPicture) != baPicture.size()) {
            return false;
        }
    }
    return true;
}

// Runs the event loop until the condition holds; false after the time limit.
template <typename Condition>
bool WaitFor(Condition _condition, int _iTimeoutMs)
{
    QElapsedTimer timer;
    timer.start();
    while (!_condition() && timer.elapsed() <= _iTimeoutMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return _condition();
}

bool Save(QWidget* _pWidget, const QString& _qstrPath)
{
    QCoreApplication::processEvents();
    const bool blSaved = _pWidget->grab().save(_qstrPath, "PNG", 0);
    std::printf("%s %s (%dx%d)\n", blSaved ? "saved" : "could not save", qPrintable(_qstrPath),
                _pWidget->width(), _pWidget->height());
    return blSaved;
}

// Labels that the layout made narrower than their text, so that the text wraps.
void ReportWrappedLabels(QWidget* _pView, const char* _pWhere)
{
    for (QLabel* pLabel : _pView->findChildren<QLabel*>()) {
        const int iNeeded = pLabel->fontMetrics().horizontalAdvance(pLabel->text()) + 2 * pLabel->margin();
        if (pLabel->isVisible() && pLabel->wordWrap() && pLabel->contentsRect().width() < iNeeded) {
            std::printf("%s: label %s wraps (%d px for %d px of text)\n", _pWhere,
                        qPrintable(pLabel->objectName()), pLabel->contentsRect().width(), iNeeded);
        }
    }
}

QWidget* ProgressDialog()
{
    for (QWidget* pWidget : QApplication::topLevelWidgets()) {
        if (pWidget->isVisible() && QByteArray(pWidget->metaObject()->className()) == "CLS_BackUpProcess") {
            return pWidget;
        }
    }
    return nullptr;
}

int Fail(const char* _pWhy)
{
    std::fprintf(stderr, "%s\n", _pWhy);
    return 1;
}

} // namespace

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    if (app.arguments().size() != 2 || qEnvironmentVariableIsEmpty("HX_DATA_PATH")) {
        std::fprintf(stderr, "usage: HX_DATA_PATH=<scratch folder> screenshot_views <output folder>\n");
        return 2;
    }
    const QString qstrOutput = QDir(app.arguments().at(1)).absolutePath();
    const QString qstrData = qEnvironmentVariable("HX_DATA_PATH");
    if (!QDir().mkpath(qstrOutput) || !WriteDemoPictures(qstrData + "/FacePicture")) {
        return Fail("cannot write to the output or the data folder");
    }
    const QDir qmDir(QCoreApplication::applicationDirPath() + "/translations");
    for (const QString& qstrFile : qmDir.entryList({"*_en.qm"}, QDir::Files, QDir::Name)) {
        auto* pTranslator = new QTranslator(&app);
        if (pTranslator->load(qmDir.filePath(qstrFile))) {
            QCoreApplication::installTranslator(pTranslator);
        }
    }

    CLS_ModuleHost host;
    QString qstrError;
    if (!host.Load(qstrError)) {
        return Fail(qPrintable(qstrError));
    }
    const QString qstrArchives = qstrData + "/archives";
    QVariantMap qmapSaved;
    host.Request("SaveSettint",
                 {{"AutoEnable", true},
                  {"BackUpCount", "3"},
                  {"BackUpFileSavePath", qstrArchives},
                  {"AutoBackUpInteval", "7"}},
                 qmapSaved, 10000);

    // The window and the dialog go before the module does.
    bool blAllSaved = true;
    bool blRunningShot = false;
    {
        CLS_MainWindow window(host);
        window.show();
        auto* pForm = window.findChild<QWidget*>("CLS_FrmBackUp");
        auto* pPath = pForm != nullptr ? pForm->findChild<QLineEdit*>("lineEdit_SavePath") : nullptr;
        if (pPath == nullptr || !WaitFor([&]() { return !pPath->text().isEmpty(); }, 10000)) {
            return Fail("the settings form did not load the saved settings");
        }
        pPath->setCursorPosition(0);
        ReportWrappedLabels(&window, "window at its default size");
        blAllSaved = Save(&window, qstrOutput + "/hxclient_window.png") && blAllSaved;

        // The form on its own at its smallest.
        {
            std::unique_ptr<QWidget> pSmall(host.CreateView({}));
            pSmall->show();
            pSmall->resize(pSmall->minimumSize());
            auto* pSmallPath = pSmall->findChild<QLineEdit*>("lineEdit_SavePath");
            WaitFor([&]() { return pSmallPath != nullptr && !pSmallPath->text().isEmpty(); }, 10000);
            if (pSmallPath != nullptr) {
                pSmallPath->setCursorPosition(0);
            }
            // An empty field shows its placeholder, in line with the text of the others.
            if (auto* pCount = pSmall->findChild<QLineEdit*>("lineEdit_SaveCount")) {
                pCount->clear();
            }
            ReportWrappedLabels(pSmall.get(), "form at its minimum size");
            blAllSaved = Save(pSmall.get(), qstrOutput + "/backup_settings_min.png") && blAllSaved;

            // Save with that field empty: the message box, which runs its own event loop.
            QTimer::singleShot(0, [&]() {
                WaitFor([]() { return QApplication::activeModalWidget() != nullptr; }, 10000);
                if (QWidget* pBox = QApplication::activeModalWidget()) {
                    blAllSaved = Save(pBox, qstrOutput + "/backup_message.png") && blAllSaved;
                    pBox->close();
                }
            });
            if (auto* pSave = pSmall->findChild<QPushButton*>("pushButton_Save")) {
                pSave->click();
            }
        }

        window.findChild<QPushButton*>("pushButton_HostBackUp")->click();
        if (!WaitFor([]() { return ProgressDialog() != nullptr; }, 10000)) {
            return Fail("the window opened no progress dialog");
        }
        QWidget* pDialog = ProgressDialog();
        auto* pBar = pDialog->findChild<QProgressBar*>();
        auto* pText = pDialog->findChild<QLabel*>("label_Rate");
        if (pBar == nullptr || pText == nullptr) {
            return Fail("the progress dialog has no loading widget");
        }
        blRunningShot = WaitFor([&]() { return pBar->value() > 0 && pBar->value() < 100; }, 300000) &&
                        Save(pDialog, qstrOutput + "/backup_progress_running.png");
        if (!WaitFor([&]() { return !window.IsBackUpRunning(); }, 300000)) {
            return Fail("the backup did not finish");
        }
        WaitFor([&]() { return pBar->value() == 100; }, 10000);
        blAllSaved = Save(pDialog, qstrOutput + "/backup_progress_done.png") && blAllSaved;
        blAllSaved = Save(&window, qstrOutput + "/hxclient_window_done.png") && blAllSaved;
        std::printf("backup result: %s\nwindow status: %s\n", qPrintable(pText->text()),
                    qPrintable(window.StatusText()));
        if (!blRunningShot) {
            std::fprintf(stderr, "no progress between 0 and 100 percent was seen while the backup ran\n");
        }
        window.Quit();
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    }
    return blAllSaved && blRunningShot ? 0 : 1;
}
