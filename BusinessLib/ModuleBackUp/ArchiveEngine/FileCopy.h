#pragma once

#include <vector>

#include <QByteArray>

// The copy of one file under FunctionUtil::CopyFiles, safe to run on several threads at once.
namespace FileCopy {

// Copies one file as QFile::copy does (an existing target is left alone and the copy fails; the target
// appears only once complete, with the source's permissions). Paths are in the file system's encoding;
// _qbaFolder is the target's folder. _blFresh skips looking for a target that cannot be there yet.
// _vecBuffer is a scratch buffer the caller keeps from file to file.
bool CopyOneFile(const QByteArray& _qbaSource, const QByteArray& _qbaTarget, const QByteArray& _qbaFolder,
                 bool _blFresh, std::vector<char>& _vecBuffer);

// What overwrite removes before copying: whatever is under the name, except a dangling link.
void RemoveExisting(const QByteArray& _qbaPath);

} // namespace FileCopy
