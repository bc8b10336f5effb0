#include "ArchiveCheck.h"

#include <QFile>
#include <QFileInfo>

#include "FunctionUtil.h"
#include "ZipRules.h"

QStringList PackableEntryNames(const QString& _qstrFolder)
{
    const QString qstrBase = QFileInfo(_qstrFolder).absoluteFilePath();
    QStringList lstNames;
    for (const QFileInfo& info : FunctionUtil::GetFileList(QStringList(), qstrBase, false)) {
        QFile file(info.filePath());
        if (!info.isDir() && file.open(QIODevice::ReadOnly)) {
            lstNames << ZipRules::EntryName(info.filePath(), qstrBase);
        }
    }
    return lstNames;
}
