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

Q_DECLARE_METATYPE(kestrix::AccessState)

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
        QCOMPARE(items.size(), 9);
        for (const qsizetype separator : { 2, 4, 7 })
            QVERIFY(items[separator]->isSeparator());
        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(!items[0]->isEnabled());
        QCOMPARE(items[1], controller.statusItem());
        const QList<QAction *> commands { controller.toggleItem(), controller.prefsItem(), controller.updateItem(),
            controller.quitItem() };
        QCOMPARE((QList<QAction *> { items[3], items[5], items[6], items[8] }), commands);
        const QStringList english { u"Enabled"_s, u"Preferences..."_s, u"Check for Updates..."_s, u"Quit"_s };
        for (qsizetype i = 0; i < commands.size(); ++i) {
            QCOMPARE(commands[i]->text(), english[i]);
            // Only quit has a shortcut, Ctrl+Q, shown in the menu.
            QCOMPARE(commands[i]->shortcut().isEmpty(), commands[i] != controller.quitItem());
        }
        QCOMPARE(controller.quitItem()->shortcut(), QKeySequence(u"Ctrl+Q"_s));
        QVERIFY(controller.toggleItem()->isCheckable() && controller.toggleItem()->isChecked());

        // A language chosen in the window (the next one, Korean) re-titles the four commands at
        // once, nothing else.
        controller.showPreferences();
        QTest::keyClick(controller.preferencesWindow()->findChild<QWidget *>(u"langPopup"_s), Qt::Key_Down);
        const QList<QString (*)()> korean { L10n::enabled, L10n::preferences, L10n::checkForUpdates, L10n::quit };
        for (qsizetype i = 0; i < commands.size(); ++i) {
            QCOMPARE(commands[i]->text(), korean[i]());
            QVERIFY(commands[i]->text() != english[i]);
        }
        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(controller.toggleItem()->isChecked());
    }

    // Ctrl+Q quits while the open menu holds the keyboard; where the desktop draws the menu, no
    // key reaches it and the menu shows no shortcut.
    void ctrlQQuitsFromTheOpenMenu_data()
    {
        QTest::addColumn<bool>("drawnByDesktop");
        QTest::newRow("menu drawn by Kestrix") << false;
        QTest::newRow("menu drawn by the desktop") << true;
    }

    void ctrlQQuitsFromTheOpenMenu()
    {
        QFETCH(bool, drawnByDesktop);
        TrayFixture fixture(true, drawnByDesktop);
        QCOMPARE(fixture.controller->quitItem()->isShortcutVisibleInContextMenu(), !drawnByDesktop);
        QMenu *menu = fixture.controller->menu();
        menu->popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        QTest::keyClick(menu, Qt::Key_Q, Qt::ControlModifier);
        QVERIFY(fixture.quits == 1 && !fixture.engineStartedAtQuit);
        QVERIFY(!menu->isVisible());
    }

    // What the menu, the tooltip, a notification or the window say about the input permission
    // and the mice; the user hears once per run how to grant access, by the one way there is.
    void accessAndMiceStates_data()
    {
        QTest::addColumn<bool>("tray");
        QTest::addColumn<bool>("notifications"); // a notification service answers
        QTest::addColumn<AccessState>("state"); // set twice
        QTest::addColumn<bool>("mouse"); // a mouse is connected
        QTest::addColumn<QString>("status");
        QTest::addColumn<int>("notified");
        QTest::addColumn<bool>("inWindow"); // the window says how to grant access
        const QString waiting = L10n::waitingForAccess();
        QTest::newRow("waiting") << true << true << AccessState::Waiting << true << waiting << 0 << false;
        QTest::newRow("needed: a notification") << true << true << AccessState::Needed << true << waiting << 1 << false;
        QTest::newRow("needed: no notification service")
            << true << false << AccessState::Needed << true << waiting << 0 << true;
        QTest::newRow("needed: no tray") << false << true << AccessState::Needed << true << waiting << 0 << true;
        QTest::newRow("granted, no mouse")
            << true << true << AccessState::Granted << false << L10n::noMouseConnected() << 0 << false;
        QTest::newRow("granted") << true << true << AccessState::Granted << true << QString() << 0 << false;
    }

    void accessAndMiceStates()
    {
        QFETCH(bool, tray);
        QFETCH(bool, notifications);
        QFETCH(AccessState, state);
        QFETCH(bool, mouse);
        QFETCH(QString, status);
        QFETCH(int, notified);
        QFETCH(bool, inWindow);
        TrayFixture fixture(tray);
        fixture.notificationsAvailable = notifications;
        // An unplugged mouse Kestrix saw before counts as none.
        fixture.input.setMice({ { { 1, 2, u"Old mouse"_s }, false, false } });
        if (mouse)
            fixture.input.setMice({ { { 3, 4, u"Mouse"_s }, true, true }, { { 1, 2, u"Old mouse"_s }, false, false } });
        const QString command = u"pkexec /usr/libexec/kestrix/kestrix-install-udev-rule"_s;
        StatusBarController &controller = *fixture.controller;
        controller.setAccessState(state, command);
        controller.setAccessState(state, command);

        QCOMPARE(controller.statusItem()->text(), status);
        QCOMPARE(controller.statusItem()->isVisible(), !status.isEmpty());
        if (tray)
            QCOMPARE(controller.trayIcon()->toolTip(), status.isEmpty() ? u"Kestrix"_s : u"Kestrix\n"_s + status);
        // The switch means nothing until the engine may run.
        QCOMPARE(controller.toggleItem()->isEnabled(), state == AccessState::Granted);
        controller.toggleItem()->trigger();
        QCOMPARE(fixture.manager.isEnabled(), state != AccessState::Granted);

        QCOMPARE(fixture.notifications.size(), notified);
        if (notified > 0) {
            QCOMPARE(fixture.notifications[0],
                L10n::accessNeededTitle() + u'|' + L10n::accessNeededMessage() + u'\n' + command);
        }
        PreferencesWindow *window = controller.preferencesWindow();
        auto *message = window != nullptr ? window->findChild<QMessageBox *>(u"accessNeededMessage"_s) : nullptr;
        QCOMPARE(message != nullptr, inWindow);
        if (inWindow) {
            QVERIFY(window->isVisible() && message->isVisible());
            QVERIFY(message->informativeText().endsWith(u'\n' + command));
            QCOMPARE(window->findChildren<QMessageBox *>().size(), 1);
        }
    }

    void preferencesWindowIsCreatedOnceAndEachOpeningChecksSilently()
    {
        TrayFixture fixture;
        StatusBarController &controller = *fixture.controller;
        QVERIFY(controller.preferencesWindow() == nullptr);
        controller.prefsItem()->trigger();
        PreferencesWindow *first = controller.preferencesWindow();
        QVERIFY(first != nullptr && first->isVisible());
        first->close();
        controller.prefsItem()->trigger();
        controller.prefsItem()->trigger();
        QCOMPARE(controller.preferencesWindow(), first);
        QVERIFY(first->isVisible());
        QVERIFY(!first->commandsVisible());
        QCOMPARE(fixture.silentChecks, 3);
        QCOMPARE(fixture.manualChecks, 0);
        controller.updateItem()->trigger();
        QCOMPARE(fixture.manualChecks, 1);
        QCOMPARE(fixture.silentChecks, 3);
    }

    // Without a tray the window is shown at start and carries the engine switch and quit; the
    // menu's commands (still reachable through Ctrl+Q) act on the same engine.
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
    }
};

QTEST_MAIN(StatusBarControllerTest)
#include "StatusBarControllerTest.moc"
