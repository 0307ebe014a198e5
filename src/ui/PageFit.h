#pragma once

#include <QCheckBox>
#include <QFont>

#include <vector>

class QBoxLayout;
class QSpacerItem;

namespace kestrix {

// A checkbox whose label may take two lines. Given a wrap width narrower than its label, it
// breaks the label at the script's own line breaks and sits its box beside the first line; the
// whole checkbox stays clickable.
class WrapCheckBox final : public QCheckBox
{
    Q_OBJECT

public:
    using QCheckBox::QCheckBox;

    // The widest the label may be, in pixels; 0 keeps it on one line.
    void setWrapWidth(int width);
    // The label's lines at the current font and wrap width.
    int lineCount() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;
    bool hitButton(const QPoint &pos) const override;

private:
    // Room the box and its gap take before the label.
    int labelOffset() const;
    QRect labelRect(int width) const;

    int m_wrapWidth = 0;
};

// How every fixed-size page of the preferences window keeps each language inside it. Register
// the page's texts with their design size and the widest each may be, and the gaps that may
// narrow; fit() then tries, in order, until the page fits:
//   1. every text at its design size; a label too wide for its room takes two lines
//      (checkboxes and labels registered as Wrap::TwoLines), nothing else changes;
//   2. the registered gaps and card margins narrowed, by a quarter, then by half;
//   3. every text one pixel smaller at a time, all together, never below minimumTextSize.
// Each try measures after activating every layout of the page from the innermost out, so no
// size cached from the previous language or the previous try is ever read.
class PageFit
{
public:
    static constexpr int minimumTextSize = 11; // pixels: no text of a page is smaller

    enum class Wrap : bool { Never, TwoLines };

    // `widget` is a QLabel, a WrapCheckBox, a QComboBox (made as tall as its current item's
    // script needs) or any other control showing one line of text; only labels and checkboxes
    // wrap, and a label that never wraps keeps the sizes it was given.
    void addText(QWidget *widget, int size, QFont::Weight weight, int maximumWidth, Wrap wrap = Wrap::Never);
    // Adds a vertical gap of `size` pixels to `layout`, one that may narrow.
    void addGap(QBoxLayout *layout, int size);
    // The top and bottom margins of `layout`, and its spacing when vertical, may narrow.
    void addLayout(QBoxLayout *layout);

    // Fits the page's contents into `available` (the page's own size, its layout's margins
    // included). False when even the tightest step does not fit; the page then keeps that step.
    bool fit(QWidget *page, QSize available);

    // Activates the layouts of `widget` and of everything inside it, innermost first.
    static void activateLayouts(QWidget *widget);

private:
    struct Text
    {
        QWidget *widget;
        int size;
        QFont::Weight weight;
        int maximumWidth;
        Wrap wrap;
    };
    struct Gap
    {
        QSpacerItem *spacer;
        int size;
    };
    struct Spacing
    {
        QBoxLayout *layout;
        int top;
        int bottom;
        int spacing;
    };

    // Sets every text at `shrink` pixels below its design size; false when one is still too wide.
    bool applyTextSize(int shrink) const;
    void applyGaps(int percent) const;

    std::vector<Text> m_texts;
    std::vector<Gap> m_gaps;
    std::vector<Spacing> m_layouts;
};

} // namespace kestrix
