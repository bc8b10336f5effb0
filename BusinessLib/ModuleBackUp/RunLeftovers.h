#pragma once

#include <QString>
#include <QStringList>

// The names a run writes beside its archives, and the removal of what a run of a dead process left.
// Every marker holds the process id of its run.
namespace RunLeftovers {

// "." + archive name + ".partial": DirToZip adds ".zip", and the name never matches BackUp_*.zip.
QString TempArchiveName(const QString& _qstrZipName);
// The marker of the staging folder, beside it: anything inside the folder would be packed.
QString StagingMarker(const QString& _qstrSavePath, const QString& _qstrZipName);
bool WriteMarker(const QString& _qstrMarkerPath);

// A new folder ".HxRestore_XXXXXX" in _qstrWorkPath, marked inside, to unpack an archive into; empty
// when it cannot be made.
QString MakeUnpackFolder(const QString& _qstrWorkPath);
// A folder made by MakeUnpackFolder: only such folders are ever removed as unpack folders.
bool IsUnpackFolder(const QString& _qstrPath);

// Removes from a folder the staging folders, temporary archives and unpack folders of runs that are
// over: their process is gone, or it is this one (the caller holds the run lock). Folders without a
// marker are the user's and stay. Answers the names removed.
QStringList RemoveDeadRuns(const QString& _qstrFolder);

} // namespace RunLeftovers
