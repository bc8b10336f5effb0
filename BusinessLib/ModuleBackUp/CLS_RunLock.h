#pragma once

#include <QLockFile>
#include <QString>

// One backup or restore at a time per data folder, across processes: a lock file in the data folder,
// held while the object lives. A lock left by a process that died is taken over.
class CLS_RunLock
{
public:
    CLS_RunLock();

    // False when another run, in this process or another, holds the lock. A lock that cannot be made at
    // all (a read-only data folder) does not stop the run: it fails on its own writes.
    bool TryLock();

    static QString Path();

private:
    QLockFile m_lock;
};
