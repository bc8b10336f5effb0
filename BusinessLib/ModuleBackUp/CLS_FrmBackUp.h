#pragma once

#include <memory>

#include <QMessageBox>
#include <QString>
#include <QVariantMap>

#include "CLS_ViewBasic.h"

class Ui_CLS_FrmBackUp;

// The settings page: automatic backup on or off, how many archives to keep, where, and how often.
class CLS_FrmBackUp : public CLS_ViewBasic
{
    Q_OBJECT

public:
    explicit CLS_FrmBackUp(QWidget* _pParent = nullptr);
    ~CLS_FrmBackUp() override;

    CLS_PresenterBasic* GetPresenter() override;
    void InitView() override;
    void InitData() override;
    bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                     QVariantMap& _qmapResult) override;

    // A message box of the host's message-box library; its answer, or -1 when the library is missing.
    int ShowMessageInfo(QWidget* _pParent, int _iMsgBoxType, const QString& _qstrTitle,
                        const QString& _qstrContent, const QString& _qstrInputHolder,
                        const QString& _qstrInputText, QMessageBox::StandardButtons _standButtons,
                        QMessageBox::StandardButton _defaultButton);

private Q_SLOTS:
    void on_pushButton_Save_clicked();
    void on_pushButton_Browse_clicked();
    void on_pushButton_Cannel_clicked();

private:
    void DealLoadSetting(const QVariantMap& _qmapParam);
    void DealSaveResult(const QVariantMap& _qmapParam);
    void ShowNotice(const QString& _qstrContent);

    std::unique_ptr<Ui_CLS_FrmBackUp> m_pUi;
};
