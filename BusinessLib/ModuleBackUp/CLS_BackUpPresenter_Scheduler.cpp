#include "CLS_BackUpPresenter.h"

#include <string>

#include <QFile>
#include <QJsonArray>
#include <QThread>

#include "FunctionUtil.h"
#include "Param.h"

namespace {

constexpr const char* kSection = "ModuleBackUp";
constexpr int kDefaultLoopIntervalMs = 3600000;
// An archive that another program still holds open gets six more tries, 100 ms apart, then is forgotten.
constexpr int kDeleteRetries = 6;
constexpr unsigned long kDeleteRetryWaitMs = 100;

QString ReadSetting(const char* _pKey, const char* _pDefault)
{
    return QString::fromStdString(Param::GetParam(kSection, _pKey, _pDefault));
}

int WriteSetting(const char* _pKey, const QString& _qstrValue, int _iFlag)
{
    return Param::SetParam(kSection, _pKey, _qstrValue.toStdString(), _iFlag, std::string());
}

// The ISO round trip drops the milliseconds, so that two "now"s of one tick compare by whole seconds.
QDateTime NowInWholeSeconds()
{
    return QDateTime::fromString(QDateTime::currentDateTime().toString(Qt::ISODate), Qt::ISODate);
}

QJsonArray ReadArchiveList()
{
    return FunctionUtil::QStringToQJsonArrary(ReadSetting("AutoBackUpPath", ""));
}

void WriteArchiveList(const QJsonArray& _jsonList)
{
    WriteSetting("AutoBackUpPath", FunctionUtil::QJsonArrayToQstring(_jsonList), 1);
}

// Oldest first, until the new archive fits within the count. The empty-list test keeps a count of 0 or
// less from spinning.
void RotateArchives(int _iKeep)
{
    QJsonArray jsonList = ReadArchiveList();
    int iRetry = 0;
    while (!jsonList.isEmpty() && jsonList.size() >= _iKeep) {
        if (!QFile::remove(jsonList.first().toString()) && iRetry < kDeleteRetries) {
            ++iRetry;
            QThread::msleep(kDeleteRetryWaitMs);
            continue;
        }
        jsonList.removeFirst();
        iRetry = 0;
    }
    WriteArchiveList(jsonList);
}

} // namespace

int CLS_BackUpPresenter::GetLoopInterval()
{
    const QString qstrInterval = ReadSetting("AutoBackThreadDetectTime", "");
    return qstrInterval.isEmpty() ? kDefaultLoopIntervalMs : qstrInterval.toInt();
}

QDateTime CLS_BackUpPresenter::GetNextBackUpTime()
{
    // Local time, so that day arithmetic on the result keeps midnight across a daylight-saving change.
    const QDateTime dtStored =
        QDateTime::fromString(ReadSetting("AutoBackUpTime", ""), Qt::ISODate).toLocalTime();
    // Whole seconds like the tick's own now: a past or missing time must compare as due at that tick.
    const QDateTime dtNow = NowInWholeSeconds();
    if (!dtStored.isValid() || dtStored < dtNow) {
        return dtNow;
    }
    return dtStored;
}

int CLS_BackUpPresenter::SaveNextBackUpTime(const QDateTime& _dtFrom)
{
    const int iDays = ReadSetting("AutoBackUpInteval", "7").toInt();
    // Whole days on the local date keep the due time at midnight across a daylight-saving change; where the
    // clocks skip midnight itself, the day starts at its first time that exists.
    QDateTime dtNext = _dtFrom.toLocalTime().date().addDays(iDays).startOfDay();
    const QDateTime dtNow = QDateTime::currentDateTime();
    if (!dtNext.isValid() || dtNext < dtNow) {
        dtNext = dtNow;
    }
    return WriteSetting("AutoBackUpTime",
                        dtNext.toOffsetFromUtc(dtNext.offsetFromUtc()).toString(Qt::ISODate), 1);
}

void CLS_BackUpPresenter::LoopTask()
{
    if (ReadSetting("AutoEnable", "1").toInt() != 1) {
        return;
    }
    // Whatever path is found here after the run is the archive that this run made.
    WriteSetting("BackUpPath", QString(), 0);

    const QDateTime dtNext = GetNextBackUpTime();
    const QDateTime dtNow = NowInWholeSeconds();
    if (!dtNow.isValid()) {
        return;
    }
    if (!dtNext.isValid()) {
        SaveNextBackUpTime(dtNow);
        return;
    }
    if (dtNow < dtNext) {
        return;
    }

    RotateArchives(ReadSetting("BackUpCount", "3").toInt());

    // Without a progress callback the run throws std::bad_function_call at its first report after the
    // start. That ends the tick here, before the schedule moves on, so the next tick tries again; only a
    // run that fails before that report comes back.
    QVariantMap qmapResult;
    const bool blSuccess =
        BackUpData(ReadSetting("BackUpFileSavePath", ""), QVariantMap(), ProgressCallBack(), qmapResult);
    if (blSuccess) {
        QJsonArray jsonList = ReadArchiveList();
        jsonList.append(ReadSetting("BackUpPath", ""));
        WriteArchiveList(jsonList);
        SaveNextBackUpTime(dtNow);
    }
    WriteLogInOperateLog(0, dtNow.toString("yyyy-MM-dd hh:mm:ss"), blSuccess);
}
