#pragma once

#include <QString>
#include <QVariantMap>

#include "CLS_ViewBasic.h"

// The host's message box: "ShowMessage" shows a modal QMessageBox with the given title, content and
// buttons, and answers the button pressed under "Result".
class CLS_WgtMsgBox final : public CLS_ViewBasic
{
    Q_OBJECT

public:
    // "parent" of the map becomes the parent of the message box.
    explicit CLS_WgtMsgBox(const QVariantMap& _qmapParam, QWidget* _pParent = nullptr);
    ~CLS_WgtMsgBox() override;

    const char* GetModuleCode() override;
    void InitView() override;
    void InitData() override;
    bool TaskHandler(const QString& _qstrKey, const QVariantMap& _qmapParam,
                     QVariantMap& _qmapResult) override;

protected:
    // A host widget has no presenter and is never shown itself.
    void showEvent(QShowEvent* _pEvent) override;

private:
    int ShowMessage(const QVariantMap& _qmapParam);

    QWidget* m_pBoxParent = nullptr;
};
