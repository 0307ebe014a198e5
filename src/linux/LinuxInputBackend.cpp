#include "linux/LinuxInputBackend.h"

#include "core/Log.h"
#include "engine/GrabScrollManager.h"
#include "linux/InputWatchdog.h"
#include "linux/MouseDpi.h"
#include "linux/PointerDevice.h"
#include "linux/PointerDeviceFilter.h"

#include <QSocketNotifier>

#include <libudev.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace kestrix {
namespace {

constexpr char uinputNode[] = "/dev/uinput";

std::int64_t eventTimeNs(const input_event &event)
{
    return static_cast<std::int64_t>(event.input_event_sec) * 1'000'000'000
        + static_cast<std::int64_t>(event.input_event_usec) * 1000;
}

std::string describe(const PointerDevice &device) { return device.node() + " (" + device.name() + ")"; }

const char *unitName(ScrollUnit unit)
{
    switch (unit) {
    case ScrollUnit::Pixel:
        return "pixel";
    case ScrollUnit::Line:
        return "line";
    }
    return "?";
}

const char *wheelCodeName(std::uint16_t code)
{
    switch (code) {
    case REL_WHEEL:
        return "REL_WHEEL";
    case REL_HWHEEL:
        return "REL_HWHEEL";
    case REL_WHEEL_HI_RES:
        return "REL_WHEEL_HI_RES";
    case REL_HWHEEL_HI_RES:
        return "REL_HWHEEL_HI_RES";
    default:
        return "REL_?";
    }
}

} // namespace

LinuxInputBackend::LinuxInputBackend(QObject *parent)
    : QObject(parent)
{
    // Momentum steps 16 ms apart exactly: a precise timer is neither coalesced nor rounded.
    m_momentumTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_momentumTimer, &QTimer::timeout, this, [this] {
        if (m_engine != nullptr)
            m_engine->momentumTick();
    });
    m_frame.reserve(64);
    m_out.reserve(64);
    m_frameWheel.reserve(8);
}

LinuxInputBackend::~LinuxInputBackend()
{
    m_momentumTimer.stop();
    uninstall();
}

void LinuxInputBackend::setEngine(GrabScrollManager *engine) { m_engine = engine; }

bool LinuxInputBackend::install()
{
    if (isInstalled())
        return true;
    if (access(uinputNode, R_OK | W_OK) != 0) {
        Log::write(std::string("[Kestrix] Cannot write ") + uinputNode + ": " + std::strerror(errno)
            + "; no mouse is taken over");
        return false;
    }
    m_udev = udev_new();
    if (m_udev == nullptr) {
        Log::write("[Kestrix] Cannot reach udev; no mouse is taken over");
        return false;
    }
    // The monitor listens before the first scan, so a mouse plugged in between is not missed.
    m_monitor = udev_monitor_new_from_netlink(m_udev, "udev");
    if (m_monitor != nullptr) {
        udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "input", nullptr);
        if (udev_monitor_enable_receiving(m_monitor) < 0) {
            udev_monitor_unref(m_monitor);
            m_monitor = nullptr;
        }
    }
    if (m_monitor == nullptr)
        Log::write("[Kestrix] Cannot follow udev; mice plugged in later are not taken over");

    udev_enumerate *enumerate = udev_enumerate_new(m_udev);
    udev_enumerate_add_match_subsystem(enumerate, "input");
    udev_enumerate_scan_devices(enumerate);
    udev_list_entry *listEntry = nullptr;
    udev_list_entry_foreach(listEntry, udev_enumerate_get_list_entry(enumerate))
    {
        udev_device *device = udev_device_new_from_syspath(m_udev, udev_list_entry_get_name(listEntry));
        if (device != nullptr) {
            considerDevice(device);
            udev_device_unref(device);
        }
    }
    udev_enumerate_unref(enumerate);

    if (m_devices.empty()) {
        Log::write("[Kestrix] No mouse to take over");
        uninstall();
        return false;
    }
    m_watchdog = std::make_unique<InputWatchdog>(watchdogLimit, [this] { releaseAllFromWatchdog(); });
    watchCurrentDevices();
    if (m_monitor != nullptr) {
        m_monitorNotifier = new QSocketNotifier(udev_monitor_get_fd(m_monitor), QSocketNotifier::Read, this);
        connect(m_monitorNotifier, &QSocketNotifier::activated, this, [this] { onMonitorReadable(); });
    }
    return true;
}

void LinuxInputBackend::uninstall()
{
    // The watchdog goes first: it must not walk the list while the mice are given back.
    m_watchdog.reset();
    m_watchdogFired.store(false);
    delete m_monitorNotifier;
    m_monitorNotifier = nullptr;
    std::vector<Entry> devices;
    {
        std::lock_guard lock(m_devicesMutex);
        devices.swap(m_devices);
    }
    const bool hadDevices = !devices.empty();
    for (Entry &entry : devices) {
        delete entry.notifier;
        Log::debug("[Kestrix] Released " + describe(*entry.device) + "; twin " + entry.device->twinNode() + " removed");
        entry.device.reset(); // releases what the twin holds, ungrabs, destroys the twin
    }
    m_gestureDevice = nullptr;
    if (m_monitor != nullptr)
        udev_monitor_unref(m_monitor);
    m_monitor = nullptr;
    if (m_udev != nullptr)
        udev_unref(m_udev);
    m_udev = nullptr;
    if (hadDevices)
        Q_EMIT devicesChanged();
}

void LinuxInputBackend::reenable()
{
    for (Entry &entry : m_devices) {
        if (!entry.device->isGrabbed()) {
            entry.wantGrab = true;
            tryGrab(entry);
        }
    }
}

void LinuxInputBackend::considerDevice(udev_device *device)
{
    const char *nodeText = udev_device_get_devnode(device);
    if (nodeText == nullptr)
        return;
    const std::string node = nodeText;
    const auto holding = [&] {
        return std::find_if(
            m_devices.begin(), m_devices.end(), [&](const Entry &e) { return e.device->node() == node; });
    };
    if (auto held = holding(); held != m_devices.end()) {
        // A mouse unplugged and another plugged in quickly may get the same node before the old
        // one's removal was read: reading the old one finds out.
        service(held->device.get());
        if (holding() != m_devices.end())
            return;
    }

    switch (PointerDeviceFilter::classify(device)) {
    case PointerDeviceFilter::Verdict::Other:
        return;
    case PointerDeviceFilter::Verdict::KestrixTwin:
        Log::debug("[Kestrix] Leaving " + node + " alone: it is a Kestrix twin");
        return;
    case PointerDeviceFilter::Verdict::PointerKeyboard:
        Log::write("[Kestrix] Skipping " + node
            + ": it reports keys as well as motion, and Kestrix never takes over a keyboard");
        return;
    case PointerDeviceFilter::Verdict::Pointer:
    case PointerDeviceFilter::Verdict::Unclassified:
        break;
    }

    int dpi = MouseDpi::defaultDpi;
    if (const char *dpiText = udev_device_get_property_value(device, "MOUSE_DPI")) {
        if (const std::optional<int> parsed = MouseDpi::parse(dpiText)) {
            dpi = *parsed;
        } else {
            Log::write("[Kestrix] Ignoring MOUSE_DPI \"" + std::string(dpiText) + "\" of " + node
                + ": not a resolution; taking 1000 dpi");
        }
    }

    std::string error;
    std::unique_ptr<PointerDevice> opened = PointerDevice::open(node, dpi, error);
    if (opened == nullptr) {
        if (!error.empty())
            Log::write("[Kestrix] " + error);
        return;
    }
    PointerDevice *raw = opened.get();
    auto *notifier = new QSocketNotifier(raw->fd(), QSocketNotifier::Read, this);
    connect(notifier, &QSocketNotifier::activated, this, [this, raw] { service(raw); });
    {
        std::lock_guard lock(m_devicesMutex);
        const char *syspath = udev_device_get_syspath(device);
        m_devices.push_back({ std::move(opened), notifier, true, syspath != nullptr ? syspath : "" });
    }
    Log::debug(
        "[Kestrix] Took over " + describe(*raw) + " at " + std::to_string(dpi) + " dpi; twin " + raw->twinNode());
    tryGrab(m_devices.back());
    if (m_watchdog != nullptr)
        watchCurrentDevices();
    Q_EMIT devicesChanged();
}

void LinuxInputBackend::tryGrab(Entry &entry)
{
    PointerDevice &device = *entry.device;
    const bool afterWatchdog = device.grabLostAt() != 0;
    if (!device.grab()) {
        Log::debug(
            "[Kestrix] Grab of " + describe(device) + " waits until its buttons are up and no one else holds it");
        return;
    }
    entry.wantGrab = false;
    if (afterWatchdog)
        Log::write("[Kestrix] Input watchdog: Kestrix responds again; " + describe(device) + " grabbed again");
    else
        Log::debug("[Kestrix] Grabbed " + describe(device));
    Q_EMIT devicesChanged();
}

LinuxInputBackend::Entry *LinuxInputBackend::find(const PointerDevice *device)
{
    for (Entry &entry : m_devices) {
        if (entry.device.get() == device)
            return &entry;
    }
    return nullptr;
}

void LinuxInputBackend::watchCurrentDevices()
{
    std::vector<int> fds;
    for (const Entry &entry : m_devices)
        fds.push_back(entry.device->fd());
    m_watchdog->watch(std::move(fds));
}

// On the watchdog's thread, while the main thread is stuck.
void LinuxInputBackend::releaseAllFromWatchdog()
{
    std::lock_guard lock(m_devicesMutex);
    bool released = false;
    const std::int64_t now = InputWatchdog::now();
    for (Entry &entry : m_devices)
        released = entry.device->releaseGrab(now) || released;
    if (!released)
        return;
    m_watchdogFired.store(true);
    Log::write("[Kestrix] Input watchdog: input waited 250 ms unread; every mouse released until Kestrix responds "
               "again");
}

void LinuxInputBackend::onMonitorReadable()
{
    udev_device *device = udev_monitor_receive_device(m_monitor);
    if (device == nullptr)
        return;
    const char *action = udev_device_get_action(device);
    const char *node = udev_device_get_devnode(device);
    if (action != nullptr && node != nullptr) {
        if (std::strcmp(action, "add") == 0) {
            considerDevice(device);
        } else if (std::strcmp(action, "remove") == 0) {
            const char *syspath = udev_device_get_syspath(device);
            for (const Entry &entry : m_devices) {
                if (syspath != nullptr && entry.syspath == syspath) {
                    removeDevice(entry.device.get());
                    break;
                }
            }
        }
    }
    udev_device_unref(device);
}

void LinuxInputBackend::removeDevice(PointerDevice *device)
{
    Entry *entry = find(device);
    if (entry == nullptr)
        return;
    entry->notifier->setEnabled(false);
    entry->notifier->deleteLater();

    // Back to a neutral state before the mouse goes: a gesture it held ends as a release would
    // end it, but nothing more is written to its twin.
    m_leavingDevice = device;
    if (device->rightHeld) {
        device->rightHeld = false;
        deliver({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 });
    }
    if (m_gestureDevice == device)
        m_gestureDevice = nullptr;
    m_leavingDevice = nullptr;

    std::unique_ptr<PointerDevice> gone;
    {
        std::lock_guard lock(m_devicesMutex);
        gone = std::move(entry->device);
        m_devices.erase(m_devices.begin() + (entry - m_devices.data()));
    }
    if (m_watchdog != nullptr)
        watchCurrentDevices();
    Log::debug("[Kestrix] " + describe(*gone) + " is gone; twin " + gone->twinNode() + " removed");
    gone.reset(); // releases what the twin holds and destroys it
    Q_EMIT devicesChanged();
}

Verdict LinuxInputBackend::deliver(const PointerEvent &event)
{
    return m_engine != nullptr ? m_engine->handleEvent(event) : Verdict::Pass;
}

void LinuxInputBackend::service(PointerDevice *device)
{
    for (;;) {
        switch (device->readFrame(m_frame)) {
        case PointerDevice::ReadStatus::Frame:
            handleFrame(*device);
            continue;
        case PointerDevice::ReadStatus::Gone:
            removeDevice(device);
            break;
        case PointerDevice::ReadStatus::Drained:
            break;
        }
        break;
    }
    if (m_watchdog != nullptr)
        m_watchdog->serviced();

    // The watchdog gave the mice back while this thread was stuck; now it runs again, the engine
    // hears of it and switches the hook back on (reenable()).
    if (m_watchdogFired.exchange(false)) {
        if (m_engine != nullptr && m_engine->isStarted())
            deliver({ PointerEventType::HookDisabledByTimeout, 0.0, 0.0, {}, 0 });
        else
            reenable();
    }
}

void LinuxInputBackend::handleFrame(PointerDevice &device)
{
    const std::int64_t lostAt = device.grabLostAt();
    const bool grabbed = device.isGrabbed();
    if (!grabbed && (lostAt == 0 || eventTimeNs(m_frame.front()) >= lostAt)) {
        handleSharedFrame(device);
        return;
    }

    std::int32_t countsX = 0;
    std::int32_t countsY = 0;
    int rightValue = -1;
    bool ownWheel = false;
    for (const input_event &event : m_frame) {
        if (event.type == EV_REL && event.code == REL_X)
            countsX += event.value;
        else if (event.type == EV_REL && event.code == REL_Y)
            countsY += event.value;
        else if (event.type == EV_KEY && event.code == BTN_RIGHT)
            rightValue = event.value;
        else if (event.type == EV_REL && event.code != REL_X && event.code != REL_Y)
            ownWheel = true;
    }
    // A frame that turns the mouse's own wheel keeps it to itself; the scroll goes out on its own.
    m_frameWheel.clear();
    m_frameDevice = ownWheel ? nullptr : &device;

    // The frame's motion happened with the button as it was before the frame's own press or
    // release: a drag first, then the button change.
    Verdict motion = Verdict::Pass;
    if ((countsX != 0 || countsY != 0) && device.rightHeld) {
        const double scale = device.pointsPerCount();
        motion = deliver({ PointerEventType::RightMouseDragged, countsX * scale, countsY * scale, {}, 0 });
    }
    Verdict button = Verdict::Pass;
    if (rightValue == 1) {
        device.rightHeld = true;
        m_gestureDevice = &device;
        m_wheel.reset();
        button = deliver({ PointerEventType::RightMouseDown, 0.0, 0.0, {}, 0 });
    } else if (rightValue == 0) {
        device.rightHeld = false;
        button = deliver({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 });
    }
    m_frameDevice = nullptr;

    m_out.clear();
    for (const input_event &event : m_frame) {
        if (event.type == EV_SYN && event.code == SYN_REPORT)
            m_out.insert(m_out.end(), m_frameWheel.begin(), m_frameWheel.end());
        if (event.type == EV_REL && (event.code == REL_X || event.code == REL_Y) && motion == Verdict::Drop)
            continue;
        if (event.type == EV_KEY && event.code == BTN_RIGHT && button == Verdict::Drop)
            continue;
        m_out.push_back(event);
        // The twin announces the high-resolution wheels, so every wheel frame it sends must carry
        // them, or libinput counts each later detent twice.
        if (event.type == EV_REL && event.code == REL_WHEEL && !device.sourceHasHiResWheel())
            m_out.push_back(makeEvent(EV_REL, REL_WHEEL_HI_RES, event.value * WheelEncoder::unitsPerDetent));
        else if (event.type == EV_REL && event.code == REL_HWHEEL && !device.sourceHasHiResHWheel())
            m_out.push_back(makeEvent(EV_REL, REL_HWHEEL_HI_RES, event.value * WheelEncoder::unitsPerDetent));
    }
    if (m_out.size() > 1 && !device.writeFrame(m_out))
        Log::write("[Kestrix] Writing to the twin of " + describe(device) + " failed: " + std::strerror(errno));

    if (!grabbed) {
        // The watchdog released the grab while this frame was waiting: take it back when possible.
        if (Entry *entry = find(&device); entry != nullptr && entry->wantGrab)
            tryGrab(*entry);
    }
}

// A frame that other readers of the source saw as well (the grab is not held). Only releases of
// what the twin still holds go to the twin, so nothing stays pressed there; a right release still
// ends the engine's gesture.
void LinuxInputBackend::handleSharedFrame(PointerDevice &device)
{
    m_out.clear();
    for (const input_event &event : m_frame) {
        if (event.type != EV_KEY || event.value != 0)
            continue;
        if (event.code == BTN_RIGHT && device.rightHeld) {
            device.rightHeld = false;
            deliver({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 });
        }
        if (device.twinKeyHeld(event.code))
            m_out.push_back(event);
    }
    if (!m_out.empty()) {
        m_out.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
        device.writeFrame(m_out);
    }
    if (Entry *entry = find(&device); entry != nullptr && entry->wantGrab)
        tryGrab(*entry);
}

std::optional<PointerLocation> LinuxInputBackend::currentPointerLocation()
{
    // evdev reports motion, never a position.
    return std::nullopt;
}

PointerDevice *LinuxInputBackend::scrollTarget()
{
    if (m_gestureDevice != nullptr && m_gestureDevice != m_leavingDevice)
        return m_gestureDevice;
    // Momentum outlives an unplugged mouse: it goes on through another twin when there is one.
    for (const Entry &entry : m_devices) {
        if (entry.device.get() != m_leavingDevice && entry.device != nullptr)
            return entry.device.get();
    }
    return nullptr;
}

bool LinuxInputBackend::postScroll(const ScrollEvent &event)
{
    PointerDevice *target = scrollTarget();
    if (target == nullptr)
        return false;
    WheelEncoder::Frame frame {};
    const std::optional<std::size_t> length = m_wheel.encode(event.unit, event.vertical, event.horizontal, frame);
    if (!length) {
        Log::write("[Kestrix] Scroll amount " + std::to_string(event.vertical) + ", " + std::to_string(event.horizontal)
            + " does not fit a wheel event; skipped");
        return false;
    }
    if (Log::debugEnabled()) {
        std::string line = std::string("[Kestrix] Scroll unit=") + unitName(event.unit)
            + " vertical=" + std::to_string(event.vertical) + " horizontal=" + std::to_string(event.horizontal);
        if (event.phases) {
            line += " scrollPhase=" + std::to_string(event.phases->scrollPhase)
                + " momentumPhase=" + std::to_string(event.phases->momentumPhase)
                + " continuous=" + std::to_string(event.phases->isContinuous);
        } else {
            line += " (no phases)";
        }
        line += " -> " + target->twinNode() + ":";
        for (std::size_t i = 0; i + 1 < *length; ++i)
            line += std::string(" ") + wheelCodeName(frame[i].code) + "=" + std::to_string(frame[i].value);
        if (*length == 0)
            line += " nothing to write";
        Log::debug(line);
    }
    if (*length == 0)
        return true;
    if (target == m_frameDevice) {
        m_frameWheel.insert(
            m_frameWheel.end(), frame.begin(), frame.begin() + static_cast<std::ptrdiff_t>(*length - 1));
        return true;
    }
    return target->writeFrame({ frame.data(), *length });
}

bool LinuxInputBackend::postRightClick(PointerLocation location, std::uint64_t marker)
{
    Q_UNUSED(location);
    Q_UNUSED(marker);
    PointerDevice *target = m_gestureDevice != m_leavingDevice ? m_gestureDevice : nullptr;
    if (target == nullptr)
        return false;
    const input_event press[] = { makeEvent(EV_KEY, BTN_RIGHT, 1), makeEvent(EV_SYN, SYN_REPORT, 0) };
    const input_event release[] = { makeEvent(EV_KEY, BTN_RIGHT, 0), makeEvent(EV_SYN, SYN_REPORT, 0) };
    const bool posted = target->writeFrame(press) && target->writeFrame(release);
    Log::debug("[Kestrix] Replayed right click on " + target->twinNode() + (posted ? "" : " failed"));
    return posted;
}

void LinuxInputBackend::start(std::chrono::milliseconds period) { m_momentumTimer.start(period); }

void LinuxInputBackend::cancel() { m_momentumTimer.stop(); }

std::vector<LinuxInputBackend::DeviceInfo> LinuxInputBackend::devices() const
{
    std::vector<DeviceInfo> result;
    for (const Entry &entry : m_devices) {
        const PointerDevice &device = *entry.device;
        result.push_back({ QString::fromStdString(device.node()), QString::fromStdString(device.twinNode()),
            QString::fromStdString(device.name()), device.dpi(), device.isGrabbed() });
    }
    return result;
}

} // namespace kestrix
