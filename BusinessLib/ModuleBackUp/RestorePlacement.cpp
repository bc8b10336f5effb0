#include "RestorePlacement.h"

#include <vector>

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include "DurableFiles.h"
#include "FileCopy.h"
#include "Logger.h"

namespace {

bool CopyOver(const QString& _qstrSource, const QString& _qstrTarget, std::vector<char>& _vecBuffer)
{
    const QByteArray qbaTarget = QFile::encodeName(_qstrTarget);
    FileCopy::RemoveExisting(qbaTarget);
    return FileCopy::CopyOneFile(QFile::encodeName(_qstrSource), qbaTarget,
                                 QFile::encodeName(QFileInfo(_qstrTarget).absolutePath()), false, _vecBuffer);
}

// A renamed file replaces the live one in one step; across file systems rename fails and the file is
// copied instead.
bool PlaceFolder(const RestoreJournal::STRUCT_Placement& _placement)
{
    QStringList lstFiles;
    QDirIterator it(_placement.from, QDir::Files | QDir::Hidden | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        lstFiles << it.next();
    }
    const QDir from(_placement.from);
    std::vector<char> vecBuffer;
    bool blPlaced = true;
    for (const QString& qstrFile : lstFiles) {
        const QString qstrTarget = _placement.to + "/" + from.relativeFilePath(qstrFile);
        if (!QDir().mkpath(QFileInfo(qstrTarget).absolutePath())) {
            blPlaced = false;
            continue;
        }
        if (!(_placement.move && DurableFiles::Replace(qstrFile, qstrTarget)) &&
            !CopyOver(qstrFile, qstrTarget, vecBuffer)) {
            blPlaced = false;
        }
    }
    return blPlaced;
}

} // namespace

namespace RestorePlacement {

bool PlaceAndFinish(const char* _pModuleCode, const std::string& _strLogPrefix,
                    const QString& _qstrUnpackFolder,
                    const QVector<RestoreJournal::STRUCT_Placement>& _vecPlacements)
{
    bool blResult = true;
    for (const RestoreJournal::STRUCT_Placement& placement : _vecPlacements) {
        if (PlaceFolder(placement)) {
            HX_LOG_IN(Logger::LOG_INFO, _pModuleCode, "RecoverData")
                << _strLogPrefix << " RecoverData CopyFile success [filepath : " << placement.shown;
        } else {
            HX_LOG_IN(Logger::LOG_WARN, _pModuleCode, "RecoverData")
                << _strLogPrefix << " RecoverData CopyFile failed [filepath : " << placement.shown;
            blResult = false;
        }
    }
    // The placed files must be on disk before the journal that would redo them goes.
    for (const RestoreJournal::STRUCT_Placement& placement : _vecPlacements) {
        DurableFiles::SyncFileSystem(placement.to);
    }
    QDir(_qstrUnpackFolder).removeRecursively();
    RestoreJournal::Remove();
    return blResult;
}

} // namespace RestorePlacement
