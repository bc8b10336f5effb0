#pragma once

#include <QTimer>
#include <QWidget>

// A turning arc that says "busy"; it is shown only while it turns.
class CLS_Spinner : public QWidget
{
    Q_OBJECT

public:
    explicit CLS_Spinner(QWidget* _pParent = nullptr);

    // A negative duration turns until Stop; a positive one stops by itself after that many milliseconds.
    void Start(int _iDurationMs);
    void Stop();
    bool IsRunning() const { return m_timerTurn.isActive(); }

    QSize sizeHint() const override { return QSize(36, 36); }

protected:
    void paintEvent(QPaintEvent* _pEvent) override;

private:
    QTimer m_timerTurn;
    QTimer m_timerStop;
    int m_iAngle = 0;
};
