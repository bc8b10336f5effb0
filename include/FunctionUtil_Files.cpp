#include "FunctionUtil.h"

#include <algorithm>
#include <vector>

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QThread>

#include "CLS_ParallelCopy.h"

namespace {

// A folder's entries in the order of QDir::Time | QDir::Reversed: oldest first, entries of the same
// millisecond by name backwards. QDir turns two times into local time at every comparison, which took most
// of a second for 5,000 pictures; here each is turned once. The local wall-clock time is kept as the key,
// as QDir compares it, so that the order stays the same around a daylight-saving change as well.
QFileInfoList ListOldestFirst(const QString& _qstrPath)
{
    // Without QDir::System, pipes and sockets stay out: reading one would block a backup forever.
    const QFileInfoList lstEntries = QDir(_qstrPath).entryInfoList(
        QDir::Dirs | QDir::Files | QDir::Hidden | QDir::NoSymLinks | QDir::NoDotAndDotDot, QDir::Unsorted);
    struct STRUCT_Key
    {
        qint64 time;
        QString name;
        int index;
    };
    std::vector<STRUCT_Key> vecKeys;
    vecKeys.reserve(static_cast<std::size_t>(lstEntries.size()));
    for (int i = 0; i < lstEntries.size(); ++i) {
        QDateTime modified = lstEntries[i].lastModified();
        modified.setTimeSpec(Qt::UTC);
        vecKeys.push_back({modified.toMSecsSinceEpoch(), lstEntries[i].fileName(), i});
    }
    std::sort(vecKeys.begin(), vecKeys.end(), [](const STRUCT_Key& _left, const STRUCT_Key& _right) {
        return _left.time != _right.time ? _left.time < _right.time : _left.name.compare(_right.name) > 0;
    });
    QFileInfoList lstSorted;
    lstSorted.reserve(lstEntries.size());
    for (const STRUCT_Key& key : vecKeys) {
        lstSorted.append(lstEntries[key.index]);
    }
    return lstSorted;
}

} // namespace

namespace FunctionUtil {

QList<QFileInfo> GetFileList(const QStringList& _lstFilters, const QString& _qstrPath, bool _blTopLevelOnly)
{
    QList<QFileInfo> lstFiles;
    // QDir("") is the working directory, which is never what an empty configured path means.
    if (_qstrPath.isEmpty()) {
        return lstFiles;
    }
    const QFileInfoList lstEntries = ListOldestFirst(_qstrPath);
    for (const QFileInfo& info : lstEntries) {
        const QString qstrName = info.fileName();
        if (qstrName == "." || qstrName == "..") {
            continue;
        }
        if (info.isDir()) {
            if (!_blTopLevelOnly) {
                lstFiles.append(GetFileList(_lstFilters, info.filePath(), false));
            }
            continue;
        }
        if (_lstFilters.isEmpty()) {
            lstFiles.append(info);
            continue;
        }
        // A file is listed once per matching pattern; callers rely on that count.
        const QString qstrSuffix = info.suffix();
        for (const QString& qstrPattern : _lstFilters) {
            if (qstrPattern.endsWith(qstrSuffix)) {
                lstFiles.append(info);
            }
        }
    }
    return lstFiles;
}

qint64 GetFileSize(const QString& _qstrPath, const QStringList& _lstFilters, bool _blTopLevelOnly)
{
    const QFileInfo info(_qstrPath);
    if (!info.isDir()) {
        return info.size();
    }
    qint64 iTotal = 0;
    for (const QFileInfo& file : GetFileList(_lstFilters, _qstrPath, _blTopLevelOnly)) {
        iTotal += file.size();
    }
    return iTotal;
}

bool CopyFiles(const QString& _qstrSourceDir, const QString& _qstrTargetDir, const QStringList& _lstFilters,
               bool _blTopLevelOnly, bool _blOverwrite, std::function<void(int)> _progress)
{
    const QDir sourceDir(_qstrSourceDir);
    if (_qstrSourceDir.isEmpty() || !sourceDir.exists()) {
        return false;
    }
    const QDir targetDir(_qstrTargetDir);
    const bool blTargetMade = !targetDir.exists();
    if (blTargetMade && !targetDir.mkpath(targetDir.absolutePath())) {
        return false;
    }
    const QString qstrSourceRoot = sourceDir.absolutePath();
    const QString qstrTargetRoot = targetDir.absolutePath();

    // The listing goes before the copy starts: for a large face library it is most of the plan's memory.
    std::vector<STRUCT_CopyEntry> vecEntries;
    std::vector<QByteArray> vecFolders;
    std::vector<int> vecHeads;
    int iListed = 0;
    {
        const QList<QFileInfo> lstFiles = GetFileList(_lstFilters, qstrSourceRoot, _blTopLevelOnly);
        iListed = lstFiles.size();
        // Folders are made here, before any worker starts, so that workers never race on mkpath.
        vecEntries.reserve(static_cast<std::size_t>(lstFiles.size()));
        std::vector<qint64> vecSizes;
        vecSizes.reserve(static_cast<std::size_t>(lstFiles.size()));
        QHash<QByteArray, int> hashLastByTarget;
        struct STRUCT_Folder
        {
            int index;
            bool made;
        };
        QHash<QString, STRUCT_Folder> hashFolders;
        for (const QFileInfo& info : lstFiles) {
            if (info.isDir()) {
                continue;
            }
            const QString qstrSource = info.absoluteFilePath();
            QString qstrTarget = qstrSource;
            qstrTarget.replace(qstrSourceRoot, qstrTargetRoot);
            const QDir targetFolder = QFileInfo(qstrTarget).absoluteDir();
            const QString qstrFolder = targetFolder.absolutePath();
            auto itFolder = hashFolders.find(qstrFolder);
            if (itFolder == hashFolders.end()) {
                const bool blMade = qstrFolder == qstrTargetRoot
                                        ? blTargetMade
                                        : !targetFolder.exists() && targetFolder.mkpath(qstrFolder);
                itFolder = hashFolders.insert(qstrFolder, {static_cast<int>(vecFolders.size()), blMade});
                vecFolders.push_back(QFile::encodeName(qstrFolder));
            }
            STRUCT_CopyEntry entry;
            // Encoding reserves three bytes a character; the plan keeps only what the paths use.
            entry.source = QFile::encodeName(qstrSource);
            entry.source.squeeze();
            entry.target = QFile::encodeName(qstrTarget);
            entry.target.squeeze();
            entry.folder = itFolder->index;
            const QByteArray qbaRemoval = QFile::encodeName(targetFolder.filePath(info.fileName()));
            if (qbaRemoval != entry.target) {
                entry.removal = qbaRemoval;
                entry.removal.squeeze();
            }
            const int iIndex = static_cast<int>(vecEntries.size());
            const auto itLast = hashLastByTarget.find(entry.target);
            if (itLast != hashLastByTarget.end()) {
                vecEntries[static_cast<std::size_t>(itLast.value())].next = iIndex;
                itLast.value() = iIndex;
            } else {
                hashLastByTarget.insert(entry.target, iIndex);
                vecHeads.push_back(iIndex);
                entry.fresh = itFolder->made && entry.removal.isEmpty();
            }
            vecSizes.push_back(info.size());
            vecEntries.push_back(std::move(entry));
        }
        // Large files first: a video started last would leave one worker copying alone.
        std::stable_sort(vecHeads.begin(), vecHeads.end(), [&vecSizes](int _iLeft, int _iRight) {
            return vecSizes[static_cast<std::size_t>(_iLeft)] > vecSizes[static_cast<std::size_t>(_iRight)];
        });
    }

    // Writing into the page cache costs the kernel a core per stream; on two cores, three or four workers
    // were no faster than two.
    CLS_ParallelCopy copy(std::move(vecEntries), std::move(vecFolders), std::move(vecHeads), iListed,
                          _blOverwrite);
    copy.Run(std::min(4, std::max(2, QThread::idealThreadCount())), _progress);
    return true;
}

} // namespace FunctionUtil
