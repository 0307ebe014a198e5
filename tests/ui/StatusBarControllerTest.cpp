// The tray menu: its items in order, their titles in the current language, and its four commands
// driving a real engine over a recording platform. Where there is no tray, the window stands in.

#include "UiTestSupport.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/GrabScrollManager.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "ui/StatusBarController.h"

#include <QAbstractButton>
#include <QAction>
#include <QCheckBox>
#include <QMenu>
#include <QTest>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

// A started engine over a recording platform, and a controller whose outside world counts update
// checks and quit requests, noting whether the engine still ran when the quit arrived.
struct Fixture
{
    RecordingHook hook;
    GrabScrollManager manager { hook, hook, hook };
    WindowRecorder window;
    int manualChecks = 0;
    int silentChecks = 0;
    int quits = 0;
    bool engineStartedAtQuit = true;
    std::unique_ptr<StatusBarController> controller;

    explicit Fixture(bool trayAvailable = true)
    {
        manager.start();
        controller = std::make_unique<StatusBarController>(manager,
            StatusBarServices {
                .checkForUpdate = [this] { ++manualChecks; },
                .checkSilently = [this] { ++silentChecks; },
                .isTrayAvailable = [trayAvailable] { return trayAvailable; },
                .quitApplication =
                    [this] {
                        ++quits;
                        engineStartedAtQuit = manager.isStarted();
                    },
                .preferences = window.services(),
            });
    }
};

} // namespace

class StatusBarControllerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void menuHasTheItemsInOrderAndFollowsTheLanguage()
    {
        Fixture fixture;
        StatusBarController &controller = *fixture.controller;
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

        // A language chosen in the window re-titles the four commands at once, nothing else.
        controller.showPreferences();
        QTest::keyClick(controller.preferencesWindow()->findChild<QWidget *>(u"langPopup"_s), Qt::Key_Down);
        QCOMPARE(SettingsStore::shared().stringValue(SettingsKeys::language), u"ko"_s);
        const QList<QString (*)()> korean { L10n::enabled, L10n::preferences, L10n::checkForUpdates, L10n::quit };
        for (qsizetype i = 0; i < commands.size(); ++i) {
            QCOMPARE(commands[i]->text(), korean[i]());
            QVERIFY(commands[i]->text() != english[i]);
        }
        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(controller.toggleItem()->isChecked());
    }

    void toggleSwitchesTheEngineOffAndOn()
    {
        Fixture fixture;
        QAction *toggle = fixture.controller->toggleItem();
        toggle->trigger();
        QVERIFY(!fixture.manager.isEnabled());
        QVERIFY(!toggle->isChecked());
        QVERIFY(!fixture.hook.installed);
        toggle->trigger();
        QVERIFY(fixture.manager.isEnabled());
        QVERIFY(toggle->isChecked());
        QVERIFY(fixture.hook.installed);
        QCOMPARE(fixture.hook.installCalls, 2);
        QCOMPARE(fixture.hook.uninstallCalls, 1);
    }

    void preferencesWindowIsCreatedOnceAndEachOpeningChecksSilently()
    {
        Fixture fixture;
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

    void quitStopsTheEngineFirstFromTheMenuAndFromCtrlQ()
    {
        Fixture fixture;
        fixture.controller->quitItem()->trigger();
        QCOMPARE(fixture.quits, 1);
        QVERIFY(!fixture.engineStartedAtQuit);

        fixture.manager.start();
        fixture.controller->showPreferences();
        PreferencesWindow *window = fixture.controller->preferencesWindow();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(fixture.quits, 2);
        QVERIFY(!fixture.engineStartedAtQuit);
    }

    void trayIconCarriesTheMenuAndADrawnIcon()
    {
        Fixture fixture;
        QVERIFY(fixture.controller->trayIcon() != nullptr);
        QCOMPARE(fixture.controller->trayIcon()->contextMenu(), fixture.controller->menu());
        QVERIFY(fixture.controller->preferencesWindow() == nullptr);
        // The bundled drawing renders (Qt's SVG icon engine is there) at tray and HiDPI sizes.
        for (const int size : { 16, 22, 44 }) {
            const QImage image = StatusBarController::appIcon().pixmap(size, size).toImage();
            QCOMPARE(image.size(), QSize(size, size));
            QCOMPARE(image.pixelColor(size / 2, size / 2).alpha(), 255);
            QVERIFY(image.pixelColor(0, 0).alpha() < 255);
        }
    }

    void withoutATrayTheWindowCarriesTheCommands()
    {
        Fixture fixture(false);
        QVERIFY(fixture.controller->trayIcon() == nullptr);
        PreferencesWindow *window = fixture.controller->preferencesWindow();
        QVERIFY(window != nullptr && window->isVisible() && window->commandsVisible());
        // Shown at start without an update check of its own: the application runs that one.
        QCOMPARE(fixture.silentChecks, 0);

        auto *enabledSwitch = window->findChild<QCheckBox *>(u"headerEnabledSwitch"_s);
        QVERIFY(enabledSwitch->isChecked());
        enabledSwitch->click();
        QVERIFY(!fixture.manager.isEnabled() && !fixture.hook.installed);
        QVERIFY(!enabledSwitch->isChecked());
        QVERIFY(!fixture.controller->toggleItem()->isChecked());
        fixture.controller->toggleItem()->trigger(); // the menu's toggle keeps the switch in step
        QVERIFY(enabledSwitch->isChecked());

        window->findChild<QAbstractButton *>(u"headerQuitButton"_s)->click();
        QCOMPARE(fixture.quits, 1);
        QVERIFY(!fixture.engineStartedAtQuit);
    }
};

QTEST_MAIN(StatusBarControllerTest)
#include "StatusBarControllerTest.moc"
