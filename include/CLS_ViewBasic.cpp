#include "CLS_ViewBasic.h"

#include <exception>
#include <functional>

#include <QShowEvent>

#include "CLS_PresenterBasic.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "TaskPool.h"
#include "Util.h"

namespace {

template <typename F>
F PoolFunction(const char* _pName)
{
    return Util::FunctionCast<F>(TaskPool::GetModuleFun(_pName, ""));
}

} // namespace

CLS_ViewBasic::CLS_ViewBasic(QWidget* _pParent) : QWidget(_pParent) {}

CLS_ViewBasic::~CLS_ViewBasic()
{
    RemovePendingTasks();
}

void CLS_ViewBasic::RemovePendingTasks()
{
    if (auto pRemove = PoolFunction<TaskPool::PFN_RemoveTmpTask>("RemoveTmpTask")) {
        pRemove(this, HX_CALL_SITE(__LINE__, "RemovePendingTasks"));
    }
}

const char* CLS_ViewBasic::GetModuleCode()
{
    CLS_PresenterBasic* pPresenter = GetPresenter();
    return pPresenter != nullptr ? pPresenter->GetModuleCode() : metaObject()->className();
}

CLS_PresenterBasic* CLS_ViewBasic::GetPresenter()
{
    return nullptr;
}

void CLS_ViewBasic::Init()
{
    setAttribute(Qt::WA_StyledBackground);
    InitView();
    LoadStyle();
    m_blInit.store(true, std::memory_order_release);
    CLS_PresenterBasic* pPresenter = GetPresenter();
    if (pPresenter == nullptr) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << "nullptr == pPresenter Init Fail";
        return;
    }
    connect(pPresenter, &CLS_PresenterBasic::SignTaskResult, this, &CLS_ViewBasic::CallTaskHandler,
            Qt::UniqueConnection);
}

void CLS_ViewBasic::LoadStyle()
{
    try {
        setObjectName(GetClassCode());
        m_qstrStyleSheet = FunctionUtil::LoadStyle(GetModuleCode(), nullptr, GetClassCode());
        setStyleSheet(m_qstrStyleSheet);
    } catch (...) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << "LoadStyle Fail";
    }
}

void CLS_ViewBasic::showEvent(QShowEvent* _pEvent)
{
    Q_UNUSED(_pEvent)
    try {
        if (!m_blFirstShow.load(std::memory_order_acquire)) {
            return;
        }
        if (!m_blInit.load(std::memory_order_acquire)) {
            Init();
        }
        CLS_PresenterBasic* pPresenter = GetPresenter();
        if (pPresenter == nullptr) {
            return;
        }
        if (pPresenter->IsInit() == 0) {
            connect(pPresenter, &CLS_PresenterBasic::SignInitEd, this, &CLS_ViewBasic::SlotInitData,
                    Qt::UniqueConnection);
        } else if (auto pAdd = PoolFunction<TaskPool::PFN_AddTmpTask>("AddTmpTask")) {
            pAdd([this]() { SlotInitData(); }, this, HX_CALL_SITE(__LINE__, "showEvent"));
        }
        m_blFirstShow.store(false, std::memory_order_release);
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << e.what();
    } catch (...) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << "...";
    }
}

void CLS_ViewBasic::SlotInitData()
{
    InitData();
}

bool CLS_ViewBasic::TaskRequest(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                QVariantMap& _qmapResult)
{
    HX_LOG(Logger::LOG_DEBUG, GetModuleCode())
        << "run TaskRequest key:[" << _qstrKey << "] param:[" << QVariantMap2strString(_qmapParam) << "]";
    const bool blRet = TaskHandler(_qstrKey, _qmapParam, _qmapResult);
    HX_LOG(Logger::LOG_INFO, GetModuleCode())
        << "handle " << blRet << " key:[" << _qstrKey << "] param:[" << QVariantMap2strString(_qmapParam)
        << "] result:[" << QVariantMap2strString(_qmapResult) << "]";
    return blRet;
}

void CLS_ViewBasic::SendPresenterRequest(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                         bool _blUnique)
{
    const QString qstrUUID = _blUnique ? FunctionUtil::GetNewGUID() : QString("__DefaultID__");
    QVariantMap qmapParam = _qmapParam;
    qmapParam.insert("__object__", QVariant::fromValue(static_cast<void*>(this)));
    SendPresenterRequest(_qstrKey, qmapParam, qstrUUID);
}

void CLS_ViewBasic::SendPresenterRequest(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                         QString _qstrUUID)
{
    CLS_PresenterBasic* pPresenter = GetPresenter();
    if (pPresenter == nullptr) {
        return;
    }
    QVariantMap qmapParam = _qmapParam;
    qmapParam.insert("__object__", QVariant::fromValue(static_cast<void*>(this)));
    pPresenter->TaskRequest(_qstrKey, qmapParam, _qstrUUID, this);
}

bool CLS_ViewBasic::TaskRequestHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                       const QString& _qstrUUID, QVariantMap& _qmapResult)
{
    Q_UNUSED(_qmapResult)
    SendPresenterRequest(_qstrKey, _qmapParam, _qstrUUID);
    return true;
}

void CLS_ViewBasic::CallTaskHandler(QString _qstrKey, QVariantMap _qmapParam, QString _qstrUUID)
{
    HX_LOG(Logger::LOG_DEBUG, GetModuleCode())
        << "call funtion key:[" << _qstrKey << "] param:[" << QVariantMap2strString(_qmapParam) << "] UUID:["
        << _qstrUUID << "]";
    if (_qmapParam.contains("__object__") &&
        _qmapParam.value("__object__").value<void*>() != static_cast<void*>(this)) {
        return;
    }
    QVariantMap qmapResult;
    const bool blRet = TaskHandler(_qstrKey, _qmapParam, qmapResult);
    HX_LOG(Logger::LOG_INFO, GetModuleCode())
        << "call funtion " << blRet << " key:[" << _qstrKey << "] param:["
        << QVariantMap2strString(_qmapParam) << "] UUID:[" << _qstrUUID << "] result:["
        << QVariantMap2strString(qmapResult) << "]";
    if (!blRet) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode())
            << "key:[" << _qstrKey << "] param:[" << QVariantMap2strString(_qmapParam) << "] UUID:["
            << _qstrUUID << "] result:[" << QVariantMap2strString(qmapResult) << "]";
        qmapResult.insert("__result__", "fail");
    } else {
        qmapResult.insert("__result__", "success");
    }
    Q_EMIT SignRequestTaskRsulted(_qstrKey, qmapResult, _qstrUUID);
}

QString CLS_ViewBasic::GetClassCode() const
{
    const QString qstrName = QString::fromLatin1(metaObject()->className());
    return qstrName.contains("::") ? qstrName.split("::").last() : qstrName;
}

QWidget* GetWgtView(const std::string& _strModuleName, const QVariantMap& _qmapParam)
{
    try {
        HX_LOG(Logger::LOG_INFO, "default") << "run function _strModuleName:[" << _strModuleName
                                            << "] param:[" << QVariantMap2strString(_qmapParam) << "]";
        const std::string strLibrary = Util::GetModulePath() + "/" + Util::LibraryFileName(_strModuleName);
        auto pCreate = Util::FunctionCast<PFN_CreateWgt>(Util::GetDllFunction(strLibrary, "CreateWgt"));
        if (pCreate == nullptr) {
            return nullptr;
        }
        QVariantMap qmapParam = _qmapParam;
        return pCreate(qmapParam);
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, "default")
            << "Request Fail _strModuleName:[" << _strModuleName << "] " << e.what();
    } catch (...) {
        HX_LOG(Logger::LOG_ERROR, "default") << "Request Fail"
                                             << "_strModuleName:[" << _strModuleName << "]";
    }
    return nullptr;
}
