#include "CLS_ModuleHost.h"

#include <dlfcn.h>

#include <QEventLoop>
#include <QTimer>
#include <QWidget>

#include "CLS_ModuleBasic.h"
#include "CLS_PresenterBasic.h"
#include "FunctionUtil.h"
#include "TaskPool.h"
#include "Util.h"

namespace {

// The identifier that marks a presenter's unsolicited notification.
constexpr const char* kNotifyId = "__notify__";

} // namespace

CLS_ModuleHost::CLS_ModuleHost(QObject* _pParent) : QObject(_pParent) {}

CLS_ModuleHost::~CLS_ModuleHost()
{
    if (m_pModule == nullptr) {
        return;
    }
    m_pModule->UnInitModule({});
    // The module's destructor drops its queued requests and waits for running ones.
    delete m_pModule;
}

bool CLS_ModuleHost::Load(QString& _qstrError)
{
    if (m_pModule != nullptr) {
        return true;
    }
    // Without the pool every request would be dropped silently and its answer awaited for ever.
    if (TaskPool::GetModuleFun("AddTmpTask", "") == nullptr) {
        _qstrError = "the task pool library (" + QString::fromStdString(Util::LibraryFileName("HxTaskPool")) +
                     ") cannot be loaded";
        return false;
    }
    const std::string strPath = Util::GetModulePath() + "/" + Util::LibraryFileName("ModuleBackUp");
    // Never closed: the module's objects and meta-objects live in it until the process ends.
    void* pHandle = dlopen(strPath.c_str(), RTLD_NOW);
    if (pHandle == nullptr) {
        const char* pError = dlerror();
        _qstrError =
            "cannot load the backup module: " + QString::fromLocal8Bit(pError != nullptr ? pError : "");
        return false;
    }
    auto pGetModule = Util::FunctionCast<PFN_GetModule>(dlsym(pHandle, "GetModule"));
    if (pGetModule == nullptr) {
        _qstrError = "the backup module has no entry point GetModule: " + QString::fromStdString(strPath);
        return false;
    }
    m_pModule = pGetModule();
    if (m_pModule == nullptr) {
        _qstrError = "the backup module gave no module object";
        return false;
    }
    // The module has its own copy of every framework class: connect by signature, never by member pointer.
    connect(m_pModule, SIGNAL(SignHandlerRsulted(QString, QVariantMap, QString)), this,
            SLOT(SlotHandlerResult(QString, QVariantMap, QString)));
    if (QObject* pPresenter = m_pModule->GetPresenter({})) {
        connect(pPresenter, SIGNAL(SignTaskResult(QString, QVariantMap, QString)), this,
                SLOT(SlotPresenterResult(QString, QVariantMap, QString)));
    }
    m_pModule->InitModule({{"HostName", "HxClient"}});
    return true;
}

QString CLS_ModuleHost::Send(const QString& _qstrKey, const QVariantMap& _qmapParam)
{
    const QString qstrUuid = FunctionUtil::GetNewGUID();
    if (m_pModule != nullptr) {
        m_pModule->TaskRequest(_qstrKey, _qmapParam, qstrUuid);
    }
    return qstrUuid;
}

bool CLS_ModuleHost::WaitForAnswer(const QString& _qstrUuid, QVariantMap& _qmapResult, int _iTimeoutMs)
{
    if (!m_hashAnswers.contains(_qstrUuid)) {
        QEventLoop loop;
        connect(this, &CLS_ModuleHost::SignAnswer, &loop, [&](const QString& _qstrId) {
            if (_qstrId == _qstrUuid) {
                loop.quit();
            }
        });
        QTimer timer;
        if (_iTimeoutMs >= 0) {
            timer.setSingleShot(true);
            connect(&timer, &QTimer::timeout, &loop, &QEventLoop::quit);
            timer.start(_iTimeoutMs);
        }
        loop.exec();
    }
    if (!m_hashAnswers.contains(_qstrUuid)) {
        return false;
    }
    _qmapResult = m_hashAnswers.take(_qstrUuid);
    return true;
}

bool CLS_ModuleHost::Request(const QString& _qstrKey, const QVariantMap& _qmapParam, QVariantMap& _qmapResult,
                             int _iTimeoutMs)
{
    return WaitForAnswer(Send(_qstrKey, _qmapParam), _qmapResult, _iTimeoutMs);
}

QWidget* CLS_ModuleHost::CreateView(const QVariantMap& _qmapParam)
{
    return m_pModule != nullptr ? m_pModule->CreateView(_qmapParam) : nullptr;
}

void CLS_ModuleHost::SlotHandlerResult(QString _qstrBusinessKey, QVariantMap _qmapParam,
                                       QString _qstrBusinessUUID)
{
    m_hashAnswers.insert(_qstrBusinessUUID, _qmapParam);
    Q_EMIT SignAnswer(_qstrBusinessUUID, _qstrBusinessKey, _qmapParam);
}

void CLS_ModuleHost::SlotPresenterResult(QString _qstrBusinessKey, QVariantMap _qmapParam,
                                         QString _qstrBusinessUUID)
{
    if (_qstrBusinessUUID != kNotifyId) {
        Q_EMIT SignViewAnswer(_qstrBusinessKey, _qmapParam);
        return;
    }
    if (_qstrBusinessKey != "ProcessUpdate") {
        return;
    }
    // An unchanged rate comes with "IsSend" false.
    if (!_qmapParam.value("IsSend", true).toBool()) {
        return;
    }
    Q_EMIT SignProgress(_qmapParam.value("intRate", 0).toInt(), _qmapParam.value("strRate").toString());
}
