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

// The widget over a background of one colour; only what the widget paints itself covers it.
QImage render(QWidget &widget, QColor background = Qt::black, const QRegion &region = {})
{
    QImage image(widget.size(), QImage::Format_ARGB32);
    image.fill(background);
    widget.render(&image, QPoint(), region, QWidget::DrawChildren);
    return image;
}

// A 120 x 60 card at (40, 40) in a 200 x 140 area.
QImage renderCard(QColor background)
{
    QWidget area;
    area.resize(200, 140);
    (new CardView(&area))->setGeometry(40, 40, 120, 60);
    return render(area, background);
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
        const QImage image = render(view);
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
        const QImage part = render(view, Qt::black, region);
        for (const QPoint offset : { QPoint(0, 0), QPoint(39, 29) })
            QCOMPARE(part.pixelColor(offset), image.pixelColor(region.topLeft() + offset));
    }

    void cardIsWhiteRoundedAndCastsAFaintPurpleShadowDownward()
    {
        const QImage onBlack = renderCard(Qt::black);
        QCOMPARE(onBlack.pixelColor(100, 70), QColor(Qt::white));
        QCOMPARE(onBlack.pixelColor(41, 70), QColor(Qt::white)); // the straight left edge
        // A radius of 12 leaves the corner pixel dark, and the point 3 pixels in along the
        // diagonal (inside the square, outside the arc) as well.
        for (const QPoint corner : { QPoint(40, 40), QPoint(43, 43), QPoint(159, 99), QPoint(156, 96) })
            QVERIFY(onBlack.pixelColor(corner).lightness() < 128);
        QVERIFY(onBlack.pixelColor(46, 46).lightness() > 240);

        // On white, anything that is not white is the shadow.
        const QImage onWhite = renderCard(Qt::white);
        const QColor below = onWhite.pixelColor(100, 101);
        const QColor above = onWhite.pixelColor(100, 38);
        QVERIFY2(below.blue() > below.red() + 4 && below.blue() > below.green() + 4, qPrintable(below.name()));
        QVERIFY(below.lightness() < above.lightness()); // offset downward
        QVERIFY(below.lightness() > 200); // faint
        QCOMPARE(onWhite.pixelColor(100, 125), QColor(Qt::white)); // gone beyond the blur
    }
};

QTEST_MAIN(StyleTest)
#include "StyleTest.moc"
