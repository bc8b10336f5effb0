#pragma once

#include <QObject>

class CLS_ModuleHost;

// The cancel of a running backup, as every front end of this program asks for it: "CanCelBackUp", sent
// again on progress that still comes. The run clears its cancel flag when it starts, so a cancel that
// reached it too early is lost; once the flag holds no progress passes any more, and a few repeats suffice.
class CLS_BackUpCancel : public QObject
{
    Q_OBJECT

public:
    explicit CLS_BackUpCancel(CLS_ModuleHost& _host, QObject* _pParent = nullptr);

    // Sends the cancel; later calls do nothing until Reset.
    void Request();
    bool IsRequested() const { return m_blRequested; }
    // For the next run.
    void Reset();

private Q_SLOTS:
    void SlotProgress();

private:
    static constexpr int kMaxResends = 5;

    CLS_ModuleHost& m_host;
    bool m_blRequested = false;
    int m_iResends = 0;
};
