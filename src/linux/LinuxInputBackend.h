#pragma once

#include "engine/InputControl.h"
#include "engine/InputPlatform.h"
#include "engine/ScrollConfig.h"
#include "linux/WheelEncoder.h"

#include <linux/input.h>
#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

struct udev;
struct udev_device;
struct udev_monitor;

namespace kestrix {

class GrabScrollManager;
class InputWatchdog;
class PointerDevice;

// What the input thread needs to know of the user's choices and of the desktop, as one snapshot
// taken on the GUI thread.
struct InputSettings
{
    ScrollSettings scroll;
    // The desktop swaps the buttons for the left hand: its secondary button is the physical left.
    bool leftHanded = false;
    // The desktop's natural scrolling for mice, which it applies to the twins' wheels as well.
    bool naturalScroll = false;
    std::vector<MouseIdentity> disabledMice;
};

// The engine's platform on Linux, below X11 and Wayland alike: evdev and uinput. It lives on the
// input thread (InputThread), which owns the epoll set its file descriptors are watched in and
// calls onReadable() when one has something; nothing here waits on anything else.
//
// Every mouse is grabbed (EVIOCGRAB), so its events reach only Kestrix, and gets a virtual twin
// through uinput that re-emits them; the desktop reads the twin as if it were the mouse. One evdev
// frame (the events up to SYN_REPORT) is one pointer event for the engine: a press or release of
// the trigger button, or motion while it is held (a drag, in whole points: see MouseDpi; the
// fraction is carried per mouse and axis until the next press). What the engine drops is taken
// out of the frame; everything else goes to the twin unchanged and in order, one write per
// frame. The scroll a drag causes rides in the drag's own frame, after its events; replayed clicks
// and momentum go to the twin of the mouse whose press started the gesture.
//
// A press that begins while the pointer is over an excluded app is not the engine's: the whole
// gesture passes untouched, decided once at the press.
//
// A replayed click carries no marker in its events (evdev has no field for one); the twin carries
// it in its phys string instead, and a marked device is never grabbed, so the click passes.
// evdev has no pointer position either: motion is withheld while a press is pending, so the
// replayed click lands where the press was.
//
// The watchdog gives every mouse back if input waits unread for watchdogLimit, and the next pass
// of the input thread takes them again. An idle mouse wakes nothing: no timer runs outside
// momentum.
//
// KESTRIX_DEBUG=1 logs every synthesized scroll with all its fields, every replayed click and
// every grab and release.
class LinuxInputBackend final : public InputHook, public RepeatingTimer
{
public:
    static constexpr std::chrono::milliseconds watchdogLimit { 250 };

    // Watches its descriptors in `epollFd`, tagged with the descriptor itself.
    explicit LinuxInputBackend(int epollFd);
    ~LinuxInputBackend() override; // releases every grab, destroys every twin
    LinuxInputBackend(const LinuxInputBackend &) = delete;
    LinuxInputBackend &operator=(const LinuxInputBackend &) = delete;

    void setEngine(GrabScrollManager *engine) { m_engine = engine; }
    // Called on the input thread whenever the list of mice changed.
    void setDevicesChanged(std::function<void()> devicesChanged) { m_devicesChanged = std::move(devicesChanged); }
    // Read at every press of the trigger button, from whichever thread writes it.
    void setExcludedAppFlag(const std::atomic<bool> *pointerOverExcludedApp) { m_excludedApp = pointerOverExcludedApp; }
    // The engine gets the scroll part; mice switched off are given back at once, mice switched on
    // again taken over.
    void applySettings(const InputSettings &settings);

    // InputHook. install() is false, leaving nothing grabbed, only without a writable /dev/uinput
    // or without udev; with no mouse plugged in it waits for one.
    bool install() override;
    void uninstall() override;
    void reenable() override;

    // RepeatingTimer: a timerfd in the input thread's epoll set, exact periods, never coalesced.
    void start(std::chrono::milliseconds period) override;
    void cancel() override;

    // One of this backend's descriptors is readable.
    void onReadable(int fd);
    // The input thread has handled everything that was readable.
    void afterPass();

    // What is taken over now.
    struct DeviceInfo
    {
        QString node;
        QString twinNode;
        QString name;
        int dpi = 0;
        bool grabbed = false;
    };
    std::vector<DeviceInfo> devices() const;
    // Every mouse seen since install(), the connected ones first.
    std::vector<MouseInfo> mice() const;
    bool isInstalled() const { return m_udev != nullptr; }

private:
    // The trigger button's gesture on one mouse.
    struct Gesture
    {
        bool held = false;
        std::uint16_t code = 0; // the button that started it; its release ends it
        bool excluded = false; // began over an excluded app: passes untouched
        double carryX = 0.0; // motion in points not yet handed to the engine
        double carryY = 0.0;
    };
    struct Entry
    {
        std::unique_ptr<PointerDevice> device;
        MouseIdentity identity;
        bool wantGrab = true; // grab as soon as no button is held
        Gesture gesture;
        // udev's path of the node: unlike the node's name, which the kernel hands to the next
        // device, it names this device alone, so a late removal of an earlier one is told apart.
        std::string syspath;
    };
    // A mouse plugged in but switched off by the user: not opened at all.
    struct PassedOver
    {
        MouseIdentity identity;
        std::string syspath;
    };
    class FramePoster;
    class TwinPoster;

    void considerDevice(udev_device *device);
    void removeEntry(Entry &entry);
    void onMonitorReadable();
    void service(Entry &entry);
    void handleFrame(Entry &entry, std::span<const input_event> frame);
    void handleSharedFrame(Entry &entry, std::span<const input_event> frame);
    void tryGrab(Entry &entry);
    Entry *findByFd(int fd);
    bool isTrigger(std::uint16_t code) const;
    bool isDisabled(const MouseIdentity &identity) const;
    void watchCurrentDevices();
    void releaseAllFromWatchdog();
    void remember(const MouseIdentity &identity);
    void devicesChanged();
    PointerDevice *scrollTarget();
    // Appends the wheel events of `event` to `out`, without a SYN_REPORT.
    bool encodeScroll(const ScrollEvent &event, PointerDevice &target, std::vector<input_event> &out);
    // The same as a frame of its own on `target`'s twin.
    bool writeScroll(const ScrollEvent &event, PointerDevice &target);
    bool replayClick(PointerDevice &target, std::uint16_t code);
    void watchFd(int fd, std::uint32_t events = EPOLLIN) const;
    void unwatchFd(int fd) const;

    const int m_epollFd;
    int m_timerFd = -1;
    GrabScrollManager *m_engine = nullptr;
    std::function<void()> m_devicesChanged;
    const std::atomic<bool> *m_excludedApp = nullptr;
    InputSettings m_settings;
    udev *m_udev = nullptr;
    udev_monitor *m_monitor = nullptr;
    int m_monitorFd = -1;
    mutable std::mutex m_devicesMutex; // the list, against the watchdog's walk over it
    std::vector<Entry> m_devices;
    std::vector<PassedOver> m_passedOver;
    std::vector<MouseIdentity> m_seen; // every mouse since install(), in order of arrival
    std::unique_ptr<InputWatchdog> m_watchdog;
    std::atomic<bool> m_watchdogFired { false };
    bool m_listChanged = false;

    PointerDevice *m_gestureDevice = nullptr; // the mouse whose press started the engine's gesture
    std::uint16_t m_gestureCode = BTN_RIGHT;
    PointerDevice *m_leavingDevice = nullptr; // being unplugged: nothing more is written to it
    WheelEncoder m_wheel;
    std::vector<input_event> m_out; // a frame as it goes out, when it differs from what came in
    std::array<input_event, 16> m_scrollingFrame {}; // a usual frame with the scroll added to it
    std::vector<input_event> m_frameWheel;
    std::vector<input_event> m_scratch; // a scroll written in a frame of its own
};

} // namespace kestrix
