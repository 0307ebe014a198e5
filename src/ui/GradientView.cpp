#include "ui/GradientView.h"

#include "ui/AppStyle.h"

#include <QPainter>
#include <QPainterPath>

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

void GradientView::setBand(int height, QColor colour)
{
    m_bandHeight = height;
    m_bandColour = colour;
    update();
}

void GradientView::setCornerRadius(qreal radius)
{
    m_cornerRadius = radius;
    setAttribute(Qt::WA_OpaquePaintEvent, radius <= 0.0);
    update();
}

void GradientView::paintEvent(QPaintEvent * /*event*/)
{
    if (width() <= 0 || height() <= 0)
        return;
    QPainter painter(this);
    QPainterPath surface;
    surface.addRoundedRect(QRectF(rect()), m_cornerRadius, m_cornerRadius);
    if (m_cornerRadius > 0.0)
        painter.setRenderHint(QPainter::Antialiasing);
    painter.fillPath(surface, gradientFor(size()));
    if (m_bandHeight > 0) {
        QPainterPath band;
        band.addRect(QRectF(0.0, 0.0, width(), m_bandHeight));
        painter.fillPath(surface.intersected(band), m_bandColour);
    }
}

} // namespace kestrix
