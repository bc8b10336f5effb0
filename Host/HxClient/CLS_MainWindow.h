#pragma once

#include <QMainWindow>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include "CLS_BackUpCancel.h"

class CLS_ModuleHost;
class QAction;
class QCloseEvent;
class QLabel;
class QPushButton;

// The host's window: the module's settings form, and "Back up now", which runs a backup into the saved
// folder in the module's progress dialog. Every way out during a run (closing, Quit, a signal) cancels the
// run and waits until it has cleaned up; SignFinished then carries the exit status.
class CLS_MainWindow : public QMainWindow
{
    Q_OBJECT

public:
    explicit CLS_MainWindow(CLS_ModuleHost& _host, QWidget* _pParent = nullptr);
    ~CLS_MainWindow() override;

    bool IsBackUpRunning() const { return m_pRunView != nullptr; }
    QString StatusText() const;

public Q_SLOTS:
    // Leaves without asking; a running backup is cancelled first.
    void Quit();

Q_SIGNALS:
    // The window has closed for good: 0, or the status of the way out of a run (cancelled or failed).
    void SignFinished(int _iExitCode);

protected:
    void closeEvent(QCloseEvent* _pEvent) override;
    bool eventFilter(QObject* _pWatched, QEvent* _pEvent) override;
    // Whether closing may cancel the running backup.
    virtual bool ConfirmCancel();

private Q_SLOTS:
    void SlotBackUpNow();
    void SlotShowSettings();
    void SlotAnswer(QString _qstrUuid, QString _qstrKey, QVariantMap _qmapResult);
    void SlotViewAnswer(QString _qstrKey, QVariantMap _qmapResult);
    void SlotProgress(int _iRate, QString _qstrText);
    void SlotDialogGone(QObject* _pDialog);

private:
    void BuildMenu();
    void OpenProgressDialog(const QString& _qstrFolder);
    void CancelRun();
    void RunEnded(const QVariantMap& _qmapResult);
    void UpdateActions();
    // The whole text stays readable in the tool tip and in StatusText; the bar shows what fits.
    void SetStatus(const QString& _qstrText);
    void ElideStatus();

    CLS_ModuleHost& m_host;
    CLS_BackUpCancel m_cancel;
    QWidget* m_pForm = nullptr;
    QPushButton* m_pBackUpButton = nullptr;
    QPushButton* m_pSettingsButton = nullptr;
    QAction* m_pBackUpAction = nullptr;
    QAction* m_pSettingsAction = nullptr;
    QLabel* m_pStatus = nullptr;
    QString m_qstrStatus;
    QString m_qstrSettingsRequest;
    QPointer<QWidget> m_pDialog;
    // The view that sent the running backup: its answer carries it as "__object__". Null when idle.
    const void* m_pRunView = nullptr;
    QString m_qstrRunFolder;
    bool m_blQuitting = false;
    bool m_blFinished = false;
    int m_iExitCode = 0;
};
