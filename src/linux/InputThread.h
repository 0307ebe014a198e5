#pragma once

#include "engine/InputControl.h"
#include "linux/LinuxInputBackend.h"

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kestrix {

class GrabScrollManager;

// The one thread that owns the input: it reads the mice, runs the engine and writes the twins, in
// an epoll loop of its own with no Qt event loop on the path. It watches the udev monitor, every
// grabbed node, the momentum timer (a timerfd) and one eventfd that wakes it for requests. A
// stalled GUI thread (a long layout, a modal dialog) never stalls the mouse.
//
// The GUI thread reaches it only through a small queue of requests (start, stop, enable, disable,
// new settings), which the input thread takes between two frames, and reads back the list of mice
// it publishes. The settings reach the engine as a snapshot: every change of the settings store is
// read on the GUI thread and handed over whole. Whether the pointer is over an excluded app is one
// atomic value that any thread may write and the input thread reads at each press.
class InputThread final : public InputControl
{
    Q_OBJECT

public:
    explicit InputThread(QObject *parent = nullptr);
    // Stops the thread after every mouse is given back.
    ~InputThread() override;
    InputThread(const InputThread &) = delete;
    InputThread &operator=(const InputThread &) = delete;

    // InputControl. start() and stop() return at once; the input thread carries them out next.
    bool start() override;
    void stop() override;
    bool isStarted() const override { return m_started.load(); }
    bool isEnabled() const override { return m_enabled.load(); }
    void setEnabled(bool enabled) override;
    std::vector<MouseInfo> mice() const override;

    // The desktop's left-handed and natural-scrolling switches for mice, as read on the GUI thread.
    void setDesktopPointer(bool leftHanded, bool naturalScroll);
    // From any thread.
    void setPointerOverExcludedApp(bool excluded) { m_pointerOverExcludedApp.store(excluded); }

    // Runs `task` on the input thread between two frames and returns when it has run. For
    // diagnostics and tests: the engine and the backend may be looked at only there.
    void runOnInputThread(const std::function<void(GrabScrollManager &, LinuxInputBackend &)> &task);
    // What the input thread last published.
    std::vector<LinuxInputBackend::DeviceInfo> devices() const;

private:
    using Request = std::function<void()>;
    void post(Request request);
    void run();
    void takeRequests();
    void pushSettings();
    void publish(); // on the input thread

    int m_epollFd = -1;
    int m_wakeFd = -1;
    std::unique_ptr<LinuxInputBackend> m_backend;
    std::unique_ptr<GrabScrollManager> m_engine;
    InputSettings m_settings; // the GUI thread's copy, sent whole on every change

    std::mutex m_requestsMutex;
    std::deque<Request> m_requests;
    bool m_quitting = false; // input thread only

    mutable std::mutex m_publishedMutex;
    std::vector<MouseInfo> m_publishedMice;
    std::vector<LinuxInputBackend::DeviceInfo> m_publishedDevices;

    std::atomic<bool> m_started { false };
    std::atomic<bool> m_enabled { true };
    std::atomic<bool> m_pointerOverExcludedApp { false };
    std::thread m_thread;
};

} // namespace kestrix
