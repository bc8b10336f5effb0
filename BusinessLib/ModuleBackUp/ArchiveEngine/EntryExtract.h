#pragma once

#include <atomic>
#include <vector>

#include <QString>
#include <zip.h>

#include "CLS_ZipLayout.h"

// Writes one entry's data into an open file (nowhere when the descriptor is -1, to check it all the
// same), never more than its recorded size, and holds it to its CRC-32. Both stop early once _stop is set.
namespace EntryExtract {

// The detail of an entry that was stopped because another one failed.
inline const QString kStopped = QStringLiteral("stopped");

// Stored data is copied by the kernel from the archive and its CRC-32 read back from the page cache.
bool CopyStored(int _iArchiveFd, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
                std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail);

// Deflated data is inflated by libzip, which checks its CRC-32 at the end of the stream.
bool Inflate(zip_t* _pArchive, int _iIndex, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
             std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail);

} // namespace EntryExtract
