#pragma once

#include <QString>

#include <functional>

// Kestrix works only when it may read the mouse event nodes and write /dev/uinput ("trusted").
// ensureAccessibility() checks that, asks the system once when it is missing, and then checks again
// once a second until it works; only then does it hand control back through the continuation.
//
// The one prompt is the desktop's own: a polkit authentication (pkexec) for the helper that installs
// Kestrix's udev rule, reloads udev and re-triggers the input devices. The rule gives the user at
// the seat access to mice and /dev/uinput only, never to keyboards.
namespace kestrix::AccessibilityHelper {

// The questions asked of the system. Tests answer them themselves.
struct Access
{
    // Whether Kestrix may read every mouse and write /dev/uinput; no prompt, no side effect.
    std::function<bool()> isTrusted;
    // Starts the system's prompt without waiting for it and returns the trust answer of the moment.
    std::function<bool()> promptOnce;
    // Whether that prompt has ended, or could not start, without granting access. Optional.
    std::function<bool()> promptFailed = nullptr;
};

// The real questions: InputAccess::isGranted(), and pkexec of the installed rule helper.
Access systemAccess();

// Logs "[Kestrix] AXIsProcessTrusted = 0|1"; when trusted, runs `completion` on the next pass of the
// event loop. Otherwise prompts once, logs "[Kestrix] AXIsProcessTrustedWithOptions(prompt) = 0|1",
// and checks every 1.0 s; the check that finds access logs "[Kestrix] 접근성 권한 부여됨", stops
// the checks and runs `completion` on the next pass. Returns at once; call it on the main thread.
// The continuation runs at most once, and never when access is never granted. `promptFailed` runs
// at most once, at the first check that finds the prompt over without access; the checks go on.
void ensureAccessibility(std::function<void()> completion);
void ensureAccessibility(std::function<void()> completion, Access access, std::function<void()> promptFailed = nullptr);

// The rule helper pkexec runs: the installed one, else (Kestrix run from its build folder) the
// build folder's copy; empty when neither exists.
QString ruleHelperPath();

} // namespace kestrix::AccessibilityHelper
