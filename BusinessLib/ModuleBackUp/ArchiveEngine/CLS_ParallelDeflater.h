#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
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
// ones, within a memory budget that a large file cannot overrun either; the caller takes each file's
// stream in order.
class CLS_ParallelDeflater
{
public:
    // Receives the stream piece by piece, in order; false stops the file.
    using Sink = std::function<bool(const char* _pData, qint64 _iSize)>;

    static constexpr qint64 kChunkBytes = qint64(1) << 20;

    CLS_ParallelDeflater(int _iThreads, int _iLevel, qint64 _iBudgetBytes);
    ~CLS_ParallelDeflater();
    CLS_ParallelDeflater(const CLS_ParallelDeflater&) = delete;
    CLS_ParallelDeflater& operator=(const CLS_ParallelDeflater&) = delete;

    // The file will be asked for by Deflate() later, after the files announced before it.
    void Announce(const QString& _qstrPath);

    // Feeds the whole deflate stream of the file to _sink and gives the CRC-32 and size of what was read.
    // Announced files before this one that are not asked for are dropped. False when the file cannot be
    // read whole (gone, shortened) or the sink refused; _qstrError says which.
    bool Deflate(const QString& _qstrPath, const Sink& _sink, quint32& _iCrc, qint64& _iSize,
                 QString& _qstrError);

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
    std::vector<std::thread> m_vecThreads;
};
