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

// The controller's outside world: counts update checks and quit requests, and notes whether the
// engine was still running when the quit arrived.
struct ControllerRecorder
{
    int manualChecks = 0;
    int silentChecks = 0;
    int quits = 0;
    bool engineStartedAtQuit = true;
    bool trayAvailable = true;
    WindowRecorder window;
    GrabScrollManager *manager = nullptr;

    StatusBarServices services()
    {
        return {
            .checkForUpdate = [this] { ++manualChecks; },
            .checkSilently = [this] { ++silentChecks; },
            .isTrayAvailable = [this] { return trayAvailable; },
            .quitApplication =
                [this] {
                    ++quits;
                    engineStartedAtQuit = manager->isStarted();
                },
            .preferences = window.services(),
        };
    }
};

struct Fixture
{
    RecordingHook hook;
    GrabScrollManager manager { hook, hook, hook };
    ControllerRecorder recorder;

    explicit Fixture(bool trayAvailable = true)
    {
        recorder.manager = &manager;
        recorder.trayAvailable = trayAvailable;
        manager.start();
    }
};

} // namespace

class StatusBarControllerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void menuHasTheItemsInOrder()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        const QList<QAction *> items = controller.menu()->actions();
        QCOMPARE(items.size(), 8);
        const QList<bool> separators { false, true, false, true, false, false, true, false };
        for (qsizetype i = 0; i < items.size(); ++i)
            QCOMPARE(items[i]->isSeparator(), separators[i]);

        QCOMPARE(items[0]->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(!items[0]->isEnabled());
        QCOMPARE(items[2], controller.toggleItem());
        QCOMPARE(items[4], controller.prefsItem());
        QCOMPARE(items[5], controller.updateItem());
        QCOMPARE(items[7], controller.quitItem());
        QCOMPARE(controller.toggleItem()->text(), u"Enabled"_s);
        QCOMPARE(controller.prefsItem()->text(), u"Preferences..."_s);
        QCOMPARE(controller.updateItem()->text(), u"Check for Updates..."_s);
        QCOMPARE(controller.quitItem()->text(), u"Quit"_s);
        QVERIFY(controller.toggleItem()->isCheckable());
        QVERIFY(controller.toggleItem()->isChecked());

        // Only quit has a shortcut, Ctrl+Q, shown in the menu.
        QCOMPARE(controller.quitItem()->shortcut(), QKeySequence(u"Ctrl+Q"_s));
        QVERIFY(controller.quitItem()->isShortcutVisibleInContextMenu());
        for (const QAction *item : { items[0], items[2], items[4], items[5] })
            QVERIFY(item->shortcut().isEmpty());
    }

    void languageChangeRetitlesTheCommandsOnly()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        SettingsStore::shared().setValue(SettingsKeys::language, u"ko"_s);
        // Nothing changes until the broadcast: the menu does not poll the store.
        QCOMPARE(controller.quitItem()->text(), u"Quit"_s);
        LanguageNotifier::instance().post();

        QCOMPARE(controller.toggleItem()->text(), L10n::enabled());
        QCOMPARE(controller.toggleItem()->text(), u"활성화"_s);
        QCOMPARE(controller.prefsItem()->text(), L10n::preferences());
        QCOMPARE(controller.updateItem()->text(), L10n::checkForUpdates());
        QCOMPARE(controller.quitItem()->text(), L10n::quit());
        QVERIFY(controller.quitItem()->text() != u"Quit"_s);
        QCOMPARE(controller.menu()->actions().constFirst()->text(), u"Kestrix v1.0.1"_s);
        QVERIFY(controller.toggleItem()->isChecked());
    }

    void languageChosenInTheWindowRetitlesTheMenu()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        controller.showPreferences();
        auto *popup = controller.preferencesWindow()->findChild<QWidget *>(u"langPopup"_s);
        QTest::keyClick(popup, Qt::Key_Down); // English -> Korean
        QCOMPARE(controller.toggleItem()->text(), u"활성화"_s);
    }

    void toggleSwitchesTheEngineOffAndOn()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        QAction *toggle = controller.toggleItem();
        QVERIFY(fixture.hook.installed);

        toggle->trigger();
        QVERIFY(!fixture.manager.isEnabled());
        QVERIFY(!toggle->isChecked());
        QVERIFY(!fixture.hook.installed);
        QCOMPARE(fixture.hook.uninstallCalls, 1);

        toggle->trigger();
        QVERIFY(fixture.manager.isEnabled());
        QVERIFY(toggle->isChecked());
        QVERIFY(fixture.hook.installed);
        QCOMPARE(fixture.hook.installCalls, 2);
    }

    void preferencesWindowIsCreatedOnceAndEachOpeningChecksSilently()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        QVERIFY(controller.preferencesWindow() == nullptr);
        controller.prefsItem()->trigger();
        PreferencesWindow *first = controller.preferencesWindow();
        QVERIFY(first != nullptr);
        QVERIFY(first->isVisible());
        first->close();
        controller.prefsItem()->trigger();
        controller.prefsItem()->trigger();
        QCOMPARE(controller.preferencesWindow(), first);
        QVERIFY(first->isVisible());
        QCOMPARE(fixture.recorder.silentChecks, 3);
        QCOMPARE(fixture.recorder.manualChecks, 0);
        QVERIFY(!first->commandsVisible());
    }

    void checkForUpdatesRunsTheManualCheck()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        controller.updateItem()->trigger();
        QCOMPARE(fixture.recorder.manualChecks, 1);
        QCOMPARE(fixture.recorder.silentChecks, 0);
    }

    void quitStopsTheEngineFirst()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        controller.quitItem()->trigger();
        QCOMPARE(fixture.recorder.quits, 1);
        QVERIFY(!fixture.recorder.engineStartedAtQuit);
        QVERIFY(!fixture.hook.installed);
    }

    void ctrlQQuitsFromThePreferencesWindow()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        controller.showPreferences();
        PreferencesWindow *window = controller.preferencesWindow();
        QVERIFY(QTest::qWaitForWindowActive(window));
        QTest::keyClick(window, Qt::Key_Q, Qt::ControlModifier);
        QCOMPARE(fixture.recorder.quits, 1);
        QVERIFY(!fixture.recorder.engineStartedAtQuit);
    }

    void trayIconCarriesTheMenuAndADrawnIcon()
    {
        Fixture fixture;
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        QVERIFY(controller.trayIcon() != nullptr);
        QCOMPARE(controller.trayIcon()->contextMenu(), controller.menu());
        QVERIFY(controller.preferencesWindow() == nullptr);

        // The icon is the bundled drawing, rendered sharp at tray and HiDPI sizes.
        for (const int size : { 16, 22, 44 }) {
            const QImage image = StatusBarController::appIcon().pixmap(size, size).toImage();
            QCOMPARE(image.size(), QSize(size, size));
            QVERIFY(image.pixelColor(size / 2, size / 2).alpha() == 255);
            QVERIFY(image.pixelColor(0, 0).alpha() < 255);
        }
    }

    void withoutATrayTheWindowCarriesTheCommands()
    {
        Fixture fixture(false);
        StatusBarController controller(fixture.manager, fixture.recorder.services());
        QVERIFY(controller.trayIcon() == nullptr);
        PreferencesWindow *window = controller.preferencesWindow();
        QVERIFY(window != nullptr);
        QVERIFY(window->isVisible());
        QVERIFY(window->commandsVisible());
        // Shown at start without an update check of its own: the application runs that one.
        QCOMPARE(fixture.recorder.silentChecks, 0);

        auto *enabledSwitch = window->findChild<QCheckBox *>(u"headerEnabledSwitch"_s);
        QVERIFY(enabledSwitch->isChecked());
        QCOMPARE(enabledSwitch->text(), u"Enabled"_s);
        enabledSwitch->click();
        QVERIFY(!fixture.manager.isEnabled());
        QVERIFY(!fixture.hook.installed);
        QVERIFY(!enabledSwitch->isChecked());
        QVERIFY(!controller.toggleItem()->isChecked());
        // The menu's toggle (or Ctrl+Q's quit) keep the window's switch in step as well.
        controller.toggleItem()->trigger();
        QVERIFY(enabledSwitch->isChecked());

        window->findChild<QAbstractButton *>(u"headerQuitButton"_s)->click();
        QCOMPARE(fixture.recorder.quits, 1);
        QVERIFY(!fixture.recorder.engineStartedAtQuit);
    }
};

QTEST_MAIN(StatusBarControllerTest)
#include "StatusBarControllerTest.moc"
