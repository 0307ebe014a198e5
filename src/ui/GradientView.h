#pragma once

#include <QLinearGradient>
#include <QWidget>

namespace kestrix {

// The preferences window's background: a two-stop linear gradient from AppStyle::bgStart in the
// top-left corner to AppStyle::bgEnd in the bottom-right corner, running at -45 degrees (down and
// to the right) whatever the view's aspect ratio.
//
// The gradient is always laid over the whole view, never over the region being repainted, so the
// colour of a pixel depends only on where it sits in the view. A band of one colour may cover its
// top (the window's header), and its corners may be rounded, antialiased, leaving them clear for
// a window that composites.
class GradientView final : public QWidget
{
    Q_OBJECT

public:
    explicit GradientView(QWidget *parent = nullptr);

    // The gradient for a view of the given size. The axis runs at 45 degrees below the horizontal;
    // its ends are the points where the perpendiculars through the top-left and bottom-right
    // corners meet it, so those two corners get exactly the first and the last colour.
    static QLinearGradient gradientFor(QSizeF size);

    void setBand(int height, QColor colour);
    void setCornerRadius(qreal radius);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    int m_bandHeight = 0;
    QColor m_bandColour;
    qreal m_cornerRadius = 0.0;
};

} // namespace kestrix
