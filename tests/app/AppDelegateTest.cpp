// The start-up order of the running application and its shut-down, over a recording platform in
// place of the input devices and a controllable access check.

#include "app/AppDelegate.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "core/TestSupport.h"
#include "engine/EngineControl.h"
#include "engine/GrabScrollManager.h"
#include "engine/RecordingPlatform.h"

#include <QJsonObject>
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
        bool promptFailed = false;
        int prompts = 0;
        // What the launch did after the grant, in order.
        QStringList launchSteps;
        QJsonObject launchParams;
    };

    test::LogLines m_log;

    static LaunchServices servicesFor(const std::shared_ptr<Access> &access, GrabScrollManager &manager)
    {
        LaunchServices services;
        services.makeStatusBar = [access](InputControl &engine) {
            access->launchSteps += u"status bar"_s + (engine.isStarted() ? u" (engine running)"_s : u""_s);
            return std::make_unique<QObject>();
        };
        services.sendEvent = [access, &manager](const QString &name, const QJsonObject &params) {
            access->launchSteps += name + (manager.isStarted() ? u" (engine running)"_s : u""_s);
            access->launchParams = params;
        };
        services.checkForUpdatesSilently = [access] { access->launchSteps += u"silent update check"_s; };
        services.access = {
            .isTrusted = [access] { return access->granted; },
            .promptOnce =
                [access] {
                    ++access->prompts;
                    return access->granted;
                },
            .promptFailed = [access] { return access->promptFailed; },
        };
        return services;
    }

private Q_SLOTS:
    void init() { m_log.clear(); }
    void cleanup() { SettingsStore::shared().clear(); }

    // Granted at launch: the tray first, then everything else once, in order, after the caller has
    // returned; the launch event carries the stored language as it stands, and "en" when none was chosen. A
    // second stop changes nothing.
    void grantedAtLaunchStartsEverythingInOrder()
    {
        // Korean, an unknown code, not a string.
        const std::pair<QJsonValue, QString> rows[] = { { u"ko"_s, u"ko"_s }, { u"tlh"_s, u"tlh"_s }, { 7, u"en"_s } };
        for (const auto &[stored, sent] : rows) {
            const test::Row row { sent };
            m_log.clear();
            SettingsStore::shared().clear();
            SettingsStore::shared().setValue(SettingsKeys::language, stored);
            test::RecordingPlatform platform;
            GrabScrollManager manager(platform, platform);
            const auto access = std::make_shared<Access>();
            access->granted = true;
            test::EngineControl input(manager);
            AppDelegate delegate(input, servicesFor(access, manager));
            QSignalSpy launched(&delegate, &AppDelegate::launchCompleted);
            QSignalSpy states(&delegate, &AppDelegate::accessStateChanged);

            delegate.applicationDidFinishLaunching();
            QVERIFY(!manager.isStarted()); // the continuation runs on a later pass of the event loop
            QVERIFY(launched.wait());
            QCOMPARE(platform.installCalls, 1);
            QCOMPARE(m_log,
                (QStringList {
                    u"[Kestrix] 시작 중..."_s,
                    u"[Kestrix] Input access to the mice and /dev/uinput = 1"_s,
                    u"[Kestrix] 입력 장치 권한 확인됨"_s,
                    u"[Kestrix] 마우스 입력 연결됨"_s,
                    u"[Kestrix] 준비 완료 — 오른쪽 버튼 드래그로 스크롤하세요"_s,
                }));
            QCOMPARE(access->prompts, 0);
            QCOMPARE(access->launchSteps,
                (QStringList { u"status bar"_s, u"app_launch (engine running)"_s, u"silent update check"_s }));
            QCOMPARE(states.size(), 2);
            QCOMPARE(states[0][0].value<AccessState>(), AccessState::Waiting);
            QCOMPARE(states[1][0].value<AccessState>(), AccessState::Granted);
            QCOMPARE(access->launchParams, (QJsonObject { { u"app_version"_s, u"1.0.1"_s }, { u"language"_s, sent } }));

            delegate.applicationWillTerminate();
            QVERIFY(!manager.isStarted());
            delegate.applicationWillTerminate();
            QCOMPARE(platform.uninstallCalls, 1);
            QCOMPARE(launched.size(), 1);
        }
    }

    // Quitting while still waiting stops an engine that never started, harmlessly; a grant that
    // comes after the delegate is gone starts nothing.
    void terminationWhileWaiting()
    {
        test::RecordingPlatform platform;
        GrabScrollManager manager(platform, platform);
        const auto access = std::make_shared<Access>();
        {
            test::EngineControl input(manager);
            AppDelegate delegate(input, servicesFor(access, manager));
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
        // Only the tray was there, from the launch.
        QCOMPARE(access->launchSteps, QStringList { u"status bar"_s });
    }

    // A prompt that ends without access is told once, with the command that grants it, and the
    // wait goes on until the user has run it.
    void promptEndingWithoutAccessIsToldOnce()
    {
        test::RecordingPlatform platform;
        GrabScrollManager manager(platform, platform);
        const auto access = std::make_shared<Access>();
        test::EngineControl input(manager);
        AppDelegate delegate(input, servicesFor(access, manager));
        QSignalSpy states(&delegate, &AppDelegate::accessStateChanged);
        QSignalSpy launched(&delegate, &AppDelegate::launchCompleted);
        delegate.applicationDidFinishLaunching();
        access->promptFailed = true;
        QVERIFY(states.wait());
        QCOMPARE(states.last()[0].value<AccessState>(), AccessState::Needed);
        QCOMPARE(states.last()[1].toString(), AppDelegate::grantCommand());
        QVERIFY(AppDelegate::grantCommand().startsWith(u"pkexec /"_s));
        QVERIFY(AppDelegate::grantCommand().endsWith(u"/kestrix-install-udev-rule"_s));
        // Still failed at the next check: nothing new is said.
        QTest::qWait(1100);
        QCOMPARE(states.size(), 2);
        access->granted = true;
        QVERIFY(launched.wait());
        QCOMPARE(states.last()[0].value<AccessState>(), AccessState::Granted);
        QVERIFY(manager.isStarted());
        QCOMPARE(access->prompts, 1);
    }
};

QTEST_MAIN(AppDelegateTest)
#include "AppDelegateTest.moc"
