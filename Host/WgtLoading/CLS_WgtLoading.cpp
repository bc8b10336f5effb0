#include "CLS_WgtLoading.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QProgressBar>
#include <QPushButton>
#include <QVBoxLayout>

#include "CLS_Spinner.h"

CLS_WgtLoading::CLS_WgtLoading(QWidget* _pParent) : CLS_ViewBasic(_pParent)
{
    setAttribute(Qt::WA_StyledBackground);
    InitView();
    LoadStyle();
}

CLS_WgtLoading::~CLS_WgtLoading() = default;

const char* CLS_WgtLoading::GetModuleCode()
{
    return "WgtLoading";
}

void CLS_WgtLoading::InitView()
{
    setMinimumSize(420, 190);

    m_pSpinner = new CLS_Spinner(this);
    m_pLabelRate = new QLabel(this);
    m_pLabelRate->setObjectName("label_Rate");
    m_pLabelRate->setWordWrap(true);
    m_pLabelRate->setMinimumHeight(36);
    m_pLabelRate->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);

    m_pProgressBar = new QProgressBar(this);
    m_pProgressBar->setObjectName("progressBar_Rate");
    m_pProgressBar->setRange(0, 100);
    m_pProgressBar->setValue(0);
    m_pProgressBar->setTextVisible(true);
    m_pProgressBar->setMinimumHeight(24);

    m_pButton = new QPushButton(tr("btn_cancel"), this);
    m_pButton->setObjectName("pushButton_Cancel");
    m_pButton->setMinimumSize(100, 36);
    m_pButton->setVisible(false);
    connect(m_pButton, &QPushButton::clicked, this, &CLS_WgtLoading::OnButtonClicked);

    auto* pLayoutText = new QHBoxLayout();
    pLayoutText->setSpacing(12);
    pLayoutText->addWidget(m_pSpinner, 0, Qt::AlignVCenter);
    pLayoutText->addWidget(m_pLabelRate, 1);

    auto* pLayoutButton = new QHBoxLayout();
    pLayoutButton->addStretch(1);
    pLayoutButton->addWidget(m_pButton);

    auto* pLayout = new QVBoxLayout(this);
    pLayout->setContentsMargins(24, 20, 24, 20);
    pLayout->setSpacing(14);
    pLayout->addLayout(pLayoutText);
    pLayout->addWidget(m_pProgressBar);
    pLayout->addStretch(1);
    pLayout->addLayout(pLayoutButton);
}

void CLS_WgtLoading::InitData() {}

void CLS_WgtLoading::showEvent(QShowEvent* _pEvent)
{
    QWidget::showEvent(_pEvent);
}

bool CLS_WgtLoading::TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                 QVariantMap& _qmapResult)
{
    if (_qstrKey == "GetDialog") {
        _qmapResult.insert("Dialog", QVariant::fromValue<QWidget*>(this));
        return true;
    }
    if (_qstrKey == "SetAutoClose" || _qstrKey == "SetMouseMove" || _qstrKey == "SetTopWindow") {
        if (!_qmapParam.contains("CommonData")) {
            return false;
        }
        const bool blOn = _qmapParam.value("CommonData").toBool();
        if (_qstrKey == "SetAutoClose") {
            m_blAutoClose = blOn;
        } else if (_qstrKey == "SetMouseMove") {
            m_blMouseMove = blOn;
        } else {
            SetTopWindow(blOn);
        }
        return true;
    }
    if (_qstrKey == "ShowLoading") {
        const int iLoading = _qmapParam.value("Loading", -1).toInt();
        if (iLoading == 0) {
            m_pSpinner->Stop();
        } else {
            m_pSpinner->Start(iLoading);
        }
        return true;
    }
    if (_qstrKey == "SetRate") {
        return SetRate(_qmapParam);
    }
    if (_qstrKey == "ShowCancelBtn") {
        m_pButton->setVisible(true);
        return true;
    }
    if (_qstrKey == "SetCancelText") {
        if (!_qmapParam.contains("SetCancelText")) {
            return false;
        }
        m_pButton->setText(_qmapParam.value("SetCancelText").toString());
        m_pButton->setVisible(true);
        return true;
    }
    return false;
}

bool CLS_WgtLoading::SetRate(const QVariantMap& _qmapParam)
{
    if (!_qmapParam.contains("intRate") && !_qmapParam.contains("strRate")) {
        return false;
    }
    if (_qmapParam.contains("intRate")) {
        const int iRate = qBound(0, _qmapParam.value("intRate").toInt(), 100);
        m_pProgressBar->setValue(iRate);
        if (iRate >= 100) {
            m_pSpinner->Stop();
            if (m_blAutoClose) {
                window()->close();
            }
        }
    }
    if (_qmapParam.contains("strRate")) {
        m_pLabelRate->setText(_qmapParam.value("strRate").toString());
    }
    return true;
}

void CLS_WgtLoading::SetTopWindow(bool _blTop)
{
    QWidget* pWindow = window();
    if (pWindow->windowFlags().testFlag(Qt::WindowStaysOnTopHint) == _blTop) {
        return;
    }
    // New flags hide a shown window.
    const bool blVisible = pWindow->isVisible();
    pWindow->setWindowFlag(Qt::WindowStaysOnTopHint, _blTop);
    if (blVisible) {
        pWindow->show();
    }
}

void CLS_WgtLoading::OnButtonClicked()
{
    Q_EMIT SignRequestTaskRsulted("SignLoadingCanceled", QVariantMap(), QString());
}

void CLS_WgtLoading::mousePressEvent(QMouseEvent* _pEvent)
{
    if (m_blMouseMove && _pEvent->button() == Qt::LeftButton) {
        m_ptDragOffset = _pEvent->globalPos() - window()->frameGeometry().topLeft();
    }
    CLS_ViewBasic::mousePressEvent(_pEvent);
}

void CLS_WgtLoading::mouseMoveEvent(QMouseEvent* _pEvent)
{
    if (m_blMouseMove && (_pEvent->buttons() & Qt::LeftButton)) {
        window()->move(_pEvent->globalPos() - m_ptDragOffset);
    }
    CLS_ViewBasic::mouseMoveEvent(_pEvent);
}
