#pragma once

#include <memory>

#include <QString>
#include <QVector>
#include <zip.h>

#include "CLS_ZipLayout.h"

struct ZipCloser
{
    void operator()(zip_t* _pArchive) const { zip_discard(_pArchive); }
};
using ZipHandle = std::unique_ptr<zip_t, ZipCloser>;

// An archive opened for reading: its layout checked first, then libzip's own reading of the directory
// with its consistency checks, and the two readings compared entry by entry.
class CLS_ZipReader
{
public:
    bool Open(const QString& _qstrZipPath);

    // The entries in archive order; libzip's index is the position here.
    const QVector<STRUCT_ZipEntryPlace>& Entries() const { return m_layout.Entries(); }
    static QString EntryName(const STRUCT_ZipEntryPlace& _entry);
    const QString& ErrorText() const { return m_qstrError; }
    // Releases libzip's copy of the directory; the entries stay.
    void Close() { m_archive.reset(); }

    // libzip's reading of the archive without the consistency pass, for a reader of entries' data.
    static ZipHandle OpenForData(const QString& _qstrZipPath);

private:
    bool Fail(const QString& _qstrReason);

    CLS_ZipLayout m_layout;
    ZipHandle m_archive;
    QString m_qstrError;
};

// The sum of the entries' sizes, -1 when the archive is refused (_qstrDetail says why).
qint64 ZipUnpackedSize(const QString& _qstrZipPath, QString& _qstrDetail);
