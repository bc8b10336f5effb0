#pragma once

#include <memory>
#include <vector>

#include <QByteArray>
#include <QString>
#include <QtGlobal>

class CLS_ParallelDeflater;

// Writes a zip archive laid out the way QZipWriter lays out its archives (the same header fields, UTF-8
// names, owner read/write permissions, the time of adding), so Qt's reader and every unzip read it. Unlike
// QZipWriter it streams each file from disk instead of holding it whole, deflates at a level of its
// choosing on every core, and reports write errors.
class CLS_ZipStreamWriter
{
public:
    enum n_AddResult
    {
        ADD_DONE,
        ADD_READ_FAILED, // the file could not be read whole; the archive is as before the call
        ADD_WRITE_FAILED // the archive could not be written; see ErrorText()
    };

    // Level 1 deflates several times faster than zlib's default and the archive grows by only a few
    // percent, since the bulk of a backup (pictures, video) is stored anyway.
    static constexpr int kDefaultLevel = 1;

    explicit CLS_ZipStreamWriter(const QString& _qstrZipPath, int _iLevel = kDefaultLevel);
    ~CLS_ZipStreamWriter();
    CLS_ZipStreamWriter(const CLS_ZipStreamWriter&) = delete;
    CLS_ZipStreamWriter& operator=(const CLS_ZipStreamWriter&) = delete;

    bool IsOpen() const { return m_iFd >= 0; }

    // The file will be added deflated later, in announcement order: its deflating may start now.
    void AnnounceDeflated(const QString& _qstrFilePath);

    // Adds the whole file under the entry name, stored or deflated. _qstrError says what failed.
    n_AddResult AddFile(const QString& _qstrEntryName, const QString& _qstrFilePath, bool _blDeflate,
                        QString& _qstrError);

    // Writes the central directory and closes the file; false when any part of the archive failed.
    bool Close();
    const QString& ErrorText() const { return m_qstrError; }

private:
    bool AddStored(const QString& _qstrFilePath, quint32& _iCrc, qint64& _iSize, QString& _qstrError);
    bool AddDeflated(const QString& _qstrFilePath, quint32& _iCrc, qint64& _iSize, QString& _qstrError);
    bool Write(const char* _pData, qint64 _iSize);
    bool Flush();
    bool PatchAt(qint64 _iOffset, const QByteArray& _qbaBytes);
    bool Rewind(qint64 _iOffset);
    bool Fail(const QString& _qstrWhy);
    qint64 Offset() const { return m_iFlushed + static_cast<qint64>(m_vecBuffer.size()); }
    CLS_ParallelDeflater& Deflater();

    const int m_iLevel;
    int m_iFd = -1;
    bool m_blFailed = false;
    QString m_qstrError;
    qint64 m_iFlushed = 0; // bytes already in the file; the buffer holds what follows
    std::vector<char> m_vecBuffer;
    std::vector<char> m_vecReadBuffer;
    QByteArray m_qbaDirectory;
    qint64 m_iEntries = 0;
    std::unique_ptr<CLS_ParallelDeflater> m_deflater;
};
