#include "ui/StatusBarController.h"

#include "engine/InputControl.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/AppInfo.h"
#include "updates/UpdateChecker.h"

#include <QAction>
#include <QCoreApplication>
#include <QCursor>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QGuiApplication>
#include <QIcon>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>

#include <algorithm>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

// Qt hands the tray to the desktop's StatusNotifierItem host whenever this service is on the
// session bus, and the host then draws the menu from a description.
bool statusNotifierWatcherRunning()
{
    const QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
    return bus != nullptr && bus->isServiceRegistered(u"org.kde.StatusNotifierWatcher"_s);
}

// org.freedesktop.Notifications.Notify, without waiting for the answer.
void notifyDesktop(const QString &title, const QString &body, std::function<void()> unavailable)
{
    QDBusMessage call = QDBusMessage::createMethodCall(u"org.freedesktop.Notifications"_s,
        u"/org/freedesktop/Notifications"_s, u"org.freedesktop.Notifications"_s, u"Notify"_s);
    // app_name, replaces_id, app_icon, summary, body, actions, hints, expire_timeout (0: stays)
    // The icon by its installed name, which is the application's identifier.
    call << QString(AppInfo::displayName) << 0U << QString(AppInfo::bundleIdentifier) << title << body << QStringList()
         << QVariantMap() << 0;
    auto *watcher = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
        [unavailable = std::move(unavailable)](QDBusPendingCallWatcher *finished) {
            if (finished->isError())
                unavailable();
            finished->deleteLater();
        });
}

} // namespace

StatusBarServices StatusBarServices::live()
{
    return {
        .checkForUpdate = [] { UpdateChecker::checkForUpdate(); },
        .checkSilently = [] { UpdateChecker::checkSilently(); },
        .isTrayAvailable = [] { return QSystemTrayIcon::isSystemTrayAvailable(); },
        .quitApplication = [] { QCoreApplication::quit(); },
        .isMenuDrawnByDesktop = statusNotifierWatcherRunning,
        .notify = notifyDesktop,
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
    connect(&m_input, &InputControl::miceChanged, this, &StatusBarController::updateStatus);

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
    m_statusItem = m_menu->addAction(QString());
    m_statusItem->setEnabled(false);
    m_statusItem->setVisible(false);
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
    connect(m_quitItem, &QAction::triggered, this, &StatusBarController::quit);
    m_menu->installEventFilter(this);

    updateMenuStrings();

    if (!m_services.isTrayAvailable())
        return;
    // A menu the desktop draws never passes Ctrl+Q on: it shows no shortcut there.
    m_quitItem->setShortcutVisibleInContextMenu(!m_services.isMenuDrawnByDesktop());
    m_trayIcon = new QSystemTrayIcon(appIcon(), this);
    m_trayIcon->setContextMenu(m_menu.get());
    updateStatus();
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
    updateStatus();
}

bool StatusBarController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_menu.get() && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (QKeySequence(key->keyCombination()) == m_quitItem->shortcut()) {
            m_menu->close();
            m_quitItem->trigger();
            return true;
        }
    }
    return QObject::eventFilter(watched, event);
}

QString StatusBarController::statusText() const
{
    if (m_accessState != AccessState::Granted)
        return L10n::waitingForAccess();
    // Switched off, Kestrix watches no mouse at all, so it cannot tell whether one is there.
    if (!m_input.isEnabled())
        return {};
    const std::vector<MouseInfo> mice = m_input.mice();
    if (std::none_of(mice.begin(), mice.end(), [](const MouseInfo &mouse) { return mouse.connected; }))
        return L10n::noMouseConnected();
    return {};
}

void StatusBarController::updateStatus()
{
    const QString status = statusText();
    m_statusItem->setText(status);
    m_statusItem->setVisible(!status.isEmpty());
    if (m_trayIcon != nullptr)
        m_trayIcon->setToolTip(
            status.isEmpty() ? QString(AppInfo::displayName) : AppInfo::displayName + u"\n"_s + status);
}

void StatusBarController::setAccessState(AccessState state, const QString &grantCommand)
{
    m_accessState = state;
    // The switch means nothing before the engine may run.
    m_toggleItem->setEnabled(state == AccessState::Granted);
    m_toggleItem->setChecked(m_input.isEnabled());
    updateStatus();
    if (state == AccessState::Needed && !m_accessNeededTold) {
        m_accessNeededTold = true;
        tellAccessNeeded(grantCommand);
    }
}

void StatusBarController::tellAccessNeeded(const QString &grantCommand)
{
    if (m_trayIcon == nullptr) {
        showAccessNeededInWindow(grantCommand);
        return;
    }
    m_services.notify(L10n::accessNeededTitle(), L10n::accessNeededMessage() + u"\n"_s + grantCommand,
        [controller = QPointer(this), grantCommand] {
            if (controller)
                controller->showAccessNeededInWindow(grantCommand);
        });
}

void StatusBarController::showAccessNeededInWindow(const QString &grantCommand)
{
    PreferencesWindow &window = ensurePreferencesWindow();
    if (!window.isVisible())
        window.showWindow();
    // Not modal: the window stays usable, and the command can be selected and copied.
    auto *box = new QMessageBox(
        QMessageBox::Warning, QString(AppInfo::displayName), L10n::accessNeededTitle(), QMessageBox::Ok, &window);
    box->setObjectName(u"accessNeededMessage"_s);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setLayoutDirection(PreferencesWindow::languageDirection());
    box->setInformativeText(L10n::accessNeededMessage() + u"\n\n"_s + grantCommand);
    box->setTextInteractionFlags(Qt::TextSelectableByMouse);
    box->open();
}

void StatusBarController::toggleEnabled()
{
    if (m_accessState != AccessState::Granted)
        return;
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
    m_menu->close();
    m_input.stop();
    m_services.quitApplication();
}

} // namespace kestrix
