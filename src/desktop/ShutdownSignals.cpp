#include "desktop/ShutdownSignals.h"

#include "core/Log.h"

#include <QSocketNotifier>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace kestrix {
namespace {

constexpr std::array handledSignals { SIGTERM, SIGINT, SIGHUP };

// Both ends non-blocking: a handler never blocks on a full pipe (a burst of signals past the pipe's
// capacity is one quit all the same), and draining never blocks the event loop.
int signalPipe[2] = { -1, -1 };
std::atomic<bool> signalReceived { false };

void onSignal(int signalNumber)
{
    const int savedErrno = errno;
    signalReceived.store(true);
    const auto byte = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(signalPipe[1], &byte, 1);
    errno = savedErrno;
}

} // namespace

void ShutdownSignals::install()
{
    if (signalPipe[0] >= 0)
        return;
    if (::pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        // The default actions stay: a signal still ends the process, and the kernel releases every
        // grab and destroys every twin of a process that ends.
        Log::write("[Kestrix] Cannot watch quit signals: " + std::string(std::strerror(errno)));
        signalPipe[0] = signalPipe[1] = -1;
        return;
    }
    struct sigaction action = {};
    action.sa_handler = onSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : handledSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

bool ShutdownSignals::received() { return signalReceived.load(); }

ShutdownSignals::ShutdownSignals(QObject *parent)
    : QObject(parent)
{
    install();
    if (signalPipe[0] < 0)
        return;
    m_notifier = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &ShutdownSignals::drain);
}

ShutdownSignals::~ShutdownSignals() = default;

void ShutdownSignals::drain()
{
    unsigned char byte = 0;
    while (::read(signalPipe[0], &byte, 1) == 1) {
        Log::debug("[Kestrix] Signal " + std::to_string(byte) + " received: quitting");
        Q_EMIT shutdownRequested(byte);
    }
}

} // namespace kestrix
