#include "CLS_LineEdit.h"

#include <QPainter>

CLS_LineEdit::CLS_LineEdit(QWidget* _pParent) : QLineEdit(_pParent) {}

CLS_LineEdit::~CLS_LineEdit() = default;

void CLS_LineEdit::SetPlaceholderColor(const QColor& _color)
{
    m_colorPlaceholder = _color;
    update();
}

void CLS_LineEdit::paintEvent(QPaintEvent* _pEvent)
{
    QLineEdit::paintEvent(_pEvent);
    // Kept in our own member so that the base class never hides it on focus.
    if (!placeholderText().isEmpty()) {
        m_qstrPlaceholder = placeholderText();
        setPlaceholderText(QString());
    }
    if (text().isEmpty()) {
        QPainter painter(this);
        painter.setPen(m_colorPlaceholder);
        painter.drawText(rect().adjusted(3, 0, 0, 0), Qt::AlignLeft | Qt::AlignVCenter, m_qstrPlaceholder);
    }
}
