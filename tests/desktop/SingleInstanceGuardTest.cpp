// The single-instance rule between real processes: helper programs that take an identity and quit
// on SIGTERM or ignore it, and a helper that starts after them and runs the guard. The tests use an
// identity of their own, so they never touch a Kestrix the developer is running.

#include "desktop/SingleInstanceGuard.h"
#include "core/TestSupport.h"

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

} // namespace

class SingleInstanceGuardTest : public QObject
{
    Q_OBJECT

private:
    std::vector<std::unique_ptr<QProcess>> m_helpers;

    // Starts a helper and waits until it has taken its identity. "other-user" is a copy that quits
    // on SIGTERM, run as nobody.
    QProcess &startHelper(const QString &mode)
    {
        auto &helper = m_helpers.emplace_back(std::make_unique<QProcess>());
        helper->setProgram(QStringLiteral(KESTRIX_IDENTITY_HELPER));
        helper->setArguments(
            { testIdentity.identifier, testIdentity.displayName, mode == "other-user"_L1 ? u"quit"_s : mode });
        if (mode == "other-user"_L1) {
            helper->setChildProcessModifier([] {
                if (::setgid(65534) != 0 || ::setuid(65534) != 0)
                    ::_exit(3);
            });
        }
        helper->start();
        [&] {
            QVERIFY2(helper->waitForStarted(), qPrintable(helper->errorString()));
            QTRY_VERIFY_WITH_TIMEOUT(helper->canReadLine(), 20000);
            QCOMPARE(helper->readLine().trimmed(), "ready");
        }();
        return *helper;
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

    // Copies started before this one are each asked once, in process-id order, and quit cleanly
    // through their SIGTERM handling; the starting copy never asks itself. A copy started after
    // this one is the newer and stays: asking it would let two copies started together end each
    // other. Another user's Kestrix is none of ours.
    void olderCopiesQuitAndOthersStay()
    {
        // No other copy; one; two; one of the display name only; a copy and a namesake; a newer copy
        // (after this one); another user's copy.
        const std::pair<QStringList, QStringList> rows[]
            = { { {}, {} }, { { u"quit"_s }, {} }, { { u"quit"_s, u"quit"_s }, {} }, { { u"name-only"_s }, {} },
                  { { u"quit"_s, u"name-only"_s }, {} }, { {}, { u"quit"_s } }, { { u"other-user"_s }, {} } };
        for (const auto &[before, after] : rows) {
            const test::Row row { before.join(u' ') + u'|' + after.join(u' ') };
            cleanup();
            if (before.contains(u"other-user"_s) && ::getuid() != 0)
                QSKIP("starting a process as another user needs root");
            std::vector<QProcess *> leaving;
            std::vector<QProcess *> staying;
            std::vector<pid_t> older;
            for (const QString &mode : before) {
                QProcess &helper = startHelper(mode);
                (mode == "other-user"_L1 ? staying : leaving).push_back(&helper);
                if (mode != "other-user"_L1)
                    older.push_back(pid_t(helper.processId()));
            }
            std::sort(older.begin(), older.end());
            QProcess &starting = startHelper(u"guard"_s);
            for (const QString &mode : after)
                staying.push_back(&startHelper(mode));

            // The guard's report, waited for without running this process's event loop: the copies
            // that quit stay unreaped zombies meanwhile, which the guard must count as gone. The
            // wait ended because they went, not because it ran out: none remains.
            QByteArray report = older.empty()
                ? QByteArray()
                : "log [Kestrix] 기존 프로세스 종료 중...\nlog [Kestrix] 기존 프로세스 종료 완료\n";
            report += "asked";
            for (const pid_t pid : older)
                report += ' ' + QByteArray::number(pid);
            starting.write("go\n");
            QVERIFY(starting.waitForFinished(30000) && starting.exitCode() == 0);
            QCOMPARE(starting.readAllStandardOutput(), report + "\nremaining 0\n");
            for (QProcess *helper : leaving) {
                QVERIFY(helper->waitForFinished(10000));
                QCOMPARE(helper->exitStatus(), QProcess::NormalExit);
                QCOMPARE(helper->exitCode(), 0);
                QCOMPARE(helper->readAllStandardOutput().trimmed(), "quit 15");
            }
            for (QProcess *helper : staying)
                QCOMPARE(helper->state(), QProcess::Running);
        }
    }
};

QTEST_GUILESS_MAIN(SingleInstanceGuardTest)
#include "SingleInstanceGuardTest.moc"
