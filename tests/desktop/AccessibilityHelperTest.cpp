// The permission wait with the access check under the test's control, on the real event loop.

#include "desktop/AccessibilityHelper.h"
#include "core/TestSupport.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <tuple>
#include <vector>

using namespace kestrix;
using namespace Qt::StringLiterals;

class AccessibilityHelperTest : public QObject
{
    Q_OBJECT

private:
    // The system as the test sees it: how often each question was asked, and when access comes.
    // Shared with the checks, because a wait that never ends outlives its test.
    struct FakeSystem
    {
        int runs = 0;
        int checks = 0;
        int prompts = 0;
        int grantAtCheck = 0; // the check that first finds access; 0: never
        bool promptSays = false; // what the one prompt answers
        std::vector<qint64> checkTimes;
        QElapsedTimer clock;
    };

    // Starts the permission wait against a system of the given behaviour.
    static std::shared_ptr<FakeSystem> ensure(int grantAtCheck, bool promptSays = false)
    {
        auto system = std::make_shared<FakeSystem>();
        system->grantAtCheck = grantAtCheck;
        system->promptSays = promptSays;
        system->clock.start();
        AccessibilityHelper::ensureAccessibility([system] { ++system->runs; },
            {
                .isTrusted =
                    [system] {
                        ++system->checks;
                        system->checkTimes.push_back(system->clock.elapsed());
                        return system->grantAtCheck != 0 && system->checks >= system->grantAtCheck;
                    },
                .promptOnce =
                    [system] {
                        ++system->prompts;
                        return system->promptSays;
                    },
            });
        return system;
    }

    test::LogLines m_log;

private Q_SLOTS:
    void init() { m_log.clear(); }

    // The continuation runs once, never before the caller has returned, and nothing polls after
    // it. Access may be there at once; or arrive between the fourth and the fifth check after the
    // prompt (about 4.5 s in), so the checks at 1, 2, 3 and 4 s find nothing and the one at 5 s
    // finds it; or the prompt may say yes at once (access arrived between the two questions), and
    // still only the first tick, a second later, continues. Never granted, it keeps checking and
    // never continues.
    void continuesOnceWhenAccessIsFound()
    {
        // Already granted; granted after 4.5 s; the prompt says yes; never.
        const QString denied = u"[Kestrix] Input access to the mice and /dev/uinput = 0"_s;
        const QString refused = u"[Kestrix] Input access, asked through polkit = 0"_s;
        const QString granted = u"[Kestrix] 입력 장치 권한 부여됨"_s;
        const std::tuple<int, bool, QStringList> rows[]
            = { { 1, false, { u"[Kestrix] Input access to the mice and /dev/uinput = 1"_s } },
                  { 6, false, { denied, refused, granted } },
                  { 2, true, { denied, u"[Kestrix] Input access, asked through polkit = 1"_s, granted } },
                  { 0, false, { denied, refused } } };
        for (const auto &[grantAtCheck, promptSays, log] : rows) {
            const test::Row row { QString::number(grantAtCheck) };
            m_log.clear();
            const auto system = ensure(grantAtCheck, promptSays);
            QCOMPARE(system->runs, 0); // deferred: the caller returns first
            QCOMPARE(system->prompts, grantAtCheck == 1 ? 0 : 1);

            const bool never = grantAtCheck == 0;
            QTRY_VERIFY_WITH_TIMEOUT(never ? system->checks >= 4 : system->runs == 1, 20000);
            QCOMPARE(system->runs, never ? 0 : 1);
            QVERIFY(never || system->checks == grantAtCheck);
            QCOMPARE(m_log, log);
            // About a second apart: the event loop's timer may fire up to 5 % early, and a noisy
            // machine only stretches the gaps.
            for (std::size_t i = 1; i < system->checkTimes.size(); ++i) {
                const qint64 gap = system->checkTimes[i] - system->checkTimes[i - 1];
                QVERIFY2(gap >= 900, qPrintable(u"checks %1 ms apart"_s.arg(gap)));
            }
            if (never)
                continue;
            QTest::qWait(1500); // a poll still running would have ticked by now
            QCOMPARE(system->checks, grantAtCheck);
            QCOMPARE(system->runs, 1);
        }
    }

    // pkexec is only ever given a file root alone can change, by the canonical path that was checked.
    void onlyRootsFilesAreRunAsRoot()
    {
        QTemporaryDir folder(u"/tmp/kestrix-helper-XXXXXX"_s);
        QVERIFY(QFile::link(u"/bin/sh"_s, folder.filePath(u"link-to-sh"_s)));
        QFile helper(folder.filePath(u"helper"_s));
        QVERIFY(helper.open(QIODevice::WriteOnly) && helper.write("#!/bin/sh\n") > 0);
        helper.close();
        QVERIFY(helper.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner
            | QFileDevice::ReadOther | QFileDevice::ExeOther));
        // The path run, "" for none: a system program; a link in /tmp to it (the target runs); a script
        // in /tmp; not executable; relative, found through PATH; missing.
        const QString shell = QFileInfo(u"/bin/sh"_s).canonicalFilePath();
        const std::pair<QString, QString> rows[] = { { u"/bin/sh"_s, shell },
            { folder.filePath(u"link-to-sh"_s), shell }, { folder.filePath(u"helper"_s), {} }, { u"/etc/passwd"_s, {} },
            { u"sh"_s, {} }, { u"/usr/libexec/kestrix-no-such-helper"_s, {} } };
        for (const auto &[path, runs] : rows)
            QCOMPARE(path + u' ' + AccessibilityHelper::rootOnlyExecutable(path), path + u' ' + runs);
    }
};

QTEST_GUILESS_MAIN(AccessibilityHelperTest)
#include "AccessibilityHelperTest.moc"
