#pragma once

#include <QColor>
#include <QLineEdit>
#include <QString>

class QPaintEvent;

// A line edit whose placeholder stays visible while it has focus, until text is typed.
class CLS_LineEdit : public QLineEdit
{
    Q_OBJECT

public:
    explicit CLS_LineEdit(QWidget* _pParent = nullptr);
    ~CLS_LineEdit() override;

    QString GetPlaceholder() const { return m_qstrPlaceholder; }
    void SetPlaceholderColor(const QColor& _color);

protected:
    void paintEvent(QPaintEvent* _pEvent) override;

private:
    QString m_qstrPlaceholder;
    QColor m_colorPlaceholder{Qt::darkGray};
};
