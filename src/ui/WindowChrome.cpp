#include "ui/WindowChrome.h"

#include "ui/AppStyle.h"

#include <QCheckBox>
#include <QFocusEvent>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionFocusRect>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

constexpr int closeButtonSize = 28; // logical pixels, the round hover area
constexpr qreal closeCrossHalf = 5.0; // logical pixels from the centre to each end of the cross
constexpr int linkPadding = 2; // logical pixels around the text, room for the focus frame

} // namespace

int CheckboxStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const
{
    if (metric == PM_IndicatorWidth || metric == PM_IndicatorHeight)
        return indicatorSize;
    return QProxyStyle::pixelMetric(metric, option, widget);
}

QSize CheckboxStyle::sizeFromContents(
    ContentsType type, const QStyleOption *option, const QSize &contentsSize, const QWidget *widget) const
{
    QSize size = QProxyStyle::sizeFromContents(type, option, contentsSize, widget);
    if (type == CT_CheckBox)
        size.setHeight(std::max(contentsSize.height(), indicatorSize));
    return size;
}

void CheckboxStyle::drawPrimitive(
    PrimitiveElement element, const QStyleOption *option, QPainter *painter, const QWidget *widget) const
{
    if (element != PE_IndicatorCheckBox) {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        return;
    }
    const bool on = (option->state & State_On) != 0;
    const bool partly = (option->state & State_NoChange) != 0;
    const bool pressed = (option->state & State_Sunken) != 0;
    const bool hovered = (option->state & State_MouseOver) != 0;
    const QPalette &palette = option->palette;

    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(option->rect).adjusted(1.0, 1.0, -1.0, -1.0);
    constexpr qreal radius = 4.0;
    if (on || partly) {
        QColor fill = palette.color(QPalette::Highlight);
        if (pressed)
            fill = fill.darker(115);
        else if (hovered)
            fill = fill.lighter(110);
        painter->setPen(Qt::NoPen);
        painter->setBrush(fill);
        painter->drawRoundedRect(box, radius, radius);
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
        QColor border = palette.color(QPalette::Highlight);
        border.setAlphaF(hovered ? 0.85f : 0.45f);
        painter->setPen(QPen(border, 1.2));
        painter->setBrush(pressed ? palette.color(QPalette::AlternateBase) : palette.color(QPalette::Base));
        painter->drawRoundedRect(box.adjusted(0.6, 0.6, -0.6, -0.6), radius, radius);
    }
    painter->restore();
}

CloseButton::CloseButton(QWidget *parent)
    : QAbstractButton(parent)
{
    setFocusPolicy(Qt::TabFocus);
    setCursor(Qt::PointingHandCursor);
    setAttribute(Qt::WA_Hover);
    setAccessibleName(u"Close"_s);
}

QSize CloseButton::sizeHint() const { return { closeButtonSize, closeButtonSize }; }

void CloseButton::enterEvent(QEnterEvent *event)
{
    update();
    QAbstractButton::enterEvent(event);
}

void CloseButton::leaveEvent(QEvent *event)
{
    update();
    QAbstractButton::leaveEvent(event);
}

void CloseButton::focusInEvent(QFocusEvent *event)
{
    m_keyboardFocus = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason;
    QAbstractButton::focusInEvent(event);
}

void CloseButton::paintEvent(QPaintEvent * /*event*/)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF area = QRectF(rect()).adjusted(1.0, 1.0, -1.0, -1.0);
    const bool keyboardFocus = hasFocus() && m_keyboardFocus;
    const bool highlighted = underMouse() || keyboardFocus || isDown();
    if (highlighted) {
        painter.setPen(Qt::NoPen);
        painter.setBrush(QColor(255, 255, 255, isDown() ? 90 : 50));
        painter.drawEllipse(area);
    }
    if (keyboardFocus) {
        painter.setPen(QPen(Qt::white, 1.5));
        painter.setBrush(Qt::NoBrush);
        painter.drawEllipse(area.adjusted(0.75, 0.75, -0.75, -0.75));
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

HeaderCommandBar::HeaderCommandBar(QStyle *checkboxStyle, QWidget *parent)
    : QWidget(parent)
    , m_enabledSwitch(new QCheckBox(this))
    , m_quitButton(new QPushButton(this))
{
    m_enabledSwitch->setObjectName(u"headerEnabledSwitch"_s);
    m_quitButton->setObjectName(u"headerQuitButton"_s);
    // White on the purple band: a white box with a purple tick when on, a white outline when off.
    m_enabledSwitch->setStyle(checkboxStyle);
    QPalette palette = m_enabledSwitch->palette();
    palette.setColor(QPalette::WindowText, Qt::white);
    palette.setColor(QPalette::Highlight, Qt::white);
    palette.setColor(QPalette::HighlightedText, AppStyle::purple);
    palette.setColor(QPalette::Base, QColor(255, 255, 255, 30));
    palette.setColor(QPalette::AlternateBase, QColor(255, 255, 255, 70));
    m_enabledSwitch->setPalette(palette);
    m_quitButton->setCursor(Qt::PointingHandCursor);
    m_quitButton->setStyleSheet(
        u"QPushButton { color: white; background: transparent; border: 1px solid rgba(255, 255, 255, 150);"
        " border-radius: 10px; padding: 1px 10px; }"
        " QPushButton:hover { background: rgba(255, 255, 255, 40); }"
        " QPushButton:pressed { background: rgba(255, 255, 255, 80); }"
        " QPushButton:focus { border: 2px solid white; }"_s);

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

void HeaderCommandBar::setEngineEnabled(bool enabled) { m_enabledSwitch->setChecked(enabled); }

bool HeaderCommandBar::isEngineEnabled() const { return m_enabledSwitch->isChecked(); }

} // namespace kestrix
