#pragma once

#include <string>

#include <QString>
#include <QVariantMap>
#include <QVector>

#include "CLS_BackUpPresenter.h"

// The steps of one backup, from the start report to the recorded archive, over a given source set.
// BackUpData runs it over the presenter's own set with the backup mutex held and the cancel flag reset.
class CLS_BackUpRun
{
public:
    CLS_BackUpRun(CLS_BackUpPresenter& _presenter, const QString& _qstrSavePath,
                  CLS_BackUpPresenter::ProgressCallBack _callBack, QVariantMap& _qmapResult);

    // True when the archive was written, checked and published under its name. An empty callback throws
    // std::bad_function_call at the first report after the start report, as the automatic backup expects.
    bool Run(const QVector<STRUCT_BackUpSource>& _vecSources);

    // "BackUp_" + the minute the run was created in.
    const QString& ZipName() const { return m_qstrZipName; }
    const QString& StagingPath() const { return m_qstrStaging; }

private:
    enum n_Step
    {
        STEP_DONE,
        STEP_CANCELLED,
        STEP_FAILED
    };

    bool RunFits(const QVector<STRUCT_BackUpSource>& _vecSources);
    n_Step CopySources(const QVector<STRUCT_BackUpSource>& _vecSources);
    n_Step PrepareDbFiles();
    bool Pack();
    bool Publish(const QString& _qstrTempPath, const QString& _qstrZipPath);
    bool Cancel();
    bool FailPacking(const QString& _qstrTempPath);
    bool OutOfSpace(const QString& _qstrWhat);
    int Report(int _iRate);

    CLS_BackUpPresenter& m_presenter;
    const std::string m_strLogPrefix;
    const QString m_qstrSavePath;
    const QString m_qstrZipName;
    const QString m_qstrStaging;
    const QString m_qstrTempName;
    CLS_BackUpPresenter::ProgressCallBack m_callBack;
    QVariantMap& m_qmapResult;
    QVariantMap m_qmapRecord;
    int m_iLastSentRate = 0;
};
