#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFileInfo>

#include "CLS_ZipWriter.h"
#include "FunctionUtil.h"
#include "Logger.h"
#include "ZipRules.h"

bool CLS_BackUpPresenter::DirToZip(const QString& _qstrSourcePath, const QString& _qstrDirDestination,
                                   const QString& _qstrZipName, ZipProgress _progress)
{
    return PackFolder(_qstrSourcePath, _qstrDirDestination, _qstrZipName, std::move(_progress), false, nullptr);
}

bool CLS_BackUpPresenter::PackFolder(const QString& _qstrSourcePath, const QString& _qstrDirDestination,
                                     const QString& _qstrZipName, ZipProgress _progress, bool _blConsume,
                                     QStringList* _pPacked)
{
    m_blPackOutOfSpace = false;
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
    CLS_ZipWriter writer(qstrZipPath);
    writer.SetRemoveAfterReading(_blConsume);
    const QString qstrSource = QFileInfo(_qstrSourcePath).absoluteFilePath();
    if (writer.IsOpen() && DirToZipWriter(writer, qstrSource, qstrSource, std::move(_progress))) {
        if (_pPacked != nullptr) {
            _pPacked->clear();
            for (const QString& qstrFile : writer.QueuedFiles()) {
                *_pPacked << ZipRules::EntryName(qstrFile, qstrSource);
            }
        }
        return true;
    }
    if (!writer.ErrorText().isEmpty()) {
        m_blPackOutOfSpace = writer.RanOutOfSpace();
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " DirToZip failed write failed [_qstrZipName " << qstrZipPath << "] "
            << writer.ErrorText();
    }
    return false;
}

bool CLS_BackUpPresenter::DirToZipWriter(CLS_ZipWriter& _writer, const QString& _qstrCurrentPath,
                                         const QString& _qstrBasePath, ZipProgress _progress)
{
    int iTotal = 0;
    {
        // The listing is let go before packing: for a large face library it is tens of MiB.
        const QList<QFileInfo> lstFiles = FunctionUtil::GetFileList(QStringList(), _qstrCurrentPath, false);
        // Unreadable files are passed over without a trace and without being counted.
        for (const QFileInfo& info : lstFiles) {
            if (!info.isDir()) {
                _writer.AddFile(ZipRules::EntryName(info.filePath(), _qstrBasePath), info.filePath());
            }
        }
        iTotal = lstFiles.size();
    }
    int iAdded = 0;
    bool blCancelLogged = false;
    auto logCancel = [&]() {
        if (!blCancelLogged) {
            blCancelLogged = true;
            HX_LOG_IN(Logger::LOG_DEBUG, GetModuleCode(), "DirToZipWriter")
                << LogPrefix() << "DirToZipWriter canceled [ _qstrCurrentPath :" << _qstrCurrentPath
                << "; _qstrBasePath :" << _qstrBasePath << "]";
        }
    };
    CLS_ZipWriter::FileAdded fileAdded;
    CLS_ZipWriter::CancelRequested cancelRequested;
    if (_progress) {
        fileAdded = [&]() {
            ++iAdded;
            if (_progress(iAdded * 100 / iTotal) == -1) {
                logCancel();
                return false;
            }
            return true;
        };
        // A cancel of the run also stops the packing within a large file.
        cancelRequested = [&]() {
            if (m_iBackUpCancel.load() == -1) {
                logCancel();
                return true;
            }
            return false;
        };
    }
    return _writer.Write(fileAdded, cancelRequested) == CLS_ZipWriter::WRITE_DONE;
}
