#pragma once

#include <time.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

#include <QDateTime>
#include <QFile>
#include <QString>
#include <QUuid>
#include <QVariantMap>
#include <QVector>

#include "CLS_BackUpPresenter.h"
#include "HxAppManager.h"
#include "HxOperateLog.h"
#include "Param.h"
#include "Util.h"

namespace ControlTest {

constexpr const char* kSection = "ModuleBackUp";
constexpr const char* kMissing = "<missing>";
constexpr int kAnswerTimeoutMs = 30000;

// Day arithmetic is checked in a zone with daylight saving; the zone must be set before any date is used.
inline void UseBerlinTime()
{
    qputenv("TZ", "Europe/Berlin");
    tzset();
}

inline QString DataPath()
{
    return QString::fromStdString(Util::GetDataPath());
}

inline QString Setting(const char* _pKey)
{
    return QString::fromStdString(Param::GetParam(kSection, _pKey, kMissing));
}

inline int PutSetting(const char* _pKey, const QString& _qstrValue)
{
    return Param::SetParam(kSection, _pKey, _qstrValue.toStdString(), 1);
}

// Every key of the section gone: the presenter sees a first start.
inline bool ClearSettings()
{
    auto pDelete = Util::FunctionCast<Param::PFN_DeleteParam>(Param::GetModuleFun("DeleteParam", ""));
    if (pDelete == nullptr) {
        return false;
    }
    for (const char* pKey : {"AutoEnable", "BackUpFileSavePath", "BackUpCount", "AutoBackUpInteval",
                             "AutoBackUpTime", "AutoBackUpPath", "BackUpPath", "AutoBackThreadDetectTime"}) {
        pDelete(kSection, pKey);
    }
    return true;
}

inline QByteArray StoreFileBytes()
{
    QFile file(DataPath() + "/HxParam.json");
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// The text that the scheduler stores for a local date-time.
inline QString IsoWithOffset(const QDateTime& _dt)
{
    return _dt.toOffsetFromUtc(_dt.offsetFromUtc()).toString(Qt::ISODate);
}

inline QDateTime LocalMidnight(const QDate& _date)
{
    return QDateTime(_date, QTime(0, 0));
}

inline QVector<STRUCT_searchResult> OperateLog()
{
    auto pRead = Util::FunctionCast<HxAppManager::PFN_ReadOperateLog>(
        Util::GetDllFunction(Util::LibraryFileName("HxAppManager"), "ReadOperateLog"));
    return pRead != nullptr ? pRead() : QVector<STRUCT_searchResult>();
}

inline QStringList LogLines()
{
    QFile file(DataPath() + "/Log/hx.log");
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts)
                                          : QStringList();
}

struct STRUCT_Answer
{
    QString qstrKey;
    QVariantMap qmapResult;
    QString qstrUuid;
};

// Every SignTaskResult of the presenter in the order of emission, recorded on the emitting pool thread.
class CLS_AnswerRecorder : public QObject
{
public:
    explicit CLS_AnswerRecorder(CLS_PresenterBasic* _pPresenter)
    {
        connect(
            _pPresenter, &CLS_PresenterBasic::SignTaskResult, this,
            [this](const QString& _qstrKey, const QVariantMap& _qmapResult, const QString& _qstrUuid) {
                const STRUCT_Answer stAnswer{_qstrKey, _qmapResult, _qstrUuid};
                std::function<void(const STRUCT_Answer&)> hook;
                {
                    std::lock_guard<std::mutex> lock(m_mutex);
                    m_vecAnswers.append(stAnswer);
                    hook = m_hook;
                }
                m_cvAnswer.notify_all();
                if (hook) {
                    hook(stAnswer);
                }
            },
            Qt::DirectConnection);
    }

    // Runs on the emitting thread after the answer is recorded, and may hold that thread.
    void SetHook(std::function<void(const STRUCT_Answer&)> _hook)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_hook = std::move(_hook);
    }

    QVector<STRUCT_Answer> Answers() const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_vecAnswers;
    }

    bool WaitForUuid(const QString& _qstrUuid, int _iTimeoutMs = kAnswerTimeoutMs)
    {
        std::unique_lock<std::mutex> lock(m_mutex);
        return m_cvAnswer.wait_for(lock, std::chrono::milliseconds(_iTimeoutMs), [&] {
            for (const STRUCT_Answer& stAnswer : m_vecAnswers) {
                if (stAnswer.qstrUuid == _qstrUuid) {
                    return true;
                }
            }
            return false;
        });
    }

    // Sends a request the way the host does and waits for its answer; the result map, empty on timeout.
    QVariantMap Request(const QString& _qstrKey, const QVariantMap& _qmapParam)
    {
        const QString qstrUuid = QUuid::createUuid().toString();
        CLS_Singleton<CLS_BackUpPresenter>::GetInstance()->TaskRequest(_qstrKey, _qmapParam, qstrUuid,
                                                                       nullptr);
        if (!WaitForUuid(qstrUuid)) {
            return {};
        }
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const STRUCT_Answer& stAnswer : m_vecAnswers) {
            if (stAnswer.qstrUuid == qstrUuid) {
                return stAnswer.qmapResult;
            }
        }
        return {};
    }

private:
    mutable std::mutex m_mutex;
    std::condition_variable m_cvAnswer;
    QVector<STRUCT_Answer> m_vecAnswers;
    std::function<void(const STRUCT_Answer&)> m_hook;
};

} // namespace ControlTest
