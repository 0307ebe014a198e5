// The program a user starts: one copy per user, newest wins; a tray utility without a window.

#include "app/AppDelegate.h"
#include "app/DesktopFollower.h"
#include "desktop/AppIdentity.h"
#include "desktop/ShutdownSignals.h"
#include "desktop/SingleInstanceGuard.h"
#include "linux/InputThread.h"
#include "session/AppUnderPointer.h"
#include "ui/AdvancedPage.h"
#include "ui/StatusBarController.h"

#include <QApplication>
#include <QSessionManager>
#include <QTimer>

using namespace kestrix;

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

    // The mice are read, the engine run and the twins written on the input thread; from here on
    // the GUI thread only asks it for things.
    InputThread input;

    // The desktop's mouse switches and the app under the pointer, followed for the input thread.
    DesktopFollower desktop(input);
    AppUnderPointer &appUnderPointer = desktop.appUnderPointer();

    LaunchServices services = LaunchServices::system();
    services.makeStatusBar = [&appUnderPointer](InputControl &control) -> std::unique_ptr<QObject> {
        StatusBarServices statusBar = StatusBarServices::live();
        statusBar.preferences.appSource = AppSourceServices::watching(appUnderPointer);
        return std::make_unique<StatusBarController>(control, std::move(statusBar));
    };
    AppDelegate delegate(input, std::move(services));

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
