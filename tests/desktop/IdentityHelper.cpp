// Other running copies of Kestrix, and a starting one, for the single-instance tests: real processes
// that take the identity they are given.
//
//   desktop_identity_helper IDENTIFIER DISPLAY_NAME MODE
//
// quit       adopts the whole identity (re-executes with IDENTIFIER as argv[0]) and quits cleanly on
//            SIGTERM through ShutdownSignals, as Kestrix does; prints "quit SIGNAL" before it exits
// ignore     adopts the whole identity and ignores SIGTERM
// name-only  only takes DISPLAY_NAME as its process name: an unrelated program with that name
// guard      adopts the whole identity, waits for a line on stdin, then runs the single-instance
//            guard and prints "log LINE" per log line, "asked PID...", and "remaining N" (older
//            copies still running after the guard)
// Every mode prints "ready" once it is set up.

#include "core/Log.h"
#include "desktop/ShutdownSignals.h"
#include "desktop/SingleInstanceGuard.h"

#include <QCoreApplication>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>
#include <sys/prctl.h>

namespace {

void say(const std::string &line)
{
    std::printf("%s\n", line.c_str());
    std::fflush(stdout);
}

int runGuard(const kestrix::ProcessIdentity &identity)
{
    say("ready");
    char go[16];
    if (std::fgets(go, sizeof go, stdin) == nullptr)
        return 2;
    kestrix::Log::setObserver([](std::string_view line) { say("log " + std::string(line)); });
    const std::vector<pid_t> asked = kestrix::SingleInstanceGuard::terminateOlderCopies(identity);
    std::string list = "asked";
    for (const pid_t pid : asked)
        list += ' ' + std::to_string(pid);
    say(list);
    say("remaining " + std::to_string(kestrix::SingleInstanceGuard::findOlderCopies(identity).size()));
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 4)
        return 2;
    const kestrix::ProcessIdentity identity { QString::fromUtf8(argv[1]), QString::fromUtf8(argv[2]) };
    const std::string mode = argv[3];
    if (mode == "name-only")
        ::prctl(PR_SET_NAME, argv[2], 0, 0, 0);
    else
        kestrix::SingleInstanceGuard::adoptIdentity(argv, identity);
    if (mode == "guard")
        return runGuard(identity);

    kestrix::ShutdownSignals::install();
    QCoreApplication app(argc, argv);
    kestrix::ShutdownSignals quitSignals;
    if (mode == "ignore")
        std::signal(SIGTERM, SIG_IGN);
    QObject::connect(&quitSignals, &kestrix::ShutdownSignals::shutdownRequested, &app, [](int signalNumber) {
        say("quit " + std::to_string(signalNumber));
        QCoreApplication::quit();
    });
    say("ready");
    return app.exec();
}
