// The start-up order of the running application and its shut-down, over a recording platform in
// place of the input devices and a controllable access check.

#include "app/AppDelegate.h"
#include "core/Log.h"
#include "engine/GrabScrollManager.h"
#include "engine/RecordingPlatform.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace kestrix;
using namespace Qt::StringLiterals;

class AppDelegateTest : public QObject
{
    Q_OBJECT

private:
    // Shared with the access checks, which outlive a test whose wait never ends.
    struct Access
    {
        bool granted = false;
        int prompts = 0;
    };

    QStringList m_log;

    static LaunchServices servicesFor(const std::shared_ptr<Access> &access)
    {
        LaunchServices services;
        services.access = {
            .isTrusted = [access] { return access->granted; },
            .promptOnce =
                [access] {
                    ++access->prompts;
                    return access->granted;
                },
        };
        return services;
    }

private Q_SLOTS:
    void init()
    {
        m_log.clear();
        Log::setObserver(
            [this](std::string_view line) { m_log += QString::fromUtf8(line.data(), qsizetype(line.size())); });
    }
    void cleanup() { Log::setObserver(nullptr); }

    void grantedAtLaunchStartsEverythingInOrder()
    {
        test::RecordingPlatform platform;
        GrabScrollManager manager(platform, platform, platform);
        const auto access = std::make_shared<Access>(Access { .granted = true });
        AppDelegate delegate(manager, servicesFor(access));
        QSignalSpy launched(&delegate, &AppDelegate::launchCompleted);

        delegate.applicationDidFinishLaunching();
        QVERIFY(!manager.isStarted()); // the continuation runs on a later pass of the event loop
        QVERIFY(launched.wait());
        QVERIFY(manager.isStarted());
        QCOMPARE(platform.installCalls, 1);
        QCOMPARE(m_log,
            (QStringList {
                u"[Kestrix] 시작 중..."_s,
                u"[Kestrix] AXIsProcessTrusted = 1"_s,
                u"[Kestrix] 접근성 권한 확인됨"_s,
                u"[Kestrix] 이벤트 탭 활성화됨"_s,
                u"[Kestrix] 준비 완료 — 오른쪽 버튼 드래그로 스크롤하세요"_s,
            }));
        QCOMPARE(access->prompts, 0);

        delegate.applicationWillTerminate();
        QVERIFY(!manager.isStarted());
        QCOMPARE(platform.uninstallCalls, 1);
        delegate.applicationWillTerminate(); // a second stop changes nothing
        QCOMPARE(platform.uninstallCalls, 1);
        QCOMPARE(launched.size(), 1);
    }

    void nothingStartsBeforeTheGrant()
    {
        test::RecordingPlatform platform;
        GrabScrollManager manager(platform, platform, platform);
        const auto access = std::make_shared<Access>();
        AppDelegate delegate(manager, servicesFor(access));
        QSignalSpy launched(&delegate, &AppDelegate::launchCompleted);

        delegate.applicationDidFinishLaunching();
        QTest::qWait(1300); // past the first check
        QCOMPARE(access->prompts, 1);
        QVERIFY(!manager.isStarted());
        QCOMPARE(launched.size(), 0);

        access->granted = true;
        QVERIFY(launched.wait(5000));
        QVERIFY(manager.isStarted());
        QVERIFY(m_log.contains(u"[Kestrix] 접근성 권한 부여됨"_s));
        QCOMPARE(m_log.last(), u"[Kestrix] 준비 완료 — 오른쪽 버튼 드래그로 스크롤하세요"_s);
        delegate.applicationWillTerminate();
    }

    // Quitting while still waiting stops an engine that never started, harmlessly; a grant that
    // comes after the delegate is gone starts nothing.
    void terminationWhileWaiting()
    {
        test::RecordingPlatform platform;
        GrabScrollManager manager(platform, platform, platform);
        const auto access = std::make_shared<Access>();
        {
            AppDelegate delegate(manager, servicesFor(access));
            delegate.applicationDidFinishLaunching();
            delegate.applicationWillTerminate();
            delegate.applicationWillTerminate();
        }
        QCOMPARE(platform.installCalls, 0);
        QCOMPARE(platform.uninstallCalls, 0);
        access->granted = true;
        QTest::qWait(1300);
        QVERIFY(!manager.isStarted());
        QCOMPARE(platform.installCalls, 0);
    }
};

QTEST_MAIN(AppDelegateTest)
#include "AppDelegateTest.moc"
