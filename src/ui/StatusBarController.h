#pragma once

#include "ui/PreferencesWindow.h"

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>

#include <cstdint>
#include <functional>
#include <memory>

class QAction;
class QMenu;

namespace kestrix {

class InputControl;

// What the tray controller reaches outside itself. live() gives the real ones; tests hand in
// recorders, so no update check touches the network and no test quits the test runner.
struct StatusBarServices
{
    std::function<void()> checkForUpdate; // the manual check, which also says "no update"
    std::function<void()> checkSilently; // speaks up only about a newer version
    std::function<bool()> isTrayAvailable; // whether the desktop shows tray icons at all
    std::function<void()> quitApplication; // ends the event loop
    // Whether the desktop draws the tray menu itself (StatusNotifierItem), where no key reaches
    // Kestrix while it is open.
    std::function<bool()> isMenuDrawnByDesktop;
    // Shows a desktop notification; calls `unavailable` when no notification service answers.
    std::function<void(const QString &title, const QString &body, std::function<void()> unavailable)> notify;
    PreferencesServices preferences;

    static StatusBarServices live();
};

// Where the start-up order stands with the input permission.
enum class AccessState : std::uint8_t {
    Waiting, // not granted yet; the system's prompt may be open
    Needed, // the prompt was dismissed or could not start: the user must grant access by hand
    Granted, // the engine runs
};

// Kestrix's permanent surface: the tray icon and its menu.
//
//   Kestrix v1.0.1          (disabled product line, never translated)
//   Waiting for ...         (disabled, only while there is something to say: the wait for the
//                            input permission, or no mouse connected; the tooltip says it too)
//   ---
//   [x] Enabled             switches the engine on or off
//   ---
//   Preferences...          opens the preferences window (created on first use, then kept)
//   Check for Updates...    the manual update check
//   ---
//   Quit           Ctrl+Q   stops the engine, then quits (the shortcut shown only where Kestrix
//                            draws the menu and so receives the keys)
//
// The four command items follow the interface language: they are re-titled whenever a language
// is chosen. The engine switch is not saved: Kestrix starts enabled at every launch.
//
// Where the desktop shows no tray icons, the controller shows the preferences window at once and
// gives it the engine switch and the quit command, so Kestrix stays reachable.
class StatusBarController final : public QObject
{
    Q_OBJECT

public:
    explicit StatusBarController(InputControl &input, QObject *parent = nullptr);
    StatusBarController(InputControl &input, StatusBarServices services, QObject *parent = nullptr);
    ~StatusBarController() override;

    // Re-titles the four command items in the current language.
    void updateMenuStrings();

    // Until access is granted the engine switch is disabled and the menu and the tooltip say that
    // Kestrix is waiting. The first Needed of a run tells the user how to grant access: a desktop
    // notification, else (no tray, or no notification service) a message in the window, each
    // with `grantCommand`.
    void setAccessState(AccessState state, const QString &grantCommand = {});
    // The line under the product line, empty when all is well.
    QString statusText() const;

    // The menu's four commands.
    void toggleEnabled();
    void showPreferences();
    void checkForUpdates() const;
    void quit();

    QMenu *menu() const { return m_menu.get(); }
    // Null where the desktop has no tray.
    QSystemTrayIcon *trayIcon() const { return m_trayIcon; }
    // Null until the preferences window is first needed.
    PreferencesWindow *preferencesWindow() const { return m_preferencesWindow.get(); }
    QAction *toggleItem() const { return m_toggleItem; }
    QAction *prefsItem() const { return m_prefsItem; }
    QAction *updateItem() const { return m_updateItem; }
    QAction *quitItem() const { return m_quitItem; }
    QAction *statusItem() const { return m_statusItem; }

    // The tray and window icon, drawn for Kestrix.
    static QIcon appIcon();

protected:
    // Ctrl+Q in the open menu, which holds the keyboard and passes no shortcut on.
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void setupStatusBar();
    void updateStatus();
    void tellAccessNeeded(const QString &grantCommand);
    void showAccessNeededInWindow(const QString &grantCommand);
    void trayActivated(QSystemTrayIcon::ActivationReason reason);
    PreferencesWindow &ensurePreferencesWindow();
    void engineSwitched();

    InputControl &m_input;
    StatusBarServices m_services;
    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_trayIcon = nullptr;
    std::unique_ptr<PreferencesWindow> m_preferencesWindow;
    QAction *m_toggleItem = nullptr;
    QAction *m_prefsItem = nullptr;
    QAction *m_updateItem = nullptr;
    QAction *m_quitItem = nullptr;
    QAction *m_statusItem = nullptr;
    AccessState m_accessState = AccessState::Granted;
    bool m_accessNeededTold = false;
};

} // namespace kestrix
