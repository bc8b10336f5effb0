#pragma once

#include <QByteArray>
#include <QtGlobal>

// The CRC-32 of zip archives (polynomial 0xEDB88320), which Qt's zip reader never checks itself.
quint32 Crc32(const QByteArray& _qbaData);
