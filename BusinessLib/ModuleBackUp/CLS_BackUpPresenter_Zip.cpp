#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "CLS_ZipStreamWriter.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "ZipRules.h"

bool CLS_BackUpPresenter::DirToZip(const QString& _qstrSourcePath, const QString& _qstrDirDestination,
                                   const QString& _qstrZipName, ZipProgress _progress)
{
    if (!QFileInfo::exists(_qstrSourcePath)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "DirToZip failed File: [SourcePath " << _qstrSourcePath << " didn't Exist";
        return false;
    }
    const QDir destination(_qstrDirDestination);
    if (!destination.exists() && !destination.mkpath(destination.absolutePath())) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " DirToZip failed CreateDir failed [_qstrDirDestination "
            << _qstrDirDestination;
        return false;
    }
    const QString qstrZipPath = destination.absolutePath() + "/" + _qstrZipName + ".zip";
    CLS_ZipStreamWriter writer(qstrZipPath);
    const QString qstrSource = QFileInfo(_qstrSourcePath).absoluteFilePath();
    const bool blDone =
        writer.IsOpen() && DirToZipWriter(writer, qstrSource, qstrSource, std::move(_progress));
    m_blPackOutOfSpace = false;
    if (!writer.Close()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " DirToZip failed write failed [_qstrZipName " << qstrZipPath << "] "
            << writer.ErrorText();
        return false;
    }
    return blDone;
}

bool CLS_BackUpPresenter::DirToZipWriter(CLS_ZipStreamWriter& _writer, const QString& _qstrCurrentPath,
                                         const QString& _qstrBasePath, ZipProgress _progress)
{
    const QList<QFileInfo> lstFiles = FunctionUtil::GetFileList(QStringList(), _qstrCurrentPath, false);
    if (lstFiles.isEmpty()) {
        return true;
    }
    // Deflating runs ahead on other cores while earlier files are written.
    for (const QFileInfo& info : lstFiles) {
        if (!info.isDir() && !ZipRules::IsStoredName(info.fileName())) {
            _writer.AnnounceDeflated(info.filePath());
        }
    }
    const int iTotal = lstFiles.size();
    int iAdded = 0;
    for (const QFileInfo& info : lstFiles) {
        if (info.isDir()) {
            continue;
        }
        QFile file(info.filePath());
        if (!file.open(QIODevice::ReadOnly)) {
            continue;
        }
        file.close();
        const QString qstrEntry = ZipRules::EntryName(info.filePath(), _qstrBasePath);
        QString qstrError;
        const CLS_ZipStreamWriter::n_AddResult result =
            _writer.AddFile(qstrEntry, info.filePath(), !ZipRules::IsStoredName(qstrEntry), qstrError);
        if (result == CLS_ZipStreamWriter::ADD_WRITE_FAILED) {
            // Nothing more can be added; DirToZip reports why.
            return false;
        }
        if (result == CLS_ZipStreamWriter::ADD_READ_FAILED) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "DirToZipWriter skipped file read failed [ " << info.filePath() << "] "
                << qstrError;
            continue;
        }
        if (_progress) {
            ++iAdded;
            if (_progress(iAdded * 100 / iTotal) == -1) {
                HX_LOG(Logger::LOG_DEBUG, GetModuleCode())
                    << LogPrefix() << "DirToZipWriter canceled [ _qstrCurrentPath :" << _qstrCurrentPath
                    << "; _qstrBasePath :" << _qstrBasePath << "]";
                return false;
            }
        }
    }
    return true;
}
