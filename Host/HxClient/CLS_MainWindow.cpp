#include "CLS_MainWindow.h"

#include <QAction>
#include <QCloseEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

#include "BackUpOutcomeText.h"
#include "CLS_CommandParser.h"
#include "CLS_ModuleHost.h"
#include "CLS_ViewBasic.h"
#include "FunctionUtil.h"

CLS_MainWindow::CLS_MainWindow(CLS_ModuleHost& _host, QWidget* _pParent)
    : QMainWindow(_pParent), m_host(_host), m_cancel(_host)
{
    setWindowTitle("HxClient");
    setObjectName("CLS_MainWindow");
    // The skin of the module's views, so that the window around them matches.
    setStyleSheet(FunctionUtil::LoadStyle("HxClient", nullptr, objectName()));
    auto* pCentral = new QWidget(this);
    auto* pLayout = new QVBoxLayout(pCentral);
    m_pForm = m_host.CreateView({});
    if (m_pForm != nullptr) {
        pLayout->addWidget(m_pForm);
        // The form's own Cancel closes it; the window then offers it again.
        m_pForm->installEventFilter(this);
    } else {
        pLayout->addWidget(new QLabel("The backup module has no settings form.", pCentral));
    }
    pLayout->addStretch(1);
    auto* pButtons = new QHBoxLayout;
    m_pSettingsButton = new QPushButton("Backup settings...", pCentral);
    m_pSettingsButton->setObjectName("pushButton_HostSettings");
    m_pSettingsButton->hide();
    m_pBackUpButton = new QPushButton("Back up now", pCentral);
    m_pBackUpButton->setObjectName("pushButton_HostBackUp");
    pButtons->addWidget(m_pSettingsButton);
    pButtons->addStretch(1);
    pButtons->addWidget(m_pBackUpButton);
    pLayout->addLayout(pButtons);
    setCentralWidget(pCentral);
    m_pStatus = new QLabel(this);
    // A long archive path must not widen the window.
    m_pStatus->setMinimumWidth(1);
    m_pStatus->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    m_pStatus->installEventFilter(this);
    statusBar()->addWidget(m_pStatus, 1);
    BuildMenu();

    connect(m_pBackUpButton, &QPushButton::clicked, this, &CLS_MainWindow::SlotBackUpNow);
    connect(m_pSettingsButton, &QPushButton::clicked, this, &CLS_MainWindow::SlotShowSettings);
    connect(&m_host, &CLS_ModuleHost::SignAnswer, this, &CLS_MainWindow::SlotAnswer);
    connect(&m_host, &CLS_ModuleHost::SignViewAnswer, this, &CLS_MainWindow::SlotViewAnswer);
    connect(&m_host, &CLS_ModuleHost::SignProgress, this, &CLS_MainWindow::SlotProgress);
    UpdateActions();
}

CLS_MainWindow::~CLS_MainWindow()
{
    // The dialog and the form are children, deleted by the base class when this is no longer a whole
    // window: nothing of theirs may reach it then.
    if (m_pDialog != nullptr) {
        disconnect(m_pDialog, nullptr, this, nullptr);
    }
    if (m_pForm != nullptr) {
        m_pForm->removeEventFilter(this);
    }
    m_pStatus->removeEventFilter(this);
}

QString CLS_MainWindow::StatusText() const
{
    return m_qstrStatus;
}

void CLS_MainWindow::SetStatus(const QString& _qstrText)
{
    m_qstrStatus = _qstrText;
    m_pStatus->setToolTip(_qstrText);
    ElideStatus();
}

void CLS_MainWindow::ElideStatus()
{
    const int iWidth = m_pStatus->contentsRect().width() - 2 * m_pStatus->margin();
    m_pStatus->setText(m_pStatus->fontMetrics().elidedText(m_qstrStatus, Qt::ElideMiddle, qMax(iWidth, 1)));
}

void CLS_MainWindow::BuildMenu()
{
    QMenu* pMenu = menuBar()->addMenu("&Backup");
    m_pBackUpAction = pMenu->addAction("Back up &now", this, &CLS_MainWindow::SlotBackUpNow);
    m_pSettingsAction = pMenu->addAction("&Settings", this, &CLS_MainWindow::SlotShowSettings);
    pMenu->addSeparator();
    pMenu->addAction("&Quit", this, &CLS_MainWindow::Quit, QKeySequence::Quit);
}

void CLS_MainWindow::UpdateActions()
{
    const bool blIdle = !IsBackUpRunning() && m_qstrSettingsRequest.isEmpty() && !m_blQuitting;
    m_pBackUpButton->setEnabled(blIdle);
    m_pBackUpAction->setEnabled(blIdle);
    const bool blFormHidden = m_pForm != nullptr && !m_pForm->isVisibleTo(this);
    m_pSettingsButton->setVisible(blFormHidden);
    m_pSettingsAction->setEnabled(blFormHidden);
}

bool CLS_MainWindow::eventFilter(QObject* _pWatched, QEvent* _pEvent)
{
    if (_pWatched == m_pForm && (_pEvent->type() == QEvent::Hide || _pEvent->type() == QEvent::Show)) {
        UpdateActions();
    } else if (_pWatched == m_pStatus && _pEvent->type() == QEvent::Resize) {
        ElideStatus();
    }
    return QMainWindow::eventFilter(_pWatched, _pEvent);
}

void CLS_MainWindow::SlotShowSettings()
{
    if (m_pForm == nullptr || m_pForm->isVisibleTo(this)) {
        return;
    }
    // What was typed before the Cancel is dropped: the form asks for the stored settings again.
    QMetaObject::invokeMethod(m_pForm, "SlotInitData");
    m_pForm->show();
}

void CLS_MainWindow::SlotBackUpNow()
{
    if (IsBackUpRunning() || !m_qstrSettingsRequest.isEmpty() || m_blQuitting) {
        return;
    }
    // The saved folder, as the form last stored it.
    m_qstrSettingsRequest = m_host.Send("LoadLastSaveSetting", {});
    UpdateActions();
}

void CLS_MainWindow::SlotAnswer(QString _qstrUuid, QString _qstrKey, QVariantMap _qmapResult)
{
    Q_UNUSED(_qstrKey)
    if (_qstrUuid != m_qstrSettingsRequest) {
        return;
    }
    m_qstrSettingsRequest.clear();
    UpdateActions();
    if (m_blQuitting) {
        return;
    }
    const QString qstrFolder = _qmapResult.value("BackUpFileSavePath").toString();
    if (_qmapResult.value("__result__").toString() != "success" || qstrFolder.isEmpty()) {
        SetStatus("No backup folder is saved in the settings.");
        QMessageBox::warning(this, windowTitle(), m_qstrStatus);
        return;
    }
    OpenProgressDialog(qstrFolder);
}

void CLS_MainWindow::OpenProgressDialog(const QString& _qstrFolder)
{
    // A window of its own that stays above this one and goes with it; not modal, so that this window can
    // still be closed during the run.
    QWidget* pDialog = m_host.CreateView(
        {{"ViewType", "BackUpProcess"}, {"ParentObject", QVariant::fromValue<QWidget*>(this)}});
    // The view's class lives in the module's own copy of the framework: recognised by name, not by cast.
    if (pDialog == nullptr || !pDialog->inherits("CLS_ViewBasic")) {
        delete pDialog;
        SetStatus("The backup module has no progress dialog.");
        QMessageBox::warning(this, windowTitle(), m_qstrStatus);
        return;
    }
    auto* pView = static_cast<CLS_ViewBasic*>(pDialog);
    m_pDialog = pDialog;
    connect(pDialog, &QObject::destroyed, this, &CLS_MainWindow::SlotDialogGone);
    // Shown first: the first show binds the dialog to the presenter, so it gets the run's progress.
    pDialog->show();
    m_cancel.Reset();
    m_pRunView = pView;
    m_qstrRunFolder = _qstrFolder;
    QVariantMap qmapResult;
    pView->TaskRequestHandler("BackUp", {{"BackUpPath", _qstrFolder}}, FunctionUtil::GetNewGUID(),
                              qmapResult);
    SetStatus("Backing up into " + _qstrFolder + " ...");
    UpdateActions();
}

void CLS_MainWindow::SlotProgress(int _iRate, QString _qstrText)
{
    if (!IsBackUpRunning() || m_cancel.IsRequested()) {
        return;
    }
    SetStatus(QString("Backing up into %1: %2% %3").arg(m_qstrRunFolder).arg(_iRate).arg(_qstrText));
}

void CLS_MainWindow::SlotDialogGone(QObject* _pDialog)
{
    // The dialog's own cancel has already asked; closing it any other way asks here. Either way the run is
    // not over until it answers.
    if (_pDialog == m_pRunView) {
        CancelRun();
    }
}

void CLS_MainWindow::CancelRun()
{
    if (!IsBackUpRunning()) {
        return;
    }
    m_cancel.Request();
    SetStatus("Cancelling the backup; waiting for it to clean up...");
}

void CLS_MainWindow::SlotViewAnswer(QString _qstrKey, QVariantMap _qmapResult)
{
    if (_qstrKey != "BackUp" || !IsBackUpRunning() ||
        _qmapResult.value("__object__").value<void*>() != m_pRunView) {
        return;
    }
    RunEnded(_qmapResult);
}

void CLS_MainWindow::RunEnded(const QVariantMap& _qmapResult)
{
    m_pRunView = nullptr;
    const bool blSucceeded = _qmapResult.value("__result__").toString() == "success" &&
                             _qmapResult.value("TaskResult", -1).toInt() == 0;
    int iExitCode = ExitCode::kSuccess;
    if (blSucceeded) {
        // The run may have finished before the cancel reached it: then there is an archive all the same.
        SetStatus("Last archive: " + _qmapResult.value("BackUpPath").toString());
    } else if (m_cancel.IsRequested()) {
        SetStatus("Backup " + BackUpOutcomeText::Cancelled());
        iExitCode = ExitCode::kInterrupted;
    } else {
        SetStatus(BackUpOutcomeText::Failed(_qmapResult));
        iExitCode = ExitCode::kFailure;
    }
    m_cancel.Reset();
    UpdateActions();
    if (m_blQuitting) {
        m_iExitCode = iExitCode;
        close();
    }
}

void CLS_MainWindow::Quit()
{
    if (m_blQuitting) {
        return;
    }
    m_blQuitting = true;
    UpdateActions();
    if (IsBackUpRunning()) {
        CancelRun();
        return;
    }
    close();
}

bool CLS_MainWindow::ConfirmCancel()
{
    return QMessageBox::question(this, windowTitle(),
                                 "A backup is running. Cancel it and quit when it has stopped?",
                                 QMessageBox::Yes | QMessageBox::No, QMessageBox::No) == QMessageBox::Yes;
}

void CLS_MainWindow::closeEvent(QCloseEvent* _pEvent)
{
    if (IsBackUpRunning()) {
        _pEvent->ignore();
        // Closed again while on the way out: the run's end closes the window.
        if (m_blQuitting || !ConfirmCancel()) {
            return;
        }
        // The run may have ended while the question was open.
        if (IsBackUpRunning()) {
            m_blQuitting = true;
            UpdateActions();
            CancelRun();
            return;
        }
    }
    _pEvent->accept();
    if (m_pDialog != nullptr) {
        m_pDialog->close();
    }
    if (!m_blFinished) {
        m_blFinished = true;
        Q_EMIT SignFinished(m_iExitCode);
    }
}
