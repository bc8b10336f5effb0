// Opens the built backup module the way the client does (dlopen, GetModule, InitModule, CreateView), shows
// its settings form and the progress dialog of a real backup with the English texts installed, and saves
// what they look like as PNG files:
//   backup_settings.png          the settings form with saved settings loaded
//   backup_progress_running.png  the progress dialog while the backup runs
//   backup_progress_done.png     the progress dialog when the backup has finished
// Usage: screenshot_views <output folder>. HX_DATA_PATH must name a scratch data folder: the backup reads it.
#include <cstdio>
#include <memory>

#include <dlfcn.h>

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QRandomGenerator>
#include <QTranslator>
#include <QUuid>

#include "CLS_ModuleBasic.h"
#include "CLS_PresenterBasic.h"
#include "CLS_ViewBasic.h"
#include "Util.h"

namespace {

void InstallTranslators(QApplication& _app)
{
    const QDir dir(QCoreApplication::applicationDirPath() + "/translations");
    for (const QString& qstrFile : dir.entryList({"*_en.qm"}, QDir::Files, QDir::Name)) {
        auto* pTranslator = new QTranslator(&_app);
        if (pTranslator->load(dir.filePath(qstrFile))) {
            QCoreApplication::installTranslator(pTranslator);
        }
    }
}

// Pictures for the backup to pack, so that it runs long enough to be seen running.
bool WriteDemoPictures(const QString& _qstrDataPath)
{
    const QString qstrFolder = _qstrDataPath + "/FacePicture";
    if (!QDir().mkpath(qstrFolder)) {
        return false;
    }
    QByteArray baPicture(4 * 1024 * 1024, '\0');
    for (int i = 0; i < 48; ++i) {
        QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(baPicture.data()),
                                              baPicture.size() / 4);
        QFile file(QString("%1/face_%2.jpg").arg(qstrFolder).arg(i, 3, 10, QChar('0')));
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
    while (!_condition()) {
        if (timer.elapsed() > _iTimeoutMs) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

bool Save(QWidget* _pWidget, const QString& _qstrPath)
{
    QCoreApplication::processEvents();
    const bool blSaved = _pWidget->grab().save(_qstrPath, "PNG");
    std::printf("%s %s\n", blSaved ? "saved" : "could not save", qPrintable(_qstrPath));
    return blSaved;
}

} // namespace

// Follows the module's answers and the presenter's notifications, and takes the dialog's pictures.
class CLS_Watcher : public QObject
{
    Q_OBJECT

public:
    QString m_qstrOutput;
    QWidget* m_pDialog = nullptr;
    bool m_blSaved = false;
    bool m_blRunningShot = false;
    bool m_blDone = false;
    QVariantMap m_qmapBackUpResult;

public Q_SLOTS:
    void SlotModuleResult(QString _qstrKey, QVariantMap _qmapResult, QString _qstrUUID)
    {
        Q_UNUSED(_qstrUUID)
        if (_qstrKey == "SaveSettint") {
            m_blSaved = _qmapResult.value("__result__").toString() == "success";
        }
    }

    // Queued after the dialog's own connection, so the dialog already shows what this sees.
    void SlotPresenterResult(QString _qstrKey, QVariantMap _qmapResult, QString _qstrUUID)
    {
        Q_UNUSED(_qstrUUID)
        if (m_pDialog == nullptr) {
            return;
        }
        const int iRate = _qmapResult.value("intRate", -1).toInt();
        if (_qstrKey == "ProcessUpdate" && !m_blRunningShot && iRate > 0 && iRate < 100) {
            m_blRunningShot = Save(m_pDialog, m_qstrOutput + "/backup_progress_running.png");
        } else if (_qstrKey == "BackUp") {
            m_qmapBackUpResult = _qmapResult;
            m_blDone = true;
        }
    }
};

int main(int argc, char* argv[])
{
    QApplication app(argc, argv);
    if (app.arguments().size() != 2 || qEnvironmentVariableIsEmpty("HX_DATA_PATH")) {
        std::fprintf(stderr, "usage: HX_DATA_PATH=<scratch folder> screenshot_views <output folder>\n");
        return 2;
    }
    const QString qstrOutput = QDir(app.arguments().at(1)).absolutePath();
    const QString qstrData = qEnvironmentVariable("HX_DATA_PATH");
    if (!QDir().mkpath(qstrOutput) || !WriteDemoPictures(qstrData)) {
        std::fprintf(stderr, "cannot write to %s or %s\n", qPrintable(qstrOutput), qPrintable(qstrData));
        return 1;
    }
    InstallTranslators(app);

    const std::string strLibrary = Util::GetModulePath() + "/" + Util::LibraryFileName("ModuleBackUp");
    void* pHandle = dlopen(strLibrary.c_str(), RTLD_NOW);
    if (pHandle == nullptr) {
        std::fprintf(stderr, "cannot open the module: %s\n", dlerror());
        return 1;
    }
    auto pGetModule = reinterpret_cast<PFN_GetModule>(dlsym(pHandle, "GetModule"));
    std::unique_ptr<CLS_ModuleBasic> pModule(pGetModule != nullptr ? pGetModule() : nullptr);
    if (pModule == nullptr) {
        std::fprintf(stderr, "the module has no GetModule\n");
        return 1;
    }
    pModule->InitModule({});

    CLS_Watcher watcher;
    watcher.m_qstrOutput = qstrOutput;
    // The module keeps its own copy of the framework's meta-objects: connect by signature.
    QObject::connect(pModule.get(), SIGNAL(SignHandlerRsulted(QString, QVariantMap, QString)), &watcher,
                     SLOT(SlotModuleResult(QString, QVariantMap, QString)));

    const QString qstrArchives = qstrData + "/archives";
    pModule->TaskRequest("SaveSettint",
                         {{"AutoEnable", true},
                          {"BackUpCount", "3"},
                          {"BackUpFileSavePath", qstrArchives + "/AutoBackUp"},
                          {"AutoBackUpInteval", "7"}},
                         QUuid::createUuid().toString());
    if (!WaitFor([&]() { return watcher.m_blSaved; }, 10000)) {
        std::fprintf(stderr, "the settings were not saved\n");
        return 1;
    }

    std::unique_ptr<QWidget> pForm(pModule->CreateView({{"ViewType", "default"}}));
    pForm->show();
    auto* pPath = pForm->findChild<QLineEdit*>("lineEdit_SavePath");
    if (pPath == nullptr || !WaitFor([&]() { return !pPath->text().isEmpty(); }, 10000)) {
        std::fprintf(stderr, "the settings form did not load the settings\n");
        return 1;
    }
    pPath->setCursorPosition(0);
    bool blAllSaved = Save(pForm.get(), qstrOutput + "/backup_settings.png");
    pForm->close();

    QWidget* pDialog = pModule->CreateView({{"ViewType", "BackUpProcess"}});
    if (pDialog == nullptr || !pDialog->inherits("CLS_ViewBasic")) {
        std::fprintf(stderr, "the module made no progress dialog\n");
        return 1;
    }
    pDialog->show();
    watcher.m_pDialog = pDialog;
    QObject::connect(pModule->GetPresenter({}), SIGNAL(SignTaskResult(QString, QVariantMap, QString)),
                     &watcher, SLOT(SlotPresenterResult(QString, QVariantMap, QString)));
    QVariantMap qmapIgnored;
    static_cast<CLS_ViewBasic*>(pDialog)->TaskRequestHandler("BackUp", {{"BackUpPath", qstrArchives}},
                                                             QUuid::createUuid().toString(), qmapIgnored);
    if (!WaitFor([&]() { return watcher.m_blDone; }, 300000)) {
        std::fprintf(stderr, "the backup did not finish\n");
        return 1;
    }
    blAllSaved = Save(pDialog, qstrOutput + "/backup_progress_done.png") && blAllSaved;
    std::printf("backup result: TaskResult %d, archive %s, reason \"%s\"\n",
                watcher.m_qmapBackUpResult.value("TaskResult", -1).toInt(),
                qPrintable(watcher.m_qmapBackUpResult.value("BackUpPath").toString()),
                qPrintable(watcher.m_qmapBackUpResult.value("reason").toString()));
    if (!watcher.m_blRunningShot) {
        std::fprintf(stderr, "no progress between 0 and 100 percent was reported while the backup ran\n");
    }
    pDialog->close();
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
    pModule->UnInitModule({});
    return blAllSaved && watcher.m_blRunningShot ? 0 : 1;
}

#include "screenshot_views.moc"
