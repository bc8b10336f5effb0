#include "CLS_ZipStreamWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <QDateTime>
#include <QFile>
#include <QThread>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "CLS_ParallelDeflater.h"

namespace {

constexpr size_t kBufferBytes = size_t(1) << 20;
constexpr qint64 kMaxOffset = 0xFFFFFFFFLL; // what the 32-bit fields of a zip without zip64 hold
constexpr qint64 kMaxEntries = 0xFFFF;
constexpr quint16 kVersionNeeded = 20;
constexpr quint16 kVersionMadeUnix = 3 << 8;
constexpr quint16 kUtf8Names = 0x0800;
constexpr quint16 kMethodStored = 0;
constexpr quint16 kMethodDeflated = 8;
// A regular file readable and writable by its owner, in the high half as Unix hosts record it.
constexpr quint32 kExternalAttributes = (0100000U | 0600U) << 16;
constexpr int kCrcOffsetInLocalHeader = 14;
// Deflated data waiting to be written, at most; it keeps memory apart from the size of any file.
constexpr qint64 kDeflateBudgetBytes = qint64(128) << 20;

void AppendShort(QByteArray& _qbaOut, quint16 _iValue)
{
    _qbaOut.append(static_cast<char>(_iValue & 0xFF));
    _qbaOut.append(static_cast<char>(_iValue >> 8));
}

void AppendInt(QByteArray& _qbaOut, quint32 _iValue)
{
    AppendShort(_qbaOut, static_cast<quint16>(_iValue & 0xFFFF));
    AppendShort(_qbaOut, static_cast<quint16>(_iValue >> 16));
}

// MS-DOS time and date: two-second steps, years from 1980.
void AppendDosTime(QByteArray& _qbaOut, const QDateTime& _dateTime)
{
    const QTime time = _dateTime.time();
    const QDate date = _dateTime.date();
    AppendShort(_qbaOut,
                static_cast<quint16>((time.hour() << 11) | (time.minute() << 5) | (time.second() >> 1)));
    AppendShort(_qbaOut,
                static_cast<quint16>(((date.year() - 1980) << 9) | (date.month() << 5) | date.day()));
}

QString ErrnoText()
{
    return QString::fromLocal8Bit(strerror(errno));
}

} // namespace

CLS_ZipStreamWriter::CLS_ZipStreamWriter(const QString& _qstrZipPath, int _iLevel) : m_iLevel(_iLevel)
{
    const QByteArray qbaPath = QFile::encodeName(_qstrZipPath);
    m_iFd = open(qbaPath.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (m_iFd < 0) {
        Fail("cannot create the archive: " + ErrnoText());
    }
    m_vecBuffer.reserve(kBufferBytes);
}

CLS_ZipStreamWriter::~CLS_ZipStreamWriter()
{
    Close();
}

void CLS_ZipStreamWriter::AnnounceDeflated(const QString& _qstrFilePath)
{
    if (IsOpen()) {
        Deflater().Announce(_qstrFilePath);
    }
}

CLS_ZipStreamWriter::n_AddResult CLS_ZipStreamWriter::AddFile(const QString& _qstrEntryName,
                                                              const QString& _qstrFilePath, bool _blDeflate,
                                                              QString& _qstrError)
{
    if (m_blFailed || !IsOpen()) {
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }
    if (m_iEntries >= kMaxEntries) {
        Fail(QString("more than %1 files for one archive").arg(kMaxEntries));
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }
    const QByteArray qbaName = _qstrEntryName.toUtf8();
    const quint16 iMethod = _blDeflate ? kMethodDeflated : kMethodStored;
    const qint64 iHeaderOffset = Offset();
    QByteArray qbaCommon; // the fields local header and directory record share
    AppendShort(qbaCommon, kVersionNeeded);
    AppendShort(qbaCommon, kUtf8Names);
    AppendShort(qbaCommon, iMethod);
    AppendDosTime(qbaCommon, QDateTime::currentDateTime());

    QByteArray qbaLocal;
    AppendInt(qbaLocal, 0x04034b50);
    qbaLocal.append(qbaCommon);
    AppendInt(qbaLocal, 0); // CRC-32 and both sizes follow the data
    AppendInt(qbaLocal, 0);
    AppendInt(qbaLocal, 0);
    AppendShort(qbaLocal, static_cast<quint16>(qbaName.size()));
    AppendShort(qbaLocal, 0);
    qbaLocal.append(qbaName);
    if (!Write(qbaLocal.constData(), qbaLocal.size())) {
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }

    const qint64 iDataOffset = Offset();
    quint32 iCrc = 0;
    qint64 iSize = 0;
    const bool blRead = _blDeflate ? AddDeflated(_qstrFilePath, iCrc, iSize, _qstrError)
                                   : AddStored(_qstrFilePath, iCrc, iSize, _qstrError);
    if (m_blFailed) {
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }
    if (!blRead) {
        return Rewind(iHeaderOffset) ? ADD_READ_FAILED : ADD_WRITE_FAILED;
    }
    const qint64 iCompressed = Offset() - iDataOffset;
    if (Offset() > kMaxOffset || iSize > kMaxOffset) {
        Fail("the archive outgrows the 4 GiB of a zip without zip64");
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }
    QByteArray qbaSizes;
    AppendInt(qbaSizes, iCrc);
    AppendInt(qbaSizes, static_cast<quint32>(iCompressed));
    AppendInt(qbaSizes, static_cast<quint32>(iSize));
    if (!PatchAt(iHeaderOffset + kCrcOffsetInLocalHeader, qbaSizes)) {
        _qstrError = m_qstrError;
        return ADD_WRITE_FAILED;
    }

    AppendInt(m_qbaDirectory, 0x02014b50);
    AppendShort(m_qbaDirectory, kVersionMadeUnix);
    m_qbaDirectory.append(qbaCommon);
    m_qbaDirectory.append(qbaSizes);
    AppendShort(m_qbaDirectory, static_cast<quint16>(qbaName.size()));
    AppendShort(m_qbaDirectory, 0); // extra field
    AppendShort(m_qbaDirectory, 0); // comment
    AppendShort(m_qbaDirectory, 0); // disk
    AppendShort(m_qbaDirectory, 0); // internal attributes
    AppendInt(m_qbaDirectory, kExternalAttributes);
    AppendInt(m_qbaDirectory, static_cast<quint32>(iHeaderOffset));
    m_qbaDirectory.append(qbaName);
    ++m_iEntries;
    return ADD_DONE;
}

bool CLS_ZipStreamWriter::AddStored(const QString& _qstrFilePath, quint32& _iCrc, qint64& _iSize,
                                    QString& _qstrError)
{
    const QByteArray qbaPath = QFile::encodeName(_qstrFilePath);
    const int iFd = open(qbaPath.constData(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (iFd < 0 || fstat(iFd, &st) != 0) {
        _qstrError = "the file could not be opened: " + ErrnoText();
        if (iFd >= 0) {
            close(iFd);
        }
        return false;
    }
    m_vecReadBuffer.resize(kBufferBytes);
    _iCrc = static_cast<quint32>(crc32(0L, Z_NULL, 0));
    _iSize = 0;
    bool blOk = true;
    for (;;) {
        const ssize_t iRead = read(iFd, m_vecReadBuffer.data(), m_vecReadBuffer.size());
        if (iRead < 0 && errno == EINTR) {
            continue;
        }
        if (iRead < 0) {
            _qstrError = "the file could not be read: " + ErrnoText();
            blOk = false;
            break;
        }
        if (iRead == 0) {
            break;
        }
        _iCrc = static_cast<quint32>(
            crc32(_iCrc, reinterpret_cast<const Bytef*>(m_vecReadBuffer.data()), static_cast<uInt>(iRead)));
        _iSize += iRead;
        if (!Write(m_vecReadBuffer.data(), iRead)) {
            blOk = false;
            break;
        }
    }
    close(iFd);
    // A file that changed size while being read is not the file that was listed.
    if (blOk && _iSize != st.st_size) {
        _qstrError =
            QString("the file changed while being packed: %1 bytes read of %2").arg(_iSize).arg(st.st_size);
        blOk = false;
    }
    return blOk;
}

bool CLS_ZipStreamWriter::AddDeflated(const QString& _qstrFilePath, quint32& _iCrc, qint64& _iSize,
                                      QString& _qstrError)
{
    return Deflater().Deflate(
        _qstrFilePath, [this](const char* _pData, qint64 _iBytes) { return Write(_pData, _iBytes); }, _iCrc,
        _iSize, _qstrError);
}

bool CLS_ZipStreamWriter::Close()
{
    if (!IsOpen()) {
        return !m_blFailed;
    }
    m_deflater.reset();
    const qint64 iDirectoryOffset = Offset();
    QByteArray qbaEnd;
    AppendInt(qbaEnd, 0x06054b50);
    AppendShort(qbaEnd, 0); // this disk
    AppendShort(qbaEnd, 0); // disk of the directory
    AppendShort(qbaEnd, static_cast<quint16>(m_iEntries));
    AppendShort(qbaEnd, static_cast<quint16>(m_iEntries));
    AppendInt(qbaEnd, static_cast<quint32>(m_qbaDirectory.size()));
    AppendInt(qbaEnd, static_cast<quint32>(iDirectoryOffset));
    AppendShort(qbaEnd, 0); // comment
    if (!m_blFailed && iDirectoryOffset + m_qbaDirectory.size() > kMaxOffset) {
        Fail("the archive outgrows the 4 GiB of a zip without zip64");
    }
    if (!m_blFailed && Write(m_qbaDirectory.constData(), m_qbaDirectory.size())) {
        if (Write(qbaEnd.constData(), qbaEnd.size())) {
            Flush();
        }
    }
    if (close(m_iFd) != 0 && !m_blFailed) {
        Fail("closing the archive failed: " + ErrnoText());
    }
    m_iFd = -1;
    m_qbaDirectory.clear();
    return !m_blFailed;
}

bool CLS_ZipStreamWriter::Write(const char* _pData, qint64 _iSize)
{
    if (m_blFailed) {
        return false;
    }
    const size_t iSize = static_cast<size_t>(_iSize);
    if (m_vecBuffer.size() + iSize <= kBufferBytes) {
        m_vecBuffer.insert(m_vecBuffer.end(), _pData, _pData + iSize);
        return true;
    }
    if (!Flush()) {
        return false;
    }
    if (iSize < kBufferBytes / 2) {
        m_vecBuffer.insert(m_vecBuffer.end(), _pData, _pData + iSize);
        return true;
    }
    // Large blocks go straight to the file: one copy fewer.
    size_t iDone = 0;
    while (iDone < iSize) {
        const ssize_t iWritten = write(m_iFd, _pData + iDone, iSize - iDone);
        if (iWritten < 0 && errno == EINTR) {
            continue;
        }
        if (iWritten <= 0) {
            return Fail("writing the archive failed: " + ErrnoText());
        }
        iDone += static_cast<size_t>(iWritten);
        m_iFlushed += iWritten;
    }
    return true;
}

bool CLS_ZipStreamWriter::Flush()
{
    size_t iDone = 0;
    while (iDone < m_vecBuffer.size()) {
        const ssize_t iWritten = write(m_iFd, m_vecBuffer.data() + iDone, m_vecBuffer.size() - iDone);
        if (iWritten < 0 && errno == EINTR) {
            continue;
        }
        if (iWritten <= 0) {
            return Fail("writing the archive failed: " + ErrnoText());
        }
        iDone += static_cast<size_t>(iWritten);
    }
    m_iFlushed += static_cast<qint64>(m_vecBuffer.size());
    m_vecBuffer.clear();
    return true;
}

bool CLS_ZipStreamWriter::PatchAt(qint64 _iOffset, const QByteArray& _qbaBytes)
{
    if (_iOffset >= m_iFlushed) {
        std::memcpy(m_vecBuffer.data() + (_iOffset - m_iFlushed), _qbaBytes.constData(),
                    static_cast<size_t>(_qbaBytes.size()));
        return true;
    }
    if (!Flush()) {
        return false;
    }
    const ssize_t iWritten = pwrite(m_iFd, _qbaBytes.constData(), static_cast<size_t>(_qbaBytes.size()),
                                    static_cast<off_t>(_iOffset));
    return iWritten == _qbaBytes.size() || Fail("writing the archive failed: " + ErrnoText());
}

bool CLS_ZipStreamWriter::Rewind(qint64 _iOffset)
{
    if (_iOffset >= m_iFlushed) {
        m_vecBuffer.resize(static_cast<size_t>(_iOffset - m_iFlushed));
        return true;
    }
    m_vecBuffer.clear();
    if (ftruncate(m_iFd, static_cast<off_t>(_iOffset)) != 0 ||
        lseek(m_iFd, static_cast<off_t>(_iOffset), SEEK_SET) < 0) {
        return Fail("the archive could not be cut back after a failed file: " + ErrnoText());
    }
    m_iFlushed = _iOffset;
    return true;
}

bool CLS_ZipStreamWriter::Fail(const QString& _qstrWhy)
{
    if (!m_blFailed) {
        m_blFailed = true;
        m_qstrError = _qstrWhy;
    }
    return false;
}

CLS_ParallelDeflater& CLS_ZipStreamWriter::Deflater()
{
    if (!m_deflater) {
        m_deflater.reset(new CLS_ParallelDeflater(std::max(2, QThread::idealThreadCount()), m_iLevel,
                                                  kDeflateBudgetBytes));
    }
    return *m_deflater;
}
