#include "app/AppDelegate.h"

#include "core/Log.h"
#include "engine/GrabScrollManager.h"

#include <QPointer>

namespace kestrix {

using namespace Qt::StringLiterals;

AppDelegate::AppDelegate(GrabScrollManager &manager, LaunchServices services, QObject *parent)
    : QObject(parent)
    , m_manager(manager)
    , m_services(std::move(services))
{ }

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching()
{
    Log::write("[Kestrix] 시작 중...");
    AccessibilityHelper::ensureAccessibility(
        [delegate = QPointer(this)] {
            if (delegate)
                delegate->accessGranted();
        },
        m_services.access);
}

void AppDelegate::accessGranted()
{
    Log::write("[Kestrix] 접근성 권한 확인됨");
    m_manager.start();
    Log::write("[Kestrix] 준비 완료 — 오른쪽 버튼 드래그로 스크롤하세요");

    Q_EMIT launchCompleted();
}

void AppDelegate::applicationWillTerminate() { m_manager.stop(); }

} // namespace kestrix
