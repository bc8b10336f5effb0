#pragma once

#include <QPoint>
#include <QString>
#include <QVariantMap>

#include "CLS_ViewBasic.h"

class CLS_Spinner;
class QLabel;
class QMouseEvent;
class QProgressBar;
class QPushButton;

// The host's loading panel: a busy indicator, a progress bar with its text, and a cancel button that
// can be turned into a close button. Driven by keys through TaskRequest; a press of the button is
// announced as "SignLoadingCanceled".
class CLS_WgtLoading final : public CLS_ViewBasic
{
    Q_OBJECT

public:
    explicit CLS_WgtLoading(QWidget* _pParent = nullptr);
    ~CLS_WgtLoading() override;

    const char* GetModuleCode() override;
    void InitView() override;
    void InitData() override;
    bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                     QVariantMap& _qmapResult) override;

protected:
    // A host widget has no presenter: it is complete once constructed.
    void showEvent(QShowEvent* _pEvent) override;
    void mousePressEvent(QMouseEvent* _pEvent) override;
    void mouseMoveEvent(QMouseEvent* _pEvent) override;

private:
    bool SetRate(const QVariantMap& _qmapParam);
    void SetTopWindow(bool _blTop);
    void OnButtonClicked();

    CLS_Spinner* m_pSpinner = nullptr;
    QLabel* m_pLabelRate = nullptr;
    QProgressBar* m_pProgressBar = nullptr;
    QPushButton* m_pButton = nullptr;
    bool m_blAutoClose = false;
    bool m_blMouseMove = false;
    QPoint m_ptDragOffset;
};
