#pragma once

// The real program started as a user starts it, with everything it logs collected. Every address
// it could reach is loopback; the process is killed if a test leaves it running.

#include <QProcess>
#include <QTest>

#include <csignal>

namespace kestrix::test {

struct RunningKestrix
{
    explicit RunningKestrix(QProcessEnvironment environment = QProcessEnvironment::systemEnvironment())
    {
        using namespace Qt::StringLiterals;
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        environment.remove(u"JOURNAL_STREAM"_s); // the log lines must reach stderr
        environment.insert(u"KESTRIX_UPDATE_BASE_URL"_s, u"http://127.0.0.1:9"_s);
        environment.insert(u"KESTRIX_ANALYTICS_BASE_URL"_s, u"http://127.0.0.1:9"_s);
        process.setProcessEnvironment(environment);
        process.setProcessChannelMode(QProcess::MergedChannels);
        QObject::connect(&process, &QProcess::readyRead, &process, [this] { output += process.readAll(); });
        process.start(QStringLiteral(KESTRIX_BINARY), {});
    }

    void signal(int signalNumber) const { ::kill(pid_t(process.processId()), signalNumber); }

    // Declared before the process, so it outlives it: a process still running when a test fails is
    // killed by ~QProcess, which reads its last output into here on the way.
    QByteArray output;
    QProcess process;
};

// Waits for Kestrix to end by itself, with success.
inline void expectCleanExit(RunningKestrix &kestrix)
{
    QTRY_COMPARE_WITH_TIMEOUT(kestrix.process.state(), QProcess::NotRunning, 30000);
    QCOMPARE(kestrix.process.exitStatus(), QProcess::NormalExit);
    QCOMPARE(kestrix.process.exitCode(), 0);
}

} // namespace kestrix::test
