// The real program, as a user runs it: a newer copy replaces an older one, and every quit signal
// ends it cleanly, with the engine stopped. The input permission is never granted here, and pkexec
// is kept out of reach (an empty PATH), so no password dialog ever appears during a test run.

#include "desktop/SingleInstanceGuard.h"

#include <QProcess>
#include <QTest>

#include <csignal>
#include <memory>
#include <vector>

using namespace kestrix;
using namespace Qt::StringLiterals;

class KestrixProcessTest : public QObject
{
    Q_OBJECT

private:
    struct Running
    {
        std::unique_ptr<QProcess> process = std::make_unique<QProcess>();
        QByteArray output;
    };
    std::vector<std::unique_ptr<Running>> m_running;

    // An older copy under the real identity that ignores the request to quit.
    std::unique_ptr<QProcess> m_stubbornCopy;

    // Starts Kestrix and waits for `line`; by default, until it waits for the input permission.
    Running &startKestrix(const QByteArray &line = "[Kestrix] AXIsProcessTrustedWithOptions(prompt) = 0")
    {
        Running &kestrix = *m_running.emplace_back(std::make_unique<Running>());
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, u"/nonexistent"_s);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"offscreen"_s);
        environment.remove(u"JOURNAL_STREAM"_s); // the log lines must reach stderr
        // Loopback only, should a path ever reach the network.
        environment.insert(u"KESTRIX_UPDATE_BASE_URL"_s, u"http://127.0.0.1:9"_s);
        environment.insert(u"KESTRIX_ANALYTICS_BASE_URL"_s, u"http://127.0.0.1:9"_s);
        kestrix.process->setProcessEnvironment(environment);
        kestrix.process->setProcessChannelMode(QProcess::MergedChannels);
        connect(kestrix.process.get(), &QProcess::readyRead, this,
            [&kestrix] { kestrix.output += kestrix.process->readAll(); });
        kestrix.process->start(QStringLiteral(KESTRIX_BINARY), {});
        [&] {
            QVERIFY2(kestrix.process->waitForStarted(), qPrintable(kestrix.process->errorString()));
            QTRY_VERIFY_WITH_TIMEOUT(kestrix.output.contains(line), 20000);
        }();
        return kestrix;
    }

    static void expectCleanExit(Running &kestrix)
    {
        QTRY_COMPARE_WITH_TIMEOUT(kestrix.process->state(), QProcess::NotRunning, 10000);
        QCOMPARE(kestrix.process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(kestrix.process->exitCode(), 0);
        QCOMPARE(kestrix.output.count("[Kestrix] 이벤트 탭 비활성화됨"), 1);
    }

private Q_SLOTS:
    void init()
    {
        if (!SingleInstanceGuard::findOlderCopies().empty())
            QSKIP("a Kestrix runs for this user; a test never replaces it");
    }

    void cleanup()
    {
        for (auto &kestrix : m_running) {
            if (kestrix->process->state() != QProcess::NotRunning) {
                kestrix->process->kill();
                kestrix->process->waitForFinished();
            }
        }
        m_running.clear();
        if (m_stubbornCopy) {
            m_stubbornCopy->kill();
            m_stubbornCopy->waitForFinished();
            m_stubbornCopy.reset();
        }
    }

    void quitSignalsEndItCleanly_data()
    {
        QTest::addColumn<int>("signalNumber");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGHUP") << SIGHUP;
    }

    void quitSignalsEndItCleanly()
    {
        QFETCH(int, signalNumber);
        Running &kestrix = startKestrix();
        QCOMPARE(kestrix.output.count("[Kestrix] 시작 중..."), 1);
        ::kill(pid_t(kestrix.process->processId()), signalNumber);
        expectCleanExit(kestrix);
    }

    // Told to quit while it still waits for an older copy to go: once the wait is over it ends,
    // before anything has started.
    void quitWhileWaitingForAnOlderCopy()
    {
        m_stubbornCopy = std::make_unique<QProcess>();
        m_stubbornCopy->start(
            QStringLiteral(KESTRIX_IDENTITY_HELPER), { u"com.orvane.kestrix"_s, u"Kestrix"_s, u"ignore"_s });
        QVERIFY(m_stubbornCopy->waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(m_stubbornCopy->canReadLine(), 20000);

        Running &kestrix = startKestrix("[Kestrix] 기존 프로세스 종료 중...");
        ::kill(pid_t(kestrix.process->processId()), SIGTERM);
        QTRY_COMPARE_WITH_TIMEOUT(kestrix.process->state(), QProcess::NotRunning, 10000);
        QCOMPARE(kestrix.process->exitStatus(), QProcess::NormalExit);
        QCOMPARE(kestrix.process->exitCode(), 0);
        QVERIFY(kestrix.output.contains("[Kestrix] 기존 프로세스 종료 완료"));
        QVERIFY(!kestrix.output.contains("[Kestrix] 시작 중..."));
        QCOMPARE(m_stubbornCopy->state(), QProcess::Running);
    }

    void newestCopyWins()
    {
        Running &older = startKestrix();
        QVERIFY(!older.output.contains("기존 프로세스"));
        Running &newer = startKestrix();
        expectCleanExit(older);

        const qsizetype asking = newer.output.indexOf("[Kestrix] 기존 프로세스 종료 중...");
        const qsizetype done = newer.output.indexOf("[Kestrix] 기존 프로세스 종료 완료");
        const qsizetype starting = newer.output.indexOf("[Kestrix] 시작 중...");
        QVERIFY(asking >= 0 && asking < done && done < starting);
        QCOMPARE(newer.process->state(), QProcess::Running);

        ::kill(pid_t(newer.process->processId()), SIGTERM);
        expectCleanExit(newer);
    }
};

QTEST_GUILESS_MAIN(KestrixProcessTest)
#include "KestrixProcessTest.moc"
