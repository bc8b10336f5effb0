#include "Crc32.h"

#include <array>

namespace {

std::array<quint32, 256> MakeTable()
{
    std::array<quint32, 256> arrTable{};
    for (quint32 i = 0; i < 256; ++i) {
        quint32 iValue = i;
        for (int iBit = 0; iBit < 8; ++iBit) {
            iValue = (iValue & 1U) != 0 ? (iValue >> 1) ^ 0xEDB88320U : iValue >> 1;
        }
        arrTable[i] = iValue;
    }
    return arrTable;
}

} // namespace

quint32 Crc32(const QByteArray& _qbaData)
{
    static const std::array<quint32, 256> s_arrTable = MakeTable();
    quint32 iCrc = 0xFFFFFFFFU;
    const auto* pData = reinterpret_cast<const uchar*>(_qbaData.constData());
    const qint64 iSize = _qbaData.size();
    for (qint64 i = 0; i < iSize; ++i) {
        iCrc = s_arrTable[(iCrc ^ pData[i]) & 0xFFU] ^ (iCrc >> 8);
    }
    return iCrc ^ 0xFFFFFFFFU;
}
