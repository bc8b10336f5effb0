#include "CLS_BackUpPresenter.h"

#include <string>

#include <QDir>

#include "Param.h"
#include "Util.h"

namespace {

constexpr const char* kSection = "ModuleBackUp";

QString ReadSetting(const char* _pKey, const char* _pDefault)
{
    return QString::fromStdString(Param::GetParam(kSection, _pKey, _pDefault));
}

int WriteSetting(const char* _pKey, const std::string& _strValue)
{
    return Param::SetParam(kSection, _pKey, _strValue, 1, std::string());
}

} // namespace

void CLS_BackUpPresenter::InitData()
{
    // A restore cut short by a crash is finished before anything else reads or writes the data.
    FinishInterruptedRestore();
    LoadLastSavedSetting();
}

void CLS_BackUpPresenter::UnInitData() {}

void CLS_BackUpPresenter::LoadLastSavedSetting()
{
    // Writing every value back leaves the four main settings in the store after the first start.
    SetBackUpEnable(ReadSetting("AutoEnable", "1").toInt());

    QString qstrSavePath = ReadSetting("BackUpFileSavePath", "");
    if (qstrSavePath.isEmpty()) {
        qstrSavePath = QString::fromStdString(Util::GetDataPath()) + "/" + "AutoBackUp";
        QDir().mkpath(qstrSavePath);
    }
    SetBackUpPath(qstrSavePath);

    SetBackUpCount(ReadSetting("BackUpCount", "3").toInt());
    SetBackUpInterval(ReadSetting("AutoBackUpInteval", "7").toInt());

    const QDateTime dtNext = GetNextBackUpTime();
    const QDateTime dtNow =
        QDateTime::fromString(QDateTime::currentDateTime().toString(Qt::ISODate), Qt::ISODate);
    if (dtNow.isValid() && !dtNext.isValid()) {
        SaveNextBackUpTime(dtNow);
    }
}

int CLS_BackUpPresenter::SetBackUpEnable(int _iEnable)
{
    return WriteSetting("AutoEnable", std::to_string(_iEnable));
}

int CLS_BackUpPresenter::SetBackUpCount(int _iCount)
{
    return WriteSetting("BackUpCount", std::to_string(_iCount));
}

int CLS_BackUpPresenter::SetBackUpPath(const QString& _qstrPath)
{
    return WriteSetting("BackUpFileSavePath", _qstrPath.toStdString());
}

int CLS_BackUpPresenter::SetBackUpInterval(int _iDays)
{
    return WriteSetting("AutoBackUpInteval", std::to_string(_iDays));
}
