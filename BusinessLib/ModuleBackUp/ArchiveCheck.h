#pragma once

#include <QString>
#include <QStringList>

enum n_ArchiveCheck
{
    ARCHIVE_COMPLETE = 0,
    ARCHIVE_TOO_LARGE = 1, // over what the zip reader can list
    ARCHIVE_INCOMPLETE = 2 // unreadable, or not every packed file is listed
};

// The entry names that packing the folder writes, in order: every file below it that can be opened.
QStringList PackableEntryNames(const QString& _qstrFolder);

// Reads a freshly written archive back as an unpack will read it, since the zip writer reports neither
// write errors nor archives beyond its limits. _qstrDetail says what is wrong.
n_ArchiveCheck CheckPackedArchive(const QString& _qstrZipPath, const QStringList& _lstEntryNames,
                                  QString& _qstrDetail);
