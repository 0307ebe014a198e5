#pragma once

#include "ui/PreferencesWindow.h"

#include <QObject>
#include <QPointer>
#include <QSystemTrayIcon>

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
    PreferencesServices preferences;

    static StatusBarServices live();
};

// Kestrix's permanent surface: the tray icon and its menu.
//
//   Kestrix v1.0.1          (disabled product line, never translated)
//   ---
//   [x] Enabled             switches the engine on or off
//   ---
//   Preferences...          opens the preferences window (created on first use, then kept)
//   Check for Updates...    the manual update check
//   ---
//   Quit           Ctrl+Q   stops the engine, then quits
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

    // The tray and window icon, drawn for Kestrix.
    static QIcon appIcon();

private:
    void setupStatusBar();
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
};

} // namespace kestrix
