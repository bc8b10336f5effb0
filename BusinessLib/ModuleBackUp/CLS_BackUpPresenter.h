#pragma once

#include <atomic>
#include <functional>
#include <mutex>

#include <QDateTime>
#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QVector>

#include "CLS_PresenterBasic.h"
#include "CLS_Singleton.h"

class CLS_ZipWriter;

// One folder of a backup, with the file-name patterns it contributes ("*.json"; empty = every file).
struct STRUCT_BackUpSource
{
    STRUCT_BackUpSource(const QString& _qstrPath = QString(), const QStringList& _lstFilters = QStringList())
        : path(_qstrPath), filters(_lstFilters)
    {}

    QString path;
    QStringList filters;
};

// The backup module's presenter, one per process: settings, requests, the automatic-backup scheduler,
// the operation log, and the backup engine (source set, zip packing, backup and recover runs).
class CLS_BackUpPresenter : public CLS_PresenterBasic, public CLS_Singleton<CLS_BackUpPresenter>
{
    Q_OBJECT

public:
    // A run's progress sink: key "ProcessUpdate" and the progress record; -1 back cancels the run.
    using ProgressCallBack = std::function<int(const QString& _qstrKey, const QVariantMap& _qmapData)>;
    // Packing progress in whole percent; -1 back cancels the packing.
    using ZipProgress = std::function<int(int _iPercent)>;

    const char* GetModuleCode() override;

    // Requests of the views and the host.
    int TaskHandler(const QString& _qstrBusinessKey, const QVariantMap& _qmapParam,
                    QVariantMap& _qmapResult) override;
    int ProcessCallBack(const QString& _qstrKey, const QVariantMap& _qmapData);
    void SetBackUpCancel(int _iCancel);
    bool CancelRequested() const { return m_iBackUpCancel.load(std::memory_order_acquire) == -1; }

    // Settings in the parameter store.
    void InitData() override;
    void UnInitData() override;
    void LoadLastSavedSetting();
    int SetBackUpEnable(int _iEnable);
    int SetBackUpCount(int _iCount);
    int SetBackUpPath(const QString& _qstrPath);
    int SetBackUpInterval(int _iDays);

    // Automatic backups.
    int GetLoopInterval() override;
    void LoopTask() override;
    QDateTime GetNextBackUpTime();
    int SaveNextBackUpTime(const QDateTime& _dtFrom);

    // One entry of the host's operation log per backup; type 1 manual, 0 automatic.
    void WriteLogInOperateLog(int _iType, const QString& _qstrTime, bool _blSuccess);

    // The backup engine.
    QVector<STRUCT_BackUpSource> GetBackUpSourcePath();
    bool BackUpData(const QString& _qstrSavePath, const QVariantMap& _qmapParam, ProgressCallBack _callBack,
                    QVariantMap& _qmapResult);
    bool RecoverData(const QString& _qstrFilePath);
    // Why the last RecoverData failed, as a translated text; empty when the log says it all.
    QString LastRecoverReason() const { return m_qstrRecoverReason; }
    // Finishes a restore that a dead process left half placed, unless another run holds the lock.
    void FinishInterruptedRestore();
    bool DirToZip(const QString& _qstrSourcePath, const QString& _qstrDirDestination,
                  const QString& _qstrZipName, ZipProgress _progress);
    // DirToZip that can remove each file once packed, and gives the names of the entries written.
    bool PackFolder(const QString& _qstrSourcePath, const QString& _qstrDirDestination, const QString& _qstrZipName,
                    ZipProgress _progress, bool _blConsume, QStringList* _pPacked);
    bool DirToZipWriter(CLS_ZipWriter& _writer, const QString& _qstrCurrentPath, const QString& _qstrBasePath,
                        ZipProgress _progress);
    qint64 GetZipSize(const QString& _qstrZipName);
    // Whether the last DirToZip failed because its volume was full.
    bool LastPackRanOutOfSpace() const { return m_blPackOutOfSpace; }
    // A -1 from the progress stops the unpacking, and ZipToDir fails.
    bool ZipToDir(const QString& _qstrZipName, const QString& _qstrDirDestination,
                  ZipProgress _progress = ZipProgress());

private:
    friend class CLS_Singleton<CLS_BackUpPresenter>;
    CLS_BackUpPresenter();
    // With the run lock held.
    void FinishRestoreLocked();

    std::mutex m_mutexBackUp;
    std::atomic<int> m_iBackUpCancel{0};
    bool m_blPackOutOfSpace = false;
    QString m_qstrRecoverReason;
};
