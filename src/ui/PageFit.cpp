#include "ui/PageFit.h"

#include "ui/AppStyle.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QLabel>
#include <QSpacerItem>
#include <QStyleOptionButton>
#include <QStylePainter>
#include <QTextLayout>

#include <algorithm>
#include <cmath>

namespace kestrix {

namespace {

constexpr int maximumLines = 2;
constexpr int bigHeight = 10000; // pixels: room enough for any wrapped label

// A text broken into lines no wider than `width`, as QPainter breaks it with Qt::TextWordWrap.
struct Wrapped
{
    int lines = 0;
    qreal widest = 0; // a word longer than the width stays whole, wider than it
};

Wrapped wrap(const QString &text, const QFont &font, int width)
{
    QTextLayout layout(text, font);
    QTextOption option;
    option.setWrapMode(QTextOption::WordWrap);
    layout.setTextOption(option);
    Wrapped result;
    layout.beginLayout();
    for (QTextLine line = layout.createLine(); line.isValid(); line = layout.createLine()) {
        line.setLineWidth(width);
        ++result.lines;
        result.widest = std::max(result.widest, line.naturalTextWidth());
    }
    layout.endLayout();
    return result;
}

bool fitsTwoLines(const QString &text, const QFont &font, int width)
{
    const Wrapped wrapped = wrap(text, font, width);
    return wrapped.lines <= maximumLines && std::ceil(wrapped.widest) <= width;
}

} // namespace

void WrapCheckBox::setWrapWidth(int width)
{
    if (width == m_wrapWidth)
        return;
    m_wrapWidth = width;
    updateGeometry();
    update();
}

int WrapCheckBox::labelOffset() const
{
    return style()->pixelMetric(QStyle::PM_IndicatorWidth, nullptr, this)
        + style()->pixelMetric(QStyle::PM_CheckBoxLabelSpacing, nullptr, this);
}

int WrapCheckBox::lineCount() const
{
    if (m_wrapWidth <= 0)
        return 1;
    return std::max(1, wrap(text(), font(), m_wrapWidth - labelOffset()).lines);
}

QSize WrapCheckBox::sizeHint() const
{
    const QSize oneLine = QCheckBox::sizeHint();
    if (m_wrapWidth <= 0 || oneLine.width() <= m_wrapWidth)
        return oneLine;
    const QRect label
        = fontMetrics().boundingRect(QRect(0, 0, m_wrapWidth - labelOffset(), bigHeight), Qt::TextWordWrap, text());
    return { labelOffset() + label.width(), std::max(label.height(), oneLine.height()) };
}

QRect WrapCheckBox::labelRect(int width) const
{
    return QStyle::visualRect(layoutDirection(), rect(), QRect(labelOffset(), 0, width - labelOffset(), height()));
}

void WrapCheckBox::paintEvent(QPaintEvent *event)
{
    if (lineCount() <= 1) {
        QCheckBox::paintEvent(event);
        return;
    }
    QStylePainter painter(this);
    QStyleOptionButton option;
    initStyleOption(&option);
    const QString label = option.text;
    option.text.clear();
    // The box sits beside the first line.
    option.rect.setHeight(std::max(fontMetrics().height(), style()->pixelMetric(QStyle::PM_IndicatorHeight)));
    painter.drawControl(QStyle::CE_CheckBox, option);
    painter.drawItemText(labelRect(width()),
        int(QStyle::visualAlignment(layoutDirection(), Qt::AlignLeft | Qt::AlignTop)) | Qt::TextWordWrap, palette(),
        isEnabled(), label, QPalette::WindowText);
}

bool WrapCheckBox::hitButton(const QPoint &pos) const { return rect().contains(pos); }

void PageFit::addText(QWidget *widget, int size, QFont::Weight weight, int maximumWidth, Wrap wrap)
{
    widget->setFont(AppStyle::systemFont(size, weight));
    m_texts.push_back({ widget, size, weight, maximumWidth, wrap });
}

void PageFit::addGap(QBoxLayout *layout, int size)
{
    auto *spacer = new QSpacerItem(0, size, QSizePolicy::Minimum, QSizePolicy::Fixed);
    layout->addSpacerItem(spacer);
    m_gaps.push_back({ spacer, size });
}

void PageFit::addLayout(QBoxLayout *layout)
{
    const QMargins margins = layout->contentsMargins();
    m_layouts.push_back({ layout, margins.top(), margins.bottom(), layout->spacing() });
}

void PageFit::applyGaps(int percent) const
{
    const auto scaled = [percent](int size) { return (size * percent + 50) / 100; };
    for (const Gap &gap : m_gaps)
        gap.spacer->changeSize(0, scaled(gap.size), QSizePolicy::Minimum, QSizePolicy::Fixed);
    for (const Spacing &spacing : m_layouts) {
        QMargins margins = spacing.layout->contentsMargins();
        margins.setTop(scaled(spacing.top));
        margins.setBottom(scaled(spacing.bottom));
        spacing.layout->setContentsMargins(margins);
        const bool vertical = spacing.layout->direction() == QBoxLayout::TopToBottom
            || spacing.layout->direction() == QBoxLayout::BottomToTop;
        if (vertical && spacing.spacing > 0)
            spacing.layout->setSpacing(scaled(spacing.spacing));
    }
}

bool PageFit::applyTextSize(int shrink) const
{
    bool allFit = true;
    for (const Text &text : m_texts) {
        const QFont font = AppStyle::systemFont(std::max(minimumTextSize, text.size - shrink), text.weight);
        text.widget->setFont(font);
        const bool mayWrap = text.wrap == Wrap::TwoLines;
        auto *label = qobject_cast<QLabel *>(text.widget);
        if (label != nullptr && mayWrap) {
            // Back on one line, at its natural width, unless that is too wide.
            label->setWordWrap(false);
            label->setMinimumWidth(0);
            label->setMaximumWidth(QWIDGETSIZE_MAX);
            if (label->sizeHint().width() <= text.maximumWidth)
                continue;
            allFit = allFit && fitsTwoLines(label->text(), font, text.maximumWidth);
            label->setWordWrap(true);
            label->setFixedWidth(text.maximumWidth);
        } else if (auto *checkbox = qobject_cast<WrapCheckBox *>(text.widget)) {
            checkbox->setWrapWidth(0);
            if (checkbox->sizeHint().width() <= text.maximumWidth)
                continue;
            if (mayWrap)
                checkbox->setWrapWidth(text.maximumWidth);
            allFit = allFit && mayWrap && checkbox->lineCount() <= maximumLines
                && checkbox->sizeHint().width() <= text.maximumWidth;
        } else if (auto *popup = qobject_cast<QComboBox *>(text.widget)) {
            // A pop-up is as tall as its font's line; a name in a taller script needs more.
            popup->setMinimumHeight(0);
            const int frame = popup->sizeHint().height() - popup->fontMetrics().height();
            popup->setMinimumHeight(popup->fontMetrics().size(0, popup->currentText()).height() + frame);
            allFit = allFit && popup->sizeHint().width() <= text.maximumWidth;
        } else {
            allFit = allFit && text.widget->sizeHint().width() <= text.maximumWidth;
        }
    }
    return allFit;
}

bool PageFit::fit(QWidget *page, QSize available)
{
    int mostShrink = 0;
    for (const Text &text : m_texts)
        mostShrink = std::max(mostShrink, text.size - minimumTextSize);
    const auto fitsHeight = [page, available] {
        activateLayouts(page);
        const QLayout *layout = page->layout();
        const int height = layout->hasHeightForWidth() ? layout->totalHeightForWidth(available.width())
                                                       : layout->totalSizeHint().height();
        return height <= available.height();
    };

    // Narrower gaps do not make a text narrower: the sizes start where every text is narrow
    // enough, then the gaps narrow, a quarter then half less, then the texts shrink further.
    int shrink = 0;
    bool wideEnough = applyTextSize(shrink);
    for (; !wideEnough && shrink < mostShrink; wideEnough = applyTextSize(++shrink)) { }
    for (const int percent : { 100, 75, 50 }) {
        applyGaps(percent);
        if (fitsHeight())
            return wideEnough;
    }
    while (shrink < mostShrink) {
        applyTextSize(++shrink);
        if (fitsHeight())
            return true;
    }
    return false;
}

void PageFit::activateLayouts(QWidget *widget)
{
    for (QObject *child : widget->children()) {
        auto *inner = qobject_cast<QWidget *>(child);
        if (inner != nullptr && !inner->isWindow())
            activateLayouts(inner);
    }
    if (QLayout *layout = widget->layout()) {
        layout->invalidate();
        layout->activate();
    }
}

} // namespace kestrix
