// The window's look, checked in pixels: the gradient's direction and its independence from the
// repainted region, the cards' white rounded surface and their faint purple shadow.

#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"

#include <QApplication>
#include <QImage>
#include <QTest>

using namespace kestrix;

namespace {

// The largest 8-bit channel difference.
int distance(QColor a, QColor b)
{
    return std::max({ std::abs(a.red() - b.red()), std::abs(a.green() - b.green()), std::abs(a.blue() - b.blue()) });
}

QImage render(QWidget &widget, QSize size, const QRegion &region = {})
{
    QImage image(size, QImage::Format_ARGB32);
    image.fill(Qt::black);
    widget.render(&image, QPoint(), region);
    return image;
}

// A 120 x 60 card at (40, 40) in a 200 x 140 area of one colour.
QImage renderCard(QColor background)
{
    QWidget area;
    area.resize(200, 140);
    area.setAutoFillBackground(true);
    QPalette palette = area.palette();
    palette.setColor(QPalette::Window, background);
    area.setPalette(palette);
    (new CardView(&area))->setGeometry(40, 40, 120, 60);
    return render(area, area.size());
}

} // namespace

class StyleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void gradientRunsFromTopLeftToBottomRight_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("wide") << QSize(416, 120);
        QTest::newRow("tall") << QSize(90, 520);
    }

    void gradientRunsFromTopLeftToBottomRight()
    {
        QFETCH(QSize, size);
        GradientView view;
        view.resize(size);
        const QImage image = render(view, size);
        const int right = size.width() - 1;
        const int bottom = size.height() - 1;
        QVERIFY(distance(image.pixelColor(0, 0), AppStyle::bgStart) <= 1);
        QVERIFY(distance(image.pixelColor(right, bottom), AppStyle::bgEnd) <= 1);
        // At -45 degrees the colour is constant along x + y = c, whatever the aspect ratio.
        const int side = std::min(right, bottom);
        QVERIFY(distance(image.pixelColor(side, 0), image.pixelColor(0, side)) <= 1);
        QVERIFY(image.pixelColor(right / 2, bottom / 2).lightness() > image.pixelColor(right, bottom).lightness());

        // Repainting a part paints it as the whole would: the gradient spans the view, not the
        // region. The region lands at the target's origin.
        const QRect region(right / 2, bottom / 2, 40, 30);
        const QImage part = render(view, size, region);
        for (const QPoint offset : { QPoint(0, 0), QPoint(39, 29) })
            QCOMPARE(part.pixelColor(offset), image.pixelColor(region.topLeft() + offset));
    }

    void emptyGradientDrawsNothing()
    {
        for (const QSize size : { QSize(0, 50), QSize(50, 0) }) {
            GradientView view;
            view.resize(size);
            QCOMPARE(render(view, QSize(50, 50)).pixelColor(0, 0), QColor(Qt::black));
        }
    }

    void cardIsWhiteAndRounded()
    {
        const QImage image = renderCard(Qt::black);
        QCOMPARE(image.pixelColor(100, 70), QColor(Qt::white));
        QCOMPARE(image.pixelColor(41, 70), QColor(Qt::white)); // the straight left edge
        // A radius of 12 leaves the corner pixel dark, and the point 3 pixels in along the
        // diagonal (inside the square, outside the arc) as well.
        for (const QPoint corner : { QPoint(40, 40), QPoint(43, 43), QPoint(159, 99), QPoint(156, 96) })
            QVERIFY(image.pixelColor(corner).lightness() < 128);
        QVERIFY(image.pixelColor(46, 46).lightness() > 240);
    }

    void cardCastsAFaintPurpleShadowDownward()
    {
        // The shadow colour is purple's own components at 15 %; purple itself stays opaque.
        QCOMPARE(AppStyle::cardShadow().rgb(), AppStyle::purple.rgb());
        QVERIFY(qAbs(AppStyle::cardShadow().alphaF() - 0.15f) < 0.001f);
        QCOMPARE(AppStyle::purple.alpha(), 255);

        // On white, anything that is not white is the shadow.
        const QImage image = renderCard(Qt::white);
        const QColor below = image.pixelColor(100, 101);
        const QColor above = image.pixelColor(100, 38);
        QVERIFY2(below.blue() > below.red() + 4 && below.blue() > below.green() + 4, qPrintable(below.name()));
        QVERIFY(below.lightness() < above.lightness()); // offset downward
        QVERIFY(below.lightness() > 200); // faint
        QCOMPARE(image.pixelColor(100, 125), QColor(Qt::white)); // gone beyond the blur
    }
};

QTEST_MAIN(StyleTest)
#include "StyleTest.moc"
