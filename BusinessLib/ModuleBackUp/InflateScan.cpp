#include "InflateScan.h"

#include <cstdint>

#include <QByteArray>
#include <QIODevice>

namespace {

constexpr int kMaxBits = 15;
constexpr int kFastBits = 9;
constexpr int kMaxLengthCodes = 286;
constexpr int kMaxDistanceCodes = 30;
constexpr int kFixedLengthCodes = 288;

// The compressed bytes, least significant bit first, read from the device in chunks.
class CLS_BitSource
{
public:
    CLS_BitSource(QIODevice& _device, qint64 _iSize) : m_device(_device), m_iRemaining(_iSize) {}

    // Buffers up to _iCount bits; fewer only at the end of the stream.
    bool Fill(int _iCount)
    {
        while (m_iBitCount < _iCount) {
            if (m_iPos == m_qbaChunk.size() && !NextChunk()) {
                return false;
            }
            m_iBits |= static_cast<uint64_t>(static_cast<uint8_t>(m_qbaChunk[m_iPos++])) << m_iBitCount;
            m_iBitCount += 8;
        }
        return true;
    }

    bool Take(int _iCount, int& _iValue)
    {
        if (!Fill(_iCount)) {
            return false;
        }
        _iValue = static_cast<int>(m_iBits & ((uint64_t(1) << _iCount) - 1));
        Drop(_iCount);
        return true;
    }

    void Drop(int _iCount)
    {
        m_iBits >>= _iCount;
        m_iBitCount -= _iCount;
    }

    void AlignToByte() { Drop(m_iBitCount % 8); }

    bool SkipBytes(qint64 _iCount)
    {
        while (_iCount > 0 && m_iBitCount >= 8) {
            Drop(8);
            --_iCount;
        }
        while (_iCount > 0) {
            if (m_iPos == m_qbaChunk.size() && !NextChunk()) {
                return false;
            }
            const qint64 iStep = qMin<qint64>(_iCount, m_qbaChunk.size() - m_iPos);
            m_iPos += static_cast<int>(iStep);
            _iCount -= iStep;
        }
        return true;
    }

    uint64_t Bits() const { return m_iBits; }
    int BitCount() const { return m_iBitCount; }

private:
    bool NextChunk()
    {
        if (m_iRemaining <= 0) {
            return false;
        }
        m_qbaChunk = m_device.read(qMin<qint64>(m_iRemaining, 64 * 1024));
        m_iPos = 0;
        if (m_qbaChunk.isEmpty()) {
            m_iRemaining = 0;
            return false;
        }
        m_iRemaining -= m_qbaChunk.size();
        return true;
    }

    QIODevice& m_device;
    qint64 m_iRemaining;
    QByteArray m_qbaChunk;
    int m_iPos = 0;
    uint64_t m_iBits = 0;
    int m_iBitCount = 0;
};

// A canonical Huffman code: counts per length and symbols in code order, plus a table for short codes.
struct STRUCT_Huffman
{
    short arrCount[kMaxBits + 1] = {};
    short arrSymbol[kFixedLengthCodes] = {};
    // (symbol << 4) | length for every code of at most kFastBits bits, indexed by the next bits; 0 = longer.
    uint16_t arrFast[1 << kFastBits] = {};
};

// Builds the code from its lengths; the result is the number of unused codes, negative when over-full.
int Build(STRUCT_Huffman& _code, const short* _pLengths, int _iCount)
{
    _code = STRUCT_Huffman();
    for (int iSymbol = 0; iSymbol < _iCount; ++iSymbol) {
        ++_code.arrCount[_pLengths[iSymbol]];
    }
    if (_code.arrCount[0] == _iCount) {
        return 0;
    }
    int iLeft = 1;
    for (int iLen = 1; iLen <= kMaxBits; ++iLen) {
        iLeft <<= 1;
        iLeft -= _code.arrCount[iLen];
        if (iLeft < 0) {
            return iLeft;
        }
    }
    short arrOffset[kMaxBits + 2] = {};
    int arrNextCode[kMaxBits + 2] = {};
    int iCode = 0;
    for (int iLen = 1; iLen <= kMaxBits; ++iLen) {
        arrOffset[iLen + 1] = static_cast<short>(arrOffset[iLen] + _code.arrCount[iLen]);
        iCode = (iCode + (iLen > 1 ? _code.arrCount[iLen - 1] : 0)) << 1;
        arrNextCode[iLen] = iCode;
    }
    for (int iSymbol = 0; iSymbol < _iCount; ++iSymbol) {
        const int iLen = _pLengths[iSymbol];
        if (iLen == 0) {
            continue;
        }
        _code.arrSymbol[arrOffset[iLen]++] = static_cast<short>(iSymbol);
        const int iCanonical = arrNextCode[iLen]++;
        if (iLen > kFastBits) {
            continue;
        }
        // Codes go into the stream from their top bit, the stream is read from the low bit.
        int iReversed = 0;
        for (int iBit = 0; iBit < iLen; ++iBit) {
            iReversed |= ((iCanonical >> iBit) & 1) << (iLen - 1 - iBit);
        }
        for (int iIndex = iReversed; iIndex < (1 << kFastBits); iIndex += 1 << iLen) {
            _code.arrFast[iIndex] = static_cast<uint16_t>((iSymbol << 4) | iLen);
        }
    }
    return iLeft;
}

// The next symbol, or -1 when the bits match no code or run out.
int Decode(CLS_BitSource& _source, const STRUCT_Huffman& _code)
{
    _source.Fill(kMaxBits);
    const int iAvailable = _source.BitCount();
    const uint64_t iBits = _source.Bits();
    const uint16_t iFast = _code.arrFast[iBits & ((1U << kFastBits) - 1)];
    if (iFast != 0 && (iFast & 15) <= iAvailable) {
        _source.Drop(iFast & 15);
        return iFast >> 4;
    }
    int iCode = 0;
    int iFirst = 0;
    int iIndex = 0;
    for (int iLen = 1; iLen <= kMaxBits && iLen <= iAvailable; ++iLen) {
        iCode |= static_cast<int>((iBits >> (iLen - 1)) & 1);
        const int iCount = _code.arrCount[iLen];
        if (iCode - iCount < iFirst) {
            _source.Drop(iLen);
            return _code.arrSymbol[iIndex + (iCode - iFirst)];
        }
        iIndex += iCount;
        iFirst = (iFirst + iCount) << 1;
        iCode <<= 1;
    }
    return -1;
}

class CLS_LengthScan
{
public:
    CLS_LengthScan(CLS_BitSource& _source, qint64 _iLimit) : m_source(_source), m_iLimit(_iLimit) {}

    bool Run(qint64& _iLength)
    {
        int iLast = 0;
        do {
            int iType = 0;
            if (!m_source.Take(1, iLast) || !m_source.Take(2, iType)) {
                return false;
            }
            bool blOk = false;
            switch (iType) {
            case 0:
                blOk = Stored();
                break;
            case 1:
                blOk = Fixed();
                break;
            case 2:
                blOk = Dynamic();
                break;
            default:
                break;
            }
            if (!blOk) {
                return false;
            }
        } while (iLast == 0);
        _iLength = m_iTotal;
        return true;
    }

private:
    bool Add(qint64 _iCount)
    {
        m_iTotal += _iCount;
        return m_iTotal <= m_iLimit;
    }

    bool Stored()
    {
        m_source.AlignToByte();
        int iLen = 0;
        int iInverse = 0;
        if (!m_source.Take(16, iLen) || !m_source.Take(16, iInverse) || iLen != (~iInverse & 0xFFFF)) {
            return false;
        }
        return Add(iLen) && m_source.SkipBytes(iLen);
    }

    bool Fixed()
    {
        struct STRUCT_FixedCodes
        {
            STRUCT_FixedCodes()
            {
                short arrLengths[kFixedLengthCodes];
                int iSymbol = 0;
                for (; iSymbol < 144; ++iSymbol) {
                    arrLengths[iSymbol] = 8;
                }
                for (; iSymbol < 256; ++iSymbol) {
                    arrLengths[iSymbol] = 9;
                }
                for (; iSymbol < 280; ++iSymbol) {
                    arrLengths[iSymbol] = 7;
                }
                for (; iSymbol < kFixedLengthCodes; ++iSymbol) {
                    arrLengths[iSymbol] = 8;
                }
                Build(lengths, arrLengths, kFixedLengthCodes);
                for (iSymbol = 0; iSymbol < kMaxDistanceCodes; ++iSymbol) {
                    arrLengths[iSymbol] = 5;
                }
                Build(distances, arrLengths, kMaxDistanceCodes);
            }
            STRUCT_Huffman lengths;
            STRUCT_Huffman distances;
        };
        static const STRUCT_FixedCodes s_fixed;
        return Codes(s_fixed.lengths, s_fixed.distances);
    }

    bool Dynamic()
    {
        static const short s_arrOrder[19] = {16, 17, 18, 0, 8,  7, 9,  6, 10, 5,
                                             11, 4,  12, 3, 13, 2, 14, 1, 15};
        int iLengthCount = 0;
        int iDistanceCount = 0;
        int iCodeCount = 0;
        if (!m_source.Take(5, iLengthCount) || !m_source.Take(5, iDistanceCount) ||
            !m_source.Take(4, iCodeCount)) {
            return false;
        }
        iLengthCount += 257;
        iDistanceCount += 1;
        iCodeCount += 4;
        if (iLengthCount > kMaxLengthCodes || iDistanceCount > kMaxDistanceCodes) {
            return false;
        }
        short arrLengths[kMaxLengthCodes + kMaxDistanceCodes] = {};
        for (int i = 0; i < iCodeCount; ++i) {
            int iValue = 0;
            if (!m_source.Take(3, iValue)) {
                return false;
            }
            arrLengths[s_arrOrder[i]] = static_cast<short>(iValue);
        }
        STRUCT_Huffman lengthCode;
        if (Build(lengthCode, arrLengths, 19) != 0) {
            return false;
        }
        for (short& iLength : arrLengths) {
            iLength = 0;
        }
        int iIndex = 0;
        while (iIndex < iLengthCount + iDistanceCount) {
            const int iSymbol = Decode(m_source, lengthCode);
            if (iSymbol < 0) {
                return false;
            }
            if (iSymbol < 16) {
                arrLengths[iIndex++] = static_cast<short>(iSymbol);
                continue;
            }
            short iRepeated = 0;
            int iRepeat = 0;
            bool blOk = false;
            if (iSymbol == 16) {
                if (iIndex == 0) {
                    return false;
                }
                iRepeated = arrLengths[iIndex - 1];
                blOk = m_source.Take(2, iRepeat);
                iRepeat += 3;
            } else if (iSymbol == 17) {
                blOk = m_source.Take(3, iRepeat);
                iRepeat += 3;
            } else {
                blOk = m_source.Take(7, iRepeat);
                iRepeat += 11;
            }
            if (!blOk || iIndex + iRepeat > iLengthCount + iDistanceCount) {
                return false;
            }
            while (iRepeat-- > 0) {
                arrLengths[iIndex++] = iRepeated;
            }
        }
        if (arrLengths[256] == 0) {
            return false;
        }
        // An incomplete code is valid only as a single code of one bit.
        STRUCT_Huffman lengths;
        int iLeft = Build(lengths, arrLengths, iLengthCount);
        if (iLeft < 0 || (iLeft > 0 && iLengthCount != lengths.arrCount[0] + lengths.arrCount[1])) {
            return false;
        }
        STRUCT_Huffman distances;
        iLeft = Build(distances, arrLengths + iLengthCount, iDistanceCount);
        if (iLeft < 0 || (iLeft > 0 && iDistanceCount != distances.arrCount[0] + distances.arrCount[1])) {
            return false;
        }
        return Codes(lengths, distances);
    }

    bool Codes(const STRUCT_Huffman& _lengths, const STRUCT_Huffman& _distances)
    {
        static const short s_arrLengthBase[29] = {3,  4,  5,  6,   7,   8,   9,   10,  11, 13,
                                                  15, 17, 19, 23,  27,  31,  35,  43,  51, 59,
                                                  67, 83, 99, 115, 131, 163, 195, 227, 258};
        static const short s_arrLengthExtra[29] = {0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 2, 2, 2,
                                                   2, 3, 3, 3, 3, 4, 4, 4, 4, 5, 5, 5, 5, 0};
        static const short s_arrDistanceBase[30] = {
            1,   2,   3,   4,   5,   7,    9,    13,   17,   25,   33,   49,   65,    97,    129,
            193, 257, 385, 513, 769, 1025, 1537, 2049, 3073, 4097, 6145, 8193, 12289, 16385, 24577};
        static const short s_arrDistanceExtra[30] = {0, 0, 0, 0, 1, 1, 2, 2,  3,  3,  4,  4,  5,  5,  6,
                                                     6, 7, 7, 8, 8, 9, 9, 10, 10, 11, 11, 12, 12, 13, 13};
        for (;;) {
            int iSymbol = Decode(m_source, _lengths);
            if (iSymbol < 0) {
                return false;
            }
            if (iSymbol < 256) {
                if (!Add(1)) {
                    return false;
                }
                continue;
            }
            if (iSymbol == 256) {
                return true;
            }
            iSymbol -= 257;
            if (iSymbol >= 29) {
                return false;
            }
            int iExtra = 0;
            if (!m_source.Take(s_arrLengthExtra[iSymbol], iExtra)) {
                return false;
            }
            const int iLength = s_arrLengthBase[iSymbol] + iExtra;
            const int iDistanceSymbol = Decode(m_source, _distances);
            if (iDistanceSymbol < 0 || iDistanceSymbol >= kMaxDistanceCodes ||
                !m_source.Take(s_arrDistanceExtra[iDistanceSymbol], iExtra)) {
                return false;
            }
            // A raw stream has no preset window: a match may only reach back into its own output.
            if (s_arrDistanceBase[iDistanceSymbol] + iExtra > m_iTotal || !Add(iLength)) {
                return false;
            }
        }
    }

    CLS_BitSource& m_source;
    qint64 m_iLimit;
    qint64 m_iTotal = 0;
};

} // namespace

bool InflatedLength(QIODevice& _device, qint64 _iCompressedSize, qint64 _iLimit, qint64& _iLength)
{
    CLS_BitSource source(_device, _iCompressedSize);
    return CLS_LengthScan(source, _iLimit).Run(_iLength);
}
