#pragma once

#include "ui/AdvancedPage.h"
#include "ui/PageFit.h"

#include <QJsonObject>
#include <QLatin1StringView>
#include <QPoint>
#include <QWidget>

#include <functional>
#include <optional>
#include <vector>

class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSlider;
class QStackedWidget;

namespace kestrix {

class ControlStyle;
class HeaderCommandBar;

// What the preferences window reaches outside itself. live() gives the real ones; tests hand in
// recorders so nothing leaves the process.
struct PreferencesServices
{
    std::function<void(const QString &eventName, const QJsonObject &params)> sendAnalytics;
    std::function<void(bool enabled)> setLaunchAtLogin;
    std::function<bool()> isLaunchAtLoginEnabled;
    // The Advanced page's view of the desktop: which app is under the pointer.
    AppSourceServices appSource;
    // Whether the desktop composites windows, so a window may have clear corners and cast a
    // shadow. Asked once, when the window is built; none means no.
    std::function<bool()> desktopComposites = nullptr;

    static PreferencesServices live();
};

// The one place where the user changes the scroll settings, the interface language and launch at
// login. A fixed 416 x 520 window: a purple header band, a lavender gradient, three white cards of
// controls and a footer link. Every control writes its setting the moment it changes (there is no
// OK button) and reports the change to analytics; the engine reads the settings at its next drag.
//
// The window has no system frame: its header band takes the place of a title bar, carries a close
// button and moves the window when dragged, as does any bare part of the background. Escape
// closes it. Closing only hides it; the owner keeps it and shows it again with showWindow().
// Where the desktop composites, the window has rounded corners and a soft shadow, drawn in a
// clear margin around the 416 x 520 content; elsewhere a 1 pixel purple edge inside it.
//
// While visible, the controls change only through the user's own actions; showWindow() is what
// brings them up to date with the settings store and the live autostart state.
class PreferencesWindow final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int windowWidth = 416; // logical pixels, the content without its shadow
    static constexpr int windowHeight = 520; // logical pixels, the content without its shadow
    static constexpr int shadowMargin = 18; // logical pixels around the content, when compositing
    static constexpr double cornerRadius = 10.0; // logical pixels, when compositing
    static constexpr int headerHeight = 84; // logical pixels
    // The header's product line: a literal of its own, kept equal to the application's display
    // line (a test holds the two together).
    static constexpr QLatin1StringView headerTitle { "Kestrix v1.0.1" };
    // The speed slider works in integer steps; this many steps make one unit of speed, so a drag
    // stores the speed unrounded to the precision a pointer can give.
    static constexpr int speedSliderScale = 10000;
    static constexpr double minimumSpeed = 1.0;
    static constexpr double maximumSpeed = 50.0;

    // `input` gives the Advanced page its list of mice.
    explicit PreferencesWindow(PreferencesServices services = PreferencesServices::live(),
        InputControl *input = nullptr, QWidget *parent = nullptr);
    ~PreferencesWindow() override;

    // Refreshes every control from the settings and the autostart state, refreshes the texts,
    // then shows the window in front and activates it. The window stays where the user left it.
    void showWindow();
    // Sets every translated text of the window in the current language.
    void updateStrings();

    // Where the desktop has no tray, this window is the only way to reach Kestrix: it then shows
    // the engine switch and the quit command in its header. Hidden otherwise.
    void setCommandsVisible(bool visible);
    bool commandsVisible() const;
    // Keeps the header's engine switch in step with the engine.
    void setEngineEnabled(bool enabled);

    // The second page, reached from the "Advanced..." link beside the Behavior heading; Escape or its back arrow
    // returns to the main page. A window opening anew opens on the main page.
    void showAdvancedPage();
    void showMainPage();
    bool advancedPageShown() const;

    // The speed the window shows for the stored value: the stored number when it is greater than
    // 0, otherwise (absent, 0, negative, not a number) the default 3.0.
    static double displayedSpeed();
    // The pop-up position of the stored language: that of the first language when the stored
    // code is absent or unknown.
    static int storedLanguageIndex();
    // The direction the current interface language is written in.
    static Qt::LayoutDirection languageDirection();
    // The text shown for a speed, and sent to analytics: one decimal.
    static QString formatSpeed(double speed);

Q_SIGNALS:
    // The header's engine switch (only there when there is no tray).
    void engineToggleRequested();
    void quitRequested();

protected:
    void paintEvent(QPaintEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void setupUI();
    QWidget *buildHeader(QWidget *parent);
    QWidget *buildDirectionCard(QWidget *parent);
    QWidget *buildBehaviorCard(QWidget *parent);
    QWidget *buildLanguageCard(QWidget *parent);
    QWidget *buildFooter(QWidget *parent) const;
    QWidget *buildAdvancedLink(QWidget *parent);
    QCheckBox *makeCheckbox(
        QWidget *parent, const QString &objectName, QLatin1StringView key, QLatin1StringView settingName);
    QLabel *makeSectionLabel(QWidget *parent, const QString &objectName);
    void refreshControls();
    void fitTextToWindow();

    void checkboxChanged(QCheckBox *checkbox, QLatin1StringView key, QLatin1StringView settingName);
    void launchAtLoginChanged();
    void speedChanged(int sliderValue);
    void languageChanged(int index);
    void openWebsite();
    void sendSettingChanged(QLatin1StringView settingName, const QString &value) const;

    PreferencesServices m_services;
    bool m_composited = false;
    // The cards' texts and gaps, and how they fit the window in every language.
    PageFit m_fit;
    QWidget *m_background = nullptr;
    QWidget *m_titleArea = nullptr;
    QLabel *m_titleLabel = nullptr;
    // Shared by every checkbox of the window; deleted only after them.
    ControlStyle *m_controlStyle = nullptr;

    QLabel *m_subtitleLabel = nullptr;
    QLabel *m_dirLabel = nullptr;
    QCheckBox *m_verticalCheckbox = nullptr;
    QCheckBox *m_horizontalCheckbox = nullptr;
    QCheckBox *m_diagonalCheckbox = nullptr;
    QLabel *m_behLabel = nullptr;
    QCheckBox *m_reverseCheckbox = nullptr;
    QCheckBox *m_smoothCheckbox = nullptr;
    QCheckBox *m_momentumCheckbox = nullptr;
    QLabel *m_speedTitle = nullptr;
    QSlider *m_speedSlider = nullptr;
    QLabel *m_speedLabel = nullptr;
    QCheckBox *m_launchAtLoginCheckbox = nullptr;
    QLabel *m_langLabel = nullptr;
    QComboBox *m_langPopup = nullptr;
    HeaderCommandBar *m_commandBar = nullptr;
    // The two pages: the main page's background with everything above, and the Advanced page.
    QStackedWidget *m_pages = nullptr;
    AdvancedPage *m_advancedPage = nullptr;
    QLabel *m_advancedLink = nullptr;
    InputControl *m_input = nullptr;

    // Where a press on the background grabbed the window, when the platform cannot move it.
    std::optional<QPoint> m_dragOffset;
};

} // namespace kestrix
