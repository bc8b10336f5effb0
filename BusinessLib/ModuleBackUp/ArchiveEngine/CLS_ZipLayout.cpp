#include "CLS_ZipLayout.h"

#include <algorithm>
#include <limits>
#include <numeric>

#include <QFile>

namespace {

constexpr quint32 kLocalSignature = 0x04034b50;
constexpr quint32 kCentralSignature = 0x02014b50;
constexpr quint32 kEndSignature = 0x06054b50;
constexpr quint32 kZip64EndSignature = 0x06064b50;
constexpr quint32 kZip64LocatorSignature = 0x07064b50;
constexpr qint64 kLocalHeaderSize = 30;
constexpr qint64 kCentralHeaderSize = 46;
constexpr qint64 kEndSize = 22;
constexpr qint64 kZip64EndSize = 56;
constexpr qint64 kZip64LocatorSize = 20;
constexpr qint64 kMaxCommentSize = 65535;
constexpr quint16 kZip64ExtraId = 0x0001;
constexpr quint16 kEncrypted = 0x0001;
constexpr quint16 kUtf8Names = 0x0800;
constexpr quint16 kMethodStored = 0;
constexpr quint16 kMethodDeflated = 8;
// Deflate cannot expand data by more than this factor.
constexpr qint64 kMaxDeflateRatio = 1032;

quint64 Le(const char* _pData, int _iBytes)
{
    quint64 iValue = 0;
    for (int i = _iBytes - 1; i >= 0; --i) {
        iValue = (iValue << 8) | static_cast<uchar>(_pData[i]);
    }
    return iValue;
}

quint16 U16(const QByteArray& _qba, int _iPos)
{
    return static_cast<quint16>(Le(_qba.constData() + _iPos, 2));
}

quint32 U32(const QByteArray& _qba, int _iPos)
{
    return static_cast<quint32>(Le(_qba.constData() + _iPos, 4));
}

quint64 U64(const QByteArray& _qba, int _iPos)
{
    return Le(_qba.constData() + _iPos, 8);
}

bool ReadAt(QFile& _file, qint64 _iOffset, qint64 _iSize, QByteArray& _qbaData)
{
    if (_iOffset < 0 || !_file.seek(_iOffset)) {
        return false;
    }
    _qbaData = _file.read(_iSize);
    return _qbaData.size() == _iSize;
}

// The values that a zip64 extra field holds for the central record's saturated ones, in their order.
bool ReadZip64Extra(const QByteArray& _qbaExtra, STRUCT_ZipEntryPlace& _entry, bool _blSize,
                    bool _blCompressed, bool _blOffset)
{
    for (int iPos = 0; iPos + 4 <= _qbaExtra.size();) {
        const quint16 iId = U16(_qbaExtra, iPos);
        const int iLength = U16(_qbaExtra, iPos + 2);
        iPos += 4;
        if (iPos + iLength > _qbaExtra.size()) {
            return false;
        }
        if (iId == kZip64ExtraId) {
            const int iNeeded = 8 * (int(_blSize) + int(_blCompressed) + int(_blOffset));
            if (iLength < iNeeded) {
                return false;
            }
            int iField = iPos;
            auto take = [&](qint64& _iValue) {
                const quint64 iValue = U64(_qbaExtra, iField);
                iField += 8;
                _iValue = iValue > quint64(std::numeric_limits<qint64>::max()) ? -1 : qint64(iValue);
            };
            if (_blSize) {
                take(_entry.iSize);
            }
            if (_blCompressed) {
                take(_entry.iCompressedSize);
            }
            if (_blOffset) {
                take(_entry.iLocalOffset);
            }
            return true;
        }
        iPos += iLength;
    }
    return !_blSize && !_blCompressed && !_blOffset;
}

} // namespace

bool CLS_ZipLayout::Fail(const QString& _qstrReason)
{
    m_qstrError = _qstrReason;
    m_vecEntries.clear();
    return false;
}

bool CLS_ZipLayout::Read(const QString& _qstrZipPath)
{
    m_vecEntries.clear();
    m_qstrError.clear();
    QFile file(_qstrZipPath);
    if (!file.open(QIODevice::ReadOnly)) {
        return Fail("cannot open the archive");
    }
    const qint64 iFileSize = file.size();
    if (iFileSize < kEndSize) {
        return Fail("too short for a zip archive");
    }

    // The end record is the last one whose comment reaches exactly to the end of the file.
    const qint64 iTailSize = qMin(iFileSize, kEndSize + kMaxCommentSize);
    QByteArray qbaTail;
    if (!ReadAt(file, iFileSize - iTailSize, iTailSize, qbaTail)) {
        return Fail("cannot read the archive");
    }
    qint64 iEndOffset = -1;
    for (int iPos = int(iTailSize - kEndSize); iPos >= 0 && iEndOffset < 0; --iPos) {
        if (U32(qbaTail, iPos) == kEndSignature && U16(qbaTail, iPos + 20) == iTailSize - kEndSize - iPos) {
            iEndOffset = iFileSize - iTailSize + iPos;
        }
    }
    if (iEndOffset < 0) {
        return Fail("no end of central directory");
    }
    const QByteArray qbaEnd = qbaTail.mid(int(iEndOffset - (iFileSize - iTailSize)), int(kEndSize));
    if (U16(qbaEnd, 4) != 0 || U16(qbaEnd, 6) != 0 || U16(qbaEnd, 8) != U16(qbaEnd, 10)) {
        return Fail("spanned archive");
    }
    quint64 iCount = U16(qbaEnd, 10);
    quint64 iDirectorySize = U32(qbaEnd, 12);
    quint64 iDirectoryOffset = U32(qbaEnd, 16);
    qint64 iDirectoryLimit = iEndOffset;

    // libzip takes the zip64 end record whenever a locator stands before the end record.
    QByteArray qbaLocator;
    if (iEndOffset >= kZip64LocatorSize &&
        ReadAt(file, iEndOffset - kZip64LocatorSize, kZip64LocatorSize, qbaLocator) &&
        U32(qbaLocator, 0) == kZip64LocatorSignature) {
        const quint64 iEnd64Offset = U64(qbaLocator, 8);
        QByteArray qbaEnd64;
        if (U32(qbaLocator, 4) != 0 || U32(qbaLocator, 16) > 1 ||
            iEnd64Offset > quint64(iEndOffset - kZip64LocatorSize - kZip64EndSize) ||
            !ReadAt(file, qint64(iEnd64Offset), kZip64EndSize, qbaEnd64) ||
            U32(qbaEnd64, 0) != kZip64EndSignature) {
            return Fail("zip64 end of central directory missing");
        }
        if (U32(qbaEnd64, 16) != 0 || U32(qbaEnd64, 20) != 0 || U64(qbaEnd64, 24) != U64(qbaEnd64, 32)) {
            return Fail("spanned archive");
        }
        iCount = U64(qbaEnd64, 32);
        iDirectorySize = U64(qbaEnd64, 40);
        iDirectoryOffset = U64(qbaEnd64, 48);
        iDirectoryLimit = qint64(iEnd64Offset);
    } else if (iCount == 0xFFFF || iDirectorySize == 0xFFFFFFFF || iDirectoryOffset == 0xFFFFFFFF) {
        return Fail("zip64 end of central directory missing");
    }
    // Every central record takes at least 46 bytes, and the directory lies before the end records.
    if (iDirectorySize > quint64(iDirectoryLimit) ||
        iDirectoryOffset > quint64(iDirectoryLimit) - iDirectorySize) {
        return Fail(QString("central directory of %1 bytes at offset %2 lies outside the archive of %3 bytes")
                        .arg(iDirectorySize)
                        .arg(iDirectoryOffset)
                        .arg(iFileSize));
    }
    if (iCount > iDirectorySize / kCentralHeaderSize) {
        return Fail(
            QString("%1 entries claimed in a central directory of %2 bytes").arg(iCount).arg(iDirectorySize));
    }
    const qint64 iDirectoryEnd = qint64(iDirectoryOffset + iDirectorySize);

    if (!file.seek(qint64(iDirectoryOffset))) {
        return Fail("cannot read the central directory");
    }
    // The claim is only an upper bound until the records are there.
    m_vecEntries.reserve(int(qMin<quint64>(iCount, 1 << 16)));
    for (quint64 i = 0; i < iCount; ++i) {
        const qint64 iStart = file.pos();
        const QByteArray qbaHeader = file.read(kCentralHeaderSize);
        if (qbaHeader.size() != kCentralHeaderSize || U32(qbaHeader, 0) != kCentralSignature) {
            return Fail(QString("damaged central directory at offset %1").arg(iStart));
        }
        const int iNameSize = U16(qbaHeader, 28);
        const int iExtraSize = U16(qbaHeader, 30);
        const int iCommentSize = U16(qbaHeader, 32);
        if (iStart + kCentralHeaderSize + iNameSize + iExtraSize + iCommentSize > iDirectoryEnd) {
            return Fail(QString("central directory entry at offset %1 runs past the directory").arg(iStart));
        }
        STRUCT_ZipEntryPlace entry;
        entry.qbaRawName = file.read(iNameSize);
        const QByteArray qbaExtra = file.read(iExtraSize);
        if (entry.qbaRawName.size() != iNameSize || qbaExtra.size() != iExtraSize ||
            !file.seek(file.pos() + iCommentSize)) {
            return Fail(QString("damaged central directory at offset %1").arg(iStart));
        }
        const quint16 iFlags = U16(qbaHeader, 8);
        entry.blUtf8Name = (iFlags & kUtf8Names) != 0;
        entry.iMethod = U16(qbaHeader, 10);
        entry.iCrc = U32(qbaHeader, 16);
        entry.iCompressedSize = U32(qbaHeader, 20);
        entry.iSize = U32(qbaHeader, 24);
        entry.iLocalOffset = U32(qbaHeader, 42);
        const QString qstrName = QString::fromUtf8(entry.qbaRawName);
        if (U16(qbaHeader, 34) == 0xFFFF ||
            !ReadZip64Extra(qbaExtra, entry, entry.iSize == 0xFFFFFFFF, entry.iCompressedSize == 0xFFFFFFFF,
                            entry.iLocalOffset == 0xFFFFFFFF)) {
            return Fail("damaged zip64 extra field of entry " + qstrName);
        }
        if (U16(qbaHeader, 34) != 0) {
            return Fail("spanned archive");
        }
        if ((iFlags & kEncrypted) != 0) {
            return Fail("encrypted entry " + qstrName);
        }
        if (entry.iMethod != kMethodStored && entry.iMethod != kMethodDeflated) {
            return Fail(QString("entry %1 uses compression method %2").arg(qstrName).arg(entry.iMethod));
        }
        // Sizes and offsets past the directory are impossible; below that, no product overflows.
        if (entry.iSize < 0 || entry.iCompressedSize < 0 || entry.iLocalOffset < 0 ||
            entry.iCompressedSize > iFileSize || entry.iLocalOffset > iFileSize) {
            return Fail(QString("entry %1 claims %2 bytes (%3 compressed) at offset %4, outside the archive")
                            .arg(qstrName)
                            .arg(entry.iSize)
                            .arg(entry.iCompressedSize)
                            .arg(entry.iLocalOffset));
        }
        if (entry.iMethod == kMethodStored && entry.iCompressedSize != entry.iSize) {
            return Fail("stored entry " + qstrName + " with two different sizes");
        }
        if (entry.iSize > entry.iCompressedSize * kMaxDeflateRatio) {
            return Fail(QString("entry %1 claims %2 bytes from %3 compressed, more than deflate gives")
                            .arg(qstrName)
                            .arg(entry.iSize)
                            .arg(entry.iCompressedSize));
        }
        m_vecEntries.append(entry);
    }

    // Local headers, in file order: each entry's data lies before the directory and before the next entry.
    QVector<int> vecByOffset(m_vecEntries.size());
    std::iota(vecByOffset.begin(), vecByOffset.end(), 0);
    std::sort(vecByOffset.begin(), vecByOffset.end(), [this](int _a, int _b) {
        return m_vecEntries[_a].iLocalOffset < m_vecEntries[_b].iLocalOffset;
    });
    qint64 iFree = 0;
    for (int iIndex : vecByOffset) {
        STRUCT_ZipEntryPlace& entry = m_vecEntries[iIndex];
        const QString qstrName = QString::fromUtf8(entry.qbaRawName);
        QByteArray qbaLocal;
        if (entry.iLocalOffset < iFree || entry.iLocalOffset + kLocalHeaderSize > qint64(iDirectoryOffset) ||
            !ReadAt(file, entry.iLocalOffset, kLocalHeaderSize, qbaLocal) ||
            U32(qbaLocal, 0) != kLocalSignature) {
            return Fail("no local header for entry " + qstrName);
        }
        if (U16(qbaLocal, 8) != entry.iMethod) {
            return Fail("local header of entry " + qstrName + " names another compression method");
        }
        entry.iDataOffset = entry.iLocalOffset + kLocalHeaderSize + U16(qbaLocal, 26) + U16(qbaLocal, 28);
        iFree = entry.iDataOffset + entry.iCompressedSize;
        if (iFree > qint64(iDirectoryOffset)) {
            return Fail("data of entry " + qstrName + " runs past the entries");
        }
    }
    return true;
}
