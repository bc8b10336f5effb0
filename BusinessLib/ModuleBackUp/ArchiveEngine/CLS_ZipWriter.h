#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <QString>
#include <QStringList>
#include <QtGlobal>

struct zip;
class CLS_ParallelDeflater;

// Writes a zip archive with libzip, zip64 records only where an entry or the archive needs them. Files are
// read when the archive is written, in the order they were added: pictures, video and archives stored,
// the rest deflated ahead on every core by CLS_ParallelDeflater, whose finished stream libzip only copies.
// Each entry keeps its file's modification time and Unix permissions. Nothing is at the archive's path
// unless the whole archive was written.
class CLS_ZipWriter
{
public:
    enum n_Result
    {
        WRITE_DONE,
        WRITE_CANCELLED,
        WRITE_FAILED // see ErrorText()
    };

    // Level 1 deflates several times faster than zlib's default and the archive grows by only a few
    // percent, since the bulk of a backup (pictures, video) is stored anyway.
    static constexpr int kDefaultLevel = 1;
    // Reading and cancel polling step of a stored file.
    static constexpr qint64 kBlockBytes = qint64(1) << 20;

    // Called once a file is in the archive, in order; false cancels the writing.
    using FileAdded = std::function<bool()>;
    // Asked between files and every block within a file; true cancels the writing.
    using CancelRequested = std::function<bool()>;

    explicit CLS_ZipWriter(const QString& _qstrZipPath, int _iLevel = kDefaultLevel);
    ~CLS_ZipWriter();
    CLS_ZipWriter(const CLS_ZipWriter&) = delete;
    CLS_ZipWriter& operator=(const CLS_ZipWriter&) = delete;

    bool IsOpen() const { return m_pArchive != nullptr; }

    // Each file is removed as soon as it is read whole: a staging copy packed this way is mostly gone before
    // the kernel writes it out, which saves writing it and then freeing it on disk.
    void SetRemoveAfterReading(bool _blRemove) { m_blRemoveAfterReading = _blRemove; }
    // The files queued so far, in order. Not kept beside the entries: a face library has a hundred thousand.
    QStringList QueuedFiles() const;

    // Queues the file under the entry name (UTF-8). False, and nothing queued, when the file cannot be
    // opened for reading or the name is taken.
    bool AddFile(const QString& _qstrEntryName, const QString& _qstrFilePath);

    // Reads the queued files into the archive and commits it; the writer is spent afterwards.
    n_Result Write(const FileAdded& _fileAdded = FileAdded(),
                   const CancelRequested& _cancelRequested = CancelRequested());

    const QString& ErrorText() const { return m_qstrError; }
    // Whether the failure was a full volume or an exhausted quota.
    bool RanOutOfSpace() const { return m_blOutOfSpace; }

private:
    struct STRUCT_Entry;
    friend struct STRUCT_Entry;
    struct STRUCT_Output;

    void Fail(const QString& _qstrWhy, int _iErrno);
    bool WriteEmptyArchive();
    void Discard();

    const QString m_qstrZipPath;
    const int m_iLevel;
    std::unique_ptr<STRUCT_Output> m_output;
    zip* m_pArchive = nullptr;
    std::vector<std::unique_ptr<STRUCT_Entry>> m_vecEntries;
    std::unique_ptr<CLS_ParallelDeflater> m_deflater;
    std::vector<char> m_vecBuffer;
    FileAdded m_fileAdded;
    CancelRequested m_cancelRequested;
    bool m_blRemoveAfterReading = false;
    bool m_blCancelled = false;
    bool m_blOutOfSpace = false;
    QString m_qstrError;
};
