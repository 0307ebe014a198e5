#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QProxyStyle>
#include <QWidget>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;

// The small pieces of the preferences window that stand in for a system frame and for web-style
// links: a close button for the header, a text link, the footer row and the command bar shown
// where there is no tray.
namespace kestrix {

// The window's controls in its own look, over the application's style:
//  - checkboxes: a rounded box filled with the palette's highlight colour and a tick in its
//    highlighted-text colour when on, a light box with a soft border when off;
//  - sliders: a thin rounded track, filled in the highlight colour up to a round white thumb with
//    a ring of the same colour;
//  - pop-ups: a flat white field with rounded corners, a soft border and a chevron, opening a list
//    below it (at most its maxVisibleItems rows) rather than over it;
//  - focus: a 2 pixel ring in the highlight colour, shown only when the keyboard moved the focus;
//  - disabled: every part drawn in a pale grey, text included.
class ControlStyle final : public QProxyStyle
{
    Q_OBJECT

public:
    static constexpr int indicatorSize = 20; // logical pixels: a 14 pixel box and room for its focus ring
    static constexpr int thumbSize = 18; // logical pixels, the slider's round thumb
    static constexpr qreal focusWidth = 2.0; // logical pixels

    ControlStyle() = default;
    int pixelMetric(
        PixelMetric metric, const QStyleOption *option = nullptr, const QWidget *widget = nullptr) const override;
    int styleHint(StyleHint hint, const QStyleOption *option = nullptr, const QWidget *widget = nullptr,
        QStyleHintReturn *returnData = nullptr) const override;
    // A checkbox is as tall as its text line (or its box), with no extra margin: the window's
    // gaps between rows are its own.
    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contentsSize,
        const QWidget *widget = nullptr) const override;
    QRect subControlRect(ComplexControl control, const QStyleOptionComplex *option, SubControl sub,
        const QWidget *widget) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
        const QWidget *widget = nullptr) const override;
    void drawComplexControl(ComplexControl control, const QStyleOptionComplex *option, QPainter *painter,
        const QWidget *widget = nullptr) const override;

    // Whether `option` shows keyboard focus: focused, and the focus came from the keyboard.
    static bool showsFocus(const QStyleOption &option);
    // The colour a control's parts take when disabled.
    static QColor disabledColor();
};

// Whether the desktop composites windows, so a window's clear pixels show what lies behind: always
// under Wayland; under X11 when a compositing manager holds the screen's _NET_WM_CM_S selection.
bool desktopComposites();

// Gives a pop-up's list the field's look: white, a soft purple border and rounded corners, its
// window cut to the same corners.
void roundPopupList(QComboBox *popup);

// A button the window draws itself: it lights up under the pointer, and its focus ring shows only
// when the keyboard brought the focus here, not when the window merely opened with it.
class FlatButton : public QAbstractButton
{
    Q_OBJECT

public:
    FlatButton(Qt::FocusPolicy focusPolicy, QWidget *parent);

protected:
    bool showsFocusRing() const { return hasFocus() && m_keyboardFocus; }
    void focusInEvent(QFocusEvent *event) override;

private:
    bool m_keyboardFocus = false;
};

// A round, flat close button drawn as a white cross, for the window's purple header.
class CloseButton final : public FlatButton
{
    Q_OBJECT

public:
    explicit CloseButton(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
};

// Underlined text in one colour that opens something when clicked, like a link on a web page, but
// reachable with Tab and pressed with Space or Enter like any button.
class LinkButton final : public QAbstractButton
{
    Q_OBJECT

public:
    LinkButton(const QString &text, QColor color, QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    QColor m_color;
};

// The footer: the web site link centred a fixed 50 pixels left of the row's centre, so that the
// link and the contact line after it sit together roughly in the middle.
class FooterRow final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int linkCentreOffset = 50; // logical pixels left of the centre

    FooterRow(LinkButton *link, QLabel *contact, QWidget *parent = nullptr);
    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void resizeEvent(QResizeEvent *event) override;

private:
    LinkButton *m_link;
    QLabel *m_contact;
};

// The engine switch and the quit command, in the header of a window that has no tray to live in.
class HeaderCommandBar final : public QWidget
{
    Q_OBJECT

public:
    // The switch is drawn with controlStyle, which must outlive the bar.
    explicit HeaderCommandBar(QStyle *controlStyle, QWidget *parent = nullptr);

    void setTexts(const QString &enabledText, const QString &quitText);
    void setEngineEnabled(bool enabled);
    bool isEngineEnabled() const;

Q_SIGNALS:
    void toggleRequested();
    void quitRequested();

protected:
    void changeEvent(QEvent *event) override;

private:
    QCheckBox *m_enabledSwitch;
    QPushButton *m_quitButton;
};

} // namespace kestrix
