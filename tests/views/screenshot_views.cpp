// Opens the built backup module as the client does (dlopen, GetModule, InitModule, CreateView), with the
// English texts installed, and saves PNG pictures of the settings form with saved settings loaded
// (backup_settings.png) and of the progress dialog of a real backup, running and done
// (backup_progress_running.png, backup_progress_done.png).
// Usage: HX_DATA_PATH=<scratch folder, which the backup reads> screenshot_views <output folder>
#include <cstdio>
#include <memory>

#include <dlfcn.h>

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
#include <QUuid>

#include "CLS_ModuleBasic.h"
#include "CLS_ViewBasic.h"
#include "Util.h"

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
    const bool blSaved = _pWidget->grab().save(_qstrPath, "PNG");
    std::printf("%s %s\n", blSaved ? "saved" : "could not save", qPrintable(_qstrPath));
    return blSaved;
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

    const std::string strLibrary = Util::GetModulePath() + "/" + Util::LibraryFileName("ModuleBackUp");
    void* pHandle = dlopen(strLibrary.c_str(), RTLD_NOW);
    auto pGetModule =
        reinterpret_cast<PFN_GetModule>(pHandle != nullptr ? dlsym(pHandle, "GetModule") : nullptr);
    std::unique_ptr<CLS_ModuleBasic> pModule(pGetModule != nullptr ? pGetModule() : nullptr);
    if (pModule == nullptr) {
        return Fail("cannot open the module, or it has no GetModule");
    }
    pModule->InitModule({});

    // The module keeps its own copy of the framework's meta-objects: its signal is connected by signature.
    QEventLoop saving;
    QObject::connect(pModule.get(), SIGNAL(SignHandlerRsulted(QString, QVariantMap, QString)), &saving,
                     SLOT(quit()));
    QTimer::singleShot(10000, &saving, &QEventLoop::quit);
    const QString qstrArchives = qstrData + "/archives";
    pModule->TaskRequest("SaveSettint",
                         {{"AutoEnable", true},
                          {"BackUpCount", "3"},
                          {"BackUpFileSavePath", qstrArchives + "/AutoBackUp"},
                          {"AutoBackUpInteval", "7"}},
                         QUuid::createUuid().toString());
    saving.exec();
    std::unique_ptr<QWidget> pForm(pModule->CreateView({{"ViewType", "default"}}));
    pForm->show();
    auto* pPath = pForm->findChild<QLineEdit*>("lineEdit_SavePath");
    if (pPath == nullptr || !WaitFor([&]() { return !pPath->text().isEmpty(); }, 10000)) {
        return Fail("the settings form did not load the saved settings");
    }
    pPath->setCursorPosition(0);
    bool blAllSaved = Save(pForm.get(), qstrOutput + "/backup_settings.png");
    pForm->close();

    QWidget* pDialog = pModule->CreateView({{"ViewType", "BackUpProcess"}});
    if (pDialog == nullptr || !pDialog->inherits("CLS_ViewBasic")) {
        return Fail("the module made no progress dialog");
    }
    // The loading widget is made on the first show.
    pDialog->show();
    auto* pBar = pDialog->findChild<QProgressBar*>();
    auto* pText = pDialog->findChild<QLabel*>("label_Rate");
    auto* pButton = pDialog->findChild<QPushButton*>("pushButton_Cancel");
    if (pBar == nullptr || pText == nullptr || pButton == nullptr) {
        return Fail("the progress dialog has no loading widget");
    }
    // The cancel button becomes a close button once the result is in.
    const QString qstrCancel = pButton->text();
    QVariantMap qmapIgnored;
    static_cast<CLS_ViewBasic*>(pDialog)->TaskRequestHandler("BackUp", {{"BackUpPath", qstrArchives}},
                                                             QUuid::createUuid().toString(), qmapIgnored);
    const bool blRunningShot = WaitFor([&]() { return pBar->value() > 0 && pBar->value() < 100; }, 300000) &&
                               Save(pDialog, qstrOutput + "/backup_progress_running.png");
    if (!WaitFor([&]() { return pButton->text() != qstrCancel; }, 300000)) {
        return Fail("the backup did not finish");
    }
    blAllSaved = Save(pDialog, qstrOutput + "/backup_progress_done.png") && blAllSaved;
    std::printf("backup result: %s\n", qPrintable(pText->text()));
    if (!blRunningShot) {
        std::fprintf(stderr, "no progress between 0 and 100 percent was seen while the backup ran\n");
    }
    pDialog->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    pModule->UnInitModule({});
    return blAllSaved && blRunningShot ? 0 : 1;
}
