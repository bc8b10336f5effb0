#pragma once

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <QString>
#include <QtGlobal>

struct z_stream_s;

// Deflates whole files into raw deflate streams on worker threads, in independent chunks that share a
// 32 KiB dictionary with their predecessor, so one large file keeps every core busy and compresses almost
// as well as in one piece. Files announced ahead are deflated while the caller is still busy with earlier
// ones, within a memory budget that a large file cannot overrun either; the caller pulls each file's
// stream in order, piece by piece.
class CLS_ParallelDeflater
{
public:
    enum n_Pull
    {
        PULL_PIECE, // the next piece of the stream
        PULL_END,   // the stream is whole; CRC-32 and size are given
        PULL_FAILED // the file could not be read whole; the error says why
    };

    static constexpr qint64 kChunkBytes = qint64(1) << 20;

    CLS_ParallelDeflater(int _iThreads, int _iLevel, qint64 _iBudgetBytes);
    ~CLS_ParallelDeflater();
    CLS_ParallelDeflater(const CLS_ParallelDeflater&) = delete;
    CLS_ParallelDeflater& operator=(const CLS_ParallelDeflater&) = delete;

    // The file will be begun later, after the files announced before it.
    void Announce(const QString& _qstrPath);

    // Makes the file the one Pull() takes from, from the start of its stream. Announced files before it
    // that were not begun are dropped, as is the rest of the file begun before.
    void Begin(const QString& _qstrPath);
    // The next piece of the begun file's stream, swapped into _vecPiece. At PULL_END _iCrc and _iSize hold
    // the CRC-32 and size of what was read; at PULL_FAILED the file is dropped and _qstrError says why.
    n_Pull Pull(std::vector<char>& _vecPiece, quint32& _iCrc, qint64& _iSize, QString& _qstrError);

    // The most that deflated output and input in flight ever held at once.
    qint64 PeakHeldBytes() const;

private:
    struct STRUCT_Chunk;
    struct STRUCT_File;

    void WorkerLoop();
    bool TakeWork(std::shared_ptr<STRUCT_File>& _file, int& _iChunk);
    static bool OpenFile(STRUCT_File& _file);
    static bool RunChunk(z_stream_s& _stream, STRUCT_File& _file, int _iChunk, std::vector<char>& _vecInput,
                         std::vector<char>& _vecOutput, quint32& _iCrc);
    void Drop(const std::shared_ptr<STRUCT_File>& _file);
    void DropCurrent();

    const int m_iLevel;
    const int m_iThreads;
    const qint64 m_iBudgetBytes;
    mutable std::mutex m_mutex;
    std::condition_variable m_cvWork; // workers wait here for chunks and budget
    std::condition_variable m_cvDone; // the caller waits here for finished chunks
    std::deque<std::shared_ptr<STRUCT_File>> m_deqFiles;
    qint64 m_iHeldBytes = 0; // output waiting for the caller plus input being deflated
    qint64 m_iPeakHeldBytes = 0;
    bool m_blStop = false;
    // The begun file, taken piece by piece by the caller's thread alone.
    std::shared_ptr<STRUCT_File> m_current;
    quint32 m_iCurrentCrc = 0;
    qint64 m_iCurrentSize = 0;
    std::vector<std::thread> m_vecThreads;
};
