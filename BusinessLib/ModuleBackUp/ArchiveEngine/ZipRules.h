#pragma once

#include <QString>
#include <QtGlobal>

// What the backup archives may hold, given what Qt's zip classes can read back.
namespace ZipRules {

// Largest file packed or unpacked. Our own code streams any size, but Qt's reader, which every backup must
// stay readable by, reads a file of 2 GiB back as empty; 2 GiB - 1 MiB was measured to round-trip.
constexpr qint64 kMaxEntryBytes = (qint64(2) << 30) - (qint64(1) << 20);
// The reader keeps archive offsets in an int: it lists nothing in a larger archive.
constexpr qint64 kMaxArchiveBytes = 0x7fffffff;

// Pictures, video and archives are already compressed; deflating them only costs time.
bool IsStoredName(const QString& _qstrEntryName);
// A relative name without ".." parts or NUL characters, so that it cannot lead out of the unpack root.
bool IsSafeEntryName(const QString& _qstrEntryName);
// How QZipReader lists an entry: it drops leading "." and "/" and trailing "/" from the stored name.
QString ReaderListedName(const QString& _qstrEntryName);
// The entry name of a file below the packed folder: its path behind the base path and one separator.
QString EntryName(const QString& _qstrFilePath, const QString& _qstrBasePath);

} // namespace ZipRules
