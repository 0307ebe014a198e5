// The tray menu: its items in order, their titles in the current language, and its four commands
// driving a real engine over a recording platform. Where there is no tray, the window stands in.

#include "UiTestSupport.h"

#include "core/SettingsStore.h"
#include "l10n/L10n.h"
#include "ui/StatusBarController.h"

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QMenu>
#include <QMessageBox>
#include <QTest>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class StatusBarControllerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void menuHasTheItemsInOrderAndFollowsTheLanguage()
    {
        TrayFixture fixture;
        StatusBarController &controller = *fixture.controller;
        QCOMPARE(controller.trayIcon()->contextMenu(), controller.menu());
        const QList<QAction *> items = controller.menu()->actions();
        const QList<QAction *> commands { controller.toggleItem(), controller.prefsItem(), controller.updateItem(),
            controller.quitItem() };
        QCOMPARE(items.size(), 9);
        QCOMPARE((QList<QAction *> { items[1], items[3], items[5], items[6], items[8] }),
            QList<QAction *> { controller.statusItem() } + commands);
        for (const qsizetype separator : { 2, 4, 7 })
            QVERIFY(items[separator]->isSeparator());
        QVERIFY(!items[0]->isEnabled());
        // Only quit has a shortcut, Ctrl+Q, shown only where Kestrix draws the menu: a menu the
        // desktop draws passes no key on.
        for (QAction *command : commands)
            QCOMPARE(command->shortcut(), QKeySequence(command == controller.quitItem() ? u"Ctrl+Q"_s : QString()));
        QVERIFY(controller.quitItem()->isShortcutVisibleInContextMenu());
        QVERIFY(!TrayFixture(true, true).controller->quitItem()->isShortcutVisibleInContextMenu());
        QVERIFY(controller.toggleItem()->isCheckable() && controller.toggleItem()->isChecked());

        // The window is made once; each opening doubles as a silent update check, and only the menu's
        // command checks out loud.
        QVERIFY(controller.preferencesWindow() == nullptr);
        controller.prefsItem()->trigger();
        PreferencesWindow *window = controller.preferencesWindow();
        QVERIFY(window != nullptr && window->isVisible() && !window->commandsVisible());
        window->close();
        controller.prefsItem()->trigger();
        QVERIFY(controller.preferencesWindow() == window && window->isVisible());
        controller.updateItem()->trigger();
        QVERIFY(fixture.silentChecks == 2 && fixture.manualChecks == 1);

        // A language chosen in the window (the next one, Korean) re-titles the four commands at
        // once, nothing else.
        QTest::keyClick(window->findChild<QWidget *>(u"langPopup"_s), Qt::Key_Down);
        const QList<QString (*)()> texts { L10n::enabled, L10n::preferences, L10n::checkForUpdates, L10n::quit };
        for (qsizetype i = 0; i < commands.size(); ++i)
            QCOMPARE(commands[i]->text(), texts[i]());
        QCOMPARE(commands[3]->text(), u"종료"_s);
        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(controller.toggleItem()->isChecked());
    }

    // What the menu, the tooltip, a notification or the window say about the input permission
    // and the mice; the user hears once per run how to grant access, by the one way there is.
    void accessAndMiceStates()
    {
        // The desktop; the state (set twice); whether a mouse is connected; the status shown; how
        // the user learns to grant access.
        const struct
        {
            QString desktop;
            AccessState state;
            bool mouse;
            const char *shown, *told;
        } rows[] = { { u"tray"_s, AccessState::Waiting, true, "waiting", "" },
            { u"tray"_s, AccessState::Needed, true, "waiting", "notification" },
            { u"tray, no notifications"_s, AccessState::Needed, true, "waiting", "window" },
            { u"no tray"_s, AccessState::Needed, true, "waiting", "window" },
            { u"tray"_s, AccessState::Granted, false, "no mouse", "" },
            { u"tray"_s, AccessState::Granted, true, "", "" } };
        for (const auto &[desktop, state, mouse, shownName, toldName] : rows) {
            const Row row { desktop + u' ' + QLatin1StringView(shownName) + u' ' + QLatin1StringView(toldName) };
            const QLatin1StringView shown(shownName), told(toldName);
            TrayFixture fixture(desktop != "no tray"_L1);
            fixture.notificationsAvailable = desktop == "tray"_L1;
            // An unplugged mouse Kestrix saw before counts as none.
            fixture.input.setMice(
                { { { 3, 4, u"Mouse"_s }, mouse, mouse }, { { 1, 2, u"Old mouse"_s }, false, false } });
            const QString command = u"pkexec /usr/libexec/kestrix/kestrix-install-udev-rule"_s;
            StatusBarController &controller = *fixture.controller;
            controller.setAccessState(state, command);
            controller.setAccessState(state, command);

            const QString status = shown == "waiting"_L1 ? L10n::waitingForAccess()
                : shown == "no mouse"_L1                 ? L10n::noMouseConnected()
                                                         : QString();
            QCOMPARE(controller.statusItem()->text(), status);
            QCOMPARE(controller.statusItem()->isVisible(), !status.isEmpty());
            if (controller.trayIcon() != nullptr)
                QCOMPARE(controller.trayIcon()->toolTip(), status.isEmpty() ? u"Kestrix"_s : u"Kestrix\n"_s + status);
            // The switch means nothing until the engine may run.
            QCOMPARE(controller.toggleItem()->isEnabled(), state == AccessState::Granted);
            controller.toggleItem()->trigger();
            QCOMPARE(fixture.manager.isEnabled(), state != AccessState::Granted);

            const QString notification
                = L10n::accessNeededTitle() + u'|' + L10n::accessNeededMessage() + u'\n' + command;
            QCOMPARE(fixture.notifications, told == "notification"_L1 ? QStringList { notification } : QStringList());
            PreferencesWindow *window = controller.preferencesWindow();
            const auto messages = window != nullptr ? window->findChildren<QMessageBox *>() : QList<QMessageBox *>();
            QCOMPARE(messages.size(), told == "window"_L1 ? 1 : 0);
            if (!messages.isEmpty())
                QVERIFY(messages[0]->isVisible() && messages[0]->informativeText().endsWith(u'\n' + command));
        }
    }

    // Without a tray the window is shown at start and carries the engine switch and quit; the
    // menu's commands (still reachable through Ctrl+Q, also from the open menu) act on the same
    // engine.
    void menuAndWindowSwitchTheEngineAndQuitAfterStoppingIt()
    {
        TrayFixture fixture(false);
        QVERIFY(fixture.controller->trayIcon() == nullptr);
        PreferencesWindow *window = fixture.controller->preferencesWindow();
        QVERIFY(window != nullptr && window->isVisible() && window->commandsVisible());
        // Shown at start without an update check of its own: the application runs that one.
        QCOMPARE(fixture.silentChecks, 0);

        QAction *toggle = fixture.controller->toggleItem();
        auto *enabledSwitch = window->findChild<QCheckBox *>(u"headerEnabledSwitch"_s);
        QVERIFY(enabledSwitch->isChecked());
        enabledSwitch->click();
        QVERIFY(!fixture.manager.isEnabled() && !fixture.platform.installed);
        QVERIFY(!enabledSwitch->isChecked() && !toggle->isChecked());
        toggle->trigger(); // the menu's toggle keeps the switch in step
        QVERIFY(fixture.manager.isEnabled() && fixture.platform.installed);
        QVERIFY(enabledSwitch->isChecked() && toggle->isChecked());

        // Each way out stops the engine before the application quits.
        window->findChild<QAbstractButton *>(u"headerQuitButton"_s)->click();
        QVERIFY(fixture.quits == 1 && !fixture.engineStartedAtQuit);
        fixture.manager.start();
        fixture.controller->quitItem()->trigger();
        QVERIFY(fixture.quits == 2 && !fixture.engineStartedAtQuit);
        fixture.manager.start();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(fixture.quits == 3 && !fixture.engineStartedAtQuit);
        // Also while the open menu holds the keyboard, with no Kestrix window shown.
        window->hide();
        fixture.manager.start();
        fixture.controller->menu()->popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(fixture.controller->menu()));
        QTest::keyClick(fixture.controller->menu(), Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(fixture.quits, 4);
        QVERIFY(!fixture.engineStartedAtQuit && !fixture.controller->menu()->isVisible());
    }
};

QTEST_MAIN(StatusBarControllerTest)
#include "StatusBarControllerTest.moc"
