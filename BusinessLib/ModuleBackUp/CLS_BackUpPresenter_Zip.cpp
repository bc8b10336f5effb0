#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <private/qzipreader_p.h>
#include <private/qzipwriter_p.h>

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
    QZipWriter writer(qstrZipPath, QIODevice::WriteOnly | QIODevice::Truncate);
    const QString qstrSource = QFileInfo(_qstrSourcePath).absoluteFilePath();
    const bool blDone = DirToZipWriter(writer, qstrSource, qstrSource, std::move(_progress));
    writer.close();
    if (writer.status() != QZipWriter::NoError) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " DirToZip failed write failed [_qstrZipName " << qstrZipPath << "] [status "
            << static_cast<int>(writer.status()) << "]";
        return false;
    }
    return blDone;
}

bool CLS_BackUpPresenter::DirToZipWriter(QZipWriter& _writer, const QString& _qstrCurrentPath,
                                         const QString& _qstrBasePath, ZipProgress _progress)
{
    const QList<QFileInfo> lstFiles = FunctionUtil::GetFileList(QStringList(), _qstrCurrentPath, false);
    if (lstFiles.isEmpty()) {
        return true;
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
        const QString qstrEntry = ZipRules::EntryName(info.filePath(), _qstrBasePath);
        const qint64 iSize = file.size();
        if (iSize > ZipRules::kMaxEntryBytes) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "DirToZipWriter skipped file too large [ " << info.filePath() << " : "
                << iSize << "]";
            continue;
        }
        const QByteArray qbaData = file.readAll();
        file.close();
        if (qbaData.size() != iSize) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode())
                << LogPrefix() << "DirToZipWriter skipped file read failed [ " << info.filePath() << "]";
            continue;
        }
        _writer.setCompressionPolicy(ZipRules::IsStoredName(qstrEntry) ? QZipWriter::NeverCompress
                                                                       : QZipWriter::AlwaysCompress);
        _writer.addFile(qstrEntry, qbaData);
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

qint64 CLS_BackUpPresenter::GetZipSize(const QString& _qstrZipName)
{
    const QFileInfo zipInfo(_qstrZipName);
    if (!zipInfo.exists()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "GetZipSize failed Zip didn't exist [_qstrZipName " << _qstrZipName;
        return 0;
    }
    QZipReader reader(zipInfo.absoluteFilePath(), QIODevice::ReadOnly);
    qint64 iTotal = 0;
    for (const QZipReader::FileInfo& entry : reader.fileInfoList()) {
        iTotal += entry.size;
    }
    return iTotal;
}
