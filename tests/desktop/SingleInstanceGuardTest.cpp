// The single-instance rule between real processes: helper programs that take an identity and quit
// on SIGTERM or ignore it, and a helper that starts after them and runs the guard. The tests use an
// identity of their own, so they never touch a Kestrix the developer is running.

#include "desktop/SingleInstanceGuard.h"

#include <QFile>
#include <QProcess>
#include <QTest>

#include <algorithm>
#include <memory>
#include <unistd.h>
#include <vector>

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

const ProcessIdentity testIdentity { u"com.orvane.kestrix.guard-test"_s, u"KestrixGuardT"_s };

QByteArray procFile(pid_t pid, const char *name)
{
    QFile file(u"/proc/%1/%2"_s.arg(pid).arg(QLatin1StringView(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// What the starting copy reported.
struct GuardRun
{
    pid_t pid = 0;
    QStringList log;
    std::vector<pid_t> asked;
    int remaining = -1;
    qint64 waitedMs = -1;
};

} // namespace

class SingleInstanceGuardTest : public QObject
{
    Q_OBJECT

private:
    std::vector<std::unique_ptr<QProcess>> m_helpers;

    // Starts a helper and waits until it has taken its identity.
    QProcess &startHelper(const QString &mode, const std::function<void()> &childSetup = {})
    {
        auto &helper = m_helpers.emplace_back(std::make_unique<QProcess>());
        helper->setProgram(QStringLiteral(KESTRIX_IDENTITY_HELPER));
        helper->setArguments({ testIdentity.identifier, testIdentity.displayName, mode });
        if (childSetup)
            helper->setChildProcessModifier(childSetup);
        helper->start();
        [&] {
            QVERIFY2(helper->waitForStarted(), qPrintable(helper->errorString()));
            QTRY_VERIFY_WITH_TIMEOUT(helper->canReadLine(), 20000);
            QCOMPARE(helper->readLine().trimmed(), "ready");
        }();
        return *helper;
    }

    // Lets a started "guard" helper run the guard, and waits for it without running this process's
    // event loop: the copies that quit stay unreaped zombies meanwhile, which the guard must count
    // as gone.
    static GuardRun runGuard(QProcess &guard)
    {
        GuardRun run;
        run.pid = pid_t(guard.processId());
        guard.write("go\n");
        if (!guard.waitForFinished(30000) || guard.exitCode() != 0)
            return run;
        for (const QByteArray &line : guard.readAllStandardOutput().split('\n')) {
            if (line.startsWith("log "))
                run.log += QString::fromUtf8(line.mid(4));
            else if (line.startsWith("asked")) {
                for (const QByteArray &pid : line.mid(5).split(' ')) {
                    if (!pid.isEmpty())
                        run.asked.push_back(pid.toInt());
                }
            } else if (line.startsWith("remaining "))
                run.remaining = line.mid(10).toInt();
            else if (line.startsWith("waited "))
                run.waitedMs = line.mid(7).toLongLong();
        }
        return run;
    }

    GuardRun startCopyAndRunGuard() { return runGuard(startHelper(u"guard"_s)); }

    static QStringList guardLines()
    {
        return { u"[Kestrix] 기존 프로세스 종료 중..."_s, u"[Kestrix] 기존 프로세스 종료 완료"_s };
    }

private Q_SLOTS:
    void cleanup()
    {
        for (auto &helper : m_helpers) {
            if (helper->state() != QProcess::NotRunning) {
                helper->kill();
                helper->waitForFinished();
            }
        }
        m_helpers.clear();
    }

    void adoptedIdentityIsVisibleInProc()
    {
        const auto full = pid_t(startHelper(u"quit"_s).processId());
        const auto nameOnly = pid_t(startHelper(u"name-only"_s).processId());
        // Re-executed under the same process id, with the identifier as argv[0].
        QCOMPARE(procFile(full, "cmdline").split('\0').value(0), testIdentity.identifier.toUtf8());
        QCOMPARE(procFile(full, "comm").trimmed(), testIdentity.displayName.toUtf8());
        QCOMPARE(procFile(nameOnly, "comm").trimmed(), testIdentity.displayName.toUtf8());
        QVERIFY(procFile(nameOnly, "cmdline").split('\0').value(0) != testIdentity.identifier.toUtf8());
    }

    void noOtherCopyMeansNoWaitAndNoLog()
    {
        const GuardRun run = startCopyAndRunGuard();
        QVERIFY(run.asked.empty());
        QVERIFY(run.log.isEmpty());
        QCOMPARE(run.remaining, 0);
    }

    // One copy, two, and an unrelated program that only has the display name: each is asked once,
    // in process-id order, and quits cleanly through its SIGTERM handling; the starting copy never
    // asks itself.
    void olderCopiesQuit_data()
    {
        QTest::addColumn<QStringList>("modes");
        QTest::newRow("one copy") << QStringList { u"quit"_s };
        QTest::newRow("two copies") << QStringList { u"quit"_s, u"quit"_s };
        QTest::newRow("display name only") << QStringList { u"name-only"_s };
        QTest::newRow("copy and namesake") << QStringList { u"quit"_s, u"name-only"_s };
    }

    void olderCopiesQuit()
    {
        QFETCH(QStringList, modes);
        std::vector<pid_t> older;
        for (const QString &mode : modes)
            older.push_back(pid_t(startHelper(mode).processId()));
        std::sort(older.begin(), older.end());

        const GuardRun run = startCopyAndRunGuard();
        QCOMPARE(run.asked, older);
        QCOMPARE(run.log, guardLines());
        QVERIFY(std::find(run.asked.begin(), run.asked.end(), run.pid) == run.asked.end());
        // The wait ended because they went, not because it ran out.
        QCOMPARE(run.remaining, 0);

        for (std::size_t i = 0; i < older.size(); ++i) {
            QProcess &helper = *m_helpers[i];
            QVERIFY(helper.waitForFinished(10000));
            QCOMPARE(helper.exitStatus(), QProcess::NormalExit);
            QCOMPARE(helper.exitCode(), 0);
            QCOMPARE(helper.readAllStandardOutput().trimmed(), "quit 15");
        }
    }

    // A copy that ignores the request is not forced: the wait runs out and start-up carries on.
    void copyIgnoringTheRequestIsLeftRunning()
    {
        QProcess &stubborn = startHelper(u"ignore"_s);
        const GuardRun run = startCopyAndRunGuard();
        QCOMPARE(run.asked, std::vector<pid_t> { pid_t(stubborn.processId()) });
        QCOMPARE(run.log, guardLines());
        QCOMPARE(run.remaining, 1);
        QVERIFY(run.waitedMs >= 2900); // the whole wait; a loaded machine only makes it longer
        QCOMPARE(stubborn.state(), QProcess::Running);
    }

    // A copy started after this one is the newer and stays: asking it would let two copies
    // started together end each other.
    void newerCopyIsLeftAlone()
    {
        QProcess &starting = startHelper(u"guard"_s);
        QProcess &newer = startHelper(u"quit"_s);
        const GuardRun run = runGuard(starting);
        QVERIFY(run.asked.empty());
        QVERIFY(run.log.isEmpty());
        QCOMPARE(newer.state(), QProcess::Running);
    }

    // Only processes of this user are copies: another user's Kestrix is none of ours.
    void otherUsersProcessesAreNotCopies()
    {
        if (::getuid() != 0)
            QSKIP("starting a process as another user needs root");
        QProcess &foreign = startHelper(u"quit"_s, [] {
            if (::setgid(65534) != 0 || ::setuid(65534) != 0)
                ::_exit(3);
        });
        const GuardRun run = startCopyAndRunGuard();
        QVERIFY(run.asked.empty());
        QCOMPARE(foreign.state(), QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(SingleInstanceGuardTest)
#include "SingleInstanceGuardTest.moc"
