#include "CLS_ZipWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <QFile>
#include <QSaveFile>
#include <QThread>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

#include "CLS_ParallelDeflater.h"
#include "ZipRules.h"

namespace {

// Deflated data waiting to be copied, at most; it keeps memory apart from the size of any file. Four
// chunks per core keep the workers ahead of libzip's copy while a backup stays within 128 MiB.
constexpr qint64 kDeflateBudgetBytes = qint64(8) << 20;
// libzip 1.7 reserves room for zip64 sizes in the local header of a deflated entry only above this size;
// a deflated stream that outgrew 4 GiB below it would not fit the header written before the data.
constexpr qint64 kZip64ReservedAbove = 4293656963LL;
// Up to here our stream stays below 4 GiB whatever the content: deflate adds a few bytes per 16 KiB and
// each chunk a flush marker. Files between the two sizes are stored.
constexpr qint64 kDeflatedFitsUpTo = (qint64(4) << 30) - (qint64(64) << 20);

QString ErrnoText(int _iErrno)
{
    return QString::fromLocal8Bit(strerror(_iErrno));
}

} // namespace

// The source libzip reads one entry from during zip_close(): the file's bytes, or our finished deflate
// stream reported as already deflated so that libzip copies it as it is.
struct CLS_ZipWriter::STRUCT_Entry
{
    CLS_ZipWriter* pWriter = nullptr;
    QByteArray qbaPath; // encoded and squeezed: a face library queues a hundred thousand
    bool blDeflated = false;
    qint64 iSize = 0; // as listed; the file must still have it when read
    time_t iModified = 0;
    zip_error_t error;

    int iFd = -1;
    // libzip reads one entry at a time: they all share the writer's buffer.
    std::vector<char>& vecBuffer;
    size_t iBufferAt = 0;
    qint64 iRead = 0;
    bool blEnded = false;
    bool blFailed = false;
    quint32 iCrc = 0;

    explicit STRUCT_Entry(CLS_ZipWriter* _pWriter) : pWriter(_pWriter), vecBuffer(_pWriter->m_vecBuffer)
    {
        zip_error_init(&error);
    }
    ~STRUCT_Entry()
    {
        CloseFile();
        zip_error_fini(&error);
    }
    STRUCT_Entry(const STRUCT_Entry&) = delete;
    STRUCT_Entry& operator=(const STRUCT_Entry&) = delete;

    static zip_int64_t Callback(void* _pState, void* _pData, zip_uint64_t _iLength, zip_source_cmd_t _command)
    {
        return static_cast<STRUCT_Entry*>(_pState)->Command(_pData, _iLength, _command);
    }

    zip_int64_t Command(void* _pData, zip_uint64_t _iLength, zip_source_cmd_t _command)
    {
        switch (_command) {
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE,
                                                  ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, -1);
        case ZIP_SOURCE_OPEN:
            return Open() ? 0 : -1;
        case ZIP_SOURCE_READ:
            return Read(static_cast<char*>(_pData), _iLength);
        case ZIP_SOURCE_CLOSE:
            CloseFile();
            return 0;
        case ZIP_SOURCE_STAT:
            return Stat(_pData, _iLength);
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&error, _pData, _iLength);
        case ZIP_SOURCE_FREE:
            return 0; // the writer owns the entry
        default:
            zip_error_set(&error, ZIP_ER_OPNOTSUPP, 0);
            return -1;
        }
    }

    bool Open()
    {
        vecBuffer.clear();
        iBufferAt = 0;
        iRead = 0;
        blEnded = false;
        if (CancelRequested()) {
            return false;
        }
        if (blDeflated) {
            pWriter->m_deflater->Begin(QFile::decodeName(qbaPath));
            return true;
        }
        iFd = open(qbaPath.constData(), O_RDONLY | O_CLOEXEC);
        if (iFd < 0) {
            return ReadFailed(errno, ErrnoText(errno));
        }
        posix_fadvise(iFd, 0, 0, POSIX_FADV_SEQUENTIAL);
        return true;
    }

    zip_int64_t Read(char* _pData, zip_uint64_t _iLength)
    {
        // libzip asks again after a failure that came with data already given: the failure stays.
        if (blFailed) {
            return -1;
        }
        while (iBufferAt == vecBuffer.size()) {
            if (blEnded) {
                return 0;
            }
            if (!Refill()) {
                return -1;
            }
        }
        const size_t iCount = std::min<size_t>(static_cast<size_t>(_iLength), vecBuffer.size() - iBufferAt);
        std::memcpy(_pData, vecBuffer.data() + iBufferAt, iCount);
        iBufferAt += iCount;
        return static_cast<zip_int64_t>(iCount);
    }

    // The next block of the file or piece of its stream; at the end, the file counts as added.
    bool Refill()
    {
        vecBuffer.clear();
        iBufferAt = 0;
        if (CancelRequested()) {
            return false;
        }
        return blDeflated ? RefillDeflated() : RefillStored();
    }

    bool RefillStored()
    {
        if (iRead == iSize) {
            // A file that grew since it was listed would be cut short without anyone noticing.
            char cExtra = 0;
            const ssize_t iExtra = read(iFd, &cExtra, 1);
            if (iExtra != 0) {
                return ReadFailed(iExtra < 0 ? errno : 0, "the file changed while being packed");
            }
            return End();
        }
        vecBuffer.resize(static_cast<size_t>(std::min(CLS_ZipWriter::kBlockBytes, iSize - iRead)));
        size_t iDone = 0;
        while (iDone < vecBuffer.size()) {
            const ssize_t iNow = read(iFd, vecBuffer.data() + iDone, vecBuffer.size() - iDone);
            if (iNow < 0 && errno == EINTR) {
                continue;
            }
            if (iNow < 0) {
                return ReadFailed(errno, ErrnoText(errno));
            }
            if (iNow == 0) {
                return ReadFailed(0, "the file changed while being packed");
            }
            iDone += static_cast<size_t>(iNow);
        }
        iRead += static_cast<qint64>(iDone);
        return true;
    }

    bool RefillDeflated()
    {
        QString qstrError;
        qint64 iStreamed = 0;
        // A piece is never empty, but an empty one must not read as the end of the entry.
        while (vecBuffer.empty()) {
            switch (pWriter->m_deflater->Pull(vecBuffer, iCrc, iStreamed, qstrError)) {
            case CLS_ParallelDeflater::PULL_PIECE:
                break;
            case CLS_ParallelDeflater::PULL_END:
                if (iStreamed != iSize) {
                    return ReadFailed(0, "the file changed while being packed");
                }
                return End();
            case CLS_ParallelDeflater::PULL_FAILED:
                return ReadFailed(0, qstrError);
            }
        }
        return true;
    }

    bool End()
    {
        blEnded = true;
        vecBuffer.clear();
        if (pWriter->m_blRemoveAfterReading) {
            unlink(qbaPath.constData());
        }
        if (pWriter->m_fileAdded && !pWriter->m_fileAdded()) {
            return Cancel();
        }
        return true;
    }

    zip_int64_t Stat(void* _pData, zip_uint64_t _iLength)
    {
        zip_stat_t* pStat = ZIP_SOURCE_GET_ARGS(zip_stat_t, _pData, _iLength, &error);
        if (pStat == nullptr) {
            return -1;
        }
        // The size is known before the data, so that libzip writes the local header with zip64 room
        // exactly when the entry needs it.
        zip_stat_init(pStat);
        pStat->valid = ZIP_STAT_SIZE | ZIP_STAT_MTIME | ZIP_STAT_COMP_METHOD;
        pStat->size = static_cast<zip_uint64_t>(iSize);
        pStat->mtime = iModified;
        pStat->comp_method = blDeflated ? ZIP_CM_DEFLATE : ZIP_CM_STORE;
        // libzip computes the CRC of stored data itself; ours comes with the end of the stream.
        if (blDeflated && blEnded) {
            pStat->valid |= ZIP_STAT_CRC;
            pStat->crc = iCrc;
        }
        return sizeof(zip_stat_t);
    }

    // True, and the entry failed, when the writing is to stop.
    bool CancelRequested()
    {
        if (pWriter->m_cancelRequested && pWriter->m_cancelRequested()) {
            Cancel();
            return true;
        }
        return false;
    }

    bool Cancel()
    {
        pWriter->m_blCancelled = true;
        zip_error_set(&error, ZIP_ER_CANCELLED, 0);
        blFailed = true;
        return false;
    }

    bool ReadFailed(int _iErrno, const QString& _qstrWhy)
    {
        pWriter->Fail("reading " + QFile::decodeName(qbaPath) + " failed: " + _qstrWhy, 0);
        zip_error_set(&error, ZIP_ER_READ, _iErrno);
        blFailed = true;
        return false;
    }

    void CloseFile()
    {
        if (iFd >= 0) {
            close(iFd);
            iFd = -1;
        }
    }
};

// The file libzip writes the archive into: a temporary file beside the archive, renamed over it once
// whole, as libzip's own file source does, but written in large blocks. libzip hands over 8 KiB at a
// time, and a system call for each made packing twice as slow.
struct CLS_ZipWriter::STRUCT_Output
{
    static constexpr size_t kFlushBytes = size_t(1) << 20;
    static constexpr qint64 kWriteBackBytes = qint64(32) << 20;

    QByteArray qbaPath;
    QByteArray qbaTemp;
    int iFd = -1;
    std::vector<char> vecBuffer; // what follows the descriptor's position
    qint64 iFilePos = 0;
    qint64 iWrittenBackTo = 0; // where the last write-back started ended
    zip_error_t error;

    explicit STRUCT_Output(const QString& _qstrPath) : qbaPath(QFile::encodeName(_qstrPath))
    {
        zip_error_init(&error);
    }
    ~STRUCT_Output()
    {
        Rollback();
        zip_error_fini(&error);
    }
    STRUCT_Output(const STRUCT_Output&) = delete;
    STRUCT_Output& operator=(const STRUCT_Output&) = delete;

    static zip_int64_t Callback(void* _pState, void* _pData, zip_uint64_t _iLength, zip_source_cmd_t _command)
    {
        return static_cast<STRUCT_Output*>(_pState)->Command(_pData, _iLength, _command);
    }

    zip_int64_t Command(void* _pData, zip_uint64_t _iLength, zip_source_cmd_t _command)
    {
        switch (_command) {
        case ZIP_SOURCE_SUPPORTS:
            return zip_source_make_command_bitmap(
                ZIP_SOURCE_OPEN, ZIP_SOURCE_READ, ZIP_SOURCE_CLOSE, ZIP_SOURCE_SEEK, ZIP_SOURCE_TELL,
                ZIP_SOURCE_STAT, ZIP_SOURCE_ERROR, ZIP_SOURCE_FREE, ZIP_SOURCE_SUPPORTS,
                ZIP_SOURCE_BEGIN_WRITE, ZIP_SOURCE_COMMIT_WRITE, ZIP_SOURCE_ROLLBACK_WRITE, ZIP_SOURCE_WRITE,
                ZIP_SOURCE_SEEK_WRITE, ZIP_SOURCE_TELL_WRITE, ZIP_SOURCE_REMOVE, -1);
        case ZIP_SOURCE_STAT:
            // Always a new archive: libzip never reads what is there.
            return Error(ZIP_ER_READ, ENOENT);
        case ZIP_SOURCE_BEGIN_WRITE:
            Rollback();
            qbaTemp = qbaPath + ".XXXXXX";
            iFd = mkostemp(qbaTemp.data(), O_CLOEXEC);
            if (iFd < 0) {
                qbaTemp.clear();
                return Error(ZIP_ER_TMPOPEN, errno);
            }
            iFilePos = 0;
            iWrittenBackTo = 0;
            vecBuffer.clear();
            vecBuffer.reserve(kFlushBytes);
            return 0;
        case ZIP_SOURCE_WRITE: {
            const char* pData = static_cast<const char*>(_pData);
            vecBuffer.insert(vecBuffer.end(), pData, pData + _iLength);
            if (vecBuffer.size() >= kFlushBytes && !Flush()) {
                return -1;
            }
            return static_cast<zip_int64_t>(_iLength);
        }
        case ZIP_SOURCE_TELL_WRITE:
            return iFilePos + static_cast<zip_int64_t>(vecBuffer.size());
        case ZIP_SOURCE_SEEK_WRITE: {
            const zip_source_args_seek_t* pSeek =
                ZIP_SOURCE_GET_ARGS(zip_source_args_seek_t, _pData, _iLength, &error);
            if (pSeek == nullptr || !Flush()) {
                return -1;
            }
            const off_t iAt = lseek(iFd, static_cast<off_t>(pSeek->offset), pSeek->whence);
            if (iAt < 0) {
                return Error(ZIP_ER_SEEK, errno);
            }
            iFilePos = iAt;
            return 0;
        }
        case ZIP_SOURCE_COMMIT_WRITE:
            return Commit() ? 0 : -1;
        case ZIP_SOURCE_ROLLBACK_WRITE:
            Rollback();
            return 0;
        case ZIP_SOURCE_REMOVE:
            if (unlink(qbaPath.constData()) != 0 && errno != ENOENT) {
                return Error(ZIP_ER_REMOVE, errno);
            }
            return 0;
        case ZIP_SOURCE_ERROR:
            return zip_error_to_data(&error, _pData, _iLength);
        case ZIP_SOURCE_FREE:
            return 0; // the writer owns the output
        default:
            return Error(ZIP_ER_OPNOTSUPP, 0);
        }
    }

    zip_int64_t Error(int _iZipError, int _iErrno)
    {
        zip_error_set(&error, _iZipError, _iErrno);
        return -1;
    }

    bool Flush()
    {
        size_t iDone = 0;
        while (iDone < vecBuffer.size()) {
            const ssize_t iNow = write(iFd, vecBuffer.data() + iDone, vecBuffer.size() - iDone);
            if (iNow < 0 && errno == EINTR) {
                continue;
            }
            if (iNow <= 0) {
                Error(ZIP_ER_WRITE, iNow < 0 ? errno : ENOSPC);
                return false;
            }
            iDone += static_cast<size_t>(iNow);
        }
        iFilePos += static_cast<qint64>(iDone);
        vecBuffer.clear();
        StartWriteBack();
        return true;
    }

    // The archive is flushed to disk before it is published; starting that while packing goes on leaves the
    // final fsync little to wait for.
    void StartWriteBack()
    {
#ifdef __linux__
        if (iFilePos - iWrittenBackTo >= kWriteBackBytes) {
            sync_file_range(iFd, iWrittenBackTo, iFilePos - iWrittenBackTo, SYNC_FILE_RANGE_WRITE);
            iWrittenBackTo = iFilePos;
        }
#endif
    }

    bool Commit()
    {
        if (!Flush()) {
            return false;
        }
        // mkstemp makes the file private; an archive gets the mode any new file gets.
        const mode_t iMask = umask(022);
        umask(iMask);
        fchmod(iFd, 0666 & ~iMask);
        const int iClosed = close(iFd);
        iFd = -1;
        if (iClosed != 0) {
            Error(ZIP_ER_CLOSE, errno);
            return false;
        }
        if (rename(qbaTemp.constData(), qbaPath.constData()) != 0) {
            Error(ZIP_ER_RENAME, errno);
            return false;
        }
        qbaTemp.clear();
        return true;
    }

    void Rollback()
    {
        if (iFd >= 0) {
            close(iFd);
            iFd = -1;
        }
        if (!qbaTemp.isEmpty()) {
            unlink(qbaTemp.constData());
            qbaTemp.clear();
        }
        vecBuffer.clear();
    }
};

CLS_ZipWriter::CLS_ZipWriter(const QString& _qstrZipPath, int _iLevel)
    : m_qstrZipPath(_qstrZipPath), m_iLevel(_iLevel), m_output(std::make_unique<STRUCT_Output>(_qstrZipPath))
{
    zip_error_t error;
    zip_error_init(&error);
    zip_source_t* pOutput = zip_source_function_create(&STRUCT_Output::Callback, m_output.get(), &error);
    if (pOutput != nullptr) {
        m_pArchive = zip_open_from_source(pOutput, ZIP_CREATE | ZIP_TRUNCATE, &error);
        if (m_pArchive == nullptr) {
            zip_source_free(pOutput);
        }
    }
    if (m_pArchive == nullptr) {
        Fail(QString::fromLocal8Bit(zip_error_strerror(&error)),
             zip_error_system_type(&error) == ZIP_ET_SYS ? zip_error_code_system(&error) : 0);
    }
    zip_error_fini(&error);
}

CLS_ZipWriter::~CLS_ZipWriter()
{
    Discard();
}

bool CLS_ZipWriter::AddFile(const QString& _qstrEntryName, const QString& _qstrFilePath)
{
    if (m_pArchive == nullptr) {
        return false;
    }
    const int iFd = open(QFile::encodeName(_qstrFilePath).constData(), O_RDONLY | O_CLOEXEC);
    if (iFd < 0) {
        return false;
    }
    struct stat st;
    const bool blRegular = fstat(iFd, &st) == 0 && S_ISREG(st.st_mode);
    close(iFd);
    if (!blRegular) {
        return false;
    }
    auto entry = std::make_unique<STRUCT_Entry>(this);
    entry->qbaPath = QFile::encodeName(_qstrFilePath);
    entry->qbaPath.squeeze();
    entry->iSize = st.st_size;
    entry->iModified = st.st_mtime;
    entry->blDeflated = entry->iSize > 0 && !ZipRules::IsStoredName(_qstrEntryName) &&
                        (entry->iSize <= kDeflatedFitsUpTo || entry->iSize > kZip64ReservedAbove);

    zip_source_t* pSource = zip_source_function(m_pArchive, &STRUCT_Entry::Callback, entry.get());
    if (pSource == nullptr) {
        return false;
    }
    const zip_int64_t iIndex =
        zip_file_add(m_pArchive, _qstrEntryName.toUtf8().constData(), pSource, ZIP_FL_ENC_UTF_8);
    if (iIndex < 0) {
        zip_source_free(pSource);
        return false;
    }
    const zip_uint64_t iAt = static_cast<zip_uint64_t>(iIndex);
    // Left at its default, libzip would deflate stored data itself.
    if (!entry->blDeflated) {
        zip_set_file_compression(m_pArchive, iAt, ZIP_CM_STORE, 0);
    }
    zip_file_set_mtime(m_pArchive, iAt, st.st_mtime, 0);
    zip_file_set_external_attributes(m_pArchive, iAt, 0, ZIP_OPSYS_UNIX,
                                     static_cast<zip_uint32_t>(st.st_mode) << 16);
    if (entry->blDeflated) {
        if (!m_deflater) {
            m_deflater = std::make_unique<CLS_ParallelDeflater>(std::max(2, QThread::idealThreadCount()),
                                                                m_iLevel, kDeflateBudgetBytes);
        }
        // Announced as Begin() will name it, decoded from the same bytes.
        m_deflater->Announce(QFile::decodeName(entry->qbaPath));
    }
    m_vecEntries.push_back(std::move(entry));
    return true;
}

QStringList CLS_ZipWriter::QueuedFiles() const
{
    QStringList lstFiles;
    lstFiles.reserve(static_cast<int>(m_vecEntries.size()));
    for (const std::unique_ptr<STRUCT_Entry>& entry : m_vecEntries) {
        lstFiles << QFile::decodeName(entry->qbaPath);
    }
    return lstFiles;
}

CLS_ZipWriter::n_Result CLS_ZipWriter::Write(const FileAdded& _fileAdded,
                                             const CancelRequested& _cancelRequested)
{
    if (m_pArchive == nullptr) {
        if (m_qstrError.isEmpty()) {
            Fail("the archive was already written", 0);
        }
        return WRITE_FAILED;
    }
    m_fileAdded = _fileAdded;
    m_cancelRequested = _cancelRequested;
    // libzip writes no file at all for an archive without entries.
    if (m_vecEntries.empty()) {
        Discard();
        return WriteEmptyArchive() ? WRITE_DONE : WRITE_FAILED;
    }
    if (zip_close(m_pArchive) == 0) {
        m_pArchive = nullptr;
        Discard();
        return WRITE_DONE;
    }
    if (!m_blCancelled) {
        zip_error_t* pError = zip_get_error(m_pArchive);
        Fail(QString::fromLocal8Bit(zip_error_strerror(pError)),
             zip_error_system_type(pError) == ZIP_ET_SYS ? zip_error_code_system(pError) : 0);
    }
    Discard();
    // The temporary file is gone with the rollback; an older archive of the name goes too.
    struct stat st;
    const QByteArray qbaPath = QFile::encodeName(m_qstrZipPath);
    if (lstat(qbaPath.constData(), &st) == 0 && S_ISREG(st.st_mode)) {
        unlink(qbaPath.constData());
    }
    return m_blCancelled ? WRITE_CANCELLED : WRITE_FAILED;
}

bool CLS_ZipWriter::WriteEmptyArchive()
{
    // The end-of-directory record alone: signature, then zero counts, sizes and offsets.
    static const char s_szEnd[22] = {'P', 'K', 5, 6};
    QSaveFile file(m_qstrZipPath);
    if (file.open(QIODevice::WriteOnly) && file.write(s_szEnd, sizeof(s_szEnd)) == qint64(sizeof(s_szEnd)) &&
        file.commit()) {
        return true;
    }
    Fail(file.errorString(), file.error() == QFileDevice::ResourceError ? ENOSPC : 0);
    return false;
}

void CLS_ZipWriter::Fail(const QString& _qstrWhy, int _iErrno)
{
    if (m_qstrError.isEmpty()) {
        m_qstrError = _qstrWhy;
        m_blOutOfSpace = _iErrno == ENOSPC || _iErrno == EDQUOT;
    }
}

void CLS_ZipWriter::Discard()
{
    if (m_pArchive != nullptr) {
        zip_discard(m_pArchive);
        m_pArchive = nullptr;
    }
    m_deflater.reset();
}
