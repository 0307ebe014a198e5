#include "ui/GradientView.h"

#include "ui/AppStyle.h"

#include <QPainter>

namespace kestrix {

GradientView::GradientView(QWidget *parent)
    : QWidget(parent)
{
    // Every pixel is painted, so Qt need not clear the background first.
    setAttribute(Qt::WA_OpaquePaintEvent);
}

QLinearGradient GradientView::gradientFor(QSizeF size)
{
    // Projecting the corner (w, h) onto the unit axis (1, 1)/sqrt(2) gives (w + h)/sqrt(2); back in
    // view coordinates that end point is ((w + h)/2, (w + h)/2).
    const qreal reach = (size.width() + size.height()) / 2.0;
    QLinearGradient gradient(QPointF(0.0, 0.0), QPointF(reach, reach));
    gradient.setColorAt(0.0, AppStyle::bgStart);
    gradient.setColorAt(1.0, AppStyle::bgEnd);
    return gradient;
}

void GradientView::paintEvent(QPaintEvent * /*event*/)
{
    if (width() <= 0 || height() <= 0)
        return;
    QPainter painter(this);
    painter.fillRect(rect(), gradientFor(size()));
}

} // namespace kestrix
