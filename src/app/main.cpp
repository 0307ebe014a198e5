// The program a user starts: one copy per user, newest wins; a tray utility without a window.

#include "app/AppDelegate.h"
#include "desktop/AppIdentity.h"
#include "desktop/ShutdownSignals.h"
#include "desktop/SingleInstanceGuard.h"
#include "engine/GrabScrollManager.h"
#include "engine/InputControl.h"
#include "linux/LinuxInputBackend.h"

#include <QApplication>
#include <QSessionManager>
#include <QTimer>

using namespace kestrix;

namespace {

// The engine and its backend on the GUI thread.
class MainThreadInput final : public InputControl
{
public:
    MainThreadInput(GrabScrollManager &manager, LinuxInputBackend &backend)
        : m_manager(manager)
        , m_backend(backend)
    {
        connect(&backend, &LinuxInputBackend::devicesChanged, this, &InputControl::miceChanged);
    }
    bool start() override
    {
        m_manager.start();
        return m_manager.isStarted();
    }
    void stop() override { m_manager.stop(); }
    bool isStarted() const override { return m_manager.isStarted(); }
    bool isEnabled() const override { return m_manager.isEnabled(); }
    void setEnabled(bool enabled) override
    {
        m_manager.setEnabled(enabled);
        enabled ? m_manager.start() : m_manager.stop();
    }
    std::vector<MouseInfo> mice() const override
    {
        std::vector<MouseInfo> result;
        for (const LinuxInputBackend::DeviceInfo &device : m_backend.devices())
            result.push_back({ { 0, 0, device.name }, true, device.grabbed });
        return result;
    }

private:
    GrabScrollManager &m_manager;
    LinuxInputBackend &m_backend;
};

} // namespace

int main(int argc, char **argv)
{
    // Before anything else, and before any thread exists: the identity re-executes the program,
    // and the quit signals must be caught from the first moment (a newer copy may already ask).
    SingleInstanceGuard::adoptIdentity(argv);
    ShutdownSignals::install();

    QApplication app(argc, argv);
    QApplication::setApplicationName(QString(AppIdentity::executableName));
    QApplication::setApplicationDisplayName(QString(AppIdentity::displayName));
    QApplication::setDesktopFileName(QString(AppIdentity::identifier));
    // No main window and no taskbar entry: closing the preferences window never ends Kestrix.
    QApplication::setQuitOnLastWindowClosed(false);

    SingleInstanceGuard::terminateOlderCopies();
    if (ShutdownSignals::received())
        return 0; // told to quit while waiting: nothing has started yet

    LinuxInputBackend backend;
    GrabScrollManager manager(backend, backend, backend);
    backend.setEngine(&manager);
    MainThreadInput input(manager, backend);
    AppDelegate delegate(input);

    // Every way out passes through aboutToQuit, where the engine stops and releases its grabs.
    ShutdownSignals quitSignals;
    QObject::connect(&quitSignals, &ShutdownSignals::shutdownRequested, &app, &QCoreApplication::quit);
    QObject::connect(&app, &QGuiApplication::commitDataRequest, &app, [](QSessionManager &session) {
        // The session ends: autostart, not the session manager, starts Kestrix at the next login.
        session.setRestartHint(QSessionManager::RestartNever);
        QCoreApplication::quit();
    });
    QObject::connect(&app, &QCoreApplication::aboutToQuit, &delegate, &AppDelegate::applicationWillTerminate);

    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return app.exec();
}
