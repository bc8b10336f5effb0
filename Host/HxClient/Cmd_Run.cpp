#include <QCoreApplication>
#include <QDateTime>
#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLockFile>
#include <QTimer>

#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "CLS_SignalWatcher.h"
#include "ClientOutput.h"
#include "ClientSetup.h"
#include "Commands.h"
#include "Logger.h"
#include "Param.h"

namespace Commands {
namespace {

constexpr const char* kLogCode = "HxClient";
constexpr const char* kSection = "ModuleBackUp";
// The scheduler's period when the store names none.
constexpr int kDefaultPeriodMs = 3600000;

int SchedulerPeriodMs()
{
    bool blOk = false;
    const int iPeriod =
        QString::fromStdString(Param::GetParam(kSection, "AutoBackThreadDetectTime", "")).toInt(&blOk);
    return blOk && iPeriod > 0 ? iPeriod : kDefaultPeriodMs;
}

// The automatic archives that the scheduler keeps, oldest first.
QStringList AutomaticArchives()
{
    const QJsonArray array =
        QJsonDocument::fromJson(QByteArray::fromStdString(Param::GetParam(kSection, "AutoBackUpPath", "")))
            .array();
    QStringList lstPaths;
    for (const QJsonValue& value : array) {
        lstPaths.append(value.toString());
    }
    return lstPaths;
}

// One line about what the scheduler left behind, on standard output and in the log.
void ReportTick(CLS_ModuleHost& _host, int _iTick)
{
    STRUCT_BackUpSettings stSettings;
    QString qstrError;
    QString qstrLine =
        QString("tick %1 at %2: ").arg(_iTick).arg(QDateTime::currentDateTime().toString(Qt::ISODate));
    if (!ReadSettings(_host, stSettings, qstrError)) {
        qstrLine += qstrError;
    } else {
        const QStringList lstArchives = AutomaticArchives();
        qstrLine += QString("automatic backup %1, next due %2, %3 automatic archive(s) kept")
                        .arg(stSettings.blEnable ? "on" : "off")
                        .arg(stSettings.qstrNextTime.isEmpty() ? QString("(none)") : stSettings.qstrNextTime)
                        .arg(lstArchives.size());
        if (!lstArchives.isEmpty()) {
            qstrLine += ", latest " + lstArchives.last();
        }
    }
    ClientOutput::Print(qstrLine);
    HX_LOG(Logger::LOG_INFO, kLogCode) << qstrLine;
}

// Whether a backup or restore runs in this process: the module holds its run lock in the data folder
// while one does.
bool RunGoingOnHere()
{
    QLockFile lock(ClientSetup::DataPath() + "/HxBackUp.lock");
    qint64 iPid = 0;
    QString qstrHost;
    QString qstrApp;
    return lock.getLockInfo(&iPid, &qstrHost, &qstrApp) && iPid == QCoreApplication::applicationPid();
}

} // namespace

int Run(const QStringList& _lstArgs)
{
    CLS_CommandParser parser("run", "",
                             "Runs as the client does: the module is initialised and its scheduler makes the "
                             "automatic backups. Reports the schedule once per scheduler period, until "
                             "interrupted (Ctrl-C).");
    int iExit = ExitCode::kSuccess;
    if (!parser.Parse(_lstArgs, 0, 0, iExit)) {
        return iExit;
    }
    CLS_ModuleHost host;
    CLS_SignalWatcher watcher;
    if (!StartClient(host, parser.Command())) {
        return ExitCode::kFailure;
    }
    const int iPeriodMs = SchedulerPeriodMs();
    ClientOutput::Print(
        QString("Running; the scheduler looks every %1 s. Ctrl-C stops.").arg(iPeriodMs / 1000.0));
    int iTick = 0;
    ReportTick(host, iTick);

    QEventLoop loop;
    // A running automatic backup is cancelled as "CanCelBackUp" does. The module is then taken down, which
    // stops the scheduler first and waits for the run to clean up, so that no new tick starts another.
    bool blCancelled = false;
    QObject::connect(&watcher, &CLS_SignalWatcher::SignInterrupted, &loop, [&] {
        if (!blCancelled && RunGoingOnHere()) {
            blCancelled = true;
            ClientOutput::Print("Cancelling the running backup; waiting for it to end...");
            QVariantMap qmapIgnored;
            host.Request("CanCelBackUp", {}, qmapIgnored, kRequestTimeoutMs);
        }
        loop.quit();
    });
    QTimer timer;
    timer.setInterval(iPeriodMs);
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] { ReportTick(host, ++iTick); });
    timer.start();
    loop.exec();
    timer.stop();
    ClientOutput::Print("Stopping.");
    return blCancelled ? ExitCode::kInterrupted : ExitCode::kSuccess;
}

} // namespace Commands
