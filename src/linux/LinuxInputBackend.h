#pragma once

#include "engine/InputPlatform.h"
#include "linux/WheelEncoder.h"

#include <QObject>
#include <QString>
#include <QTimer>

#include <linux/input.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class QSocketNotifier;
struct udev;
struct udev_device;
struct udev_monitor;

namespace kestrix {

class GrabScrollManager;
class InputWatchdog;
class PointerDevice;

// The engine's platform on Linux, below X11 and Wayland alike: evdev and uinput.
//
// Every pointer device is grabbed (EVIOCGRAB), so its events reach only Kestrix, and gets a
// virtual twin through uinput that re-emits them; the desktop reads the twin as if it were the
// mouse. One evdev frame (the events up to SYN_REPORT) is one pointer event for the engine: a
// BTN_RIGHT press or release, or REL_X/REL_Y motion while the right button is held (a drag, in
// points: see MouseDpi). What the engine drops is taken out of the frame; everything else goes to
// the twin unchanged and in order, one write per frame. Synthesized scrolls and replayed clicks
// are written to the twin of the mouse whose right button started the gesture; the scroll of a
// drag rides in the drag's own frame, after its events.
//
// A replayed click carries no marker in its events (evdev has no field for one); the twin carries
// it in its phys string instead, and a marked device is never grabbed, so the click passes.
// evdev has no pointer position either: motion is withheld while a press is pending, so the
// replayed click lands where the press was.
//
// Everything runs on the Qt main thread (QSocketNotifier per node, a precise QTimer for
// momentum) except the watchdog, which gives every mouse back if input waits unread for
// watchdogLimit, and the next service of the main thread takes them again. An idle mouse wakes
// nothing: no timer runs outside momentum.
//
// KESTRIX_DEBUG=1 logs every synthesized scroll with all its fields, every replayed click and
// every grab and release.
class LinuxInputBackend final : public QObject, public InputHook, public EventPoster, public RepeatingTimer
{
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds watchdogLimit { 250 };

    explicit LinuxInputBackend(QObject *parent = nullptr);
    ~LinuxInputBackend() override; // releases every grab, destroys every twin
    LinuxInputBackend(const LinuxInputBackend &) = delete;
    LinuxInputBackend &operator=(const LinuxInputBackend &) = delete;

    // Events go to engine->handleEvent, the timer to engine->momentumTick. Without an engine every
    // event passes.
    void setEngine(GrabScrollManager *engine);

    // InputHook. install() is false, leaving nothing grabbed, without a writable /dev/uinput or
    // without a mouse to take over; once installed, mice plugged in later are taken over too.
    bool install() override;
    void uninstall() override;
    void reenable() override;

    // EventPoster
    std::optional<PointerLocation> currentPointerLocation() override;
    bool postScroll(const ScrollEvent &event) override;
    bool postRightClick(PointerLocation location, std::uint64_t marker) override;

    // RepeatingTimer: exact periods, never coalesced.
    void start(std::chrono::milliseconds period) override;
    void cancel() override;

    // What is taken over now, for diagnostics and tests.
    struct DeviceInfo
    {
        QString node;
        QString twinNode;
        QString name;
        int dpi = 0;
        bool grabbed = false;
    };
    std::vector<DeviceInfo> devices() const;
    bool isInstalled() const { return m_udev != nullptr; }

Q_SIGNALS:
    // A mouse was taken over, grabbed again or given back.
    void devicesChanged();

private:
    struct Entry
    {
        std::unique_ptr<PointerDevice> device;
        QSocketNotifier *notifier = nullptr;
        bool wantGrab = true; // grab as soon as no button is held
        // udev's path of the node: unlike the node's name, which the kernel hands to the next
        // device, it names this device alone, so a late removal of an earlier one is told apart.
        std::string syspath;
    };

    void considerDevice(udev_device *device);
    void removeDevice(PointerDevice *device);
    void onMonitorReadable();
    void service(PointerDevice *device);
    void handleFrame(PointerDevice &device);
    void handleSharedFrame(PointerDevice &device);
    void tryGrab(Entry &entry);
    Entry *find(const PointerDevice *device);
    void watchCurrentDevices();
    void releaseAllFromWatchdog();
    PointerDevice *scrollTarget();
    Verdict deliver(const PointerEvent &event);

    GrabScrollManager *m_engine = nullptr;
    udev *m_udev = nullptr;
    udev_monitor *m_monitor = nullptr;
    QSocketNotifier *m_monitorNotifier = nullptr;
    mutable std::mutex m_devicesMutex; // the list, against the watchdog's walk over it
    std::vector<Entry> m_devices;
    std::unique_ptr<InputWatchdog> m_watchdog;
    std::atomic<bool> m_watchdogFired { false };

    PointerDevice *m_gestureDevice = nullptr; // the mouse whose right press started the gesture
    PointerDevice *m_leavingDevice = nullptr; // being unplugged: nothing more is written to it
    WheelEncoder m_wheel;
    QTimer m_momentumTimer;
    std::vector<input_event> m_frame; // reused for every frame: no allocation per event
    std::vector<input_event> m_out;
    // While a frame of this mouse is being handled, the scroll its drag posts joins that frame, so
    // a scrolling drag costs one write, not two.
    PointerDevice *m_frameDevice = nullptr;
    std::vector<input_event> m_frameWheel;
};

} // namespace kestrix
