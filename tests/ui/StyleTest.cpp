// The window's look, checked in pixels: the gradient's direction and its independence from the
// repainted region, the cards' white rounded surface and their faint purple shadow, the focus
// ring that only the keyboard brings, and a disabled control's pale grey.

#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"
#include "ui/StatusBarController.h"
#include "ui/WindowChrome.h"

#include <QApplication>
#include <QCheckBox>
#include <QImage>
#include <QTest>
#include <QVBoxLayout>

using namespace kestrix;
using namespace Qt::StringLiterals;

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

    void focusRingOnlyFromTheKeyboardAndDisabledIsGrey_data()
    {
        QTest::addColumn<QString>("how"); // the box gets the focus, or is disabled
        QTest::addColumn<QColor>("edge"); // just inside the indicator's edge, beside the box
        QTest::addColumn<QColor>("box"); // inside the ticked box
        const QColor purple = AppStyle::purple;
        QTest::newRow("Tab") << u"tab"_s << purple << purple;
        QTest::newRow("click") << u"click"_s << QColor(Qt::white) << purple;
        QTest::newRow("disabled") << u"disabled"_s << QColor(Qt::white) << ControlStyle::disabledColor();
    }

    void focusRingOnlyFromTheKeyboardAndDisabledIsGrey()
    {
        QFETCH(QString, how);
        QFETCH(QColor, edge);
        QFETCH(QColor, box);
        ControlStyle style;
        QWidget window;
        QPalette palette(Qt::white, Qt::white);
        palette.setColor(QPalette::Highlight, AppStyle::purple);
        window.setPalette(palette);
        auto *layout = new QVBoxLayout(&window);
        QCheckBox first(&window);
        QCheckBox checkbox(&window);
        for (QCheckBox *each : { &first, &checkbox }) {
            each->setStyle(&style);
            layout->addWidget(each);
        }
        window.show();
        QVERIFY(QTest::qWaitForWindowActive(&window));
        first.setFocus();
        if (how == "tab"_L1)
            QTest::keyClick(&first, Qt::Key_Tab);
        else
            QTest::mouseClick(&checkbox, Qt::LeftButton, {}, QPoint(8, checkbox.height() / 2));
        checkbox.setChecked(true);
        checkbox.setEnabled(how != "disabled"_L1);
        const QImage image = checkbox.grab().toImage();
        const int top = (checkbox.height() - ControlStyle::indicatorSize) / 2;
        QVERIFY(distance(image.pixelColor(1, top + 10), edge) <= 24);
        QVERIFY(distance(image.pixelColor(6, top + 6), box) <= 24);
    }

    // Both icons render whole at tray sizes (Qt's SVG icon engine is there): the coloured one opaque
    // in the middle and clear at the corner; the symbolic one, as drawn (no theme recolours it),
    // holds light and dark pixels, so it reads on a dark panel and on a light one.
    void iconsRenderAtTraySizes()
    {
        const QIcon symbolic(u":/icons/kestrix-symbolic.svg"_s);
        for (const int size : { 16, 22, 24, 32, 48, 64 }) {
            const QImage drawn = StatusBarController::appIcon().pixmap(size, size).toImage();
            QCOMPARE(drawn.size(), QSize(size, size));
            QVERIFY(drawn.pixelColor(size / 2, size / 2).alpha() == 255 && drawn.pixelColor(0, 0).alpha() < 255);
            const QImage glyph = symbolic.pixmap(size, size).toImage();
            int light = 0;
            int dark = 0;
            for (int pixel = 0; pixel < size * size; ++pixel) {
                const QColor shade = glyph.pixelColor(pixel % size, pixel / size);
                light += shade.alpha() > 200 && shade.lightness() > 200 ? 1 : 0;
                dark += shade.alpha() > 200 && shade.lightness() < 80 ? 1 : 0;
            }
            QVERIFY(light >= size && dark >= size);
        }
    }
};

QTEST_MAIN(StyleTest)
#include "StyleTest.moc"
