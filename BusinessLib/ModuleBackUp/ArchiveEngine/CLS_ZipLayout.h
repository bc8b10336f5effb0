#pragma once

#include <QByteArray>
#include <QString>
#include <QVector>

// Where one entry's data lies and what the directory claims of it, checked against the file.
struct STRUCT_ZipEntryPlace
{
    QByteArray qbaRawName;
    bool blUtf8Name = false;
    quint16 iMethod = 0;
    quint32 iCrc = 0;
    qint64 iCompressedSize = 0;
    qint64 iSize = 0;
    qint64 iLocalOffset = 0;
    qint64 iDataOffset = 0;
};

// The end records, the central directory and every local header of an archive, read before libzip is
// allowed near the file: libzip allocates for the entry count the end record claims and takes sizes on
// trust. Read() accepts only what is plausible against the file's real size: an entry count that the
// directory can hold, a directory inside the file, entries inside the file that do not overlap, stored
// entries of one size, deflated entries no larger than deflate can expand to.
class CLS_ZipLayout
{
public:
    bool Read(const QString& _qstrZipPath);

    const QVector<STRUCT_ZipEntryPlace>& Entries() const { return m_vecEntries; }
    // Why Read() refused the archive.
    const QString& ErrorText() const { return m_qstrError; }

private:
    bool Fail(const QString& _qstrReason);

    QVector<STRUCT_ZipEntryPlace> m_vecEntries;
    QString m_qstrError;
};
