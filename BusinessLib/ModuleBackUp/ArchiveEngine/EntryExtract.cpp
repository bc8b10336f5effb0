#include "EntryExtract.h"

#include <cerrno>
#include <cstring>
#include <memory>

#include <unistd.h>
#include <zlib.h>

namespace {

QString SystemError(const char* _pWhat)
{
    return QString("%1 failed: %2").arg(_pWhat, QString::fromLocal8Bit(strerror(errno)));
}

QString CrcFailed(qint64 _iRead, qint64 _iRecorded)
{
    return QString("CRC-32 check failed: %1 bytes read, %2 recorded").arg(_iRead).arg(_iRecorded);
}

bool PreadAll(int _iFd, char* _pData, qint64 _iSize, qint64 _iOffset)
{
    while (_iSize > 0) {
        const ssize_t iRead = pread(_iFd, _pData, size_t(_iSize), off_t(_iOffset));
        if (iRead <= 0) {
            if (iRead < 0 && errno == EINTR) {
                continue;
            }
            return false;
        }
        _pData += iRead;
        _iSize -= iRead;
        _iOffset += iRead;
    }
    return true;
}

bool WriteAll(int _iFd, const char* _pData, qint64 _iSize, qint64 _iOffset)
{
    while (_iSize > 0) {
        const ssize_t iWritten = pwrite(_iFd, _pData, size_t(_iSize), off_t(_iOffset));
        if (iWritten < 0 && errno == EINTR) {
            continue;
        }
        if (iWritten <= 0) {
            return false;
        }
        _pData += iWritten;
        _iSize -= iWritten;
        _iOffset += iWritten;
    }
    return true;
}

struct FileCloser
{
    void operator()(zip_file_t* _pFile) const { zip_fclose(_pFile); }
};

} // namespace

namespace EntryExtract {

bool CopyStored(int _iArchiveFd, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
                std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail)
{
    uLong iCrc = crc32(0L, Z_NULL, 0);
    for (qint64 iDone = 0; iDone < _entry.iSize;) {
        if (_stop) {
            _qstrDetail = kStopped;
            return false;
        }
        const qint64 iLength = qMin(_entry.iSize - iDone, qint64(_vecBuffer.size()));
        if (!PreadAll(_iArchiveFd, _vecBuffer.data(), iLength, _entry.iDataOffset + iDone)) {
            _qstrDetail = CrcFailed(iDone, _entry.iSize);
            return false;
        }
        if (_iTargetFd >= 0 && !WriteAll(_iTargetFd, _vecBuffer.data(), iLength, iDone)) {
            _qstrDetail = "write failed: " + SystemError("write");
            return false;
        }
        iCrc = crc32_z(iCrc, reinterpret_cast<const Bytef*>(_vecBuffer.data()), size_t(iLength));
        iDone += iLength;
    }
    if (iCrc != _entry.iCrc) {
        _qstrDetail = CrcFailed(_entry.iSize, _entry.iSize);
        return false;
    }
    return true;
}

bool Inflate(zip_t* _pArchive, int _iIndex, const STRUCT_ZipEntryPlace& _entry, int _iTargetFd,
             std::vector<char>& _vecBuffer, const std::atomic<bool>& _stop, QString& _qstrDetail)
{
    const std::unique_ptr<zip_file_t, FileCloser> file(zip_fopen_index(_pArchive, zip_uint64_t(_iIndex), 0));
    if (!file) {
        _qstrDetail = QString("cannot read: %1").arg(zip_strerror(_pArchive));
        return false;
    }
    const QString qstrShort =
        QString("compressed data does not inflate to the recorded %1 bytes").arg(_entry.iSize);
    qint64 iDone = 0;
    for (;;) {
        if (_stop) {
            _qstrDetail = kStopped;
            return false;
        }
        // One byte of room past the recorded size shows that the data goes on.
        const qint64 iRoom = qMin(qint64(_vecBuffer.size()), _entry.iSize - iDone + 1);
        const zip_int64_t iRead = zip_fread(file.get(), _vecBuffer.data(), zip_uint64_t(iRoom));
        if (iRead < 0) {
            const zip_error_t* pError = zip_file_get_error(file.get());
            // libzip reports a stream that ends early as a CRC-32 failure.
            _qstrDetail = zip_error_code_zip(pError) == ZIP_ER_CRC && iDone == _entry.iSize
                              ? CrcFailed(iDone, _entry.iSize)
                              : qstrShort + ": " + QString::fromUtf8(zip_file_strerror(file.get()));
            return false;
        }
        if (iRead == 0) {
            break;
        }
        if (iDone + iRead > _entry.iSize) {
            _qstrDetail = qstrShort;
            return false;
        }
        if (_iTargetFd >= 0 && !WriteAll(_iTargetFd, _vecBuffer.data(), iRead, iDone)) {
            _qstrDetail = "write failed: " + SystemError("write");
            return false;
        }
        iDone += iRead;
    }
    if (iDone != _entry.iSize) {
        _qstrDetail = qstrShort;
        return false;
    }
    return true;
}

} // namespace EntryExtract
