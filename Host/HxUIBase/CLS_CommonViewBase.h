#pragma once

#include <QDialog>
#include <QString>

#include "HxExport.h"

// The host's dialog base of module views: a style sheet from a file, and two set-up hooks.
class HX_EXPORT CLS_CommonViewBase : public QDialog
{
    Q_OBJECT

public:
    explicit CLS_CommonViewBase(QWidget* _pParent = nullptr);
    ~CLS_CommonViewBase() override;

    // Applies the style sheet in the file; false (and the current style kept) when it cannot be read.
    bool LoadStyle(const QString& _qstrStyleFile);

    // Builds the view's widgets.
    virtual void InitUi() = 0;
    // Wires the view's widgets to its logic once it has a presenter.
    virtual void InitConnect() = 0;
};
