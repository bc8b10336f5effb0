#include "CLS_Spinner.h"

#include <QPainter>
#include <QPen>

CLS_Spinner::CLS_Spinner(QWidget* _pParent) : QWidget(_pParent)
{
    setObjectName("CLS_Spinner");
    setFixedSize(sizeHint());
    setVisible(false);
    m_timerTurn.setInterval(60);
    connect(&m_timerTurn, &QTimer::timeout, this, [this]() {
        m_iAngle = (m_iAngle + 30) % 360;
        update();
    });
    m_timerStop.setSingleShot(true);
    connect(&m_timerStop, &QTimer::timeout, this, &CLS_Spinner::Stop);
}

void CLS_Spinner::Start(int _iDurationMs)
{
    setVisible(true);
    m_timerTurn.start();
    if (_iDurationMs > 0) {
        m_timerStop.start(_iDurationMs);
    } else {
        m_timerStop.stop();
    }
    update();
}

void CLS_Spinner::Stop()
{
    m_timerTurn.stop();
    m_timerStop.stop();
    setVisible(false);
}

void CLS_Spinner::paintEvent(QPaintEvent* _pEvent)
{
    Q_UNUSED(_pEvent)
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF rectArc = QRectF(rect()).adjusted(4, 4, -4, -4);
    QColor colorTrack = palette().color(QPalette::WindowText);
    colorTrack.setAlpha(50);
    painter.setPen(QPen(colorTrack, 3));
    painter.drawEllipse(rectArc);
    painter.setPen(QPen(palette().color(QPalette::Highlight), 3, Qt::SolidLine, Qt::RoundCap));
    // Angles of drawArc are in sixteenths of a degree, counter-clockwise from three o'clock.
    painter.drawArc(rectArc, -m_iAngle * 16, 100 * 16);
}
