#pragma once

#include "desktop/AccessibilityHelper.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace kestrix {

class InputControl;

// What the application asks of the world outside the engine: the input permission, then, once it is
// granted, the tray menu, the launch event and the update check. system() gives the real ones;
// tests hand in recorders.
struct LaunchServices
{
    AccessibilityHelper::Access access;
    // Builds the tray menu around the started engine: a StatusBarController.
    std::function<std::unique_ptr<QObject>(InputControl &input)> makeStatusBar;
    // Sends one usage event: Analytics::send.
    std::function<void(const QString &eventName, const QJsonObject &params)> sendEvent;
    // Looks for a newer version, speaking only when there is one: UpdateChecker::checkSilently.
    std::function<void()> checkForUpdatesSilently;

    // The real ones.
    static LaunchServices system();
};

// Orders the life of the running application. Nothing of the interface and nothing of the engine
// exists until input access is granted; the wait may last for the life of the process.
//   waiting     launched, access not yet granted: no tray icon, engine stopped
//   running     engine started, tray icon shown
//   terminating engine stopped (also when it never started: stopping twice is harmless)
class AppDelegate final : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(
        InputControl &input, LaunchServices services = LaunchServices::system(), QObject *parent = nullptr);
    ~AppDelegate() override;

    // Once the event loop runs: logs the start line and waits for input access; then starts the
    // engine, builds the tray menu, sends "app_launch" and checks for updates silently.
    void applicationDidFinishLaunching();
    // Before the process ends: stops the engine, which releases every grab.
    void applicationWillTerminate();

Q_SIGNALS:
    // Access was granted and everything above has started.
    void launchCompleted();

private:
    void accessGranted();

    InputControl &m_input;
    LaunchServices m_services;
    // The tray menu: empty until access is granted, then kept for the life of the process.
    std::unique_ptr<QObject> m_statusBarController;
};

} // namespace kestrix
