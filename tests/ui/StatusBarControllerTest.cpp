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
        QCOMPARE(items.size(), 8);
        for (const qsizetype separator : { 1, 3, 6 })
            QVERIFY(items[separator]->isSeparator());
        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(!items[0]->isEnabled());
        const QList<QAction *> commands { controller.toggleItem(), controller.prefsItem(), controller.updateItem(),
            controller.quitItem() };
        QCOMPARE((QList<QAction *> { items[2], items[4], items[5], items[7] }), commands);
        const QStringList english { u"Enabled"_s, u"Preferences..."_s, u"Check for Updates..."_s, u"Quit"_s };
        for (qsizetype i = 0; i < commands.size(); ++i) {
            QCOMPARE(commands[i]->text(), english[i]);
            // Only quit has a shortcut, Ctrl+Q, shown in the menu.
            QCOMPARE(commands[i]->shortcut().isEmpty(), commands[i] != controller.quitItem());
        }
        QCOMPARE(controller.quitItem()->shortcut(), QKeySequence(u"Ctrl+Q"_s));
        QVERIFY(controller.quitItem()->isShortcutVisibleInContextMenu());
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
