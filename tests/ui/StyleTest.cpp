// The window's look, checked in pixels: exact colours, the gradient's direction and its
// independence from the repainted region, the cards' white rounded surface and their shadow.

#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QTest>

using namespace kestrix;

namespace {

// Colour distance in the largest 8-bit channel difference.
// A 120 x 60 card at (40, 40) in a 200 x 140 area of one colour.
QImage renderCard(QColor background)
{
    QWidget area;
    area.resize(200, 140);
    area.setAutoFillBackground(true);
    QPalette palette = area.palette();
    palette.setColor(QPalette::Window, background);
    area.setPalette(palette);
    auto *card = new CardView(&area);
    card->setGeometry(40, 40, 120, 60);
    QImage image(area.size(), QImage::Format_ARGB32);
    area.render(&image);
    return image;
}

int distance(QColor a, QColor b)
{
    return std::max({ std::abs(a.red() - b.red()), std::abs(a.green() - b.green()), std::abs(a.blue() - b.blue()) });
}

QImage render(QWidget &widget, const QRegion &region = {})
{
    QImage image(widget.size(), QImage::Format_ARGB32);
    image.fill(Qt::black);
    widget.render(&image, QPoint(), region);
    return image;
}

} // namespace

class StyleTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void colours_data()
    {
        QTest::addColumn<QColor>("colour");
        QTest::addColumn<int>("red");
        QTest::addColumn<int>("green");
        QTest::addColumn<int>("blue");
        QTest::newRow("purple") << AppStyle::purple << 96 << 92 << 168;
        QTest::newRow("purpleLight") << AppStyle::purpleLight << 123 << 120 << 184;
        QTest::newRow("bgStart") << AppStyle::bgStart << 248 << 247 << 252;
        QTest::newRow("bgEnd") << AppStyle::bgEnd << 232 << 230 << 245;
        QTest::newRow("textPrimary") << AppStyle::textPrimary << 51 << 51 << 51;
    }

    void colours()
    {
        QFETCH(QColor, colour);
        QFETCH(int, red);
        QFETCH(int, green);
        QFETCH(int, blue);
        QCOMPARE(colour.spec(), QColor::Rgb);
        QCOMPARE(colour.red(), red);
        QCOMPARE(colour.green(), green);
        QCOMPARE(colour.blue(), blue);
        QCOMPARE(colour.alpha(), 255);
    }

    void shadowIsPurpleAtFifteenPercentAndPurpleStaysOpaque()
    {
        const QColor shadow = AppStyle::cardShadow();
        QCOMPARE(shadow.rgb(), AppStyle::purple.rgb());
        QVERIFY(qAbs(shadow.alphaF() - 0.15f) < 0.001f);
        QCOMPARE(AppStyle::purple.alpha(), 255);
    }

    void gradientRunsFromTopLeftToBottomRight_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("wide") << QSize(416, 120);
        QTest::newRow("tall") << QSize(90, 520);
        QTest::newRow("square") << QSize(200, 200);
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
        // At -45 degrees the colour is constant along lines x + y = c, so the other two corners of
        // a square area match, and lightness falls from the top-left to the bottom-right.
        const int side = std::min(right, bottom);
        QVERIFY(distance(image.pixelColor(side, 0), image.pixelColor(0, side)) <= 1);
        QVERIFY(image.pixelColor(0, 0).lightness() > image.pixelColor(right / 2, bottom / 2).lightness());
        QVERIFY(image.pixelColor(right / 2, bottom / 2).lightness() > image.pixelColor(right, bottom).lightness());
    }

    void partialRepaintUsesTheWholeView()
    {
        GradientView view;
        view.resize(300, 200);
        const QImage whole = render(view);
        // Only the region is repainted, and it lands at the target's origin.
        const QRect region(200, 120, 40, 30);
        const QImage part = render(view, region);
        for (const QPoint offset : { QPoint(0, 0), QPoint(39, 29), QPoint(20, 15) })
            QCOMPARE(part.pixelColor(offset), whole.pixelColor(region.topLeft() + offset));
        QCOMPARE(part.pixelColor(100, 100), QColor(Qt::black)); // beyond the region: untouched
    }

    void emptyGradientDrawsNothing_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("no width") << QSize(0, 50);
        QTest::newRow("no height") << QSize(50, 0);
    }

    void emptyGradientDrawsNothing()
    {
        QFETCH(QSize, size);
        GradientView view;
        view.resize(size);
        QImage image(50, 50, QImage::Format_ARGB32);
        image.fill(Qt::black);
        view.render(&image);
        QCOMPARE(image.pixelColor(0, 0), QColor(Qt::black));
    }

    void cardIsWhiteAndRounded()
    {
        const QImage image = renderCard(Qt::black);
        QCOMPARE(image.pixelColor(100, 70), QColor(Qt::white));
        QCOMPARE(image.pixelColor(41, 70), QColor(Qt::white)); // the straight left edge
        // The corners are cut round: a radius of 12 leaves the corner pixel dark, and the point
        // 3 pixels in along the diagonal (inside the square, outside the arc) as well.
        for (const QPoint corner : { QPoint(40, 40), QPoint(43, 43), QPoint(159, 99), QPoint(156, 96) })
            QVERIFY(image.pixelColor(corner).lightness() < 128);
        QVERIFY(image.pixelColor(46, 46).lightness() > 240);
    }

    void cardCastsAFaintPurpleShadowDownward()
    {
        // On white, anything that is not white is the card's shadow.
        const QImage image = renderCard(Qt::white);
        // The shadow is purple (blue over red, red over green) and darker below than above.
        const QColor below = image.pixelColor(100, 101);
        const QColor above = image.pixelColor(100, 38);
        QVERIFY(below != QColor(Qt::white));
        // Purple over white keeps blue the strongest channel (white minus 15 % of 159, 163, 87).
        QVERIFY2(below.blue() > below.red() + 4 && below.blue() > below.green() + 4, qPrintable(below.name()));
        QVERIFY(below.lightness() < above.lightness());
        // Faint: 15 % of purple at most, and gone 10 pixels beyond the blur.
        QVERIFY(below.lightness() > 200);
        QCOMPARE(image.pixelColor(100, 125), QColor(Qt::white));
    }
};

QTEST_MAIN(StyleTest)
#include "StyleTest.moc"
