// The permission wait with the access check under the test's control, on the real event loop.

#include "desktop/AccessibilityHelper.h"
#include "core/Log.h"

#include <QElapsedTimer>
#include <QTest>

#include <memory>
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
        std::vector<qint64> checkTimes;
        QElapsedTimer clock;

        static std::shared_ptr<FakeSystem> make(int grantAtCheck)
        {
            auto system = std::make_shared<FakeSystem>();
            system->grantAtCheck = grantAtCheck;
            system->clock.start();
            return system;
        }
    };

    static AccessibilityHelper::Access accessTo(const std::shared_ptr<FakeSystem> &system)
    {
        return {
            .isTrusted =
                [system] {
                    ++system->checks;
                    system->checkTimes.push_back(system->clock.elapsed());
                    return system->grantAtCheck != 0 && system->checks >= system->grantAtCheck;
                },
            .promptOnce =
                [system] {
                    ++system->prompts;
                    return false;
                },
        };
    }

    static void ensure(const std::shared_ptr<FakeSystem> &system, AccessibilityHelper::Access access)
    {
        AccessibilityHelper::ensureAccessibility([system] { ++system->runs; }, std::move(access));
    }

    QStringList m_log;

private Q_SLOTS:
    void init()
    {
        m_log.clear();
        Log::setObserver(
            [this](std::string_view line) { m_log += QString::fromUtf8(line.data(), qsizetype(line.size())); });
    }
    void cleanup() { Log::setObserver(nullptr); }

    void alreadyTrustedRunsTheContinuationOnceAfterReturning()
    {
        const auto system = FakeSystem::make(1);
        ensure(system, accessTo(system));
        QCOMPARE(system->runs, 0); // deferred: the caller returns first
        QTRY_COMPARE(system->runs, 1);
        QTest::qWait(1500); // a poll would have ticked by now
        QCOMPARE(system->runs, 1);
        QCOMPARE(system->checks, 1);
        QCOMPARE(system->prompts, 0);
        QCOMPARE(m_log, QStringList { u"[Kestrix] AXIsProcessTrusted = 1"_s });
    }

    // Access arrives between the fourth and the fifth check after the prompt (about 4.5 s in): the
    // checks at 1, 2, 3 and 4 s find nothing, the one at 5 s finds it, and nothing ticks afterwards.
    void grantedLaterIsFoundByTheNextCheck()
    {
        const auto system = FakeSystem::make(6); // the first check, then five timer ticks
        ensure(system, accessTo(system));
        QCOMPARE(system->prompts, 1);
        QCOMPARE(m_log,
            (QStringList {
                u"[Kestrix] AXIsProcessTrusted = 0"_s, u"[Kestrix] AXIsProcessTrustedWithOptions(prompt) = 0"_s }));

        QTRY_COMPARE_WITH_TIMEOUT(system->runs, 1, 20000);
        QCOMPARE(system->checks, 6);
        QCOMPARE(m_log.last(), u"[Kestrix] 접근성 권한 부여됨"_s);
        // About a second apart: the event loop's timer may fire up to 5 % early, and a noisy
        // machine only stretches the gaps.
        for (std::size_t i = 1; i < system->checkTimes.size(); ++i) {
            const qint64 gap = system->checkTimes[i] - system->checkTimes[i - 1];
            QVERIFY2(gap >= 900, qPrintable(u"checks %1 ms apart"_s.arg(gap)));
        }

        QTest::qWait(2200);
        QCOMPARE(system->checks, 6);
        QCOMPARE(system->runs, 1);
        QCOMPARE(system->prompts, 1);
    }

    void neverGrantedKeepsCheckingAndNeverContinues()
    {
        const auto system = FakeSystem::make(0);
        ensure(system, accessTo(system));
        QTRY_VERIFY_WITH_TIMEOUT(system->checks >= 4, 20000);
        QCOMPARE(system->runs, 0);
        QCOMPARE(system->prompts, 1);
        QCOMPARE(m_log.size(), 2);
    }

    // The prompt may say yes at once (access arrived between the two questions): still only the
    // first tick, a second later, continues.
    void promptAnsweringYesStillWaitsForTheFirstCheck()
    {
        const auto system = FakeSystem::make(2);
        auto access = accessTo(system);
        access.promptOnce = [system] {
            ++system->prompts;
            return true;
        };
        ensure(system, access);
        QCOMPARE(m_log.value(1), u"[Kestrix] AXIsProcessTrustedWithOptions(prompt) = 1"_s);
        QTest::qWait(300);
        QCOMPARE(system->runs, 0);
        QTRY_COMPARE_WITH_TIMEOUT(system->runs, 1, 10000);
        QCOMPARE(system->checks, 2);
    }
};

QTEST_GUILESS_MAIN(AccessibilityHelperTest)
#include "AccessibilityHelperTest.moc"
