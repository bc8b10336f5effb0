#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

class QFile;

// One entry of an archive's central directory, as stored.
struct STRUCT_ZipEntry
{
    QByteArray qbaRawName;
    // The name decoded the way QZipReader decodes it, before the reader trims it.
    QString qstrName;
    // The text that QZipReader::fileData compares with the stored name.
    QString qstrLookupName;
    quint16 iMethod = 0;
    quint32 iCrc = 0;
    qint64 iCompressedSize = 0;
    qint64 iSize = 0;
    qint64 iDataOffset = 0;
};

// The central directory of a zip archive, read apart from QZipReader, which checks neither names, sizes
// nor offsets and hangs or crashes on some of them. Read() accepts an archive only when every entry can be
// handed to the reader safely: it finds the same directory the reader finds, and refuses what it cannot
// take (spanned or zip64 archives, encryption, methods other than stored and deflate, entries of
// ZipRules::kMaxEntryBytes or more, data outside the archive).
class CLS_ZipDirectory
{
public:
    bool Read(const QString& _qstrZipPath);

    const QVector<STRUCT_ZipEntry>& Entries() const { return m_vecEntries; }
    qint64 ArchiveSize() const { return m_iArchiveSize; }
    // Why Read() refused the archive.
    const QString& ErrorText() const { return m_qstrError; }

private:
    bool Fail(const QString& _qstrReason);
    bool FindEnd(QFile& _file, qint64& _iEndOffset);
    bool ReadEntry(QFile& _file, qint64 _iDirectoryEnd, STRUCT_ZipEntry& _entry);
    bool CheckEntry(QFile& _file, qint64 _iLocalOffset, STRUCT_ZipEntry& _entry);

    QVector<STRUCT_ZipEntry> m_vecEntries;
    qint64 m_iArchiveSize = 0;
    qint64 m_iDirectoryOffset = 0;
    QString m_qstrError;
};
