#pragma once

#include <QObject>

class QSocketNotifier;

namespace kestrix {

// SIGTERM (the polite quit a newer copy or the session sends), SIGINT and SIGHUP end Kestrix
// cleanly: the signal is only noted in the handler, and the event loop hears of it through a
// self-pipe, so everything that follows (stopping the engine, releasing grabs) runs on the main
// thread like any other event.
class ShutdownSignals final : public QObject
{
    Q_OBJECT

public:
    // Installs the handlers. Call it first in main: a signal that arrives before the event loop runs
    // is kept in the pipe and reported as soon as it does. Installing twice changes nothing.
    static void install();
    // True once one of the signals arrived.
    static bool received();

    // Watches the pipe on the current thread's event loop; install() must have run.
    explicit ShutdownSignals(QObject *parent = nullptr);
    ~ShutdownSignals() override;

Q_SIGNALS:
    // One emission per signal received.
    void shutdownRequested(int signalNumber);

private:
    void drain();

    QSocketNotifier *m_notifier = nullptr;
};

} // namespace kestrix
