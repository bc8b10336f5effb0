#include "CLS_ZipDirectory.h"

#include <QFile>

#include "ZipRules.h"

namespace {

constexpr quint32 kLocalSignature = 0x04034b50;
constexpr quint32 kCentralSignature = 0x02014b50;
constexpr quint32 kEndSignature = 0x06054b50;
constexpr int kLocalHeaderSize = 30;
constexpr int kCentralHeaderSize = 46;
constexpr int kEndSize = 22;
constexpr int kMaxCommentSize = 65535;
constexpr quint16 kEncrypted = 0x0001;
constexpr quint16 kUtf8Names = 0x0800;
constexpr quint16 kMethodStored = 0;
constexpr quint16 kMethodDeflated = 8;

quint16 U16(const QByteArray& _qba, int _iPos)
{
    return static_cast<quint16>(static_cast<uchar>(_qba[_iPos]) | (static_cast<uchar>(_qba[_iPos + 1]) << 8));
}

quint32 U32(const QByteArray& _qba, int _iPos)
{
    return static_cast<quint32>(U16(_qba, _iPos)) | (static_cast<quint32>(U16(_qba, _iPos + 2)) << 16);
}

bool ReadAt(QFile& _file, qint64 _iOffset, qint64 _iSize, QByteArray& _qbaData)
{
    if (_iOffset < 0 || !_file.seek(_iOffset)) {
        return false;
    }
    _qbaData = _file.read(_iSize);
    return _qbaData.size() == _iSize;
}

} // namespace

bool CLS_ZipDirectory::Read(const QString& _qstrZipPath)
{
    m_vecEntries.clear();
    m_qstrError.clear();
    QFile file(_qstrZipPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return Fail("cannot open the archive");
    }
    m_iArchiveSize = file.size();
    if (m_iArchiveSize > ZipRules::kMaxArchiveBytes) {
        return Fail(QString("archive of %1 bytes, larger than the zip reader can list").arg(m_iArchiveSize));
    }
    qint64 iEndOffset = 0;
    if (!FindEnd(file, iEndOffset)) {
        return false;
    }
    QByteArray qbaEnd;
    ReadAt(file, iEndOffset, kEndSize, qbaEnd);
    const quint16 iEntries = U16(qbaEnd, 10);
    const qint64 iDirectorySize = U32(qbaEnd, 12);
    m_iDirectoryOffset = U32(qbaEnd, 16);
    if (U16(qbaEnd, 4) != 0 || U16(qbaEnd, 6) != 0 || U16(qbaEnd, 8) != iEntries) {
        return Fail("spanned archive");
    }
    if (iEntries == 0xFFFF || iDirectorySize == 0xFFFFFFFF || m_iDirectoryOffset == 0xFFFFFFFF) {
        return Fail("zip64 archive");
    }
    const qint64 iDirectoryEnd = m_iDirectoryOffset + iDirectorySize;
    if (iDirectoryEnd > iEndOffset) {
        return Fail("central directory outside the archive");
    }
    // The reader gives up on an archive that does not begin with an entry.
    QByteArray qbaFirst;
    if (iEntries > 0 && (!ReadAt(file, 0, 4, qbaFirst) || U32(qbaFirst, 0) != kLocalSignature)) {
        return Fail("archive does not start with an entry");
    }
    if (!file.seek(m_iDirectoryOffset)) {
        return Fail("central directory outside the archive");
    }
    m_vecEntries.reserve(iEntries);
    for (int i = 0; i < iEntries; ++i) {
        STRUCT_ZipEntry entry;
        if (!ReadEntry(file, iDirectoryEnd, entry)) {
            return false;
        }
        m_vecEntries.append(entry);
    }
    return true;
}

bool CLS_ZipDirectory::Fail(const QString& _qstrReason)
{
    m_qstrError = _qstrReason;
    m_vecEntries.clear();
    return false;
}

// Scans back from the end for the end record as the reader does, so that both see the same directory.
bool CLS_ZipDirectory::FindEnd(QFile& _file, qint64& _iEndOffset)
{
    if (m_iArchiveSize < kEndSize) {
        return Fail("too short for a zip archive");
    }
    const qint64 iTailSize = qMin<qint64>(m_iArchiveSize, kEndSize + kMaxCommentSize);
    QByteArray qbaTail;
    if (!ReadAt(_file, m_iArchiveSize - iTailSize, iTailSize, qbaTail)) {
        return Fail("cannot read the archive");
    }
    for (int iPos = static_cast<int>(iTailSize) - kEndSize; iPos >= 0; --iPos) {
        if (U32(qbaTail, iPos) != kEndSignature) {
            continue;
        }
        if (U16(qbaTail, iPos + 20) != iTailSize - kEndSize - iPos) {
            return Fail("end of central directory does not match its comment");
        }
        _iEndOffset = m_iArchiveSize - iTailSize + iPos;
        return true;
    }
    return Fail("no end of central directory");
}

bool CLS_ZipDirectory::ReadEntry(QFile& _file, qint64 _iDirectoryEnd, STRUCT_ZipEntry& _entry)
{
    const qint64 iStart = _file.pos();
    QByteArray qbaHeader = _file.read(kCentralHeaderSize);
    if (qbaHeader.size() != kCentralHeaderSize || U32(qbaHeader, 0) != kCentralSignature) {
        return Fail(QString("damaged central directory at offset %1").arg(iStart));
    }
    const int iNameSize = U16(qbaHeader, 28);
    const int iExtraSize = U16(qbaHeader, 30);
    const int iCommentSize = U16(qbaHeader, 32);
    if (iStart + kCentralHeaderSize + iNameSize + iExtraSize + iCommentSize > _iDirectoryEnd) {
        return Fail(QString("central directory entry at offset %1 runs past the directory").arg(iStart));
    }
    _entry.qbaRawName = _file.read(iNameSize);
    if (_entry.qbaRawName.size() != iNameSize || !_file.seek(_file.pos() + iExtraSize + iCommentSize)) {
        return Fail(QString("damaged central directory at offset %1").arg(iStart));
    }
    const quint16 iFlags = U16(qbaHeader, 8);
    _entry.qstrName = (iFlags & kUtf8Names) != 0 ? QString::fromUtf8(_entry.qbaRawName)
                                                 : QString::fromLocal8Bit(_entry.qbaRawName);
    _entry.qstrLookupName = QString::fromLocal8Bit(_entry.qbaRawName);
    _entry.iMethod = U16(qbaHeader, 10);
    _entry.iCrc = U32(qbaHeader, 16);
    _entry.iCompressedSize = U32(qbaHeader, 20);
    _entry.iSize = U32(qbaHeader, 24);
    if ((iFlags & kEncrypted) != 0) {
        return Fail("encrypted entry " + _entry.qstrName);
    }
    const qint64 iNext = _file.pos();
    if (!CheckEntry(_file, U32(qbaHeader, 42), _entry) || !_file.seek(iNext)) {
        return false;
    }
    return true;
}

bool CLS_ZipDirectory::CheckEntry(QFile& _file, qint64 _iLocalOffset, STRUCT_ZipEntry& _entry)
{
    if (_entry.iMethod != kMethodStored && _entry.iMethod != kMethodDeflated) {
        return Fail(QString("entry %1 uses compression method %2").arg(_entry.qstrName).arg(_entry.iMethod));
    }
    if (_entry.iSize > ZipRules::kMaxEntryBytes || _entry.iCompressedSize > ZipRules::kMaxEntryBytes ||
        _entry.iCompressedSize > m_iArchiveSize) {
        return Fail(QString("entry %1 claims %2 bytes (%3 compressed), more than can be unpacked")
                        .arg(_entry.qstrName)
                        .arg(_entry.iSize)
                        .arg(_entry.iCompressedSize));
    }
    if (_entry.iMethod == kMethodStored && _entry.iCompressedSize != _entry.iSize) {
        return Fail("stored entry " + _entry.qstrName + " with two different sizes");
    }
    QByteArray qbaLocal;
    if (_iLocalOffset + kLocalHeaderSize > m_iDirectoryOffset ||
        !ReadAt(_file, _iLocalOffset, kLocalHeaderSize, qbaLocal) || U32(qbaLocal, 0) != kLocalSignature) {
        return Fail("no local header for entry " + _entry.qstrName);
    }
    // The reader takes the method from the local header: inflating stored data could grow without bound.
    if (U16(qbaLocal, 8) != _entry.iMethod) {
        return Fail("local header of entry " + _entry.qstrName + " names another compression method");
    }
    // The reader finds the data behind the local header's own name and extra field.
    _entry.iDataOffset = _iLocalOffset + kLocalHeaderSize + U16(qbaLocal, 26) + U16(qbaLocal, 28);
    if (_entry.iDataOffset + _entry.iCompressedSize > m_iDirectoryOffset) {
        return Fail("data of entry " + _entry.qstrName + " runs past the entries");
    }
    return true;
}
