#include "ZipRules.h"

#include <QFileInfo>
#include <QSet>
#include <QStringList>

namespace ZipRules {

bool IsStoredName(const QString& _qstrEntryName)
{
    static const QSet<QString> s_setStored{
        "jpg", "jpeg", "png",  "gif", "webp", "heic", "mp4", "m4v", "mov", "avi", "mkv", "ts", "h264", "h265",
        "264", "265",  "hevc", "mp3", "aac",  "zip",  "rar", "7z",  "gz",  "tgz", "bz2", "xz", "zst"};
    return s_setStored.contains(QFileInfo(_qstrEntryName).suffix().toLower());
}

bool IsSafeEntryName(const QString& _qstrEntryName)
{
    if (_qstrEntryName.isEmpty() || _qstrEntryName.startsWith('/') || _qstrEntryName.contains(QChar('\0'))) {
        return false;
    }
    const QStringList lstParts = _qstrEntryName.split('/');
    return !lstParts.contains("..");
}

QString EntryName(const QString& _qstrFilePath, const QString& _qstrBasePath)
{
    return _qstrFilePath.mid(_qstrBasePath.length() + 1);
}

} // namespace ZipRules
