#include "CLS_FrmBackUp.h"

#include <QFileDialog>
#include <QRegExp>
#include <QRegExpValidator>

#include "CLS_BackUpPresenter.h"
#include "Logger.h"
#include "ui_CLS_FrmBackUp.h"

CLS_FrmBackUp::CLS_FrmBackUp(QWidget* _pParent) : CLS_ViewBasic(_pParent), m_pUi(new Ui_CLS_FrmBackUp)
{
    m_pUi->setupUi(this);
}

CLS_FrmBackUp::~CLS_FrmBackUp()
{
    RemovePendingTasks();
}

CLS_PresenterBasic* CLS_FrmBackUp::GetPresenter()
{
    return CLS_Singleton<CLS_BackUpPresenter>::GetInstance();
}

void CLS_FrmBackUp::InitView()
{
    m_pUi->lineEdit_SaveCount->setValidator(new QRegExpValidator(
        QRegExp("[1-5]", Qt::CaseSensitive, QRegExp::RegExp), m_pUi->lineEdit_SaveCount));
    m_pUi->lineEdit_SaveCount->setPlaceholderText(tr("lab_autoback_count"));
    // The empty alternative lets the field be cleared while typing.
    m_pUi->lineEdit_SaveInterval->setValidator(new QRegExpValidator(
        QRegExp("[1-9]||[1][0-5]", Qt::CaseSensitive, QRegExp::RegExp), m_pUi->lineEdit_SaveInterval));
    m_pUi->lineEdit_SaveInterval->setPlaceholderText(tr("lab_autoback_interval"));
    m_pUi->lineEdit_SaveCount->setContextMenuPolicy(Qt::NoContextMenu);
    m_pUi->lineEdit_SavePath->setContextMenuPolicy(Qt::NoContextMenu);
    m_pUi->lineEdit_SaveInterval->setContextMenuPolicy(Qt::NoContextMenu);
}

void CLS_FrmBackUp::InitData()
{
    SendPresenterRequest("LoadLastSaveSetting", QVariantMap(), true);
}

bool CLS_FrmBackUp::TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                                QVariantMap& _qmapResult)
{
    Q_UNUSED(_qmapResult)
    if (_qstrKey == "LoadLastSaveSetting") {
        DealLoadSetting(_qmapParam);
    } else if (_qstrKey == "SaveSettint") {
        DealSaveResult(_qmapParam);
    }
    return true;
}

void CLS_FrmBackUp::DealLoadSetting(const QVariantMap& _qmapParam)
{
    if (_qmapParam.value("__result__").toString() != "success") {
        return;
    }
    for (const char* pKey :
         {"AutoEnable", "BackUpFileSavePath", "BackUpCount", "AutoBackUpInteval", "AutoBackUpTime"}) {
        if (!_qmapParam.contains(pKey)) {
            return;
        }
    }
    m_pUi->checkBox_Enable->setChecked(_qmapParam.value("AutoEnable").toBool());
    const QString qstrPath = _qmapParam.value("BackUpFileSavePath").toString();
    m_pUi->lineEdit_SavePath->setText(qstrPath);
    m_pUi->lineEdit_SavePath->setToolTip(qstrPath);
    m_pUi->lineEdit_SaveCount->setText(QString::number(_qmapParam.value("BackUpCount").toInt()));
    m_pUi->lineEdit_SaveInterval->setText(QString::number(_qmapParam.value("AutoBackUpInteval").toInt()));
    m_pUi->label_autobackup_time->setText(_qmapParam.value("AutoBackUpTime").toString());
}

void CLS_FrmBackUp::DealSaveResult(const QVariantMap& _qmapParam)
{
    QString qstrMessage = tr("msg_failed_to_save");
    if (_qmapParam.value("__result__").toString() == "success") {
        if (_qmapParam.contains("AutoBackUpTime")) {
            m_pUi->label_autobackup_time->setText(_qmapParam.value("AutoBackUpTime").toString());
        }
        qstrMessage = tr("lab_save_successfully");
    }
    ShowNotice(qstrMessage);
}

void CLS_FrmBackUp::ShowNotice(const QString& _qstrContent)
{
    ShowMessageInfo(nullptr, 0, tr("lab_notice"), _qstrContent, QString(), QString(), QMessageBox::Ok,
                    QMessageBox::Ok);
}

int CLS_FrmBackUp::ShowMessageInfo(QWidget* _pParent, int _iMsgBoxType, const QString& _qstrTitle,
                                   const QString& _qstrContent, const QString& _qstrInputHolder,
                                   const QString& _qstrInputText, QMessageBox::StandardButtons _standButtons,
                                   QMessageBox::StandardButton _defaultButton)
{
    const QVariantMap qmapParam{{"parent", QVariant::fromValue(_pParent)},
                                {"msgboxtype", _iMsgBoxType},
                                {"title", _qstrTitle},
                                {"content", _qstrContent},
                                {"inputholder", _qstrInputHolder},
                                {"inputtext", _qstrInputText},
                                {"defaultbutton", static_cast<int>(_defaultButton)},
                                {"standbuttons", static_cast<int>(_standButtons)}};
    // The box comes from another library with its own copy of the view base: known by class name only.
    std::unique_ptr<QWidget> pMsgBox(GetWgtView("WgtMsgBox", qmapParam));
    if (pMsgBox == nullptr || !pMsgBox->inherits("CLS_ViewBasic")) {
        HX_LOG(Logger::LOG_WARN, GetModuleCode())
            << "WgtMsgBox is nullptr, message not shown:[" << _qstrContent << "]";
        return -1;
    }
    QVariantMap qmapResult;
    static_cast<CLS_ViewBasic*>(pMsgBox.get())->TaskRequest("ShowMessage", qmapParam, qmapResult);
    return qmapResult.value("Result", -1).toInt();
}

void CLS_FrmBackUp::on_pushButton_Save_clicked()
{
    if (m_pUi->lineEdit_SaveCount->text().isEmpty()) {
        ShowNotice(tr("msg_autobackup_count"));
        return;
    }
    if (m_pUi->lineEdit_SavePath->text().isEmpty()) {
        ShowNotice(tr("msg_choose_backup_path"));
        return;
    }
    if (m_pUi->lineEdit_SaveInterval->text().isEmpty()) {
        ShowNotice(tr("msg_choose_backup_interval"));
        return;
    }
    const QVariantMap qmapParam{{"AutoEnable", m_pUi->checkBox_Enable->isChecked()},
                                {"BackUpFileSavePath", m_pUi->lineEdit_SavePath->text()},
                                {"BackUpCount", m_pUi->lineEdit_SaveCount->text()},
                                {"AutoBackUpInteval", m_pUi->lineEdit_SaveInterval->text()}};
    SendPresenterRequest("SaveSettint", qmapParam, true);
}

void CLS_FrmBackUp::on_pushButton_Browse_clicked()
{
    const QString qstrDir = QFileDialog::getExistingDirectory(
        nullptr, tr("lab_Select_folders"), m_pUi->lineEdit_SavePath->text(), QFileDialog::ShowDirsOnly);
    if (qstrDir.isEmpty()) {
        return;
    }
    const QString qstrPath = qstrDir + "/" + "AutoBackUp";
    m_pUi->lineEdit_SavePath->setText(qstrPath);
    m_pUi->lineEdit_SavePath->setToolTip(qstrPath);
    m_pUi->lineEdit_SavePath->setCursorPosition(0);
}

void CLS_FrmBackUp::on_pushButton_Cannel_clicked()
{
    close();
}
