#include "CLS_BackUpProcess.h"

#include "CLS_BackUpPresenter.h"
#include "Logger.h"
#include "ui_CLS_BackUpProcess.h"

CLS_BackUpProcess::CLS_BackUpProcess(QWidget* _pParent)
    : CLS_ViewBasic(_pParent), m_pUi(new Ui_CLS_BackUpProcess)
{
    m_pUi->setupUi(this);
    setAttribute(Qt::WA_DeleteOnClose);
}

CLS_BackUpProcess::~CLS_BackUpProcess()
{
    RemovePendingTasks();
}

CLS_PresenterBasic* CLS_BackUpProcess::GetPresenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

void CLS_BackUpProcess::InitView()
{
    if (m_pWgtProcess == nullptr) {
        QWidget* pWidget = GetWgtView("WgtLoading", {{"WgtLoadingParent", QVariant::fromValue(this)}});
        // The widget comes from another library with its own copy of the view base: known by class name only.
        if (pWidget == nullptr || !pWidget->inherits("CLS_ViewBasic")) {
            HX_LOG(Logger::LOG_WARN, GetModuleCode()) << " m_pWgtProcess is nullptr";
            return;
        }
        m_pWgtProcess = static_cast<CLS_ViewBasic*>(pWidget);
        connect(m_pWgtProcess, SIGNAL(SignRequestTaskRsulted(QString, QVariantMap, QString)), this,
                SLOT(SlotDealProcessResult(QString, QVariantMap, QString)), Qt::UniqueConnection);

        QVariantMap qmapDialog;
        SendToLoading("GetDialog", QVariantMap(), qmapDialog);
        QWidget* pDialog = qmapDialog.value("Dialog").value<QWidget*>();
        if (pDialog != nullptr) {
            m_pUi->horizontalLayout_2->addWidget(pDialog);
        }
        SendToLoading("SetAutoClose", {{"CommonData", false}});
        SendToLoading("SetMouseMove", {{"CommonData", true}});
        SendToLoading("SetTopWindow", {{"CommonData", false}});
        SendToLoading("ShowLoading", {{"Loading", -1}});
        const QVariantMap qmapRate{{"intRate", 0}, {"strRate", tr("lab_rebuildindex_init")}};
        SendToLoading("SetRate", qmapRate);
        SendToLoading("ShowCancelBtn", qmapRate);
    }
    adjustSize();
}

void CLS_BackUpProcess::InitData() {}

bool CLS_BackUpProcess::TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                    QVariantMap& _qmapResult)
{
    Q_UNUSED(_qmapResult)
    if (_qstrKey == "BackUp") {
        return DealBackUpResult(_qmapParam);
    }
    if (_qstrKey == "ProcessUpdate") {
        return UpgradeProcess(_qmapParam);
    }
    return false;
}

bool CLS_BackUpProcess::TaskRequestHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                           const QString& _qstrUUID, QVariantMap& _qmapResult)
{
    Q_UNUSED(_qstrUUID)
    Q_UNUSED(_qmapResult)
    if (_qstrKey != "BackUp") {
        return false;
    }
    SendPresenterRequest(_qstrKey, _qmapParam, true);
    return true;
}

bool CLS_BackUpProcess::UpgradeProcess(const QVariantMap& _qmapParam)
{
    if (m_pWgtProcess == nullptr) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode()) << "const_data_int_ProcessRate is nullptr";
        return false;
    }
    if (!_qmapParam.contains("strRate") || !_qmapParam.contains("intRate")) {
        HX_LOG(Logger::LOG_INFO, GetModuleCode()) << " _qmapParam is invalid ";
        return false;
    }
    const QString qstrRate = _qmapParam.value("strRate", "0").toString();
    const int iRate = _qmapParam.value("intRate", 0).toInt();
    return SendToLoading("SetRate", {{"intRate", iRate}, {"strRate", qstrRate}});
}

bool CLS_BackUpProcess::DealBackUpResult(const QVariantMap& _qmapParam)
{
    if (m_pWgtProcess == nullptr) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode()) << " m_pWgtProcess is nullptr";
        return false;
    }
    if (!_qmapParam.contains("TaskResult")) {
        HX_LOG(Logger::LOG_INFO, GetModuleCode()) << " _qmapParam is invalid";
        return false;
    }
    const int iTaskResult = _qmapParam.value("TaskResult", -1).toInt();
    QString qstrText = tr("lab_backup_finish");
    if (iTaskResult == 0) {
        if (_qmapParam.contains("BackUpPath")) {
            m_qstrBackUpPath = _qmapParam.value("BackUpPath", "null").toString();
        }
    } else if (iTaskResult == -1) {
        qstrText = tr("lab_backup_failed");
        const QVariant varReason = _qmapParam.value("reason");
        if (varReason.isValid() && varReason.canConvert<QString>()) {
            qstrText = qstrText + "(" + varReason.toString() + ")";
        }
    }
    SendToLoading("SetCancelText", {{"SetCancelText", tr("btn_close_down")}});
    return UpgradeProcess({{"intRate", 100}, {"strRate", qstrText}});
}

void CLS_BackUpProcess::SlotDealProcessResult(QString _qstrKey, QVariantMap _qmapParam, QString _qstrUUID)
{
    Q_UNUSED(_qmapParam)
    Q_UNUSED(_qstrUUID)
    if (_qstrKey != "SignLoadingCanceled") {
        return;
    }
    SendPresenterRequest("CanCelBackUp", QVariantMap(), true);
    if (!m_qstrBackUpPath.isEmpty()) {
        Q_EMIT SignRequestTaskRsulted("BackUp", {{"BackUpPath", m_qstrBackUpPath}}, "");
    }
    close();
}

bool CLS_BackUpProcess::SendToLoading(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                      QVariantMap& _qmapResult)
{
    return m_pWgtProcess != nullptr && m_pWgtProcess->TaskRequest(_qstrKey, _qmapParam, _qmapResult);
}

bool CLS_BackUpProcess::SendToLoading(const QString& _qstrKey, const QVariantMap& _qmapParam)
{
    QVariantMap qmapResult;
    return SendToLoading(_qstrKey, _qmapParam, qmapResult);
}
