#include "CLS_ModuleBasic.h"

#include <functional>
#include <stdexcept>

#include "CLS_PresenterBasic.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "TaskPool.h"
#include "Util.h"

CLS_ModuleBasic::CLS_ModuleBasic(QObject* _pParent) : QObject(_pParent) {}

CLS_ModuleBasic::~CLS_ModuleBasic()
{
    RemoveQueuedTasks();
    disconnect();
}

void CLS_ModuleBasic::RemoveQueuedTasks()
{
    auto pRemove =
        Util::FunctionCast<TaskPool::PFN_RemoveTmpTask>(TaskPool::GetModuleFun("RemoveTmpTask", ""));
    if (pRemove != nullptr) {
        pRemove(this, HX_CALL_SITE(39, "~CLS_ModuleBasic"));
    }
}

const char* CLS_ModuleBasic::GetModuleCode()
{
    CLS_PresenterBasic* pPresenter = GetPresenter(QVariantMap());
    return pPresenter != nullptr ? pPresenter->GetModuleCode() : metaObject()->className();
}

QString CLS_ModuleBasic::GetModuleName()
{
    return tr("ModuleName");
}

QString CLS_ModuleBasic::GetModuleExplain()
{
    return tr("ModuleExplain");
}

void CLS_ModuleBasic::InitModule(const QVariantMap& _qmapParam)
{
    HX_LOG_AT(Logger::LOG_DEBUG, GetModuleCode(), 120)
        << "run function _qmapParam - [" << QVariantMap2strString(_qmapParam) << "]";
    QMutexLocker locker(&m_mutex);
    if (CLS_PresenterBasic* pPresenter = GetPresenter(_qmapParam)) {
        pPresenter->SetParam(_qmapParam);
        pPresenter->Init();
    }
}

void CLS_ModuleBasic::UnInitModule(const QVariantMap& _qmapParam)
{
    QMutexLocker locker(&m_mutex);
    if (CLS_PresenterBasic* pPresenter = GetPresenter(_qmapParam)) {
        pPresenter->SetParam(_qmapParam);
        pPresenter->UnInit();
    }
}

void CLS_ModuleBasic::TaskRequest(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                                  const QString& _qstrBusinessUUID)
{
    try {
        HX_LOG_AT(Logger::LOG_DEBUG, GetModuleCode(), 217)
            << "_qstrBusinessKey:[" << _qstrBusinessKey << "] _qmapParam:["
            << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:[" << _qstrBusinessUUID << "]";
        QMutexLocker locker(&m_mutex);
        // Copies: the caller's objects may be gone when the task runs.
        std::function<void()> task = [this, qmapParam = _qmapParam, qstrKey = _qstrBusinessKey,
                                      qstrUUID = _qstrBusinessUUID]() {
            CLS_PresenterBasic* pPresenter = GetPresenter(qmapParam);
            if (pPresenter == nullptr) {
                return;
            }
            QVariantMap qmapResult;
            const int iRet = pPresenter->TaskHandler(qstrKey, qmapParam, qmapResult);
            HX_LOG_AT(Logger::LOG_INFO, GetModuleCode(), 228)
                << "handle " << (iRet != 0) << " key:[" << qstrKey << "] param:["
                << QVariantMap2strString(qmapParam) << "] result:[" << QVariantMap2strString(qmapResult)
                << "]";
            if (iRet == 0) {
                qmapResult.insert("__result__", "fail");
                HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 238)
                    << "key:[" << qstrKey << "] param:[" << QVariantMap2strString(qmapParam) << "] UUID:["
                    << qstrUUID << "] result:[" << QVariantMap2strString(qmapResult) << "]";
            } else {
                qmapResult.insert("__result__", "success");
            }
            Q_EMIT SignHandlerRsulted(qstrKey, qmapResult, qstrUUID);
        };
        auto pAdd = Util::FunctionCast<TaskPool::PFN_AddTmpTask>(TaskPool::GetModuleFun("AddTmpTask", ""));
        if (pAdd != nullptr) {
            pAdd(task, this, HX_CALL_SITE(244, "TaskRequest"));
        }
    } catch (const std::exception& e) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 248)
            << "Request Fail" << e.what() << "_qstrBusinessKey:[" << _qstrBusinessKey << "] _qmapParam:["
            << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:[" << _qstrBusinessUUID << "]";
    } catch (...) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 253)
            << "Request Fail _qstrBusinessKey:[" << _qstrBusinessKey << "] _qmapParam:["
            << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:[" << _qstrBusinessUUID << "]";
    }
}
