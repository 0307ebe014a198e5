// The real program, as a user runs it: a newer copy replaces an older one, and every quit signal
// ends it cleanly, with the engine stopped. The input permission is never granted here, and pkexec
// is kept out of reach (an empty PATH), so no password dialog ever appears during a test run.

#include "RunningKestrix.h"
#include "core/TestSupport.h"
#include "desktop/SingleInstanceGuard.h"

#include <memory>
#include <vector>

using namespace kestrix;
using namespace Qt::StringLiterals;

class KestrixProcessTest : public QObject
{
    Q_OBJECT

private:
    std::vector<std::unique_ptr<test::RunningKestrix>> m_running;
    // An older copy under the real identity that ignores the request to quit.
    std::unique_ptr<QProcess> m_stubbornCopy;

    // Starts Kestrix and waits for `line`; by default, until it waits for the input permission.
    test::RunningKestrix &startKestrix(const QByteArray &line = "[Kestrix] Input access, asked through polkit = 0")
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"PATH"_s, u"/nonexistent"_s);
        test::RunningKestrix &kestrix = *m_running.emplace_back(std::make_unique<test::RunningKestrix>(environment));
        [&] {
            QVERIFY2(kestrix.process.waitForStarted(), qPrintable(kestrix.process.errorString()));
            QTRY_VERIFY_WITH_TIMEOUT(kestrix.output.contains(line), 20000);
        }();
        return kestrix;
    }

private Q_SLOTS:
    void init()
    {
        if (!SingleInstanceGuard::findOlderCopies().empty())
            QSKIP("a Kestrix runs for this user; a test never replaces it");
    }

    // Destroying a QProcess kills what still runs.
    void cleanup()
    {
        m_running.clear();
        m_stubbornCopy.reset();
    }

    // A newer copy replaces the older one, which ends cleanly on the SIGTERM it is sent; the newer
    // one then ends cleanly, with the engine stopped once, on the other quit signals (SIGHUP: the
    // session's logout).
    void newestCopyWinsAndEveryQuitSignalEndsIt()
    {
        for (const int signalNumber : { SIGINT, SIGHUP }) {
            const test::Row row { QString::number(signalNumber) };
            cleanup();
            test::RunningKestrix &older = startKestrix();
            QVERIFY(!older.output.contains("기존 프로세스"));
            test::RunningKestrix &newer = startKestrix();
            test::expectCleanExit(older);
            QCOMPARE(older.output.count("[Kestrix] 마우스 입력 해제됨"), 1);

            const qsizetype asking = newer.output.indexOf("[Kestrix] 기존 프로세스 종료 중...");
            const qsizetype done = newer.output.indexOf("[Kestrix] 기존 프로세스 종료 완료");
            const qsizetype starting = newer.output.indexOf("[Kestrix] 시작 중...");
            QVERIFY(asking >= 0 && asking < done && done < starting);
            QCOMPARE(newer.output.count("[Kestrix] 시작 중..."), 1);

            newer.signal(signalNumber);
            test::expectCleanExit(newer);
            QCOMPARE(newer.output.count("[Kestrix] 마우스 입력 해제됨"), 1);
        }
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

        test::RunningKestrix &kestrix = startKestrix("[Kestrix] 기존 프로세스 종료 중...");
        kestrix.signal(SIGTERM);
        test::expectCleanExit(kestrix);
        QVERIFY(kestrix.output.contains("[Kestrix] 기존 프로세스 종료 완료"));
        QVERIFY(!kestrix.output.contains("[Kestrix] 시작 중..."));
        QCOMPARE(m_stubbornCopy->state(), QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(KestrixProcessTest)
#include "KestrixProcessTest.moc"
