#pragma once

#include <QString>
#include <QStringList>

#include "PackedArchiveCheck.h"

// The entry names that packing the folder writes, in order: every file below it that can be opened.
QStringList PackableEntryNames(const QString& _qstrFolder);
