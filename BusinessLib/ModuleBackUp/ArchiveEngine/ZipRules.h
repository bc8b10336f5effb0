#pragma once

#include <QString>
#include <QtGlobal>

// How files become entries of a backup archive and back.
namespace ZipRules {

// Pictures, video and archives are already compressed; deflating them only costs time.
bool IsStoredName(const QString& _qstrEntryName);
// A relative name without ".." parts or NUL characters, so that it cannot lead out of the unpack root.
bool IsSafeEntryName(const QString& _qstrEntryName);
// The entry name of a file below the packed folder: its path behind the base path and one separator.
QString EntryName(const QString& _qstrFilePath, const QString& _qstrBasePath);

} // namespace ZipRules
