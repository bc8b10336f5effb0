#include "CLS_WgtMsgBox.h"

#include <QMessageBox>

#include "FunctionUtil.h"
#include "Logger.h"

namespace {

// "msgboxtype": 0 information, 1 question, 2 warning, 3 critical.
QMessageBox::Icon IconOfType(int _iType)
{
    switch (_iType) {
    case 1:
        return QMessageBox::Question;
    case 2:
        return QMessageBox::Warning;
    case 3:
        return QMessageBox::Critical;
    default:
        return QMessageBox::Information;
    }
}

} // namespace

CLS_WgtMsgBox::CLS_WgtMsgBox(const QVariantMap& _qmapParam, QWidget* _pParent)
    : CLS_ViewBasic(_pParent), m_pBoxParent(_qmapParam.value("parent").value<QWidget*>())
{
    setObjectName(GetClassCode());
}

CLS_WgtMsgBox::~CLS_WgtMsgBox() = default;

const char* CLS_WgtMsgBox::GetModuleCode()
{
    return "WgtMsgBox";
}

void CLS_WgtMsgBox::InitView() {}

void CLS_WgtMsgBox::InitData() {}

void CLS_WgtMsgBox::showEvent(QShowEvent* _pEvent)
{
    QWidget::showEvent(_pEvent);
}

bool CLS_WgtMsgBox::TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                QVariantMap& _qmapResult)
{
    if (_qstrKey != "ShowMessage") {
        return false;
    }
    _qmapResult.insert("Result", ShowMessage(_qmapParam));
    return true;
}

int CLS_WgtMsgBox::ShowMessage(const QVariantMap& _qmapParam)
{
    const QString qstrTitle = _qmapParam.value("title").toString();
    const QString qstrContent = _qmapParam.value("content").toString();
    const auto buttons = QMessageBox::StandardButtons(
        _qmapParam.value("standbuttons", static_cast<int>(QMessageBox::Ok)).toInt());
    const auto defaultButton = static_cast<QMessageBox::StandardButton>(
        _qmapParam.value("defaultbutton", QMessageBox::NoButton).toInt());
    HX_LOG(Logger::LOG_INFO, GetModuleCode())
        << "ShowMessage title:[" << qstrTitle << "] content:[" << qstrContent << "]";

    QMessageBox box(IconOfType(_qmapParam.value("msgboxtype", 0).toInt()), qstrTitle, qstrContent, buttons,
                    m_pBoxParent);
    box.setObjectName("CLS_WgtMsgBox_Box");
    if (defaultButton != QMessageBox::NoButton) {
        box.setDefaultButton(defaultButton);
    }
    // A box without a parent does not inherit the caller's skin: it gets the common one and its own.
    box.setStyleSheet(FunctionUtil::LoadStyle(GetModuleCode(), nullptr, GetClassCode()));
    return box.exec();
}
