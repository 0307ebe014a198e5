#include "desktop/AccessibilityHelper.h"

#include "core/Log.h"

#include <QCoreApplication>
#include <QTimer>

#include <chrono>
#include <memory>
#include <string>
#include <utility>

namespace kestrix::AccessibilityHelper {
namespace {

constexpr std::chrono::milliseconds pollInterval { 1000 };

void logAnswer(std::string_view prefix, bool answer)
{
    std::string line(prefix);
    line += answer ? '1' : '0';
    Log::write(line);
}

// The caller always returns before the continuation runs, even when access was there already.
void runSoon(std::function<void()> completion)
{
    QTimer::singleShot(0, QCoreApplication::instance(), std::move(completion));
}

} // namespace

void ensureAccessibility(std::function<void()> completion)
{
    ensureAccessibility(std::move(completion), systemAccess());
}

void ensureAccessibility(std::function<void()> completion, Access access, std::function<void()> promptFailed)
{
    const bool trusted = access.isTrusted();
    logAnswer("[Kestrix] Input access to the mice and /dev/uinput = ", trusted);
    if (trusted) {
        runSoon(std::move(completion));
        return;
    }

    // Only logged: even a yes here waits for the first check, a second later.
    const bool prompted = access.promptOnce();
    logAnswer("[Kestrix] Input access, asked through polkit = ", prompted);

    // Owned by the application object, so a wait that never ends is torn down with it.
    auto *timer = new QTimer(QCoreApplication::instance());
    timer->setInterval(pollInterval);
    QObject::connect(timer, &QTimer::timeout, timer,
        [timer, isTrusted = std::move(access.isTrusted), completion = std::move(completion),
            hasFailed = std::move(access.promptFailed), promptFailed = std::move(promptFailed)]() mutable {
            if (!isTrusted()) {
                if (promptFailed && hasFailed && hasFailed())
                    std::exchange(promptFailed, nullptr)();
                return;
            }
            timer->stop();
            Log::write("[Kestrix] 입력 장치 권한 부여됨");
            runSoon(std::move(completion));
            timer->deleteLater();
        });
    timer->start();
}

} // namespace kestrix::AccessibilityHelper
