#include "CLS_BackUpPresenter.h"

#include <cerrno>
#include <exception>
#include <typeinfo>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStorageInfo>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include "CLS_BackUpRun.h"
#include "CLS_DBDaoC.h"
#include "CLS_RunLock.h"
#include "DurableFiles.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "PackedArchiveCheck.h"
#include "Param.h"
#include "RunLeftovers.h"
#include "Util.h"

namespace {

// Kept free on the save folder's volume beside each source's own size.
constexpr qint64 kReservedBytes = qint64(5) << 30;

// Removes the staging folder and its marker when the run returns, on every path. An exception out of the
// progress callback leaves the copies made so far on disk, as the automatic backup expects, unless a cancel
// was asked for: then nothing of the run may stay. What stays keeps its marker, and the next run removes it.
class CLS_StagingFolder
{
public:
    CLS_StagingFolder(const CLS_BackUpPresenter& _presenter, const QString& _qstrPath,
                      const QString& _qstrMarker)
        : m_presenter(_presenter), m_qstrPath(_qstrPath), m_qstrMarker(_qstrMarker),
          m_iExceptions(std::uncaught_exceptions())
    {}

    ~CLS_StagingFolder()
    {
        if (std::uncaught_exceptions() == m_iExceptions || m_presenter.CancelRequested()) {
            QDir(m_qstrPath).removeRecursively();
            QFile::remove(m_qstrMarker);
        }
    }

    CLS_StagingFolder(const CLS_StagingFolder&) = delete;
    CLS_StagingFolder& operator=(const CLS_StagingFolder&) = delete;

private:
    const CLS_BackUpPresenter& m_presenter;
    const QString m_qstrPath;
    const QString m_qstrMarker;
    const int m_iExceptions;
};

} // namespace

bool CLS_BackUpPresenter::BackUpData(const QString& _qstrSavePath, const QVariantMap& _qmapParam,
                                     ProgressCallBack _callBack, QVariantMap& _qmapResult)
{
    Q_UNUSED(_qmapParam)
    std::lock_guard<std::mutex> lock(m_mutexBackUp);
    m_iBackUpCancel.store(0, std::memory_order_release);
    CLS_RunLock runLock;
    if (!runLock.TryLock()) {
        HX_LOG_IN(Logger::LOG_WARN, GetModuleCode(), "BackUpData")
            << LogPrefix() << " BackUpData failed  another backup or restore is running [lock "
            << CLS_RunLock::Path();
        _qmapResult["reason"] = tr("msg_backup_busy");
        return false;
    }
    FinishRestoreLocked();
    for (const QString& qstrLeft : RunLeftovers::RemoveDeadRuns(_qstrSavePath)) {
        HX_LOG_IN(Logger::LOG_INFO, GetModuleCode(), "BackUpData")
            << LogPrefix() << " BackUpData removed what an earlier run left [" << _qstrSavePath << "/"
            << qstrLeft << "]";
    }
    CLS_BackUpRun run(*this, _qstrSavePath, std::move(_callBack), _qmapResult);
    return run.Run(GetBackUpSourcePath());
}

CLS_BackUpRun::CLS_BackUpRun(CLS_BackUpPresenter& _presenter, const QString& _qstrSavePath,
                             CLS_BackUpPresenter::ProgressCallBack _callBack, QVariantMap& _qmapResult)
    // The presenter's own line prefix, which it keeps to itself.
    : m_presenter(_presenter), m_strLogPrefix(std::string("[") + typeid(_presenter).name() + "]"),
      m_qstrSavePath(_qstrSavePath),
      m_qstrZipName("BackUp_" + QDateTime::currentDateTime().toString("yyyy_MM_dd_HH_mm")),
      m_qstrStaging(_qstrSavePath + "/" + m_qstrZipName),
      m_qstrTempName(RunLeftovers::TempArchiveName(m_qstrZipName)), m_callBack(std::move(_callBack)),
      m_qmapResult(_qmapResult)
{}

bool CLS_BackUpRun::Run(const QVector<STRUCT_BackUpSource>& _vecSources)
{
    const QString qstrMarker = RunLeftovers::StagingMarker(m_qstrSavePath, m_qstrZipName);
    CLS_StagingFolder staging(m_presenter, m_qstrStaging, qstrMarker);
    m_qmapRecord = {{"intRate", 0}, {"strRate", CLS_BackUpPresenter::tr("lab_backuping")}};
    if (m_callBack) {
        m_callBack("ProcessUpdate", m_qmapRecord);
    }
    if (!RunFits(_vecSources)) {
        return false;
    }
    QDir().mkpath(m_qstrSavePath);
    RunLeftovers::WriteMarker(qstrMarker);

    n_Step step = CopySources(_vecSources);
#ifdef __GLIBC__
    // The copy plan of a large face library is freed by now; without a trim, malloc keeps its pages resident
    // through the packing.
    malloc_trim(0);
#endif
    if (step == STEP_DONE) {
        // The host's connections let go of the live database files.
        CLS_DBDaoC::ClearPools();
        step = PrepareDbFiles();
    }
    if (step == STEP_DONE) {
        m_iLastSentRate = 49;
        m_qmapRecord["IsSend"] = true;
        step = Report(49) == -1 ? STEP_CANCELLED : STEP_DONE;
    }
    if (step == STEP_CANCELLED) {
        return Cancel();
    }
    return step == STEP_DONE && Pack();
}

// The staging copy and the archive, whose size is taken as the staged size, with the reserve that each
// source's own check keeps free as well. A failure reads like that check's, since it means the same.
bool CLS_BackUpRun::RunFits(const QVector<STRUCT_BackUpSource>& _vecSources)
{
    const QString qstrDataPath = QString::fromStdString(Util::GetDataPath());
    qint64 iStaged = 0;
    for (const STRUCT_BackUpSource& source : _vecSources) {
        if (!source.path.isEmpty() && QFileInfo(source.path).isDir()) {
            iStaged += FunctionUtil::GetFileSize(QDir(source.path).absolutePath(), source.filters,
                                                 source.path == qstrDataPath);
        }
    }
    if (QStorageInfo(m_qstrSavePath).bytesAvailable() >= 2 * iStaged + kReservedBytes) {
        return true;
    }
    HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
        << m_strLogPrefix << " DirToZip failed  qiDiskAvailableStorage is null [diskpath" << m_qstrSavePath;
    m_qmapResult["reason"] = CLS_BackUpPresenter::tr("msg_disk_less");
    return false;
}

CLS_BackUpRun::n_Step CLS_BackUpRun::CopySources(const QVector<STRUCT_BackUpSource>& _vecSources)
{
    const QString qstrDataPath = QString::fromStdString(Util::GetDataPath());
    const int iCount = _vecSources.size();
    int iDone = 0;
    for (const STRUCT_BackUpSource& source : _vecSources) {
        if (source.path.isEmpty() || !QFileInfo(source.path).isDir()) {
            continue;
        }
        const QString qstrSource = QDir(source.path).absolutePath();
        // Each source is measured alone; the data folder recursively although only its top level is copied.
        const qint64 iAvailable = QStorageInfo(m_qstrSavePath).bytesAvailable();
        const qint64 iNeeded = FunctionUtil::GetFileSize(qstrSource, source.filters, false) + kReservedBytes;
        if (iAvailable < iNeeded) {
            HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
                << m_strLogPrefix << " DirToZip failed  qiDiskAvailableStorage is null [diskpath"
                << m_qstrSavePath;
            m_qmapResult["reason"] = CLS_BackUpPresenter::tr("msg_disk_less");
            return STEP_FAILED;
        }
        if (!FunctionUtil::CopyFiles(qstrSource, m_qstrStaging + "/" + QDir(qstrSource).dirName(),
                                     source.filters, source.path == qstrDataPath, true, nullptr) &&
            QStorageInfo(m_qstrSavePath).bytesAvailable() <
                FunctionUtil::GetFileSize(qstrSource, source.filters, source.path == qstrDataPath)) {
            // A file that cannot be read is left out; a volume that filled up fails the run.
            OutOfSpace("copy of " + qstrSource);
            return STEP_FAILED;
        }

        ++iDone;
        const int iRate = 40 * iDone / iCount;
        const bool blSend = iRate != m_iLastSentRate;
        if (blSend) {
            m_iLastSentRate = iRate;
        }
        m_qmapRecord["IsSend"] = blSend;
        if (Report(iRate) == -1) {
            return STEP_CANCELLED;
        }
    }
    if (_vecSources.isEmpty()) {
        m_qmapRecord["IsSend"] = true;
        if (Report(40) == -1) {
            return STEP_CANCELLED;
        }
    }
    return STEP_DONE;
}

// The archive carries each database as <name>_backup.db, which the host takes up at its next start.
CLS_BackUpRun::n_Step CLS_BackUpRun::PrepareDbFiles()
{
    const QDir dbDir(m_qstrStaging + "/Db");
    if (!dbDir.exists()) {
        return STEP_DONE;
    }
    const QFileInfoList lstFiles =
        dbDir.entryInfoList(QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Unsorted);
    const int iCount = lstFiles.size();
    int iRenamed = 0;
    for (const QFileInfo& info : lstFiles) {
        const QString qstrBase = info.baseName();
        const QString qstrSuffix = info.completeSuffix();
        if (qstrBase == "HxLang" || qstrSuffix != "db") {
            QFile::remove(info.absoluteFilePath());
            continue;
        }
        if (qstrBase.endsWith("_backup")) {
            continue;
        }
        const QString qstrTarget = info.absolutePath() + "/" + qstrBase + "_backup." + qstrSuffix;
        QFile::remove(qstrTarget);
        if (!QFile::rename(info.absoluteFilePath(), qstrTarget)) {
            HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
                << m_strLogPrefix << " BackUpData DirToZip failed  db rename faied [daname" << qstrTarget;
            return STEP_FAILED;
        }
        ++iRenamed;
        if (Report(40 + 9 * iRenamed / iCount) == -1) {
            return STEP_CANCELLED;
        }
    }
    return STEP_DONE;
}

bool CLS_BackUpRun::Pack()
{
    auto packProgress = [this](int _iPercent) -> int {
        if (!m_callBack) {
            return 0;
        }
        const int iRate = 49 + _iPercent / 2;
        const bool blSend = iRate != m_iLastSentRate;
        if (blSend) {
            m_iLastSentRate = iRate;
        }
        m_qmapRecord["IsSend"] = blSend;
        return Report(iRate);
    };
    // Written under a name that no reader takes for an archive, and published whole.
    const QString qstrTempPath = QDir(m_qstrSavePath).absoluteFilePath(m_qstrTempName + ".zip");
    const QString qstrZipPath = QDir(m_qstrSavePath).absoluteFilePath(m_qstrZipName + ".zip");
    // The staging copy is packed away file by file: what is packed is not needed any more.
    QStringList lstPacked;
    if (!m_presenter.PackFolder(m_qstrStaging, m_qstrSavePath, m_qstrTempName, packProgress, true, &lstPacked)) {
        if (m_presenter.LastPackRanOutOfSpace() || QStorageInfo(m_qstrSavePath).bytesAvailable() <
                                                       FunctionUtil::GetFileSize(m_qstrStaging, {}, false)) {
            OutOfSpace("packing into " + qstrTempPath);
        }
        return FailPacking(qstrTempPath);
    }
    if (!DurableFiles::SyncFile(qstrTempPath)) {
        const int iErrno = errno;
        HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
            << m_strLogPrefix << " BackUpData DirToZip failed  fsync failed [qstrZipName " << qstrTempPath;
        if (iErrno == ENOSPC || iErrno == EDQUOT) {
            OutOfSpace("fsync of " + qstrTempPath);
        }
        return FailPacking(qstrTempPath);
    }
    QString qstrDetail;
    const n_ArchiveCheck check = CheckPackedArchive(qstrTempPath, lstPacked, qstrDetail);
    if (check != ARCHIVE_COMPLETE) {
        HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
            << m_strLogPrefix << " BackUpData DirToZip failed  archive check failed [qstrZipName "
            << qstrZipPath << "] " << qstrDetail;
        m_qmapResult["reason"] = CLS_BackUpPresenter::tr("msg_backup_check_failed");
        return FailPacking(qstrTempPath);
    }
    return Publish(qstrTempPath, qstrZipPath);
}

// The rename replaces an archive of the same minute in one step; the folder's fsync makes the new name
// outlive a power cut.
bool CLS_BackUpRun::Publish(const QString& _qstrTempPath, const QString& _qstrZipPath)
{
    if (!DurableFiles::Replace(_qstrTempPath, _qstrZipPath)) {
        HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
            << m_strLogPrefix << " BackUpData DirToZip failed  rename failed [qstrZipName " << _qstrZipPath;
        return FailPacking(_qstrTempPath);
    }
    DurableFiles::SyncFolder(QFileInfo(_qstrZipPath).absolutePath());
    Param::SetParam("ModuleBackUp", "BackUpPath", _qstrZipPath.toUtf8().toStdString(), 1);
    return true;
}

bool CLS_BackUpRun::Cancel()
{
    HX_LOG_IN(Logger::LOG_DEBUG, m_presenter.GetModuleCode(), "BackUpData")
        << m_strLogPrefix << "backup cancel [ qstrSavePath :" << m_qstrStaging << "]";
    return false;
}

bool CLS_BackUpRun::FailPacking(const QString& _qstrTempPath)
{
    HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
        << m_strLogPrefix << " BackUpData DirToZip failed [qstrSaveSourcePath " << m_qstrStaging
        << " ] [_qstrSavePath " << m_qstrSavePath << "] [qstrZipName " << m_qstrZipName;
    QFile::remove(_qstrTempPath);
    // libzip's own temporary file, should one be left.
    const QFileInfo temp(_qstrTempPath);
    for (const QFileInfo& info :
         QDir(temp.absolutePath()).entryInfoList({temp.fileName() + ".*"}, QDir::Files | QDir::Hidden)) {
        QFile::remove(info.absoluteFilePath());
    }
    return false;
}

bool CLS_BackUpRun::OutOfSpace(const QString& _qstrWhat)
{
    HX_LOG_IN(Logger::LOG_WARN, m_presenter.GetModuleCode(), "BackUpData")
        << m_strLogPrefix << " BackUpData failed  volume full [diskpath" << m_qstrSavePath << "] "
        << _qstrWhat;
    m_qmapResult["reason"] = CLS_BackUpPresenter::tr("msg_disk_less");
    return false;
}

int CLS_BackUpRun::Report(int _iRate)
{
    m_qmapRecord["intRate"] = _iRate;
    return m_callBack("ProcessUpdate", m_qmapRecord);
}
