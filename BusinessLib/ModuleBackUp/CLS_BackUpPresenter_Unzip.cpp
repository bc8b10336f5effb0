#include "CLS_BackUpPresenter.h"

#include <QDir>
#include <QFileInfo>

#include "CLS_ZipReader.h"
#include "CLS_ZipUnpacker.h"
#include "EntryExtract.h"
#include "Logger.h"

bool CLS_BackUpPresenter::ZipToDir(const QString& _qstrZipName, const QString& _qstrDirDestination,
                                   ZipProgress _progress)
{
    const QFileInfo zipInfo(_qstrZipName);
    if (!zipInfo.exists()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed Zip didn't exist [_qstrZipName " << _qstrZipName;
        return false;
    }
    const QString qstrRoot = _qstrDirDestination + "/" + zipInfo.baseName();
    // Without a base name the root would be the destination itself, which callers remove afterwards.
    if (zipInfo.baseName().isEmpty()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive name without base name [_qstrZipName " << _qstrZipName;
        return false;
    }
    if (!QDir(qstrRoot).exists() && !QDir().mkpath(qstrRoot)) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed dirDestination create failed [_qstrDirPath "
            << _qstrDirDestination;
        return false;
    }
    const QString qstrZipPath = zipInfo.absoluteFilePath();
    CLS_ZipUnpacker unpacker;
    CLS_ZipUnpacker::Progress progress;
    if (_progress) {
        progress = [&_progress](int _iPercent) { return _progress(_iPercent) != -1; };
    }
    const CLS_ZipUnpacker::n_Result result = unpacker.Unpack(qstrZipPath, qstrRoot, progress);
    const CLS_ZipUnpacker::STRUCT_Note& failure = unpacker.Failure();
    if (result == CLS_ZipUnpacker::ENTRY_FAILED && failure.qstrEntry.isEmpty() &&
        failure.qstrDetail == EntryExtract::kStopped) {
        HX_LOG(Logger::LOG_DEBUG, GetModuleCode())
            << LogPrefix() << "ZipToDir canceled [_qstrZipName " << qstrZipPath << "]";
        return false;
    }
    if (result == CLS_ZipUnpacker::ARCHIVE_REFUSED) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed archive unreadable [_qstrZipName " << qstrZipPath << "] "
            << (failure.qstrEntry.isEmpty() ? QString() : "[" + failure.qstrEntry + "] ")
            << failure.qstrDetail;
        return false;
    }
    if (result == CLS_ZipUnpacker::ENTRY_FAILED) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir failed entry [" << failure.qstrEntry << "] " << failure.qstrDetail
            << " [_qstrZipName " << qstrZipPath;
        return false;
    }
    for (const CLS_ZipUnpacker::STRUCT_Note& note : unpacker.PassedOver()) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "ZipToDir passed over entry [" << note.qstrEntry << "] " << note.qstrDetail;
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
    // An archive refused here is refused by ZipToDir as well, before anything is written: the caller's
    // disk check need not stop it, and no claim of the archive reaches the caller's sums.
    QString qstrDetail;
    const qint64 iSize = ZipUnpackedSize(zipInfo.absoluteFilePath(), qstrDetail);
    if (iSize < 0) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << LogPrefix() << "GetZipSize failed archive unreadable [_qstrZipName " << _qstrZipName << "] "
            << qstrDetail;
        return 0;
    }
    return iSize;
}
