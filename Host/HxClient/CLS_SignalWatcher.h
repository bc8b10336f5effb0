#pragma once

#include <csignal>

#include <QObject>

class QSocketNotifier;

// Turns Ctrl-C (SIGINT) and SIGTERM into a Qt signal of the main thread, for as long as the object lives;
// the previous handlers come back when it is destroyed. One watcher at a time.
class CLS_SignalWatcher : public QObject
{
    Q_OBJECT

public:
    explicit CLS_SignalWatcher(QObject* _pParent = nullptr);
    ~CLS_SignalWatcher() override;

    CLS_SignalWatcher(const CLS_SignalWatcher&) = delete;
    CLS_SignalWatcher& operator=(const CLS_SignalWatcher&) = delete;

    bool IsValid() const { return m_pNotifier != nullptr; }

Q_SIGNALS:
    void SignInterrupted(int _iSignal);

private Q_SLOTS:
    void SlotReadSignals();

private:
    static void Handler(int _iSignal);

    static int ms_aiSockets[2];
    QSocketNotifier* m_pNotifier = nullptr;
    struct sigaction m_oldInt
    {
    };
    struct sigaction m_oldTerm
    {
    };
};
