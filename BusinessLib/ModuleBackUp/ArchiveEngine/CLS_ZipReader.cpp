#include "CLS_ZipReader.h"

#include <QFile>

namespace {

QString LibzipError(int _iCode)
{
    zip_error_t error;
    zip_error_init_with_code(&error, _iCode);
    const QString qstrText = QString::fromUtf8(zip_error_strerror(&error));
    zip_error_fini(&error);
    return qstrText;
}

} // namespace

bool CLS_ZipReader::Fail(const QString& _qstrReason)
{
    m_qstrError = _qstrReason;
    m_archive.reset();
    return false;
}

QString CLS_ZipReader::EntryName(const STRUCT_ZipEntryPlace& _entry)
{
    return _entry.blUtf8Name ? QString::fromUtf8(_entry.qbaRawName)
                             : QString::fromLocal8Bit(_entry.qbaRawName);
}

bool CLS_ZipReader::Open(const QString& _qstrZipPath)
{
    m_qstrError.clear();
    if (!m_layout.Read(_qstrZipPath)) {
        return Fail(m_layout.ErrorText());
    }
    int iError = 0;
    m_archive.reset(
        zip_open(QFile::encodeName(_qstrZipPath).constData(), ZIP_RDONLY | ZIP_CHECKCONS, &iError));
    if (!m_archive) {
        return Fail(LibzipError(iError));
    }
    const QVector<STRUCT_ZipEntryPlace>& vecEntries = m_layout.Entries();
    if (zip_get_num_entries(m_archive.get(), 0) != vecEntries.size()) {
        return Fail("libzip reads another number of entries");
    }
    for (int i = 0; i < vecEntries.size(); ++i) {
        const STRUCT_ZipEntryPlace& entry = vecEntries[i];
        zip_stat_t stat;
        zip_stat_init(&stat);
        if (zip_stat_index(m_archive.get(), zip_uint64_t(i), ZIP_FL_ENC_RAW, &stat) != 0 ||
            stat.size != zip_uint64_t(entry.iSize) || stat.comp_size != zip_uint64_t(entry.iCompressedSize) ||
            stat.crc != entry.iCrc || stat.comp_method != entry.iMethod ||
            QByteArray(stat.name) != entry.qbaRawName) {
            return Fail("libzip reads entry " + EntryName(entry) + " otherwise");
        }
    }
    return true;
}

ZipHandle CLS_ZipReader::OpenForData(const QString& _qstrZipPath)
{
    int iError = 0;
    return ZipHandle(zip_open(QFile::encodeName(_qstrZipPath).constData(), ZIP_RDONLY, &iError));
}

qint64 ZipUnpackedSize(const QString& _qstrZipPath, QString& _qstrDetail)
{
    CLS_ZipLayout layout;
    if (!layout.Read(_qstrZipPath)) {
        _qstrDetail = layout.ErrorText();
        return -1;
    }
    // Each size is checked against its data, and the data of entries cannot overlap: the sum stays far
    // below the range of qint64.
    qint64 iTotal = 0;
    for (const STRUCT_ZipEntryPlace& entry : layout.Entries()) {
        iTotal += entry.iSize;
    }
    return iTotal;
}
