#pragma once

#include <QtGlobal>

class QIODevice;

// Walks a raw deflate stream of _iCompressedSize bytes from the device's current position and counts the
// bytes it would inflate to, without producing them. False when the stream is malformed, ends early or
// would grow past _iLimit. Qt's zip reader sizes its buffer from the archive's directory and doubles it
// while the data does not fit, which overruns memory once the real data passes 1 GiB; an entry must
// therefore inflate to exactly its recorded size before the reader sees it.
bool InflatedLength(QIODevice& _device, qint64 _iCompressedSize, qint64 _iLimit, qint64& _iLength);
