#include <QDir>
#include <QFileInfo>
#include <QTemporaryFile>

#include "CLS_ModuleHost.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"

namespace Commands {

bool StartClient(CLS_ModuleHost& _host, const QString& _qstrCommand)
{
    QString qstrError;
    if (!ClientSetup::OpenClientDatabase(qstrError) || !_host.Load(qstrError)) {
        ClientOutput::PrintError(_qstrCommand, qstrError);
        return false;
    }
    return true;
}

bool ReadSettings(CLS_ModuleHost& _host, STRUCT_BackUpSettings& _stSettings, QString& _qstrError)
{
    QVariantMap qmapResult;
    if (!_host.Request("LoadLastSaveSetting", {}, qmapResult, kRequestTimeoutMs)) {
        _qstrError = "the backup module did not answer LoadLastSaveSetting";
        return false;
    }
    if (qmapResult.value("__result__").toString() != "success") {
        _qstrError = "the backup module could not read its settings";
        return false;
    }
    const QStringList lstKeys = {"AutoEnable", "BackUpFileSavePath", "BackUpCount", "AutoBackUpInteval"};
    for (const QString& qstrKey : lstKeys) {
        if (!qmapResult.contains(qstrKey)) {
            _qstrError = "the backup module's settings lack " + qstrKey;
            return false;
        }
    }
    _stSettings.blEnable = qmapResult.value("AutoEnable").toInt() == 1;
    _stSettings.iCount = qmapResult.value("BackUpCount").toInt();
    _stSettings.iInterval = qmapResult.value("AutoBackUpInteval").toString().toInt();
    _stSettings.qstrPath = qmapResult.value("BackUpFileSavePath").toString();
    _stSettings.qstrNextTime = qmapResult.value("AutoBackUpTime").toString();
    return true;
}

bool PrepareWritableFolder(const QString& _qstrPath, QString& _qstrError)
{
    if (_qstrPath.isEmpty()) {
        _qstrError = "no folder given";
        return false;
    }
    const QFileInfo info(_qstrPath);
    if (info.exists() && !info.isDir()) {
        _qstrError = "not a folder: " + _qstrPath;
        return false;
    }
    if (!QDir().mkpath(_qstrPath)) {
        _qstrError = "cannot create the folder " + _qstrPath;
        return false;
    }
    // Permission bits say nothing for root or read-only mounts; a file written says it all.
    QTemporaryFile probe(_qstrPath + "/.HxClient-probe-XXXXXX");
    if (!probe.open() || probe.write("x", 1) != 1 || !probe.flush()) {
        _qstrError = "cannot write to the folder " + _qstrPath;
        return false;
    }
    return true;
}

} // namespace Commands
