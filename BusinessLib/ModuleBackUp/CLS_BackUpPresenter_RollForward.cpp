#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QString>

#include "CLS_RunLock.h"
#include "Logger.h"
#include "Param.h"
#include "RestoreJournal.h"
#include "RestorePlacement.h"
#include "RunLeftovers.h"

void CLS_BackUpPresenter::FinishInterruptedRestore()
{
    // A run that holds the lock is alive and finishes its own restore.
    CLS_RunLock lock;
    if (!lock.TryLock()) {
        return;
    }
    FinishRestoreLocked();
    const QString qstrSavePath =
        QString::fromStdString(Param::GetParam("ModuleBackUp", "BackUpFileSavePath", ""));
    for (const QString& qstrLeft : RunLeftovers::RemoveDeadRuns(qstrSavePath)) {
        HX_LOG_IN(Logger::LOG_INFO, GetModuleCode(), "RecoverData")
            << LogPrefix() << " RecoverData removed what an earlier run left [" << qstrSavePath << "/"
            << qstrLeft << "]";
    }
}

void CLS_BackUpPresenter::FinishRestoreLocked()
{
    QString qstrUnpackFolder;
    QVector<RestoreJournal::STRUCT_Placement> vecPlacements;
    QString qstrDetail;
    switch (RestoreJournal::Read(qstrUnpackFolder, vecPlacements, qstrDetail)) {
    case RestoreJournal::JOURNAL_NONE:
        return;
    case RestoreJournal::JOURNAL_DAMAGED:
        // Without the whole unpacked data nothing is put in place: the live data stays as it is.
        HX_LOG_IN(Logger::LOG_WARN, GetModuleCode(), "RecoverData")
            << LogPrefix()
            << " RecoverData journal dropped, live data left as it is [journal : " << RestoreJournal::Path()
            << "] " << qstrDetail;
        if (RunLeftovers::IsUnpackFolder(qstrUnpackFolder)) {
            QDir(qstrUnpackFolder).removeRecursively();
        }
        RestoreJournal::Remove();
        return;
    case RestoreJournal::JOURNAL_READ:
        break;
    }
    HX_LOG_IN(Logger::LOG_INFO, GetModuleCode(), "RecoverData")
        << LogPrefix() << " RecoverData finishing an interrupted restore [unpack : " << qstrUnpackFolder;
    RestorePlacement::PlaceAndFinish(GetModuleCode(), LogPrefix(), qstrUnpackFolder, vecPlacements);
}
