#include "CLS_PresenterBasic.h"

#include <functional>
#include <stdexcept>
#include <typeinfo>

#include <QPointer>

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

// How a failure line names the object that asked.
std::string DescribeRequestObject(const QObject* _pRequestObj)
{
    if (_pRequestObj == nullptr) {
        return "null";
    }
    const QString qstrName = _pRequestObj->objectName();
    return qstrName.isEmpty() ? std::string(_pRequestObj->metaObject()->className()) : qstrName.toStdString();
}

} // namespace

CLS_PresenterBasic::CLS_PresenterBasic(QObject* _pParent) : QObject(_pParent) {}

CLS_PresenterBasic::~CLS_PresenterBasic()
{
    if (auto pRemove = PoolFunction<TaskPool::PFN_RemoveTmpTask>("RemoveTmpTask")) {
        pRemove(this, HX_CALL_SITE(56, "~CLS_PresenterBasic"));
    }
    disconnect();
}

std::string CLS_PresenterBasic::LogPrefix() const
{
    return std::string("[") + typeid(*this).name() + "]";
}

const char* CLS_PresenterBasic::GetModuleCode()
{
    return "default";
}

void CLS_PresenterBasic::Init()
{
    try {
        InitData();
        m_iInit.store(1, std::memory_order_release);
        Q_EMIT SignInitEd();
        StartLoopTask();
    } catch (const std::exception&) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 119) << LogPrefix() << "Init Fail";
    } catch (...) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 123) << LogPrefix() << "Init Fail";
    }
}

void CLS_PresenterBasic::UnInit()
{
    try {
        if (GetLoopInterval() > 0) {
            if (auto pRemove = PoolFunction<TaskPool::PFN_RemoveTask>("RemoveTask")) {
                pRemove(m_strLoopTaskKey, HX_CALL_SITE(139, "UnInit"));
            }
        }
        UnInitData();
        m_iInit.store(0, std::memory_order_release);
    } catch (const std::exception&) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << LogPrefix() << "UnInit Fail";
    } catch (...) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode()) << LogPrefix() << "UnInit Fail";
    }
}

void CLS_PresenterBasic::StartLoopTask()
{
    const int iInterval = GetLoopInterval();
    if (iInterval <= 0) {
        return;
    }
    auto pAdd = PoolFunction<TaskPool::PFN_AddLoopTask>("AddLoopTask");
    if (pAdd == nullptr) {
        return;
    }
    std::function<void()> loop = [this]() {
        // One failing run must not end the periodic task.
        try {
            LoopTask();
        } catch (...) {
            HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 190) << LogPrefix() << "LoopTask Fail";
        }
    };
    pAdd(loop, iInterval, m_strLoopTaskKey,
         FunctionUtil::MakeCallSite(__FILE__, 194, "StartLoopTask", typeid(*this).name()));
}

void CLS_PresenterBasic::SetParam(const QVariantMap& _qmapParam)
{
    std::lock_guard<std::mutex> lock(m_mutexParam);
    m_qmapParam = _qmapParam;
}

QVariantMap CLS_PresenterBasic::GetParam() const
{
    std::lock_guard<std::mutex> lock(m_mutexParam);
    return m_qmapParam;
}

void CLS_PresenterBasic::SendTaskNotify(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam)
{
    Q_EMIT SignTaskResult(_qstrBusinessKey, _qmapParam, "__notify__");
}

void CLS_PresenterBasic::LoopTask() {}

int CLS_PresenterBasic::GetLoopInterval()
{
    return -1;
}

void CLS_PresenterBasic::TaskRequest(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                                     const QString& _qstrBusinessUUID, QObject* _pRequestObj)
{
    try {
        HX_LOG_AT(Logger::LOG_DEBUG, GetModuleCode(), 263)
            << LogPrefix() << "_qstrBusinessKey:[" << _qstrBusinessKey << "] _qmapParam:["
            << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:[" << _qstrBusinessUUID
            << "] _pRequestObj :[" << static_cast<const void*>(_pRequestObj) << "]";
        // The view may be gone by the time the task runs; it is then reported as null.
        QPointer<QObject> requestObj(_pRequestObj);
        std::function<void()> task = [this, _qstrBusinessKey, _qmapParam, _qstrBusinessUUID, requestObj]() {
            TaskRequestHandler(_qstrBusinessKey, _qmapParam, _qstrBusinessUUID, requestObj.data());
        };
        if (auto pAdd = PoolFunction<TaskPool::PFN_AddTmpTask>("AddTmpTask")) {
            pAdd(task, this, HX_CALL_SITE(267, "TaskRequest"));
        }
    } catch (const std::exception& e) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 271)
            << LogPrefix() << "Request Fail" << e.what() << "_qstrBusinessKey:[" << _qstrBusinessKey
            << "] _qmapParam:[" << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:["
            << _qstrBusinessUUID << "] _pRequestObj:[" << static_cast<const void*>(_pRequestObj) << "]";
    } catch (...) {
        HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 276)
            << LogPrefix() << "Request Fail _qstrBusinessKey:[" << _qstrBusinessKey << "] _qmapParam:["
            << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:[" << _qstrBusinessUUID
            << "] _pRequestObj:[" << static_cast<const void*>(_pRequestObj) << "]";
    }
}

void CLS_PresenterBasic::TaskRequestHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                                            const QString& _qstrBusinessUUID, QObject* _pRequestObj)
{
    try {
        HX_LOG_AT(Logger::LOG_DEBUG, GetModuleCode(), 383)
            << LogPrefix() << "run TaskRequest key:[" << _qstrBusinessKey << "] param:["
            << QVariantMap2strString(_qmapParam) << "] UUID:[" << _qstrBusinessUUID << "]";
        QVariantMap qmapResult;
        const int iRet = TaskHandler(_qstrBusinessKey, _qmapParam, qmapResult);
        HX_LOG_AT(Logger::LOG_INFO, GetModuleCode(), 389)
            << LogPrefix() << "handle " << (iRet != 0) << " key:[" << _qstrBusinessKey << "] param:["
            << QVariantMap2strString(_qmapParam) << "] UUID:[" << _qstrBusinessUUID << "] result:["
            << QVariantMap2strString(qmapResult) << "]";
        if (_qmapParam.contains("__object__")) {
            qmapResult.insert("__object__", _qmapParam.value("__object__"));
        }
        if (iRet == 0) {
            HX_LOG_AT(Logger::LOG_ERROR, GetModuleCode(), 402)
                << LogPrefix() << "key:[" << _qstrBusinessKey << "] param:["
                << QVariantMap2strString(_qmapParam) << "] UUID:[" << _qstrBusinessUUID << "] result:["
                << QVariantMap2strString(qmapResult) << "]";
            qmapResult.insert("__result__", "fail");
        } else {
            qmapResult.insert("__result__", "success");
        }
        Q_EMIT SignTaskResult(_qstrBusinessKey, qmapResult, _qstrBusinessUUID);
    } catch (const std::exception& e) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode())
            << LogPrefix() << "Request Fail" << e.what() << _qstrBusinessKey << ":[" << _qstrBusinessKey
            << "] _qmapParam:[" << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:["
            << _qstrBusinessUUID << "] _pRequestObj:[" << DescribeRequestObject(_pRequestObj) << "] ";
    } catch (...) {
        HX_LOG(Logger::LOG_ERROR, GetModuleCode())
            << LogPrefix() << "Request Fail" << _qstrBusinessKey << ":[" << _qstrBusinessKey
            << "] _qmapParam:[" << QVariantMap2strString(_qmapParam) << "] _qstrBusinessUUID:["
            << _qstrBusinessUUID << "] _pRequestObj:[" << DescribeRequestObject(_pRequestObj) << "] ";
    }
}
