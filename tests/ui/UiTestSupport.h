#pragma once

#include "core/TestSupport.h"
#include "engine/EngineControl.h"
#include "engine/GrabScrollManager.h"
#include "engine/RecordingPlatform.h"
#include "ui/PreferencesWindow.h"
#include "ui/StatusBarController.h"

#include <QAbstractButton>
#include <QJsonObject>
#include <QLabel>
#include <QList>
#include <QString>
#include <QTimer>

#include <memory>

namespace kestrix::test {

// One analytics event as the window or the menu handed it over.
struct SentEvent
{
    QString name;
    QJsonObject params;
};

// The desktop as the Advanced page asks it: answers with the app it is told (later, as a desktop
// does), counts the look-ups, and switches the GNOME extension on when asked. The countdown runs in
// milliseconds.
struct FakeAppSource
{
    AppSourceStatus status = AppSourceStatus::Working;
    QString appUnderPointer;
    int lookUps = 0;
    std::function<void()> statusChanged;

    AppSourceServices services()
    {
        using namespace std::chrono_literals;
        return {
            .status = [this] { return status; },
            .watchStatus = [this](QObject *, std::function<void()> changed) { statusChanged = std::move(changed); },
            .lookUpOnce =
                [this](std::function<void(const QString &)> done) {
                    ++lookUps;
                    QTimer::singleShot(0, [done = std::move(done), app = appUnderPointer] { done(app); });
                },
            .enableGnomeExtension =
                [this](std::function<void(bool)> done) {
                    status = AppSourceStatus::Working;
                    done(true);
                },
            .countdownStep = 1ms,
        };
    }
};

// Stands in for everything the preferences window reaches outside the process: records analytics
// events and launch-at-login requests, and answers the autostart and compositing queries as told.
struct WindowRecorder
{
    QList<SentEvent> events;
    QList<bool> launchAtLoginRequests;
    bool launchAtLoginEnabled = false;
    bool composited = false;
    FakeAppSource appSource;

    PreferencesServices services()
    {
        return {
            .sendAnalytics =
                [this](const QString &name, const QJsonObject &params) {
                    events.append({ name, params });
                },
            .setLaunchAtLogin = [this](bool enabled) { launchAtLoginRequests.append(enabled); },
            .isLaunchAtLoginEnabled = [this] { return launchAtLoginEnabled; },
            .appSource = appSource.services(),
            .desktopComposites = [this] { return composited; },
        };
    }
};

// A started engine over a recording platform, and a tray controller whose outside world counts
// update checks and quit requests, noting whether the engine still ran when the quit arrived.
struct TrayFixture
{
    RecordingPlatform platform;
    GrabScrollManager manager { platform, platform };
    EngineControl input { manager };
    WindowRecorder window;
    int manualChecks = 0;
    int silentChecks = 0;
    int quits = 0;
    bool engineStartedAtQuit = true;
    // Desktop notifications as "title|body"; none arrive while the service is unavailable.
    QStringList notifications;
    bool notificationsAvailable = true;
    std::unique_ptr<StatusBarController> controller;

    explicit TrayFixture(bool trayAvailable = true, bool menuDrawnByDesktop = false)
    {
        manager.start();
        controller = std::make_unique<StatusBarController>(input,
            StatusBarServices {
                .checkForUpdate = [this] { ++manualChecks; },
                .checkSilently = [this] { ++silentChecks; },
                .isTrayAvailable = [trayAvailable] { return trayAvailable; },
                .quitApplication =
                    [this] {
                        ++quits;
                        engineStartedAtQuit = manager.isStarted();
                    },
                .isMenuDrawnByDesktop = [menuDrawnByDesktop] { return menuDrawnByDesktop; },
                .notify =
                    [this](const QString &title, const QString &body, const std::function<void()> &unavailable) {
                        if (!notificationsAvailable) {
                            unavailable();
                            return;
                        }
                        notifications.append(title + u'|' + body);
                    },
                .preferences = window.services(),
            });
    }
};

// The preferences window as the tray opens it, over the engine's mice, built after the test has
// set up the store, on a desktop that composites or not.
struct Shown
{
    TrayFixture fixture;
    WindowRecorder &recorder = fixture.window;
    PreferencesWindow &window;

    explicit Shown(
        std::vector<MouseInfo> mice = {}, AppSourceStatus source = AppSourceStatus::Working, bool composited = false)
        : window(open(fixture, std::move(mice), source, composited))
    { }

    static PreferencesWindow &open(
        TrayFixture &fixture, std::vector<MouseInfo> mice, AppSourceStatus source, bool composited)
    {
        fixture.input.setMice(std::move(mice));
        fixture.window.appSource.status = source;
        fixture.window.composited = composited;
        fixture.controller->showPreferences();
        return *fixture.controller->preferencesWindow();
    }

    template<typename T = QWidget> QList<T *> all(const QString &name) const { return window.findChildren<T *>(name); }
    template<typename T = QWidget> T *get(const QString &name) const
    {
        const QList<T *> found = all<T>(name);
        if (found.size() != 1)
            qFatal("%lld controls named %s", static_cast<long long>(found.size()), qPrintable(name));
        return found.front();
    }

    QString text(const QString &name) const
    {
        if (auto *label = qobject_cast<QLabel *>(get(name)))
            return label->text();
        return get<QAbstractButton>(name)->text();
    }
};

} // namespace kestrix::test
