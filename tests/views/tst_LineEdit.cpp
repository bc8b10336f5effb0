#include <QImage>
#include <QtTest>

#include "CLS_LineEdit.h"

// What the eye sees: the line edit is grabbed as an image, with the cursor kept from blinking.
class tst_LineEdit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void placeholderStaysVisibleWhileFocused();
    void placeholderGoesOnceTextIsTyped();

private:
    // A focused line edit in a shown window, painted once so that the placeholder has moved.
    QImage Grab(CLS_LineEdit& _edit);
    // How many pixels are near the placeholder colour.
    static int GreyPixels(const QImage& _image);
};

void tst_LineEdit::initTestCase()
{
    QApplication::setCursorFlashTime(0);
}

QImage tst_LineEdit::Grab(CLS_LineEdit& _edit)
{
    _edit.resize(240, 36);
    _edit.show();
    _edit.activateWindow();
    _edit.setFocus();
    if (!QTest::qWaitForWindowActive(&_edit)) {
        return QImage();
    }
    _edit.grab();
    return _edit.grab().toImage();
}

int tst_LineEdit::GreyPixels(const QImage& _image)
{
    const QColor colorPlaceholder(Qt::darkGray);
    int iCount = 0;
    for (int y = 0; y < _image.height(); ++y) {
        for (int x = 0; x < _image.width(); ++x) {
            const QColor color = _image.pixelColor(x, y);
            iCount += qAbs(color.red() - colorPlaceholder.red()) < 24 &&
                              qAbs(color.red() - color.green()) < 8 && qAbs(color.green() - color.blue()) < 8
                          ? 1
                          : 0;
        }
    }
    return iCount;
}

void tst_LineEdit::placeholderStaysVisibleWhileFocused()
{
    CLS_LineEdit withPlaceholder;
    withPlaceholder.setPlaceholderText("1 to 5 archives");
    const QImage imageShown = Grab(withPlaceholder);
    QVERIFY(!imageShown.isNull());
    QVERIFY(withPlaceholder.hasFocus());
    QCOMPARE(withPlaceholder.GetPlaceholder(), QString("1 to 5 archives"));

    CLS_LineEdit without;
    const QImage imageEmpty = Grab(without);
    QVERIFY(imageShown != imageEmpty);
    QVERIFY2(GreyPixels(imageShown) > GreyPixels(imageEmpty) + 20,
             qPrintable(QString("%1 grey pixels with the placeholder, %2 without")
                            .arg(GreyPixels(imageShown))
                            .arg(GreyPixels(imageEmpty))));
}

void tst_LineEdit::placeholderGoesOnceTextIsTyped()
{
    CLS_LineEdit withPlaceholder;
    withPlaceholder.setPlaceholderText("1 to 5 archives");
    Grab(withPlaceholder);
    QTest::keyClicks(&withPlaceholder, "3");
    const QImage imageTyped = withPlaceholder.grab().toImage();

    CLS_LineEdit plain;
    Grab(plain);
    QTest::keyClicks(&plain, "3");
    QCOMPARE(imageTyped, plain.grab().toImage());
}

QTEST_MAIN(tst_LineEdit)
#include "tst_LineEdit.moc"
