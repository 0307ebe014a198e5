#pragma once

#include <QAbstractButton>
#include <QColor>
#include <QProxyStyle>
#include <QWidget>

class QCheckBox;
class QLabel;
class QPushButton;

// The small pieces of the preferences window that stand in for a system frame and for web-style
// links: a close button for the header, a text link, the footer row and the command bar shown
// where there is no tray.
namespace kestrix {

// Checkboxes in the window's own look: a rounded box filled with the palette's highlight colour
// and a tick in its highlighted-text colour when on, a light box with a soft border when off.
// Everything else is drawn by the application's style.
class CheckboxStyle final : public QProxyStyle
{
    Q_OBJECT

public:
    static constexpr int indicatorSize = 16; // logical pixels

    CheckboxStyle() = default;
    int pixelMetric(
        PixelMetric metric, const QStyleOption *option = nullptr, const QWidget *widget = nullptr) const override;
    // A checkbox is as tall as its text line (or its box), with no extra margin: the window's
    // gaps between rows are its own.
    QSize sizeFromContents(ContentsType type, const QStyleOption *option, const QSize &contentsSize,
        const QWidget *widget = nullptr) const override;
    void drawPrimitive(PrimitiveElement element, const QStyleOption *option, QPainter *painter,
        const QWidget *widget = nullptr) const override;
};

// A round, flat close button drawn as a white cross, for the window's purple header.
class CloseButton final : public QAbstractButton
{
    Q_OBJECT

public:
    explicit CloseButton(QWidget *parent = nullptr);
    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent *event) override;
    void enterEvent(QEnterEvent *event) override;
    void leaveEvent(QEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;

private:
    // The focus ring shows only when the keyboard brought the focus here, not when the window
    // merely opened with it.
    bool m_keyboardFocus = false;
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
    // The switch is drawn with checkboxStyle, which must outlive the bar.
    explicit HeaderCommandBar(QStyle *checkboxStyle, QWidget *parent = nullptr);

    void setTexts(const QString &enabledText, const QString &quitText);
    void setEngineEnabled(bool enabled);
    bool isEngineEnabled() const;

Q_SIGNALS:
    void toggleRequested();
    void quitRequested();

private:
    QCheckBox *m_enabledSwitch;
    QPushButton *m_quitButton;
};

} // namespace kestrix
