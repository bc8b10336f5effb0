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

// Stored data is read once, through its CRC-32, and written. Measured on ext4 against copy_file_range with
// the copy read back for its CRC-32: the unaligned ranges of a zip are not cloned, and the kernel's copy
// plus the reading back took more time and processor than one read and one write.
bool CopyStored(int _iArchiveFd, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
                std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail);

// Deflated data is inflated by libzip, which checks its CRC-32 at the end of the stream.
bool Inflate(zip_t* _pArchive, int _iIndex, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
             std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail);

} // namespace EntryExtract
