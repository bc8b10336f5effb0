#include "CLS_RunLock.h"

#include <QDir>
#include <QFileInfo>

#include "Util.h"

CLS_RunLock::CLS_RunLock() : m_lock(Path())
{
    // A run may take hours: only a dead owner makes the lock stale, never its age.
    m_lock.setStaleLockTime(0);
}

bool CLS_RunLock::TryLock()
{
    QDir().mkpath(QFileInfo(Path()).absolutePath());
    return m_lock.tryLock(0) || m_lock.error() != QLockFile::LockFailedError;
}

QString CLS_RunLock::Path()
{
    return QString::fromStdString(Util::GetDataPath()) + "/HxBackUp.lock";
}
