#include "CLS_SignalWatcher.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <QSocketNotifier>

int CLS_SignalWatcher::ms_aiSockets[2] = {-1, -1};

CLS_SignalWatcher::CLS_SignalWatcher(QObject* _pParent) : QObject(_pParent)
{
    if (ms_aiSockets[0] >= 0 || ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ms_aiSockets) != 0) {
        return;
    }
    // A handler must never block, even when the main thread has not read for a while.
    ::fcntl(ms_aiSockets[0], F_SETFL, ::fcntl(ms_aiSockets[0], F_GETFL) | O_NONBLOCK);

    struct sigaction action
    {
    };
    action.sa_handler = &CLS_SignalWatcher::Handler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, &m_oldInt);
    ::sigaction(SIGTERM, &action, &m_oldTerm);

    m_pNotifier = new QSocketNotifier(ms_aiSockets[1], QSocketNotifier::Read, this);
    connect(m_pNotifier, &QSocketNotifier::activated, this, &CLS_SignalWatcher::SlotReadSignals);
}

CLS_SignalWatcher::~CLS_SignalWatcher()
{
    if (m_pNotifier == nullptr) {
        return;
    }
    ::sigaction(SIGINT, &m_oldInt, nullptr);
    ::sigaction(SIGTERM, &m_oldTerm, nullptr);
    delete m_pNotifier;
    ::close(ms_aiSockets[0]);
    ::close(ms_aiSockets[1]);
    ms_aiSockets[0] = -1;
    ms_aiSockets[1] = -1;
}

void CLS_SignalWatcher::Handler(int _iSignal)
{
    const int iSavedErrno = errno;
    const char chSignal = static_cast<char>(_iSignal);
    const ssize_t iIgnored = ::write(ms_aiSockets[0], &chSignal, 1);
    static_cast<void>(iIgnored);
    errno = iSavedErrno;
}

void CLS_SignalWatcher::SlotReadSignals()
{
    char achSignals[16];
    const ssize_t iRead = ::read(ms_aiSockets[1], achSignals, sizeof(achSignals));
    for (ssize_t i = 0; i < iRead; ++i) {
        Q_EMIT SignInterrupted(achSignals[i]);
    }
}
