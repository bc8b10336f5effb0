#include "CLS_BackUpPresenter.h"

#include <string>

#include <QDir>

#include "Logger.h"
#include "Param.h"

namespace {

constexpr const char* kSection = "ModuleBackUp";
constexpr const char* kLogTimeFormat = "yyyy-MM-dd hh:mm:ss";
constexpr const char* kShownDateFormat = "yyyy-MM-dd";

QString ReadSetting(const char* _pKey, const char* _pDefault)
{
    return QString::fromStdString(Param::GetParam(kSection, _pKey, _pDefault));
}

QDateTime NowInWholeSeconds()
{
    return QDateTime::fromString(QDateTime::currentDateTime().toString(Qt::ISODate), Qt::ISODate);
}

void LoadSettings(CLS_BackUpPresenter& _presenter, QVariantMap& _qmapResult)
{
    _qmapResult.insert("AutoEnable", ReadSetting("AutoEnable", "1").toInt());
    _qmapResult.insert("BackUpFileSavePath", ReadSetting("BackUpFileSavePath", ""));
    _qmapResult.insert("BackUpCount", ReadSetting("BackUpCount", "3").toInt());
    // The form shows the interval as typed, so it stays text.
    _qmapResult.insert("AutoBackUpInteval", ReadSetting("AutoBackUpInteval", "7"));
    const QDateTime dtNext = _presenter.GetNextBackUpTime();
    if (dtNext.isValid()) {
        _qmapResult.insert("AutoBackUpTime", dtNext.toString(kShownDateFormat));
    }
}

// A new interval keeps the last backup where it was and moves the next one; the answer is the date to
// show, empty when the schedule did not move.
QString Reschedule(CLS_BackUpPresenter& _presenter, const QString& _qstrNewInterval)
{
    const QString qstrOldInterval = ReadSetting("AutoBackUpInteval", "7");
    if (qstrOldInterval == _qstrNewInterval) {
        return QString();
    }
    const QDateTime dtNext = _presenter.GetNextBackUpTime();
    if (!dtNext.isValid()) {
        return QString();
    }
    const QDateTime dtLastBackUp = dtNext.addDays(-qstrOldInterval.toInt());
    const int iNewDays = _qstrNewInterval.toInt();
    if (_presenter.SetBackUpInterval(iNewDays) == 0 || _presenter.SaveNextBackUpTime(dtLastBackUp) == 0) {
        return QString();
    }
    QDateTime dtShown = dtLastBackUp.addDays(iNewDays);
    const QDateTime dtNow = QDateTime::currentDateTime();
    if (dtShown < dtNow) {
        dtShown = dtNow;
    }
    return dtShown.toString(kShownDateFormat);
}

int SaveSettings(CLS_BackUpPresenter& _presenter, const QVariantMap& _qmapParam, QVariantMap& _qmapResult)
{
    if (_presenter.SetBackUpEnable(_qmapParam.value("AutoEnable").toBool() ? 1 : 0) == 0 ||
        _presenter.SetBackUpCount(_qmapParam.value("BackUpCount").toInt()) == 0 ||
        _presenter.SetBackUpPath(_qmapParam.value("BackUpFileSavePath").toString()) == 0) {
        return 0;
    }
    _qmapResult.insert("AutoBackUpTime",
                       Reschedule(_presenter, _qmapParam.value("AutoBackUpInteval").toString()));
    return 1;
}

int RunManualBackUp(CLS_BackUpPresenter& _presenter, const QVariantMap& _qmapParam, QVariantMap& _qmapResult)
{
    const QString qstrStartTime = NowInWholeSeconds().toString(kLogTimeFormat);
    _qmapResult.insert("TaskResult", 0);
    const bool blSuccess = _presenter.BackUpData(
        _qmapParam.value("BackUpPath").toString(), _qmapParam,
        [&_presenter](const QString& _qstrKey, const QVariantMap& _qmapData) {
            return _presenter.ProcessCallBack(_qstrKey, _qmapData);
        },
        _qmapResult);
    if (!blSuccess) {
        _presenter.WriteLogInOperateLog(1, qstrStartTime, false);
        _qmapResult.insert("TaskResult", -1);
        return 0;
    }
    // The run records the archive that it wrote.
    _qmapResult.insert("BackUpPath", ReadSetting("BackUpPath", ""));
    _presenter.WriteLogInOperateLog(1, qstrStartTime, true);
    return 1;
}

} // namespace

int CLS_BackUpPresenter::TaskHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                                     QVariantMap& _qmapResult)
{
    if (_qstrBusinessKey == "LoadLastSaveSetting") {
        LoadSettings(*this, _qmapResult);
        return 1;
    }
    if (_qstrBusinessKey == "SaveSettint") {
        for (const char* pKey : {"AutoEnable", "BackUpCount", "BackUpFileSavePath", "AutoBackUpInteval"}) {
            if (!_qmapParam.contains(pKey)) {
                return 0;
            }
        }
        const QDir dirSave(_qmapParam.value("BackUpFileSavePath").toString());
        if (!dirSave.exists() && !dirSave.mkpath(".")) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "TaskHandler Key failed [" << _qstrBusinessKey
                << " ] savepath create failed " << dirSave.absolutePath();
        }
        return SaveSettings(*this, _qmapParam, _qmapResult);
    }
    if (_qstrBusinessKey == "BackUp") {
        return _qmapParam.contains("BackUpPath") ? RunManualBackUp(*this, _qmapParam, _qmapResult) : 0;
    }
    if (_qstrBusinessKey == "Recover") {
        if (!_qmapParam.contains("RecoverPath")) {
            return 0;
        }
        if (RecoverData(_qmapParam.value("RecoverPath").toString())) {
            return 1;
        }
        if (!LastRecoverReason().isEmpty()) {
            _qmapResult.insert("reason", LastRecoverReason());
        }
        return 0;
    }
    if (_qstrBusinessKey == "CanCelBackUp") {
        m_iBackUpCancel.store(-1, std::memory_order_release);
        return 1;
    }
    return 1;
}

int CLS_BackUpPresenter::ProcessCallBack(const QString& _qstrKey, const QVariantMap& _qmapData)
{
    if (m_iBackUpCancel.load(std::memory_order_acquire) == -1) {
        return -1;
    }
    // An unchanged rate comes with "IsSend" false; the views need not hear it again.
    if (!_qmapData.contains("IsSend") || _qmapData.value("IsSend").toBool()) {
        SendTaskNotify(_qstrKey, _qmapData);
    }
    return m_iBackUpCancel.load(std::memory_order_acquire);
}

void CLS_BackUpPresenter::SetBackUpCancel(int _iCancel)
{
    m_iBackUpCancel.store(_iCancel, std::memory_order_release);
}
