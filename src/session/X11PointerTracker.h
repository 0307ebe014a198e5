#pragma once

#include "session/WindowApp.h"

#include <QByteArray>

#include <functional>
#include <memory>
#include <optional>

namespace kestrix {

// The app whose window is under the pointer on an X server, followed on a thread of its own with a
// connection of its own, so that no look-up ever waits on the GUI or input thread.
//
// It listens to XInput2 raw motion on the root window (every pointer move, whichever window is
// under it) and asks the server at most once per LookUpIntervalMs while the pointer moves, once
// more after it stops. A look-up is QueryPointer from the root, then down from the top-level window
// to the client window carrying WM_STATE (under a reparenting window manager the top-level window is
// the frame), then WM_CLASS. Without a window manager no window has WM_STATE and the top-level
// window itself is read.
class X11PointerTracker
{
public:
    // Milliseconds between two look-ups while the pointer moves.
    static constexpr int LookUpIntervalMs = 50;

    using Publish = std::function<void(const WindowApp &)>;
    using Done = std::function<void(std::optional<WindowApp>)>;

    // Null, with one log line, when the server cannot be reached or lacks XInput 2.2.
    // `publish` runs on the tracker's thread after each look-up.
    static std::unique_ptr<X11PointerTracker> start(const QByteArray &display, Publish publish);
    ~X11PointerTracker();

    // Looks up now; `done` runs on the tracker's thread, with nothing when the server went away.
    void lookUpOnce(Done done);

private:
    class Thread;
    explicit X11PointerTracker(std::unique_ptr<Thread> thread);
    std::unique_ptr<Thread> m_thread;
};

} // namespace kestrix
