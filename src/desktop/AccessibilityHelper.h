#pragma once

#include <QString>

#include <functional>

// Kestrix works only when it may read the mouse event nodes and write /dev/uinput ("trusted").
// ensureAccessibility() checks that, asks the system once when it is missing, and then checks again
// once a second until it works; only then does it hand control back through the continuation.
//
// The one prompt is the desktop's own: a polkit authentication (pkexec) for the installed helper
// that installs Kestrix's udev rule, reloads udev and re-triggers the input devices. The rule gives
// the user at the seat access to mice and /dev/uinput, never to keyboards; /dev/uinput lets any
// process of that user create virtual input devices, keyboards included.
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

// Logs "[Kestrix] Input access to the mice and /dev/uinput = 0|1"; when trusted, runs
// `completion` on the next pass of the event loop. Otherwise prompts once, logs
// "[Kestrix] Input access, asked through polkit = 0|1", and checks every 1.0 s; the check that
// finds access logs "[Kestrix] 입력 장치 권한 부여됨", stops the checks and runs `completion` on
// the next pass. Returns at once; call it on the main thread. The continuation runs at most once,
// and never when access is never granted. `promptFailed` runs at most once, at the first check
// that finds the prompt over without access; the checks go on.
void ensureAccessibility(std::function<void()> completion);
void ensureAccessibility(std::function<void()> completion, Access access, std::function<void()> promptFailed = nullptr);

// The canonical form of `path` when it names an executable file that only root can change: it and
// every folder above it are owned by root and writable by no one else. Empty otherwise. pkexec is
// given nothing else, so no file a user can write is ever run as root.
QString rootOnlyExecutable(const QString &path);

// The installed rule helper as rootOnlyExecutable() finds it; empty when it is not installed (a
// Kestrix started from its source tree: scripts/run offers the same step through sudo).
QString ruleHelperPath();

} // namespace kestrix::AccessibilityHelper
