#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFileInfo>
#include <QStorageInfo>
#include <QTemporaryDir>

#include "FunctionUtil.h"
#include "Logger.h"

namespace {

// Kept free on a volume beside the data that goes onto it.
constexpr qint64 kReservedBytes = qint64(5) << 30;

} // namespace

bool CLS_BackUpPresenter::RecoverData(const QString& _qstrFilePath)
{
    const QFileInfo archive(_qstrFilePath);
    if (_qstrFilePath.isEmpty() || !archive.exists()) {
        return false;
    }
    const QString qstrWorkPath = archive.absolutePath();
    if (QStorageInfo(qstrWorkPath).bytesAvailable() < GetZipSize(_qstrFilePath) + kReservedBytes) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << " RecoverData failed  NonAvailableStorage  [filepath : " << qstrWorkPath;
        return false;
    }
    // The archive is unpacked into a folder made for this run beside it and removed with it on every path.
    // A folder that already bears the archive's name is neither written into nor deleted.
    const QTemporaryDir unpackFolder(qstrWorkPath + "/" + archive.baseName() + "_recover_XXXXXX");
    const QString qstrRoot = unpackFolder.path() + "/" + archive.baseName();
    if (!unpackFolder.isValid() || !ZipToDir(archive.absoluteFilePath(), unpackFolder.path())) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix()
            << " RecoverData failed  ZipToDir failed  [filepath : " << archive.absoluteFilePath();
        return false;
    }

    bool blResult = true;
    const QVector<STRUCT_BackUpSource> vecSources = GetBackUpSourcePath();
    const QFileInfoList lstUnpacked = QDir(qstrRoot).entryInfoList(
        QDir::Dirs | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Unsorted);
    for (const QFileInfo& unpacked : lstUnpacked) {
        if (!unpacked.exists() || vecSources.isEmpty()) {
            continue;
        }
        const QString qstrUnpacked = unpacked.absoluteFilePath();
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
            if (FunctionUtil::CopyFiles(qstrUnpacked, target.absolutePath(), QStringList(), false, true,
                                        nullptr)) {
                HX_LOG(Logger::LOG_INFO, GetModuleCode())
                    << LogPrefix() << " RecoverData CopyFile success [filepath : " << source.path;
            } else {
                HX_LOG(Logger::LOG_WARN, GetModuleCode())
                    << LogPrefix() << " RecoverData CopyFile failed [filepath : " << source.path;
                blResult = false;
            }
        }
    }
    return blResult;
}
