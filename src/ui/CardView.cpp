#include "ui/CardView.h"

#include "ui/AppStyle.h"

#include <QGraphicsDropShadowEffect>
#include <QPainter>
#include <QPainterPath>

namespace kestrix {

CardView::CardView(QWidget *parent)
    : QWidget(parent)
{
    // The shadow is drawn from the card's alpha, so it follows the rounded corners.
    auto *shadow = new QGraphicsDropShadowEffect(this);
    shadow->setColor(AppStyle::cardShadow());
    shadow->setOffset(0.0, AppStyle::cardShadowOffsetY);
    shadow->setBlurRadius(AppStyle::cardShadowBlur);
    setGraphicsEffect(shadow);
}

void CardView::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    QPainterPath surface;
    surface.addRoundedRect(QRectF(rect()), AppStyle::cardCornerRadius, AppStyle::cardCornerRadius);
    painter.fillPath(surface, Qt::white);
}

} // namespace kestrix
