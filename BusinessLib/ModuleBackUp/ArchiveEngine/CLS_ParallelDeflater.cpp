#include "CLS_ParallelDeflater.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <QFile>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

namespace {

// What a chunk needs of its predecessor for back-references; the most deflate can use.
constexpr qint64 kDictionaryBytes = 32 * 1024;
// Thousands of small files stay within the budget; this keeps the workers' scan for work short.
constexpr size_t kMaxFilesAhead = 256;

bool ReadFully(int _iFd, char* _pData, qint64 _iSize, qint64 _iOffset)
{
    while (_iSize > 0) {
        const ssize_t iRead = pread(_iFd, _pData, static_cast<size_t>(_iSize), static_cast<off_t>(_iOffset));
        if (iRead < 0 && errno == EINTR) {
            continue;
        }
        if (iRead <= 0) {
            return false;
        }
        _pData += iRead;
        _iSize -= iRead;
        _iOffset += iRead;
    }
    return true;
}

} // namespace

struct CLS_ParallelDeflater::STRUCT_Chunk
{
    enum n_State
    {
        PENDING,
        RUNNING,
        DONE,
        FAILED
    };
    n_State state = PENDING;
    qint64 iOffset = 0;
    qint64 iLength = 0;
    qint64 iHeld = 0; // what this chunk counts against the budget now
    quint32 iCrc = 0;
    std::vector<char> vecOutput;
};

struct CLS_ParallelDeflater::STRUCT_File
{
    QString qstrPath;
    QString qstrError;
    bool blOpened = false;
    bool blOpenFailed = false;
    bool blDropped = false;
    int iFd = -1;
    std::vector<STRUCT_Chunk> vecChunks;
    int iNextChunk = 0; // the next one to hand to a worker
    int iConsumed = 0;  // chunks the caller has taken
    int iRunning = 0;   // chunks being deflated; the descriptor stays open meanwhile

    void CloseWhenIdle()
    {
        const bool blNoMoreReads = blDropped || iNextChunk == static_cast<int>(vecChunks.size());
        if (iFd >= 0 && iRunning == 0 && blNoMoreReads) {
            close(iFd);
            iFd = -1;
        }
    }
};

CLS_ParallelDeflater::CLS_ParallelDeflater(int _iThreads, int _iLevel, qint64 _iBudgetBytes)
    : m_iLevel(_iLevel), m_iThreads(std::max(1, _iThreads)), m_iBudgetBytes(_iBudgetBytes)
{
    m_vecThreads.reserve(static_cast<size_t>(m_iThreads));
    for (int i = 0; i < m_iThreads; ++i) {
        m_vecThreads.emplace_back([this] { WorkerLoop(); });
    }
}

CLS_ParallelDeflater::~CLS_ParallelDeflater()
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_blStop = true;
        for (const std::shared_ptr<STRUCT_File>& file : m_deqFiles) {
            Drop(file);
        }
        m_deqFiles.clear();
        m_current.reset();
    }
    m_cvWork.notify_all();
    for (std::thread& thread : m_vecThreads) {
        thread.join();
    }
}

void CLS_ParallelDeflater::Announce(const QString& _qstrPath)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        auto file = std::make_shared<STRUCT_File>();
        file->qstrPath = _qstrPath;
        m_deqFiles.push_back(std::move(file));
    }
    m_cvWork.notify_one();
}

void CLS_ParallelDeflater::Begin(const QString& _qstrPath)
{
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        DropCurrent();
        while (!m_deqFiles.empty() && m_deqFiles.front()->qstrPath != _qstrPath) {
            Drop(m_deqFiles.front());
            m_deqFiles.pop_front();
        }
        if (m_deqFiles.empty()) {
            auto file = std::make_shared<STRUCT_File>();
            file->qstrPath = _qstrPath;
            m_deqFiles.push_back(std::move(file));
        }
        m_current = m_deqFiles.front();
        m_iCurrentCrc = static_cast<quint32>(crc32(0L, Z_NULL, 0));
        m_iCurrentSize = 0;
    }
    m_cvWork.notify_all();
}

CLS_ParallelDeflater::n_Pull CLS_ParallelDeflater::Pull(std::vector<char>& _vecPiece, quint32& _iCrc,
                                                        qint64& _iSize, QString& _qstrError)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_current) {
        _qstrError = "no file was begun";
        return PULL_FAILED;
    }
    const std::shared_ptr<STRUCT_File> file = m_current;
    auto fail = [&](const QString& _qstrWhy) {
        _qstrError = _qstrWhy;
        DropCurrent();
        lock.unlock();
        m_cvWork.notify_all();
        return PULL_FAILED;
    };

    m_cvDone.wait(lock, [&] { return file->blOpened || file->blOpenFailed; });
    if (file->blOpenFailed) {
        return fail(file->qstrError);
    }
    const size_t iChunk = static_cast<size_t>(file->iConsumed);
    if (iChunk == file->vecChunks.size()) {
        _iCrc = m_iCurrentCrc;
        _iSize = m_iCurrentSize;
        m_deqFiles.pop_front();
        file->CloseWhenIdle();
        m_current.reset();
        return PULL_END;
    }
    STRUCT_Chunk& chunk = file->vecChunks[iChunk];
    m_cvDone.wait(lock,
                  [&] { return chunk.state == STRUCT_Chunk::DONE || chunk.state == STRUCT_Chunk::FAILED; });
    if (chunk.state == STRUCT_Chunk::FAILED) {
        return fail(file->qstrError);
    }
    _vecPiece.swap(chunk.vecOutput);
    std::vector<char>().swap(chunk.vecOutput);
    file->iConsumed = static_cast<int>(iChunk) + 1;
    m_iHeldBytes -= chunk.iHeld;
    chunk.iHeld = 0;
    m_iCurrentCrc =
        static_cast<quint32>(crc32_combine(m_iCurrentCrc, chunk.iCrc, static_cast<z_off_t>(chunk.iLength)));
    m_iCurrentSize += chunk.iLength;
    lock.unlock();
    m_cvWork.notify_all();
    return PULL_PIECE;
}

qint64 CLS_ParallelDeflater::PeakHeldBytes() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_iPeakHeldBytes;
}

void CLS_ParallelDeflater::WorkerLoop()
{
    z_stream stream;
    std::memset(&stream, 0, sizeof(stream));
    const bool blReady =
        deflateInit2(&stream, m_iLevel, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY) == Z_OK;
    std::vector<char> vecInput;
    std::vector<char> vecOutput;

    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
        std::shared_ptr<STRUCT_File> file;
        int iChunk = -1;
        m_cvWork.wait(lock, [&] { return m_blStop || TakeWork(file, iChunk); });
        if (m_blStop) {
            break;
        }
        lock.unlock();
        quint32 iCrc = 0;
        bool blOk = false;
        if (blReady) {
            blOk = RunChunk(stream, *file, iChunk, vecInput, vecOutput, iCrc);
        }
        lock.lock();

        STRUCT_Chunk& chunk = file->vecChunks[static_cast<size_t>(iChunk)];
        --file->iRunning;
        m_iHeldBytes -= chunk.iHeld;
        chunk.iHeld = 0;
        if (!file->blDropped) {
            if (blOk) {
                chunk.vecOutput = vecOutput; // a copy of exact size: the budget counts what is really held
                chunk.iHeld = static_cast<qint64>(chunk.vecOutput.size());
                m_iHeldBytes += chunk.iHeld;
                m_iPeakHeldBytes = std::max(m_iPeakHeldBytes, m_iHeldBytes);
                chunk.iCrc = iCrc;
                chunk.state = STRUCT_Chunk::DONE;
            } else {
                chunk.state = STRUCT_Chunk::FAILED;
                file->qstrError = blReady
                                      ? QString("the file changed or could not be read while being packed")
                                      : QString("deflate could not be set up");
            }
        }
        file->CloseWhenIdle();
        m_cvDone.notify_all();
        m_cvWork.notify_all();
    }
    lock.unlock();
    deflateEnd(&stream);
}

bool CLS_ParallelDeflater::TakeWork(std::shared_ptr<STRUCT_File>& _file, int& _iChunk)
{
    for (size_t i = 0; i < m_deqFiles.size() && i < kMaxFilesAhead; ++i) {
        const std::shared_ptr<STRUCT_File>& file = m_deqFiles[i];
        if (!file->blOpened && !file->blOpenFailed) {
            // Files further on wait for the budget; the one the caller is taking never does.
            if (i > 0 && m_iHeldBytes >= m_iBudgetBytes) {
                return false;
            }
            if (!OpenFile(*file)) {
                m_cvDone.notify_all();
                continue;
            }
        }
        if (file->blOpenFailed || file->iNextChunk == static_cast<int>(file->vecChunks.size())) {
            continue;
        }
        // Over budget, only the chunks the caller needs next still start, one per worker.
        const bool blNeededNext = i == 0 && file->iNextChunk < file->iConsumed + m_iThreads;
        if (m_iHeldBytes >= m_iBudgetBytes && !blNeededNext) {
            return false;
        }
        _file = file;
        _iChunk = file->iNextChunk++;
        STRUCT_Chunk& chunk = file->vecChunks[static_cast<size_t>(_iChunk)];
        chunk.state = STRUCT_Chunk::RUNNING;
        chunk.iHeld = chunk.iLength;
        m_iHeldBytes += chunk.iHeld;
        m_iPeakHeldBytes = std::max(m_iPeakHeldBytes, m_iHeldBytes);
        ++file->iRunning;
        return true;
    }
    return false;
}

bool CLS_ParallelDeflater::OpenFile(STRUCT_File& _file)
{
    const QByteArray qbaPath = QFile::encodeName(_file.qstrPath);
    _file.iFd = open(qbaPath.constData(), O_RDONLY | O_CLOEXEC);
    struct stat st;
    if (_file.iFd < 0 || fstat(_file.iFd, &st) != 0 || !S_ISREG(st.st_mode)) {
        _file.qstrError =
            QString("the file could not be opened: %1").arg(QString::fromLocal8Bit(strerror(errno)));
        if (_file.iFd >= 0) {
            close(_file.iFd);
            _file.iFd = -1;
        }
        _file.blOpenFailed = true;
        return false;
    }
    // An empty file still has a stream: one final empty block.
    const qint64 iSize = st.st_size;
    const qint64 iChunks = std::max<qint64>(1, (iSize + kChunkBytes - 1) / kChunkBytes);
    _file.vecChunks.resize(static_cast<size_t>(iChunks));
    for (qint64 i = 0; i < iChunks; ++i) {
        STRUCT_Chunk& chunk = _file.vecChunks[static_cast<size_t>(i)];
        chunk.iOffset = i * kChunkBytes;
        chunk.iLength = std::min(kChunkBytes, iSize - chunk.iOffset);
    }
    _file.blOpened = true;
    return true;
}

bool CLS_ParallelDeflater::RunChunk(z_stream_s& _stream, STRUCT_File& _file, int _iChunk,
                                    std::vector<char>& _vecInput, std::vector<char>& _vecOutput,
                                    quint32& _iCrc)
{
    // Only this worker touches the chunk's position while it runs; the fields were fixed at open.
    const STRUCT_Chunk& chunk = _file.vecChunks[static_cast<size_t>(_iChunk)];
    const bool blLast = _iChunk + 1 == static_cast<int>(_file.vecChunks.size());
    const qint64 iDictionary = std::min(kDictionaryBytes, chunk.iOffset);
    _vecInput.resize(static_cast<size_t>(iDictionary + chunk.iLength));
    if (!ReadFully(_file.iFd, _vecInput.data(), iDictionary + chunk.iLength, chunk.iOffset - iDictionary)) {
        return false;
    }
    // A file that grew since it was opened would be cut short without anyone noticing.
    if (blLast) {
        char cExtra = 0;
        if (pread(_file.iFd, &cExtra, 1, static_cast<off_t>(chunk.iOffset + chunk.iLength)) != 0) {
            return false;
        }
    }
    auto* pInput = reinterpret_cast<Bytef*>(_vecInput.data());
    _iCrc = static_cast<quint32>(
        crc32(crc32(0L, Z_NULL, 0), pInput + iDictionary, static_cast<uInt>(chunk.iLength)));

    if (deflateReset(&_stream) != Z_OK) {
        return false;
    }
    if (iDictionary > 0 && deflateSetDictionary(&_stream, pInput, static_cast<uInt>(iDictionary)) != Z_OK) {
        return false;
    }
    // Every chunk but the last ends on a byte boundary without a final block, so the pieces join up.
    const int iFlush = blLast ? Z_FINISH : Z_SYNC_FLUSH;
    _vecOutput.resize(deflateBound(&_stream, static_cast<uLong>(chunk.iLength)) + 64);
    _stream.next_in = pInput + iDictionary;
    _stream.avail_in = static_cast<uInt>(chunk.iLength);
    size_t iProduced = 0;
    for (;;) {
        _stream.next_out = reinterpret_cast<Bytef*>(_vecOutput.data() + iProduced);
        _stream.avail_out = static_cast<uInt>(_vecOutput.size() - iProduced);
        const int iResult = deflate(&_stream, iFlush);
        iProduced = _vecOutput.size() - _stream.avail_out;
        if (iResult == Z_STREAM_ERROR) {
            return false;
        }
        const bool blFinished =
            blLast ? iResult == Z_STREAM_END : _stream.avail_in == 0 && _stream.avail_out > 0;
        if (blFinished) {
            break;
        }
        if (_stream.avail_out == 0) {
            _vecOutput.resize(_vecOutput.size() * 2);
        }
    }
    _vecOutput.resize(iProduced);
    return true;
}

void CLS_ParallelDeflater::Drop(const std::shared_ptr<STRUCT_File>& _file)
{
    _file->blDropped = true;
    for (STRUCT_Chunk& chunk : _file->vecChunks) {
        if (chunk.state != STRUCT_Chunk::RUNNING) {
            m_iHeldBytes -= chunk.iHeld;
            chunk.iHeld = 0;
            std::vector<char>().swap(chunk.vecOutput);
        }
    }
    _file->CloseWhenIdle();
}

void CLS_ParallelDeflater::DropCurrent()
{
    if (m_current) {
        Drop(m_current);
        m_deqFiles.pop_front();
        m_current.reset();
    }
}
