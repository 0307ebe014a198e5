#include "ui/WindowChrome.h"

#include "ui/AppStyle.h"

#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QFocusEvent>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionComboBox>
#include <QStyleOptionFocusRect>
#include <QStyleOptionSlider>

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

constexpr int closeButtonSize = 28; // logical pixels, the round hover area
constexpr qreal closeCrossHalf = 5.0; // logical pixels from the centre to each end of the cross
constexpr int linkPadding = 2; // logical pixels around the text, room for the focus frame

} // namespace

namespace {

constexpr int boxInset = 3; // logical pixels from the checkbox indicator's edge to the box: room for the ring
constexpr qreal boxRadius = 4.0;
constexpr int sliderInset = 4; // logical pixels at each end of the track: room for the thumb's ring
constexpr qreal trackHeight = 4.0;
constexpr qreal fieldRadius = 6.0; // the pop-up's field

constexpr qreal listRadius = 8.0; // the pop-up's open list

// Keeps a window's shape to a rounded rectangle at every size.
class RoundedShape final : public QObject
{
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Resize) {
            auto *window = static_cast<QWidget *>(watched);
            QPainterPath outline;
            outline.addRoundedRect(QRectF(window->rect()), listRadius, listRadius);
            window->setMask(QRegion(outline.toFillPolygon().toPolygon()));
        }
        return false;
    }
};

QColor withAlpha(QColor colour, float alpha)
{
    colour.setAlphaF(alpha);
    return colour;
}

} // namespace

bool ControlStyle::showsFocus(const QStyleOption &option)
{
    return (option.state & State_HasFocus) != 0 && (option.state & State_KeyboardFocusChange) != 0;
}

QColor ControlStyle::disabledColor() { return { 188, 186, 204 }; }

int ControlStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const
{
    if (metric == PM_IndicatorWidth || metric == PM_IndicatorHeight)
        return indicatorSize;
    if (metric == PM_SliderLength)
        return thumbSize;
    if (metric == PM_SliderThickness || metric == PM_SliderControlThickness)
        return thumbSize + 2 * sliderInset;
    return QProxyStyle::pixelMetric(metric, option, widget);
}

int ControlStyle::styleHint(
    StyleHint hint, const QStyleOption *option, const QWidget *widget, QStyleHintReturn *returnData) const
{
    // The list opens below the field, so it honours maxVisibleItems instead of filling the screen.
    if (hint == SH_ComboBox_Popup)
        return 0;
    if (hint == SH_ComboBox_PopupFrameStyle)
        return QFrame::NoFrame;
    return QProxyStyle::styleHint(hint, option, widget, returnData);
}

QSize ControlStyle::sizeFromContents(
    ContentsType type, const QStyleOption *option, const QSize &contentsSize, const QWidget *widget) const
{
    QSize size = QProxyStyle::sizeFromContents(type, option, contentsSize, widget);
    if (type == CT_CheckBox)
        size.setHeight(std::max(contentsSize.height(), indicatorSize));
    return size;
}

QRect ControlStyle::subControlRect(
    ComplexControl control, const QStyleOptionComplex *option, SubControl sub, const QWidget *widget) const
{
    const auto *slider = qstyleoption_cast<const QStyleOptionSlider *>(option);
    if (control != CC_Slider || slider == nullptr || slider->orientation != Qt::Horizontal)
        return QProxyStyle::subControlRect(control, option, sub, widget);
    // The thumb travels the track, which ends short of the widget's edges so the thumb's focus
    // ring is never cut off. A slider reads right to left through upsideDown.
    const QRect track = slider->rect.adjusted(sliderInset, 0, -sliderInset, 0);
    if (sub == SC_SliderGroove)
        return track;
    if (sub == SC_SliderHandle) {
        const int offset = sliderPositionFromValue(
            slider->minimum, slider->maximum, slider->sliderPosition, track.width() - thumbSize, slider->upsideDown);
        return { track.left() + offset, track.center().y() - thumbSize / 2, thumbSize, thumbSize };
    }
    return QProxyStyle::subControlRect(control, option, sub, widget);
}

void ControlStyle::drawPrimitive(
    PrimitiveElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const
{
    if (element == PE_FrameFocusRect) {
        // A checkbox's ring goes round its box, drawn with it, not round its text.
        if (!showsFocus(*option) || qobject_cast<const QCheckBox *>(widget) != nullptr)
            return;
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(QPen(option->palette.color(QPalette::Highlight), focusWidth));
        painter->setBrush(Qt::NoBrush);
        const qreal half = focusWidth / 2;
        const QRectF ring = QRectF(option->rect).adjusted(half, half, -half, -half);
        painter->drawRoundedRect(ring, boxRadius + 2, boxRadius + 2);
        painter->restore();
        return;
    }
    if (element != PE_IndicatorCheckBox) {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        return;
    }
    const bool on = (option->state & State_On) != 0;
    const bool partly = (option->state & State_NoChange) != 0;
    const bool pressed = (option->state & State_Sunken) != 0;
    const bool hovered = (option->state & State_MouseOver) != 0;
    const bool enabled = (option->state & State_Enabled) != 0;
    const QPalette &palette = option->palette;
    const QColor accent = enabled ? palette.color(QPalette::Highlight) : disabledColor();

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(option->rect).adjusted(boxInset, boxInset, -boxInset, -boxInset);
    if (on || partly) {
        QColor fill = accent;
        if (enabled && pressed)
            fill = fill.darker(115);
        else if (enabled && hovered)
            fill = fill.lighter(110);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(box, boxRadius, boxRadius);
        painter->setPen(
            QPen(palette.color(QPalette::HighlightedText), 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        const qreal w = box.width();
        const qreal h = box.height();
        if (partly) {
            painter->drawLine(
                QPointF(box.left() + w * 0.28, box.center().y()), QPointF(box.right() - w * 0.28, box.center().y()));
        } else {
            const QPointF tick[] = { { box.left() + w * 0.24, box.top() + h * 0.52 },
                { box.left() + w * 0.43, box.top() + h * 0.70 }, { box.left() + w * 0.77, box.top() + h * 0.32 } };
            painter->drawPolyline(tick, 3);
        }
    } else {
        const QColor border = enabled ? withAlpha(accent, hovered ? 0.85f : 0.45f) : accent;
        painter->setPen(QPen(border, 1.2));
        painter->setBrush(pressed ? palette.color(QPalette::AlternateBase) : palette.color(QPalette::Base));
        painter->drawRoundedRect(box.adjusted(0.6, 0.6, -0.6, -0.6), boxRadius, boxRadius);
    }
    if (showsFocus(*option)) {
        const qreal half = focusWidth / 2;
        painter->setPen(QPen(palette.color(QPalette::Highlight), focusWidth));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(QRectF(option->rect).adjusted(half, half, -half, -half), boxRadius + 2, boxRadius + 2);
    }
    painter->restore();
}

void ControlStyle::drawComplexControl(
    ComplexControl control, const QStyleOptionComplex *option, QPainter *painter, const QWidget *widget) const
{
    const bool enabled = (option->state & State_Enabled) != 0;
    const QColor accent = enabled ? option->palette.color(QPalette::Highlight) : disabledColor();
    const auto *slider = qstyleoption_cast<const QStyleOptionSlider *>(option);
    if (control == CC_Slider && slider != nullptr && slider->orientation == Qt::Horizontal) {
        const QRect track = subControlRect(CC_Slider, slider, SC_SliderGroove, widget);
        const QRectF thumb = subControlRect(CC_Slider, slider, SC_SliderHandle, widget);
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        painter->setPen(Qt::NoPen);
        const QRectF line(track.left(), track.center().y() + 0.5 - trackHeight / 2, track.width(), trackHeight);
        painter->setBrush(withAlpha(accent, 0.22f));
        painter->drawRoundedRect(line, trackHeight / 2, trackHeight / 2);
        // Filled from the minimum's end to the thumb.
        QRectF filled = line;
        if (slider->upsideDown)
            filled.setLeft(thumb.center().x());
        else
            filled.setRight(thumb.center().x());
        painter->setBrush(accent);
        painter->drawRoundedRect(filled, trackHeight / 2, trackHeight / 2);

        const bool pressed = (slider->activeSubControls & SC_SliderHandle) != 0 && (slider->state & State_Sunken) != 0;
        const bool hovered
            = (slider->activeSubControls & SC_SliderHandle) != 0 && (slider->state & State_MouseOver) != 0;
        painter->setBrush(pressed ? option->palette.color(QPalette::AlternateBase) : QColor(Qt::white));
        painter->setPen(QPen(hovered ? accent.darker(115) : accent, 2.0));
        painter->drawEllipse(thumb.adjusted(1.0, 1.0, -1.0, -1.0));
        if (showsFocus(*option)) {
            painter->setBrush(Qt::NoBrush);
            painter->setPen(QPen(accent, focusWidth));
            painter->drawEllipse(thumb.adjusted(-2.0, -2.0, 2.0, 2.0));
        }
        painter->restore();
        return;
    }
    const auto *combo = qstyleoption_cast<const QStyleOptionComboBox *>(option);
    if (control == CC_ComboBox && combo != nullptr && !combo->editable) {
        const bool hovered = (option->state & State_MouseOver) != 0;
        painter->save();
        painter->setRenderHint(QPainter::Antialiasing);
        const QRectF field = QRectF(option->rect).adjusted(1.0, 1.0, -1.0, -1.0);
        painter->setBrush(enabled ? QColor(Qt::white) : option->palette.color(QPalette::AlternateBase));
        if (showsFocus(*option))
            painter->setPen(QPen(accent, focusWidth));
        else
            painter->setPen(QPen(enabled ? withAlpha(accent, hovered ? 0.85f : 0.4f) : accent, 1.0));
        painter->drawRoundedRect(field, fieldRadius, fieldRadius);
        // A chevron pointing down.
        const QPointF centre = QRectF(subControlRect(CC_ComboBox, combo, SC_ComboBoxArrow, widget)).center();
        painter->setPen(QPen(accent, 1.6, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
        painter->setBrush(Qt::NoBrush);
        const QPointF chevron[]
            = { centre + QPointF(-4.0, -2.0), centre + QPointF(0.0, 2.0), centre + QPointF(4.0, -2.0) };
        painter->drawPolyline(chevron, 3);
        painter->restore();
        return;
    }
    QProxyStyle::drawComplexControl(control, option, painter, widget);
}

bool desktopComposites()
{
    const QString platform = QGuiApplication::platformName();
    if (platform.startsWith("wayland"_L1))
        return true;
    const auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    if (platform != "xcb"_L1 || x11 == nullptr)
        return false;
    xcb_connection_t *connection = x11->connection();
    // Screen 0: desktops run one X screen, spanning every monitor.
    const QByteArray name = "_NET_WM_CM_S0";
    const xcb_intern_atom_cookie_t atomCookie
        = xcb_intern_atom(connection, 1, static_cast<std::uint16_t>(name.size()), name.constData());
    xcb_intern_atom_reply_t *atom = xcb_intern_atom_reply(connection, atomCookie, nullptr);
    if (atom == nullptr)
        return false;
    const xcb_atom_t selection = atom->atom;
    std::free(atom);
    if (selection == XCB_ATOM_NONE)
        return false;
    xcb_get_selection_owner_reply_t *owner
        = xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, selection), nullptr);
    const bool owned = owner != nullptr && owner->owner != XCB_WINDOW_NONE;
    std::free(owner);
    return owned;
}

void roundPopupList(QComboBox *popup)
{
    QAbstractItemView *list = popup->view();
    list->setStyleSheet(u"QAbstractItemView { background: white; border: 1px solid rgba(96, 92, 168, 110);"
                        " border-radius: 8px; padding: 4px; outline: none; }"
                        " QAbstractItemView::item { padding: 3px 8px; border-radius: 5px; color: rgb(29, 29, 31); }"
                        " QAbstractItemView::item:hover { background: rgb(240, 239, 250); }"
                        " QAbstractItemView::item:selected { background: rgb(96, 92, 168); color: white; }"_s);
    QWidget *window = list->parentWidget();
    window->installEventFilter(new RoundedShape(window));
}

FlatButton::FlatButton(Qt::FocusPolicy focusPolicy, QWidget *parent)
    : QAbstractButton(parent)
{
    setFocusPolicy(focusPolicy);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
}

void FlatButton::focusInEvent(QFocusEvent *event)
{
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason;
    QAbstractButton::focusInEvent(event);
}

CloseButton::CloseButton(QWidget *parent)
    : FlatButton(Qt::TabFocus, parent)
{
    setAccessibleName(u"Close"_s);
}

QSize CloseButton::sizeHint() const { return { closeButtonSize, closeButtonSize }; }

void CloseButton::enterEvent(QEnterEvent *event)
{
    update();
    FlatButton::enterEvent(event);
}

void CloseButton::leaveEvent(QEvent *event)
{
    update();
    FlatButton::leaveEvent(event);
}

void CloseButton::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(1.0, 1.0, -1.0, -1.0);
    const bool keyboardFocus = showsFocusRing();
    const bool highlighted = underMouse() || keyboardFocus || isDown();
    if (highlighted) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, isDown() ? 90 : 50));
        painter.drawEllipse(area);
    }
    if (keyboardFocus) {
        // The window's 2 pixel ring, white on the purple band.
        painter.setPen(QPen(Qt::white, ControlStyle::focusWidth));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(area.adjusted(1.0, 1.0, -1.0, -1.0));
    }
    const QPointF centre = area.center();
    painter.setPen(QPen(Qt::white, 1.8, Qt::SolidLine, Qt::RoundCap));
    painter.drawLine(
        centre + QPointF(-closeCrossHalf, -closeCrossHalf), centre + QPointF(closeCrossHalf, closeCrossHalf));
    painter.drawLine(
        centre + QPointF(-closeCrossHalf, closeCrossHalf), centre + QPointF(closeCrossHalf, -closeCrossHalf));
}

LinkButton::LinkButton(const QString &text, QColor color, QWidget *parent)
    : QAbstractButton(parent)
    , m_color(color)
{
    setText(text);
    setAccessibleName(text);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
    // Web addresses read left to right in every language.
    setLayoutDirection(Qt::LeftToRight);
}

QSize LinkButton::sizeHint() const
{
    const QFontMetrics metrics(font());
    return { metrics.horizontalAdvance(text()) + 2 * linkPadding, metrics.height() + 2 * linkPadding };
}

void LinkButton::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    QFont underlined = font();
    underlined.setUnderline(true);
    painter.setFont(underlined);
    painter.setPen(m_color);
    const QRect textArea = rect().adjusted(linkPadding, linkPadding, -linkPadding, -linkPadding);
    painter.drawText(textArea, Qt::AlignCenter, text());
    if (hasFocus()) {
        QStyleOptionFocusRect option;
        option.initFrom(this);
        option.rect = rect();
        style()->drawPrimitive(QStyle::PE_FrameFocusRect, &option, &painter, this);
    }
}

void LinkButton::keyPressEvent(QKeyEvent *event)
{
    // A link follows on Enter as well as on Space.
    if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
        click();
        return;
    }
    QAbstractButton::keyPressEvent(event);
}

FooterRow::FooterRow(LinkButton *link, QLabel *contact, QWidget *parent)
    : QWidget(parent)
    , m_link(link)
    , m_contact(contact)
{
    m_link->setParent(this);
    m_contact->setParent(this);
    setLayoutDirection(Qt::LeftToRight);
}

QSize FooterRow::sizeHint() const
{
    const QSize link = m_link->sizeHint();
    const QSize contact = m_contact->sizeHint();
    return { link.width() + contact.width(), std::max(link.height(), contact.height()) };
}

void FooterRow::resizeEvent(QResizeEvent * /*event*/)
{
    const QSize link = m_link->sizeHint();
    const QSize contact = m_contact->sizeHint();
    const int centreY = height() / 2;
    int linkLeft = width() / 2 - linkCentreOffset - link.width() / 2;
    // Never push the contact line out of the row, whatever the length of the two literals.
    linkLeft = std::max(0, std::min(linkLeft, width() - link.width() - contact.width()));
    m_link->setGeometry(linkLeft, centreY - link.height() / 2, link.width(), link.height());
    m_contact->setGeometry(linkLeft + link.width(), centreY - contact.height() / 2, contact.width(), contact.height());
}

HeaderCommandBar::HeaderCommandBar(QStyle *controlStyle, QWidget *parent)
    : QWidget(parent)
    , m_enabledSwitch(new QCheckBox(this))
    , m_quitButton(new QPushButton(this))
{
    m_enabledSwitch->setObjectName(u"headerEnabledSwitch"_s);
    m_quitButton->setObjectName(u"headerQuitButton"_s);
    // White on the purple band: a white box with a purple tick when on, a white outline when off.
    m_enabledSwitch->setStyle(controlStyle);
    QPalette palette = m_enabledSwitch->palette();
    palette.setColor(QPalette::WindowText, Qt::white);
    palette.setColor(QPalette::Highlight, Qt::white);
    palette.setColor(QPalette::HighlightedText, AppStyle::purple);
    palette.setColor(QPalette::Base, QColor(255, 255, 255, 30));
    palette.setColor(QPalette::AlternateBase, QColor(255, 255, 255, 70));
    m_enabledSwitch->setPalette(palette);
    m_quitButton->setCursor(Qt::PointingHandCursor);
    // Focus, and with it the focus ring below, comes only from the keyboard.
    m_quitButton->setFocusPolicy(Qt::TabFocus);
    // No padding above and below the text: a tall script's line fills the header's top strip. The
    // focus shows in colour, not in a wider border, so the text keeps all its room.
    m_quitButton->setStyleSheet(
        u"QPushButton { color: white; background: transparent; border: 1px solid rgba(255, 255, 255, 150);"
        " border-radius: 10px; padding: 0 10px; }"
        " QPushButton:hover { background: rgba(255, 255, 255, 40); }"
        " QPushButton:pressed { background: rgba(255, 255, 255, 80); }"
        " QPushButton:focus { border: 1px solid white; background: rgba(255, 255, 255, 60); }"_s);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(12);
    layout->addWidget(m_enabledSwitch);
    layout->addWidget(m_quitButton);

    // The switch's own tick is the user's request only: the engine decides, and setEngineEnabled
    // brings the tick back in step with it.
    connect(m_enabledSwitch, &QCheckBox::clicked, this, [this] { Q_EMIT toggleRequested(); });
    connect(m_quitButton, &QPushButton::clicked, this, &HeaderCommandBar::quitRequested);
}

void HeaderCommandBar::setTexts(const QString &enabledText, const QString &quitText)
{
    m_enabledSwitch->setText(enabledText);
    m_quitButton->setText(quitText);
}

void HeaderCommandBar::changeEvent(QEvent *event)
{
    // A button with a style sheet of its own does not take its parent's font: the bar hands it on.
    if (event->type() == QEvent::FontChange)
        m_quitButton->setFont(font());
    QWidget::changeEvent(event);
}

void HeaderCommandBar::setEngineEnabled(bool enabled) { m_enabledSwitch->setChecked(enabled); }

bool HeaderCommandBar::isEngineEnabled() const { return m_enabledSwitch->isChecked(); }

} // namespace kestrix
