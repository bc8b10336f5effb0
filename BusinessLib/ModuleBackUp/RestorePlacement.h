#pragma once

#include <string>

#include <QString>
#include <QVector>

#include "RestoreJournal.h"

// The last step of a restore, and of a restore finished after a crash: every file of the unpacked
// folders goes to its source, by rename where it can (one write per byte), by copy otherwise. Running it
// again after it was cut short gives the same end: files already moved are no longer in the unpack folder,
// copies are made anew. The copy-back stays as it was: recursive, overwriting, files only, and live files
// that the archive lacks stay.
namespace RestorePlacement {

// Logs each source's outcome with RecoverData's lines, makes the placed files durable, then removes the
// unpack folder and the journal. True when every file reached its place.
bool PlaceAndFinish(const char* _pModuleCode, const std::string& _strLogPrefix,
                    const QString& _qstrUnpackFolder,
                    const QVector<RestoreJournal::STRUCT_Placement>& _vecPlacements);

} // namespace RestorePlacement
