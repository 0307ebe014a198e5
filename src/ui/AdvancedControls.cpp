#include "ui/AdvancedControls.h"

#include "ui/AppStyle.h"

#include <QFocusEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QSlider>
#include <QStyleOptionSlider>

#include <algorithm>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

constexpr int headerButtonSize = 28; // logical pixels, as the close button
constexpr qreal arrowHalf = 6.0; // logical pixels from the arrow's centre to its tip and tail
constexpr qreal removeCrossHalf = 3.5; // logical pixels
constexpr int notchLength = 4; // logical pixels, under the slider
constexpr int captionGap = 1; // logical pixels, notch to caption
const QColor hairline(236, 234, 246); // between list rows
const QColor switchOffTrack(214, 212, 230);
const QColor removeGrey(150, 148, 170);

// The window's keyboard focus mark, as on every other control: a 2 pixel purple ring.
void drawFocusRing(QPainter &painter, const QRectF &area, qreal radius)
{
    const qreal half = ControlStyle::focusWidth / 2;
    painter.setPen(QPen(AppStyle::purple, ControlStyle::focusWidth));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(area.adjusted(half, half, -half, -half), radius, radius);
}

} // namespace

BackButton::BackButton(QWidget *parent)
    : FlatButton(Qt::TabFocus, parent)
{ }

QSize BackButton::sizeHint() const { return { headerButtonSize, headerButtonSize }; }

void BackButton::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(1.0, 1.0, -1.0, -1.0);
    const bool keyboardFocus = showsFocusRing();
    if (underMouse() || keyboardFocus || isDown()) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, isDown() ? 90 : 50));
        painter.drawEllipse(area);
    }
    if (keyboardFocus) {
        const qreal half = ControlStyle::focusWidth / 2;
        painter.setPen(QPen(Qt::white, ControlStyle::focusWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(area.adjusted(half, half, -half, -half));
    }
    // Back points the way the language reads from: left, or right when written right to left.
    const qreal toward = isRightToLeft() ? 1.0 : -1.0;
    const QPointF centre = area.center();
    const QPointF tip = centre + QPointF(toward * arrowHalf, 0.0);
    painter.setPen(QPen(Qt::white, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawLine(tip, centre - QPointF(toward * arrowHalf, 0.0));
    const QPointF wing(-toward * (arrowHalf - 1.0), arrowHalf - 1.0);
    const QPointF head[] = { tip + QPointF(wing.x(), -wing.y()), tip, tip + wing };
    painter.drawPolyline(head, 3);
}

ToggleSwitch::ToggleSwitch(QWidget *parent)
    : FlatButton(Qt::StrongFocus, parent)
{
    setCheckable(true);
}

// Two pixels around the track keep room for the focus ring.
QSize ToggleSwitch::sizeHint() const { return { trackWidth + 4, trackHeight + 4 }; }

void ToggleSwitch::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF track((width() - trackWidth) / 2.0, (height() - trackHeight) / 2.0, trackWidth, trackHeight);
    const qreal radius = trackHeight / 2.0;
    QColor fill = isChecked() ? AppStyle::purple : switchOffTrack;
    if (isDown())
        fill = fill.darker(112);
    else if (underMouse())
        fill = fill.lighter(isChecked() ? 112 : 104);
    if (!isEnabled())
        fill.setAlphaF(0.5f);
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(track, radius, radius);

    // On puts the knob at the far end of the reading direction.
    const bool farEnd = isChecked() != isRightToLeft();
    const qreal knobDiameter = trackHeight - 4.0;
    const qreal knobLeft = farEnd ? track.right() - 2.0 - knobDiameter : track.left() + 2.0;
    painter.setBrush(QColor(0, 0, 0, 28));
    painter.drawEllipse(QRectF(knobLeft, track.top() + 2.5, knobDiameter, knobDiameter));
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(knobLeft, track.top() + 2.0, knobDiameter, knobDiameter));

    if (showsFocusRing())
        drawFocusRing(painter, track.adjusted(-2.0, -2.0, 2.0, 2.0), radius + 2.0);
}

RemoveButton::RemoveButton(QWidget *parent)
    : FlatButton(Qt::StrongFocus, parent)
{ }

QSize RemoveButton::sizeHint() const { return { diameter, diameter }; }

void RemoveButton::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(1.0, 1.0, -1.0, -1.0);
    const bool hot = underMouse() || isDown() || hasFocus();
    if (hot) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(isDown() ? AppStyle::purple : QColor(238, 236, 248));
        painter.drawEllipse(area);
    }
    if (showsFocusRing())
        drawFocusRing(painter, area, area.width() / 2.0);
    const QColor cross = isDown() ? QColor(Qt::white) : (hot ? AppStyle::purple : removeGrey);
    painter.setPen(QPen(cross, 1.6, Qt::SolidLine, Qt::RoundCap));
    const QPointF centre = area.center();
    painter.drawLine(
        centre + QPointF(-removeCrossHalf, -removeCrossHalf), centre + QPointF(removeCrossHalf, removeCrossHalf));
    painter.drawLine(
        centre + QPointF(-removeCrossHalf, removeCrossHalf), centre + QPointF(removeCrossHalf, -removeCrossHalf));
}

ElidedLabel::ElidedLabel(const QString &text, QWidget *parent)
    : QWidget(parent)
    , m_text(text)
{
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    // The whole name, for a row too narrow to show it.
    setToolTip(text);
}

QSize ElidedLabel::sizeHint() const
{
    const QFontMetrics metrics(font());
    return { metrics.horizontalAdvance(m_text), metrics.height() };
}

QSize ElidedLabel::minimumSizeHint() const
{
    const QFontMetrics metrics(font());
    return { metrics.horizontalAdvance(u"…"_s) * 4, metrics.height() };
}

void ElidedLabel::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setPen(palette().color(isEnabled() ? QPalette::Active : QPalette::Disabled, QPalette::WindowText));
    const QString shown = fontMetrics().elidedText(m_text, Qt::ElideRight, width());
    // The list reads from the interface's side, whatever the script of the name.
    const Qt::Alignment side = isRightToLeft() ? Qt::AlignRight : Qt::AlignLeft;
    painter.drawText(rect(), static_cast<int>(Qt::AlignVCenter | side) | Qt::TextSingleLine, shown);
}

ListRow::ListRow(bool separatorAbove, QWidget *parent)
    : QWidget(parent)
    , m_separatorAbove(separatorAbove)
{
    setFixedHeight(height);
}

void ListRow::paintEvent(QPaintEvent * /*event*/)
{
    if (!m_separatorAbove)
        return;
    QPainter painter(this);
    painter.fillRect(QRect(0, 0, width(), 1), hairline);
}

MarkedSlider::MarkedSlider(QSlider *slider, int markedValue, QWidget *parent)
    : QWidget(parent)
    , m_slider(slider)
    , m_caption(new QLabel(this))
    , m_markedValue(markedValue)
{
    m_slider->setParent(this);
    QPalette palette = m_caption->palette();
    palette.setColor(QPalette::WindowText, AppStyle::purpleLight);
    m_caption->setPalette(palette);
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
}

QSize MarkedSlider::sizeHint() const
{
    const QSize slider = m_slider->sizeHint();
    return { slider.width(), slider.height() + notchLength + captionGap + m_caption->sizeHint().height() };
}

QSize MarkedSlider::minimumSizeHint() const { return { m_slider->minimumSizeHint().width(), sizeHint().height() }; }

int MarkedSlider::markX() const
{
    QStyleOptionSlider option;
    option.initFrom(m_slider);
    option.orientation = m_slider->orientation();
    option.minimum = m_slider->minimum();
    option.maximum = m_slider->maximum();
    option.sliderPosition = m_markedValue;
    option.sliderValue = m_markedValue;
    option.singleStep = m_slider->singleStep();
    option.pageStep = m_slider->pageStep();
    // As the slider itself draws: right to left turns a horizontal slider round.
    option.upsideDown = m_slider->invertedAppearance() != (m_slider->layoutDirection() == Qt::RightToLeft);
    option.subControls = QStyle::SC_SliderHandle;
    const QRect handle
        = m_slider->style()->subControlRect(QStyle::CC_Slider, &option, QStyle::SC_SliderHandle, m_slider);
    return m_slider->x() + handle.center().x();
}

void MarkedSlider::placeCaption()
{
    const QSize slider = m_slider->sizeHint();
    m_slider->setGeometry(0, 0, width(), slider.height());
    const QSize caption = m_caption->sizeHint();
    const int left = std::clamp(markX() - caption.width() / 2, 0, std::max(0, width() - caption.width()));
    m_caption->setGeometry(left, slider.height() + notchLength + captionGap, caption.width(), caption.height());
}

void MarkedSlider::setCaption(const QString &text)
{
    m_caption->setText(text);
    placeCaption();
    updateGeometry();
}

void MarkedSlider::resizeEvent(QResizeEvent * /*event*/) { placeCaption(); }

void MarkedSlider::changeEvent(QEvent *event)
{
    // A new caption text, font or direction moves the caption.
    if (event->type() == QEvent::LayoutDirectionChange || event->type() == QEvent::FontChange)
        placeCaption();
    QWidget::changeEvent(event);
}

void MarkedSlider::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(AppStyle::purpleLight, 1.5, Qt::SolidLine, Qt::RoundCap));
    const qreal x = markX() + 0.5;
    const qreal top = m_slider->height();
    painter.drawLine(QPointF(x, top), QPointF(x, top + notchLength - 1));
}

} // namespace kestrix
