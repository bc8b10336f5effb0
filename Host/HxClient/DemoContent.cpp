#include "DemoContent.h"

#include <QBuffer>
#include <QPainter>

namespace DemoContent {
namespace {

// xorshift32: small, fast and the same everywhere.
class CLS_Noise
{
public:
    explicit CLS_Noise(quint32 _uSeed) : m_uState(_uSeed != 0 ? _uSeed : 0x9e3779b9u) {}

    quint32 Next()
    {
        m_uState ^= m_uState << 13;
        m_uState ^= m_uState >> 17;
        m_uState ^= m_uState << 5;
        return m_uState;
    }

    int Below(int _iLimit) { return static_cast<int>(Next() % static_cast<quint32>(_iLimit)); }

private:
    quint32 m_uState;
};

QColor Shade(CLS_Noise& _noise, int _iBase, int _iSpread)
{
    return QColor(_iBase + _noise.Below(_iSpread), _iBase + _noise.Below(_iSpread),
                  _iBase + _noise.Below(_iSpread));
}

} // namespace

QByteArray NoiseBytes(quint32 _uSeed, int _iSize)
{
    CLS_Noise noise(_uSeed);
    QByteArray qba(_iSize, Qt::Uninitialized);
    for (int i = 0; i < _iSize; ++i) {
        qba[i] = static_cast<char>(noise.Next() >> 24);
    }
    return qba;
}

QImage FacePicture(int _iIndex)
{
    CLS_Noise noise(static_cast<quint32>(1000 + _iIndex));
    QImage image(160, 200, QImage::Format_RGB32);
    image.fill(Shade(noise, 170, 60));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    // Shoulders, head, hair, eyes, mouth.
    painter.setBrush(Shade(noise, 40, 120));
    painter.drawEllipse(QRect(10, 150, 140, 110));
    const QColor skin(150 + noise.Below(90), 110 + noise.Below(70), 80 + noise.Below(60));
    painter.setBrush(skin);
    painter.drawEllipse(QRect(40, 40, 80, 100));
    painter.setBrush(Shade(noise, 10, 90));
    painter.drawChord(QRect(36, 30, 88, 60), 0, 180 * 16);
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRect(58, 78, 14, 9));
    painter.drawEllipse(QRect(88, 78, 14, 9));
    painter.setBrush(QColor(40, 30 + noise.Below(60), 20));
    painter.drawEllipse(QRect(62, 79, 6, 7));
    painter.drawEllipse(QRect(92, 79, 6, 7));
    painter.setPen(QPen(QColor(120, 40, 40), 3));
    painter.drawArc(QRect(64, 100 + noise.Below(6), 32, 16), 200 * 16, 140 * 16);
    return image;
}

QImage FloorPlan(int _iFloor)
{
    CLS_Noise noise(static_cast<quint32>(7000 + _iFloor));
    QImage image(1200, 800, QImage::Format_RGB32);
    image.fill(QColor(245, 245, 238));
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(QColor(60, 60, 60), 6));
    painter.drawRect(QRect(40, 40, 1120, 720));
    // Rooms along two corridors.
    painter.setPen(QPen(QColor(90, 90, 90), 3));
    for (int iRoom = 0; iRoom < 6; ++iRoom) {
        const int iX = 40 + iRoom * 186;
        painter.drawRect(QRect(iX, 40, 186, 240 + noise.Below(40)));
        painter.drawRect(QRect(iX, 480 + noise.Below(40), 186, 280));
    }
    painter.setBrush(QColor(220, 230, 240));
    painter.setPen(Qt::NoPen);
    painter.drawRect(QRect(40, 330, 1120, 120));
    // Camera marks with their fields of view.
    for (int iCamera = 0; iCamera < 8 + _iFloor; ++iCamera) {
        const QPoint center(80 + noise.Below(1040), 80 + noise.Below(640));
        painter.setBrush(QColor(255, 180, 0, 90));
        painter.drawPie(QRect(center - QPoint(70, 70), QSize(140, 140)), noise.Below(360) * 16, 60 * 16);
        painter.setBrush(QColor(200, 30, 30));
        painter.drawEllipse(center, 9, 9);
    }
    return image;
}

QImage Snapshot(int _iIndex)
{
    CLS_Noise noise(static_cast<quint32>(50000 + _iIndex));
    QImage image(640, 360, QImage::Format_RGB32);
    QPainter painter(&image);
    QLinearGradient sky(0, 0, 0, 200);
    sky.setColorAt(0, QColor(90, 140, 200 + noise.Below(50)));
    sky.setColorAt(1, QColor(200, 220, 240));
    painter.fillRect(QRect(0, 0, 640, 200), sky);
    painter.fillRect(QRect(0, 200, 640, 160), QColor(90 + noise.Below(40), 100, 80));
    painter.setPen(Qt::NoPen);
    for (int iShape = 0; iShape < 6; ++iShape) {
        painter.setBrush(Shade(noise, 30, 200));
        painter.drawRect(
            QRect(noise.Below(600), 120 + noise.Below(160), 20 + noise.Below(120), 20 + noise.Below(80)));
    }
    painter.end();
    // A little sensor noise, as real snapshots have.
    for (int iY = 0; iY < image.height(); iY += 2) {
        auto* pLine = reinterpret_cast<QRgb*>(image.scanLine(iY));
        for (int iX = 0; iX < image.width(); iX += 3) {
            const int iDelta = noise.Below(17) - 8;
            const QColor color(pLine[iX]);
            pLine[iX] = qRgb(qBound(0, color.red() + iDelta, 255), qBound(0, color.green() + iDelta, 255),
                             qBound(0, color.blue() + iDelta, 255));
        }
    }
    return image;
}

QByteArray Png(const QImage& _image)
{
    QByteArray qba;
    QBuffer buffer(&qba);
    buffer.open(QIODevice::WriteOnly);
    if (!_image.save(&buffer, "PNG")) {
        return QByteArray();
    }
    return qba;
}

} // namespace DemoContent
