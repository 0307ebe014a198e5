#include "ui/StatusBarController.h"

#include "engine/InputControl.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/AppInfo.h"
#include "updates/UpdateChecker.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QGuiApplication>
#include <QIcon>
#include <QMenu>

namespace kestrix {

using namespace Qt::StringLiterals;

StatusBarServices StatusBarServices::live()
{
    return {
        .checkForUpdate = [] { UpdateChecker::checkForUpdate(); },
        .checkSilently = [] { UpdateChecker::checkSilently(); },
        .isTrayAvailable = [] { return QSystemTrayIcon::isSystemTrayAvailable(); },
        .quitApplication = [] { QCoreApplication::quit(); },
        .preferences = PreferencesServices::live(),
    };
}

StatusBarController::StatusBarController(InputControl &input, QObject *parent)
    : StatusBarController(input, StatusBarServices::live(), parent)
{ }

StatusBarController::StatusBarController(InputControl &input, StatusBarServices services, QObject *parent)
    : QObject(parent)
    , m_input(input)
    , m_services(std::move(services))
{
    setupStatusBar();
    connect(&LanguageNotifier::instance(), &LanguageNotifier::languageDidChange, this,
        &StatusBarController::updateMenuStrings);

    if (!m_services.isTrayAvailable()) {
        // No tray to live in: the window is the way in, with the commands the menu would carry.
        PreferencesWindow &window = ensurePreferencesWindow();
        window.setCommandsVisible(true);
        window.showWindow();
    }
}

StatusBarController::~StatusBarController() = default;

QIcon StatusBarController::appIcon() { return QIcon(u":/icons/kestrix.svg"_s); }

void StatusBarController::setupStatusBar()
{
    m_menu = std::make_unique<QMenu>();
    m_menu->setObjectName(u"statusMenu"_s);

    QAction *productLine = m_menu->addAction(QString(AppInfo::displayLine));
    productLine->setEnabled(false);
    m_menu->addSeparator();

    m_toggleItem = m_menu->addAction(QString());
    m_toggleItem->setCheckable(true);
    m_toggleItem->setChecked(m_input.isEnabled());
    // The check mark shows the engine's state, which toggleEnabled sets; Qt's own flip of a
    // checkable item is overwritten there.
    connect(m_toggleItem, &QAction::triggered, this, &StatusBarController::toggleEnabled);
    m_menu->addSeparator();

    m_prefsItem = m_menu->addAction(QString());
    connect(m_prefsItem, &QAction::triggered, this, &StatusBarController::showPreferences);
    m_updateItem = m_menu->addAction(QString());
    connect(m_updateItem, &QAction::triggered, this, &StatusBarController::checkForUpdates);
    m_menu->addSeparator();

    m_quitItem = m_menu->addAction(QString());
    // The only command with a shortcut; it works wherever a Kestrix window has the focus.
    // Ctrl+Q itself rather than the platform's Quit binding, which some desktops leave empty.
    m_quitItem->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    m_quitItem->setShortcutContext(Qt::ApplicationShortcut);
    m_quitItem->setShortcutVisibleInContextMenu(true);
    connect(m_quitItem, &QAction::triggered, this, &StatusBarController::quit);

    updateMenuStrings();

    if (!m_services.isTrayAvailable())
        return;
    m_trayIcon = new QSystemTrayIcon(appIcon(), this);
    m_trayIcon->setToolTip(QString(AppInfo::displayName));
    m_trayIcon->setContextMenu(m_menu.get());
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, &StatusBarController::trayActivated);
    m_trayIcon->show();
}

void StatusBarController::trayActivated(QSystemTrayIcon::ActivationReason reason)
{
    if (reason != QSystemTrayIcon::Trigger)
        return;
    // A plain click opens the menu, as a right click does. Only X11 lets an application place a
    // free-standing menu at the pointer; elsewhere the click opens the preferences window.
    if (QGuiApplication::platformName() == "xcb"_L1)
        m_menu->popup(QCursor::pos());
    else
        showPreferences();
}

void StatusBarController::updateMenuStrings()
{
    m_toggleItem->setText(L10n::enabled());
    m_prefsItem->setText(L10n::preferences());
    m_updateItem->setText(L10n::checkForUpdates());
    m_quitItem->setText(L10n::quit());
    // Where the menu is drawn by Kestrix itself, it reads the way the language is written.
    m_menu->setLayoutDirection(PreferencesWindow::languageDirection());
}

void StatusBarController::toggleEnabled()
{
    const bool enabled = !m_input.isEnabled();
    m_input.setEnabled(enabled);
    m_toggleItem->setChecked(enabled);
    if (m_preferencesWindow)
        m_preferencesWindow->setEngineEnabled(enabled);
}

PreferencesWindow &StatusBarController::ensurePreferencesWindow()
{
    if (!m_preferencesWindow) {
        m_preferencesWindow = std::make_unique<PreferencesWindow>(m_services.preferences, &m_input);
        m_preferencesWindow->setWindowIcon(appIcon());
        m_preferencesWindow->setEngineEnabled(m_input.isEnabled());
        connect(m_preferencesWindow.get(), &PreferencesWindow::engineToggleRequested, this,
            &StatusBarController::toggleEnabled);
        connect(m_preferencesWindow.get(), &PreferencesWindow::quitRequested, this, &StatusBarController::quit);
        // The quit shortcut works in the window too.
        m_preferencesWindow->addAction(m_quitItem);
    }
    return *m_preferencesWindow;
}

void StatusBarController::showPreferences()
{
    PreferencesWindow &window = ensurePreferencesWindow();
    window.setEngineEnabled(m_input.isEnabled());
    window.showWindow();
    // Every opening of the window doubles as an update check that speaks up only when a newer
    // version exists.
    m_services.checkSilently();
}

void StatusBarController::checkForUpdates() const { m_services.checkForUpdate(); }

void StatusBarController::quit()
{
    m_input.stop();
    m_services.quitApplication();
}

} // namespace kestrix
