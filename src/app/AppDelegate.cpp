#include "app/AppDelegate.h"

#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/InputControl.h"
#include "net/Analytics.h"
#include "net/AppInfo.h"
#include "ui/StatusBarController.h"
#include "updates/UpdateChecker.h"

#include <QPointer>

namespace kestrix {

using namespace Qt::StringLiterals;

LaunchServices LaunchServices::system()
{
    return {
        .access = AccessibilityHelper::systemAccess(),
        .makeStatusBar
        = [](InputControl &input) -> std::unique_ptr<QObject> { return std::make_unique<StatusBarController>(input); },
        .sendEvent = &Analytics::send,
        .checkForUpdatesSilently = &UpdateChecker::checkSilently,
    };
}

AppDelegate::AppDelegate(InputControl &input, LaunchServices services, QObject *parent)
    : QObject(parent)
    , m_input(input)
    , m_services(std::move(services))
{ }

AppDelegate::~AppDelegate() = default;

QString AppDelegate::grantCommand()
{
    const QString helper = AccessibilityHelper::ruleHelperPath();
    return u"pkexec "_s + (helper.isEmpty() ? u"" KESTRIX_INSTALLED_RULE_HELPER ""_s : helper);
}

void AppDelegate::applicationDidFinishLaunching()
{
    Log::write("[Kestrix] 시작 중...");
    m_statusBarController = m_services.makeStatusBar(m_input);
    if (auto *statusBar = qobject_cast<StatusBarController *>(m_statusBarController.get()))
        connect(this, &AppDelegate::accessStateChanged, statusBar, &StatusBarController::setAccessState);
    Q_EMIT accessStateChanged(AccessState::Waiting, {});
    AccessibilityHelper::ensureAccessibility(
        [delegate = QPointer(this)] {
            if (delegate)
                delegate->accessGranted();
        },
        m_services.access,
        [delegate = QPointer(this)] {
            if (delegate)
                Q_EMIT delegate->accessStateChanged(AccessState::Needed, grantCommand());
        });
}

void AppDelegate::accessGranted()
{
    Log::write("[Kestrix] 입력 장치 권한 확인됨");
    m_input.start();
    // After the start, so the menu's switch shows the engine as it now is.
    Q_EMIT accessStateChanged(AccessState::Granted, {});
    Log::write("[Kestrix] 준비 완료 — 오른쪽 버튼 드래그로 스크롤하세요");

    // The stored language goes out as it stands, a known code or not.
    const QString language = SettingsStore::shared().stringValue(SettingsKeys::language).value_or(u"en"_s);
    m_services.sendEvent(
        u"app_launch"_s, { { u"app_version"_s, QString(AppInfo::version) }, { u"language"_s, language } });
    m_services.checkForUpdatesSilently();

    Q_EMIT launchCompleted();
}

void AppDelegate::applicationWillTerminate() { m_input.stop(); }

} // namespace kestrix
