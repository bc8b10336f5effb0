#pragma once

#include <functional>

#include <QString>
#include <QVector>

// Unpacks an archive below a folder that exists, on several threads. Every entry's data is checked, also
// where it cannot be written; a name that leads out of the folder, or a target that cannot be written, is
// passed over. Anything wrong with the archive stops all threads, removes the file being written and
// makes Unpack() false.
class CLS_ZipUnpacker
{
public:
    enum n_Result
    {
        UNPACKED,
        ARCHIVE_REFUSED, // its directory cannot be trusted: nothing written
        ENTRY_FAILED     // an entry's data is damaged, or could not be written
    };

    struct STRUCT_Note
    {
        QString qstrEntry;
        QString qstrDetail;
    };

    // Whole percent of the bytes unpacked, on the calling thread, once per change; false stops the unpacking.
    using Progress = std::function<bool(int _iPercent)>;

    explicit CLS_ZipUnpacker(int _iThreads = DefaultThreads());

    // Stopped through the progress, it fails with the detail EntryExtract::kStopped.
    n_Result Unpack(const QString& _qstrZipPath, const QString& _qstrRoot, const Progress& _progress = Progress());

    // Why the archive or which entry failed.
    const STRUCT_Note& Failure() const { return m_failure; }
    // Entries passed over with a reason, in archive order.
    const QVector<STRUCT_Note>& PassedOver() const { return m_vecPassedOver; }

    static int DefaultThreads();

private:
    const int m_iThreads;
    STRUCT_Note m_failure;
    QVector<STRUCT_Note> m_vecPassedOver;
};
