// The single-instance rule against real processes: helper programs that take an identity and quit
// on SIGTERM or ignore it. The tests use an identity of their own, so they never touch a Kestrix
// the developer is running.

#include "desktop/SingleInstanceGuard.h"
#include "core/Log.h"

#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTest>

#include <memory>
#include <sys/prctl.h>
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

} // namespace

class SingleInstanceGuardTest : public QObject
{
    Q_OBJECT

private:
    std::vector<std::unique_ptr<QProcess>> m_helpers;
    QStringList m_log;

    // Starts a helper and waits until it has taken its identity.
    QProcess &startHelper(const QString &mode, std::function<void()> childSetup = {})
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

    QStringList guardLines() const
    {
        QStringList lines;
        for (const QString &line : m_log) {
            if (line.contains(u"기존 프로세스"_s))
                lines += line;
        }
        return lines;
    }

private Q_SLOTS:
    void initTestCase()
    {
        // This process takes the display name too: the guard must still never ask it to quit.
        ::prctl(PR_SET_NAME, testIdentity.displayName.toUtf8().constData(), 0, 0, 0);
        Log::setObserver(
            [this](std::string_view line) { m_log += QString::fromUtf8(line.data(), qsizetype(line.size())); });
    }

    void cleanup()
    {
        for (auto &helper : m_helpers) {
            if (helper->state() != QProcess::NotRunning) {
                helper->kill();
                helper->waitForFinished();
            }
        }
        m_helpers.clear();
        m_log.clear();
    }

    void adoptedIdentityIsVisibleInProc()
    {
        QProcess &full = startHelper(u"quit"_s);
        QProcess &nameOnly = startHelper(u"name-only"_s);
        const auto fullPid = pid_t(full.processId());
        const auto namePid = pid_t(nameOnly.processId());
        // Re-executed under the same process id, with the identifier as argv[0].
        QCOMPARE(procFile(fullPid, "cmdline").split('\0').value(0), testIdentity.identifier.toUtf8());
        QCOMPARE(procFile(fullPid, "comm").trimmed(), testIdentity.displayName.toUtf8());
        QCOMPARE(procFile(namePid, "comm").trimmed(), testIdentity.displayName.toUtf8());
        QVERIFY(procFile(namePid, "cmdline").split('\0').value(0) != testIdentity.identifier.toUtf8());

        const std::vector<pid_t> copies = SingleInstanceGuard::findOtherCopies(testIdentity);
        QCOMPARE(copies, (std::vector<pid_t> { std::min(fullPid, namePid), std::max(fullPid, namePid) }));
    }

    void noOtherCopyMeansNoWaitAndNoLog()
    {
        QVERIFY(SingleInstanceGuard::terminateOlderCopies(testIdentity).empty());
        QVERIFY(guardLines().isEmpty());
    }

    // One copy, two, and an unrelated program that only has the display name: each is asked once,
    // in process-id order, and quits cleanly through its SIGTERM handling.
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
        std::vector<pid_t> expected;
        for (const QString &mode : modes)
            expected.push_back(pid_t(startHelper(mode).processId()));
        std::sort(expected.begin(), expected.end());

        // The helpers are this process's children: once they exit they stay zombies until reaped,
        // which the guard must count as gone.
        const std::vector<pid_t> asked = SingleInstanceGuard::terminateOlderCopies(testIdentity);
        QCOMPARE(asked, expected);
        QCOMPARE(guardLines(),
            (QStringList { u"[Kestrix] 기존 프로세스 종료 중..."_s, u"[Kestrix] 기존 프로세스 종료 완료"_s }));
        QVERIFY(!asked.empty() && std::find(asked.begin(), asked.end(), ::getpid()) == asked.end());
        // The wait ended because they went, not because it ran out: not one is left, zombie or not.
        QVERIFY(SingleInstanceGuard::findOtherCopies(testIdentity).empty());

        for (auto &helper : m_helpers) {
            QVERIFY(helper->waitForFinished(10000));
            QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
            QCOMPARE(helper->exitCode(), 0);
            QCOMPARE(helper->readAllStandardOutput().trimmed(), "quit 15");
        }
    }

    // A copy that ignores the request is not forced: the wait runs out and start-up carries on.
    void copyIgnoringTheRequestIsLeftRunning()
    {
        QProcess &stubborn = startHelper(u"ignore"_s);
        QElapsedTimer clock;
        clock.start();
        const std::vector<pid_t> asked = SingleInstanceGuard::terminateOlderCopies(testIdentity);
        QVERIFY(clock.elapsed() >= 2900); // the whole wait; a loaded machine only makes it longer
        QCOMPARE(asked, std::vector<pid_t> { pid_t(stubborn.processId()) });
        QCOMPARE(guardLines().size(), 2);
        QCOMPARE(guardLines().last(), u"[Kestrix] 기존 프로세스 종료 완료"_s);
        QCOMPARE(stubborn.state(), QProcess::Running);
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
        QVERIFY(SingleInstanceGuard::findOtherCopies(testIdentity).empty());
        QVERIFY(SingleInstanceGuard::terminateOlderCopies(testIdentity).empty());
        QCOMPARE(foreign.state(), QProcess::Running);
    }
};

QTEST_GUILESS_MAIN(SingleInstanceGuardTest)
#include "SingleInstanceGuardTest.moc"
