#pragma once

#include "engine/InputControl.h"

#include <QFont>
#include <QJsonObject>
#include <QStringList>
#include <QWidget>

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

class QComboBox;
class QGridLayout;
class QLabel;
class QPushButton;
class QScrollArea;
class QSlider;
class QTimer;
class QVBoxLayout;

namespace kestrix {

class AppUnderPointer;
class BackButton;
class CloseButton;
class MarkedSlider;

// Whether Kestrix can tell which app is under the pointer on this desktop, as the page says it.
enum class AppSourceStatus : std::uint8_t {
    Working, // a source answers, or is still being asked
    Missing, // no source works here: nothing is excluded
    GnomeExtensionOff, // GNOME on Wayland: Kestrix's extension is installed and switched off
};

// What the Advanced page asks of the desktop session: which app is under the pointer, and how to
// make that known where it is not. watching() gives the real ones; tests hand in fakes. A member
// left empty counts as a desktop that tells nothing.
struct AppSourceServices
{
    std::function<AppSourceStatus()> status;
    // Calls `changed` (on the GUI thread, for as long as `context` lives) whenever status() may
    // answer differently.
    std::function<void(QObject *context, std::function<void()> changed)> watchStatus;
    // Asks once; `done` runs later on the GUI thread with the app's id or window class, empty
    // when no app was found.
    std::function<void(std::function<void(const QString &app)> done)> lookUpOnce;
    // Switches Kestrix's GNOME Shell extension on; `done` gets whether the shell agreed.
    std::function<void(std::function<void(bool enabled)> done)> enableGnomeExtension;
    // One second of the countdown before the look-up ("Point at the app: 3, 2, 1").
    std::chrono::milliseconds countdownStep { 1000 };

    static AppSourceServices watching(AppUnderPointer &watcher);
};

// The preferences window's second page: the button that scrolls, the distance before a press
// scrolls, the glide after release, the mice Kestrix takes over and the apps it leaves alone. Every
// control writes its setting the moment it changes and reports the change to analytics.
//
// Its own compact header carries a back arrow (backRequested) and the window's close button
// (closeRequested). The lists scroll inside their cards, so the page fits the fixed window
// whatever the number of mice and apps.
class AdvancedPage final : public QWidget
{
    Q_OBJECT

public:
    static constexpr int headerHeight = 44; // logical pixels
    static constexpr int countdownSeconds = 3;
    static constexpr int glideSliderScale = 100; // slider steps per unit of glide: steps of 0.01

    using Analytics = std::function<void(const QString &eventName, const QJsonObject &params)>;

    // `input` gives the mice; without it the list shows only the mice switched off in the settings.
    AdvancedPage(AppSourceServices appSource, Analytics sendAnalytics, InputControl *input, QWidget *parent = nullptr);
    ~AdvancedPage() override;

    // Brings every control up to date with the settings, the mice and the desktop's app source.
    void refreshControls();
    // Sets every translated text of the page in the current language and fits them to the page.
    void updateStrings();
    // Where the keyboard starts when the page opens.
    QWidget *firstControl() const;

    // The apps the list shows: the stored excludedApps, or the default list when none is stored.
    static QStringList storedExcludedApps();
    // The mice the list shows: those the engine knows, then the switched-off mice it has not seen.
    static std::vector<MouseInfo> listedMice(
        const std::vector<MouseInfo> &known, const std::vector<MouseIdentity> &switchedOff);

Q_SIGNALS:
    void backRequested();
    void closeRequested();

private:
    QWidget *buildHeader(QWidget *parent);
    QWidget *buildScrollingCard(QWidget *parent);
    QWidget *buildMiceCard(QWidget *parent);
    QWidget *buildAppsCard(QWidget *parent);
    QScrollArea *makeListArea(QWidget *parent, const QString &objectName);
    QLabel *makeLabel(QWidget *parent, const QString &objectName, int size, QFont::Weight weight, bool wrap);
    void rebuildMice();
    void rebuildApps();
    void refreshAppSource();
    void updateTabOrder();
    void fitPopup();
    void fitTextToPage();
    void applyFont(QWidget *widget, int size, QFont::Weight weight) const;

    void triggerButtonChosen(int index);
    void thresholdChanged(int points);
    void glideChanged(int sliderValue);
    void mouseSwitched(const MouseIdentity &mouse, bool on);
    void removeApp(const QString &app);
    void startCountdown();
    void countdownTick();
    void appLookedUp(const QString &app);
    void enableGnomeExtension();
    void sendSettingChanged(QLatin1StringView settingName, const QString &value) const;

    // A text of the page with the size and weight the design gives it.
    struct PageText
    {
        QWidget *widget;
        int size;
        QFont::Weight weight;
    };

    AppSourceServices m_appSource;
    Analytics m_sendAnalytics;
    InputControl *m_input;
    std::vector<PageText> m_texts;
    int m_shrink = 0; // pixels taken off every text of the page so it fits
    int m_countdown = 0; // seconds left; 0 when no countdown runs
    QTimer *m_countdownTimer = nullptr;

    QWidget *m_background = nullptr;
    BackButton *m_backButton = nullptr;
    QLabel *m_titleLabel = nullptr;
    CloseButton *m_closeButton = nullptr;
    QLabel *m_buttonTitle = nullptr;
    QComboBox *m_buttonPopup = nullptr;
    QLabel *m_thresholdTitle = nullptr;
    QSlider *m_thresholdSlider = nullptr;
    QLabel *m_thresholdValue = nullptr;
    QLabel *m_glideTitle = nullptr;
    QLabel *m_glideShort = nullptr;
    MarkedSlider *m_glideSlider = nullptr;
    QLabel *m_glideLong = nullptr;
    QLabel *m_miceLabel = nullptr;
    QScrollArea *m_miceArea = nullptr;
    QVBoxLayout *m_miceRows = nullptr;
    QLabel *m_appsLabel = nullptr;
    QScrollArea *m_appsArea = nullptr;
    QVBoxLayout *m_appsRows = nullptr;
    QPushButton *m_addAppButton = nullptr;
    QLabel *m_addAppStatus = nullptr;
    QWidget *m_sourceNote = nullptr;
    QLabel *m_sourceMissing = nullptr;
    QLabel *m_sourceHint = nullptr;
    QPushButton *m_gnomeButton = nullptr;
    // The list rows' controls, in list order, for the Tab chain.
    QList<QWidget *> m_mouseSwitches;
    QList<QWidget *> m_removeButtons;
};

} // namespace kestrix
