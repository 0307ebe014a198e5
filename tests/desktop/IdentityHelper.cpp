// A stand-in for another running Kestrix, for the single-instance tests: a real process that takes
// the identity it is given and then either quits cleanly on SIGTERM (through ShutdownSignals, like
// Kestrix) or ignores it.
//
//   desktop_identity_helper IDENTIFIER DISPLAY_NAME quit|ignore|name-only
//
// quit       adopts the whole identity (re-executes with IDENTIFIER as argv[0]), quits on SIGTERM
// ignore     adopts the whole identity, ignores SIGTERM
// name-only  only takes DISPLAY_NAME as its process name: an unrelated program with that name
// Prints "ready" when set up, and "quit SIGNAL" before a clean exit.

#include "desktop/ShutdownSignals.h"
#include "desktop/SingleInstanceGuard.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <sys/prctl.h>

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const kestrix::ProcessIdentity identity { QString::fromUtf8(argv[1]), QString::fromUtf8(argv[2]) };
    const char *mode = argv[3];
    if (std::strcmp(mode, "name-only") == 0)
        ::prctl(PR_SET_NAME, argv[2], 0, 0, 0);
    else
        kestrix::SingleInstanceGuard::adoptIdentity(argv, identity);

    kestrix::ShutdownSignals::install();
    QCoreApplication app(argc, argv);
    kestrix::ShutdownSignals quitSignals;
    if (std::strcmp(mode, "ignore") == 0)
        std::signal(SIGTERM, SIG_IGN);
    QObject::connect(&quitSignals, &kestrix::ShutdownSignals::shutdownRequested, &app, [](int signalNumber) {
        std::printf("quit %d\n", signalNumber);
        std::fflush(stdout);
        QCoreApplication::quit();
    });
    std::printf("ready\n");
    std::fflush(stdout);
    return app.exec();
}
