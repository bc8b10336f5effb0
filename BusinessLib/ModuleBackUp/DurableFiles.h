#pragma once

#include <QString>

// What must reach the disk before a run may count on it: the page cache survives a killed process but
// not a power cut.
namespace DurableFiles {

// fsync of a file's data.
bool SyncFile(const QString& _qstrPath);
// fsync of a folder, which makes the names created, renamed or removed in it durable.
bool SyncFolder(const QString& _qstrPath);
// Everything written on the file system that holds _qstrPath; one call instead of one per file.
bool SyncFileSystem(const QString& _qstrPath);
// rename(2): replaces an existing target in one step, where QFile::rename refuses.
bool Replace(const QString& _qstrFrom, const QString& _qstrTo);

} // namespace DurableFiles
