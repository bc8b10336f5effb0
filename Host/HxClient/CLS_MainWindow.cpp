#include "CLS_MainWindow.h"

#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QStatusBar>
#include <QVBoxLayout>

#include "CLS_ModuleHost.h"
#include "CLS_ViewBasic.h"
#include "FunctionUtil.h"

CLS_MainWindow::CLS_MainWindow(CLS_ModuleHost& _host, QWidget* _pParent)
    : QMainWindow(_pParent), m_host(_host)
{
    setWindowTitle("HxClient");
    auto* pCentral = new QWidget(this);
    auto* pLayout = new QVBoxLayout(pCentral);
    if (QWidget* pForm = m_host.CreateView({})) {
        pLayout->addWidget(pForm);
    } else {
        pLayout->addWidget(new QLabel("The backup module has no settings form.", pCentral));
    }
    m_pBackUpButton = new QPushButton("Back up now", pCentral);
    pLayout->addWidget(m_pBackUpButton, 0, Qt::AlignRight);
    setCentralWidget(pCentral);
    m_pStatus = new QLabel(this);
    statusBar()->addWidget(m_pStatus, 1);

    connect(m_pBackUpButton, &QPushButton::clicked, this, &CLS_MainWindow::SlotBackUpNow);
    connect(&m_host, &CLS_ModuleHost::SignAnswer, this, &CLS_MainWindow::SlotAnswer);
}

void CLS_MainWindow::SlotBackUpNow()
{
    // The saved folder, as the form last stored it.
    m_pBackUpButton->setEnabled(false);
    m_qstrSettingsRequest = m_host.Send("LoadLastSaveSetting", {});
}

void CLS_MainWindow::SlotAnswer(QString _qstrUuid, QString _qstrKey, QVariantMap _qmapResult)
{
    Q_UNUSED(_qstrKey)
    if (_qstrUuid != m_qstrSettingsRequest) {
        return;
    }
    m_qstrSettingsRequest.clear();
    m_pBackUpButton->setEnabled(true);
    const QString qstrFolder = _qmapResult.value("BackUpFileSavePath").toString();
    if (_qmapResult.value("__result__").toString() != "success" || qstrFolder.isEmpty()) {
        QMessageBox::warning(this, windowTitle(), "No backup folder is saved in the settings.");
        return;
    }
    OpenProgressDialog(qstrFolder);
}

void CLS_MainWindow::OpenProgressDialog(const QString& _qstrFolder)
{
    QWidget* pDialog = m_host.CreateView({{"ViewType", "BackUpProcess"}});
    // The view's class lives in the module's own copy of the framework: recognised by name, not by cast.
    if (pDialog == nullptr || !pDialog->inherits("CLS_ViewBasic")) {
        delete pDialog;
        QMessageBox::warning(this, windowTitle(), "The backup module has no progress dialog.");
        return;
    }
    auto* pView = static_cast<CLS_ViewBasic*>(pDialog);
    connect(pDialog, SIGNAL(SignRequestTaskRsulted(QString, QVariantMap, QString)), this,
            SLOT(SlotBackUpClosed(QString, QVariantMap, QString)));
    pDialog->setWindowModality(Qt::ApplicationModal);
    // Shown first: the first show binds the dialog to the presenter, so it gets the run's progress.
    pDialog->show();
    QVariantMap qmapResult;
    pView->TaskRequestHandler("BackUp", {{"BackUpPath", _qstrFolder}}, FunctionUtil::GetNewGUID(),
                              qmapResult);
    m_pStatus->setText("Backing up into " + _qstrFolder + " ...");
}

void CLS_MainWindow::SlotBackUpClosed(QString _qstrKey, QVariantMap _qmapResult, QString _qstrUuid)
{
    Q_UNUSED(_qstrUuid)
    if (_qstrKey != "BackUp") {
        return;
    }
    m_pStatus->setText("Last archive: " + _qmapResult.value("BackUpPath").toString());
}
