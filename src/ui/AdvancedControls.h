#pragma once

#include "ui/WindowChrome.h"

#include <QWidget>

class QLabel;
class QSlider;

// The small controls of the preferences window's Advanced page, drawn in the window's own look:
// the header's back arrow, an on/off switch, a remove button, a list row, a text that elides, and
// a slider that marks one value.
namespace kestrix {

// A round, flat arrow pointing back (to the left, or to the right in a right-to-left language),
// white on the purple header; the twin of the close button.
class BackButton final : public FlatButton
{
    Q_OBJECT

public:
    explicit BackButton(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};

// An on/off switch: a pill filled with the window's purple and its knob at the far end
// when on, a pale pill with the knob at the near end when off. Space toggles it, as a checkbox.
class ToggleSwitch final : public FlatButton
{
    Q_OBJECT

public:
    static constexpr int trackWidth = 30; // logical pixels
    static constexpr int trackHeight = 18; // logical pixels

    explicit ToggleSwitch(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};

// A small round cross that removes the row it sits in; grey until pointed at.
class RemoveButton final : public FlatButton
{
    Q_OBJECT

public:
    static constexpr int diameter = 20; // logical pixels

    explicit RemoveButton(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
};

// One line of text that ends in "..." when its row is too narrow. The text is a name the user or
// the hardware chose (a mouse, an app), not a translation, so it is never shrunk or wrapped.
class ElidedLabel final : public QWidget
{
    Q_OBJECT

public:
    explicit ElidedLabel(const QString &text, QWidget *parent = nullptr);
    QString text() const { return m_text; }
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_text;
};

// A row of a list inside a card: a fixed height and a hairline above every row but the first.
class ListRow final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int height = 28; // logical pixels

    explicit ListRow(bool separatorAbove, QWidget *parent = nullptr);

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    bool m_separatorAbove;
};

// A horizontal slider with one value marked: a short notch under the groove at that value and a
// caption centred under the notch, clamped inside the widget. The notch follows the slider's
// direction, so it stays under the same value in a right-to-left language.
class MarkedSlider final : public QWidget
{
    Q_OBJECT

public:
    MarkedSlider(QSlider *slider, int markedValue, QWidget *parent = nullptr);

    QSlider *slider() const { return m_slider; }
    QLabel *caption() const { return m_caption; }
    void setCaption(const QString &text);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    int markX() const;
    void placeCaption();

    QSlider *m_slider;
    QLabel *m_caption;
    int m_markedValue;
};

} // namespace kestrix
