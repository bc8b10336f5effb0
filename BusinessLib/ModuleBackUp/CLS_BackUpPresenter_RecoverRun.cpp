#include "CLS_BackUpPresenter.h"

#include <utility>

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>
#include <QThread>

#include "CLS_RunLock.h"
#include "DurableFiles.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "RestoreJournal.h"
#include "RestorePlacement.h"
#include "RunLeftovers.h"

namespace {

// Kept free on a volume beside the data that goes onto it.
constexpr qint64 kReservedBytes = qint64(5) << 30;

// Removes the unpack folder on every way out before the journal takes it over.
class CLS_UnpackFolder
{
public:
    explicit CLS_UnpackFolder(const QString& _qstrWorkPath)
        : m_qstrPath(RunLeftovers::MakeUnpackFolder(_qstrWorkPath))
    {}
    ~CLS_UnpackFolder()
    {
        if (!m_qstrPath.isEmpty()) {
            QDir(m_qstrPath).removeRecursively();
        }
    }
    CLS_UnpackFolder(const CLS_UnpackFolder&) = delete;
    CLS_UnpackFolder& operator=(const CLS_UnpackFolder&) = delete;

    const QString& Path() const { return m_qstrPath; }
    QString Release() { return std::exchange(m_qstrPath, QString()); }

private:
    QString m_qstrPath;
};

// Tests stop a restore here, with its journal written and nothing placed yet, to kill it.
void PauseForTests()
{
    const int iPauseMs = qEnvironmentVariableIntValue("HX_TEST_PAUSE_AFTER_JOURNAL");
    if (iPauseMs > 0) {
        QThread::msleep(static_cast<unsigned long>(iPauseMs));
    }
}

} // namespace

bool CLS_BackUpPresenter::RecoverData(const QString& _qstrFilePath)
{
    m_qstrRecoverReason.clear();
    m_iBackUpCancel.store(0, std::memory_order_release);
    const QFileInfo archive(_qstrFilePath);
    if (_qstrFilePath.isEmpty() || !archive.exists()) {
        return false;
    }
    CLS_RunLock lock;
    if (!lock.TryLock()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " RecoverData failed  another backup or restore is running [lock "
            << CLS_RunLock::Path();
        m_qstrRecoverReason = tr("msg_backup_busy");
        return false;
    }
    FinishRestoreLocked();
    const QString qstrWorkPath = archive.absolutePath();
    for (const QString& qstrLeft : RunLeftovers::RemoveDeadRuns(qstrWorkPath)) {
        HX_LOG(Logger::LOG_INFO, GetModuleCode())
            << LogPrefix() << " RecoverData removed what an earlier run left [" << qstrWorkPath << "/"
            << qstrLeft << "]";
    }
    if (QStorageInfo(qstrWorkPath).bytesAvailable() < GetZipSize(_qstrFilePath) + kReservedBytes) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " RecoverData failed  NonAvailableStorage  [filepath : " << qstrWorkPath;
        return false;
    }
    // A folder made for this run beside the archive, marked so that it is never taken for the user's.
    CLS_UnpackFolder unpackFolder(qstrWorkPath);
    const QString qstrRoot = unpackFolder.Path() + "/" + archive.baseName();
    // Unpacking is nearly all of a restore's time; placing the files is the last step.
    QVariantMap qmapRecord{{"intRate", 0}, {"strRate", tr("lab_recovering")}};
    int iLastRate = -1;
    auto report = [&](int _iRate) {
        qmapRecord["intRate"] = _iRate;
        qmapRecord["IsSend"] = _iRate != iLastRate;
        iLastRate = _iRate;
        return ProcessCallBack("ProcessUpdate", qmapRecord);
    };
    report(0);
    auto unpackProgress = [&](int _iPercent) { return report(_iPercent * 95 / 100); };
    if (!CancelRequested() && (unpackFolder.Path().isEmpty() ||
                               !ZipToDir(archive.absoluteFilePath(), unpackFolder.Path(), unpackProgress)) &&
        !CancelRequested()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix()
            << " RecoverData failed  ZipToDir failed  [filepath : " << archive.absoluteFilePath();
        return false;
    }
    // Up to here nothing live was touched: a cancel still leaves the data as it was.
    if (CancelRequested()) {
        HX_LOG(Logger::LOG_DEBUG, GetModuleCode())
            << LogPrefix() << " RecoverData cancel [filepath : " << archive.absoluteFilePath() << "]";
        return false;
    }

    // Every target is made and measured before the first file goes: a refusal leaves the data as it was.
    QVector<RestoreJournal::STRUCT_Placement> vecPlacements;
    const QVector<STRUCT_BackUpSource> vecSources = GetBackUpSourcePath();
    const QFileInfoList lstUnpacked = QDir(qstrRoot).entryInfoList(
        QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QFileInfo& unpacked : lstUnpacked) {
        if (!unpacked.exists() || vecSources.isEmpty()) {
            continue;
        }
        const QString qstrUnpacked = unpacked.absoluteFilePath();
        const int iFirst = vecPlacements.size();
        // A folder goes back to every source of the same last name.
        for (const STRUCT_BackUpSource& source : vecSources) {
            if (source.path.isEmpty() ||
                !QFileInfo(source.path).absoluteFilePath().endsWith("/" + unpacked.fileName())) {
                continue;
            }
            const QDir target(source.path);
            if (!target.exists() && !target.mkpath(target.absolutePath())) {
                HX_LOG(Logger::LOG_WARN, GetModuleCode())
                    << LogPrefix()
                    << " RecoverData CopyFile failed dirRecover create failed [filepath : " << source.path;
                return false;
            }
            if (FunctionUtil::GetFileSize(qstrUnpacked, QStringList(), false) + kReservedBytes >
                QStorageInfo(target.absolutePath()).bytesAvailable()) {
                HX_LOG(Logger::LOG_WARN, GetModuleCode())
                    << LogPrefix()
                    << " RecoverData CopyFile failed qiDiskAvailableStorage is null [filepath : "
                    << source.path;
                return false;
            }
            vecPlacements.append({qstrUnpacked, target.absolutePath(), source.path, false});
        }
        // The last source of the folder takes its files; those before it get copies.
        if (vecPlacements.size() > iFirst) {
            vecPlacements.last().move = true;
        }
    }
    if (vecPlacements.isEmpty()) {
        return true;
    }
    // The unpacked data reaches the disk before the journal promises it.
    DurableFiles::SyncFileSystem(unpackFolder.Path());
    if (!RestoreJournal::Write(unpackFolder.Path(), vecPlacements)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix()
            << " RecoverData failed  journal write failed [filepath : " << RestoreJournal::Path();
        return false;
    }
    PauseForTests();
    // From here on the restore finishes, after a crash too: the journal owns the unpack folder.
    const bool blPlaced =
        RestorePlacement::PlaceAndFinish(GetModuleCode(), LogPrefix(), unpackFolder.Release(), vecPlacements);
    if (blPlaced) {
        report(100);
    }
    return blPlaced;
}
