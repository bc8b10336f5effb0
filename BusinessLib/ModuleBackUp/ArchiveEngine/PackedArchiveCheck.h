#pragma once

#include <QString>
#include <QStringList>

enum n_ArchiveCheck
{
    ARCHIVE_COMPLETE = 0,
    ARCHIVE_INCOMPLETE = 2 // unreadable, or not every packed file is listed
};

// Reads a freshly written archive's directory back as an unpack reads it: every packed name listed, in
// order, and each entry's sizes as the directory and its local header agree. _qstrDetail says what is wrong.
n_ArchiveCheck CheckPackedArchive(const QString& _qstrZipPath, const QStringList& _lstEntryNames,
                                  QString& _qstrDetail);
