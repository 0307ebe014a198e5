#pragma once

#include "desktop/AccessibilityHelper.h"
#include "ui/StatusBarController.h"

#include <QJsonObject>
#include <QObject>
#include <QString>

#include <functional>
#include <memory>

namespace kestrix {

class InputControl;

// What the application asks of the world outside the engine: the tray menu and the input
// permission, then, once it is granted, the launch event and the update check. system() gives the
// real ones; tests hand in recorders.
struct LaunchServices
{
    AccessibilityHelper::Access access;
    // Builds the tray menu around the engine: a StatusBarController, which then follows
    // accessStateChanged.
    std::function<std::unique_ptr<QObject>(InputControl &input)> makeStatusBar;
    // Sends one usage event: Analytics::send.
    std::function<void(const QString &eventName, const QJsonObject &params)> sendEvent;
    // Looks for a newer version, speaking only when there is one: UpdateChecker::checkSilently.
    std::function<void()> checkForUpdatesSilently;

    // The real ones.
    static LaunchServices system();
};

// Orders the life of the running application. The tray menu exists from the launch, so the user
// sees that Kestrix waits; the engine starts only once input access is granted, and the wait may
// last for the life of the process.
//   waiting     launched, access not yet granted: tray icon saying so, engine stopped; a prompt
//               that ends without access is told to the user once, with the command that grants it
//   running     engine started, tray icon shown
//   terminating engine stopped (also when it never started: stopping twice is harmless)
class AppDelegate final : public QObject
{
    Q_OBJECT

public:
    explicit AppDelegate(
        InputControl &input, LaunchServices services = LaunchServices::system(), QObject *parent = nullptr);
    ~AppDelegate() override;

    // Once the event loop runs: logs the start line, builds the tray menu and waits for input
    // access; then starts the engine, sends "app_launch" and checks for updates silently.
    void applicationDidFinishLaunching();
    // Before the process ends: stops the engine, which releases every grab.
    void applicationWillTerminate();

    // The command a user runs to grant input access by hand.
    static QString grantCommand();

Q_SIGNALS:
    // Waiting at the launch, Needed once when the prompt ended without access (with
    // grantCommand()), Granted once the engine runs.
    void accessStateChanged(AccessState state, const QString &grantCommand);
    // Access was granted and everything above has started.
    void launchCompleted();

private:
    void accessGranted();

    InputControl &m_input;
    LaunchServices m_services;
    // The tray menu, built at the launch and kept for the life of the process.
    std::unique_ptr<QObject> m_statusBarController;
};

} // namespace kestrix
