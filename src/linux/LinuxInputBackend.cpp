#include "linux/LinuxInputBackend.h"

#include "core/Log.h"
#include "engine/GrabScrollManager.h"
#include "linux/InputWatchdog.h"
#include "linux/MouseDpi.h"
#include "linux/PointerDevice.h"
#include "linux/PointerDeviceFilter.h"

#include <libudev.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
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

// A frame's motion beyond this many counts is not a hand on a mouse; it is clamped so that no
// device, however broken, can push a scroll amount out of range.
constexpr std::int64_t maximumCountsPerFrame = 1 << 16;

std::int32_t clampCounts(std::int64_t counts)
{
    return static_cast<std::int32_t>(std::clamp(counts, -maximumCountsPerFrame, maximumCountsPerFrame));
}

std::uint16_t hexAttribute(udev_device *device, const char *name)
{
    const char *text = device != nullptr ? udev_device_get_sysattr_value(device, name) : nullptr;
    return text != nullptr ? static_cast<std::uint16_t>(std::strtoul(text, nullptr, 16)) : 0;
}

// The mouse as the user's switches name it, from the input device above the event node.
MouseIdentity identityOf(udev_device *node)
{
    udev_device *input = udev_device_get_parent_with_subsystem_devtype(node, "input", nullptr);
    const char *name = input != nullptr ? udev_device_get_sysattr_value(input, "name") : nullptr;
    return { hexAttribute(input, "id/vendor"), hexAttribute(input, "id/product"),
        QString::fromUtf8(name != nullptr ? name : "") };
}

std::string describeIdentity(const MouseIdentity &identity) { return identity.name.toStdString(); }

// Out of the scrolling frame's way: only with KESTRIX_DEBUG set.
[[gnu::cold, gnu::noinline]] void logScroll(
    const ScrollEvent &event, const PointerDevice &target, std::span<const input_event> wheel)
{
    std::string line = std::string("[Kestrix] Scroll unit=") + unitName(event.unit)
        + " vertical=" + std::to_string(event.vertical) + " horizontal=" + std::to_string(event.horizontal);
    if (event.phases) {
        line += " scrollPhase=" + std::to_string(event.phases->scrollPhase) + " momentumPhase="
            + std::to_string(event.phases->momentumPhase) + " continuous=" + std::to_string(event.phases->isContinuous);
    } else {
        line += " (no phases)";
    }
    line += " -> " + target.twinNode() + ":";
    for (const input_event &sent : wheel)
        line += std::string(" ") + wheelCodeName(sent.code) + "=" + std::to_string(sent.value);
    if (wheel.empty())
        line += " nothing to write";
    Log::debug(line);
}

} // namespace

// Where the engine's posts go while a frame of one mouse is handled: its scroll joins the frame's
// own write, its replayed click goes to that mouse's twin at once.
class LinuxInputBackend::FramePoster final : public EventPoster
{
public:
    FramePoster(LinuxInputBackend &backend, PointerDevice &device, std::vector<input_event> *frameWheel)
        : m_backend(backend)
        , m_device(device)
        , m_frameWheel(frameWheel)
    { }
    std::optional<PointerLocation> currentPointerLocation() override { return std::nullopt; }
    bool postScroll(const ScrollEvent &event) override
    {
        if (m_frameWheel != nullptr)
            return m_backend.encodeScroll(event, m_device, *m_frameWheel);
        // A frame that turns the mouse's own wheel keeps it to itself; the scroll goes out alone.
        return m_backend.writeScroll(event, m_device);
    }
    bool postRightClick(PointerLocation, std::uint64_t) override
    {
        return m_backend.replayClick(m_device, m_backend.m_gestureCode);
    }

private:
    LinuxInputBackend &m_backend;
    PointerDevice &m_device;
    std::vector<input_event> *m_frameWheel;
};

// Where the engine's posts go outside any frame (momentum, and a gesture ended by an unplug): the
// twin of the gesture's mouse, or of another one when that mouse is gone.
class LinuxInputBackend::TwinPoster final : public EventPoster
{
public:
    explicit TwinPoster(LinuxInputBackend &backend)
        : m_backend(backend)
    { }
    std::optional<PointerLocation> currentPointerLocation() override { return std::nullopt; }
    bool postScroll(const ScrollEvent &event) override
    {
        PointerDevice *target = m_backend.scrollTarget();
        if (target == nullptr)
            return false;
        return m_backend.writeScroll(event, *target);
    }
    bool postRightClick(PointerLocation, std::uint64_t) override
    {
        PointerDevice *target = m_backend.m_gestureDevice;
        return target != nullptr && target != m_backend.m_leavingDevice
            && m_backend.replayClick(*target, m_backend.m_gestureCode);
    }

private:
    LinuxInputBackend &m_backend;
};

LinuxInputBackend::LinuxInputBackend(int epollFd)
    : m_epollFd(epollFd)
    , m_timerFd(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC))
{
    if (m_timerFd >= 0)
        watchFd(m_timerFd);
    m_out.reserve(64);
    m_frameWheel.reserve(8);
    m_scratch.reserve(8);
}

LinuxInputBackend::~LinuxInputBackend()
{
    uninstall();
    if (m_timerFd >= 0)
        ::close(m_timerFd);
}

void LinuxInputBackend::watchFd(int fd, std::uint32_t events) const
{
    epoll_event event {};
    event.events = events;
    event.data.u64 = static_cast<std::uint64_t>(fd);
    if (epoll_ctl(m_epollFd, EPOLL_CTL_ADD, fd, &event) != 0)
        Log::write(std::string("[Kestrix] Cannot watch an input descriptor: ") + std::strerror(errno));
}

void LinuxInputBackend::unwatchFd(int fd) const { epoll_ctl(m_epollFd, EPOLL_CTL_DEL, fd, nullptr); }

void LinuxInputBackend::applySettings(const InputSettings &settings)
{
    m_settings = settings;
    if (m_engine != nullptr)
        m_engine->setSettings(settings.scroll);
    if (!isInstalled())
        return;

    // Mice switched off are given back at once: a gesture they held ends as an unplug ends it.
    for (std::size_t i = 0; i < m_devices.size();) {
        Entry &entry = m_devices[i];
        if (!isDisabled(entry.identity)) {
            ++i;
            continue;
        }
        Log::write("[Kestrix] Leaving " + describe(*entry.device) + " alone: switched off in the preferences");
        m_passedOver.push_back({ entry.identity, entry.syspath });
        removeEntry(entry);
    }
    // Mice switched on again are taken over as if just plugged in.
    std::vector<PassedOver> waiting;
    waiting.swap(m_passedOver);
    for (PassedOver &passed : waiting) {
        if (isDisabled(passed.identity)) {
            m_passedOver.push_back(std::move(passed));
            continue;
        }
        if (udev_device *device = udev_device_new_from_syspath(m_udev, passed.syspath.c_str())) {
            considerDevice(device);
            udev_device_unref(device);
        }
    }
    // Only a change of the list is published: a speed slider dragged in the window changes the
    // settings many times a second, and the mice stay the same.
    if (m_listChanged)
        devicesChanged();
}

bool LinuxInputBackend::isDisabled(const MouseIdentity &identity) const
{
    return std::find(m_settings.disabledMice.begin(), m_settings.disabledMice.end(), identity)
        != m_settings.disabledMice.end();
}

bool LinuxInputBackend::isTrigger(std::uint16_t code) const
{
    switch (m_settings.scroll.triggerButton) {
    case TriggerButton::Secondary:
        return code == (m_settings.leftHanded ? BTN_LEFT : BTN_RIGHT);
    case TriggerButton::Middle:
        return code == BTN_MIDDLE;
    case TriggerButton::Back:
        return code == BTN_SIDE || code == BTN_BACK;
    case TriggerButton::Forward:
        return code == BTN_EXTRA || code == BTN_FORWARD;
    }
    return false;
}

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
    // Without it a mouse plugged in later would never work: that is a failure, not a degraded mode.
    m_monitor = udev_monitor_new_from_netlink(m_udev, "udev");
    if (m_monitor != nullptr) {
        udev_monitor_filter_add_match_subsystem_devtype(m_monitor, "input", nullptr);
        if (udev_monitor_enable_receiving(m_monitor) < 0) {
            udev_monitor_unref(m_monitor);
            m_monitor = nullptr;
        }
    }
    if (m_monitor == nullptr) {
        Log::write("[Kestrix] Cannot follow udev's device events; no mouse is taken over");
        udev_unref(m_udev);
        m_udev = nullptr;
        return false;
    }
    m_monitorFd = udev_monitor_get_fd(m_monitor);
    watchFd(m_monitorFd);
    m_watchdog = std::make_unique<InputWatchdog>(watchdogLimit, [this] { releaseAllFromWatchdog(); });

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

    if (m_devices.empty())
        Log::write("[Kestrix] No mouse to take over yet; waiting for one to be plugged in");
    devicesChanged();
    return true;
}

void LinuxInputBackend::uninstall()
{
    // The watchdog goes first: it must not walk the list while the mice are given back.
    m_watchdog.reset();
    m_watchdogFired.store(false);
    cancel();
    std::vector<Entry> devices;
    {
        std::lock_guard lock(m_devicesMutex);
        devices.swap(m_devices);
    }
    const bool hadMice = !devices.empty() || !m_seen.empty();
    for (Entry &entry : devices) {
        unwatchFd(entry.device->fd());
        Log::debug("[Kestrix] Released " + describe(*entry.device) + "; twin " + entry.device->twinNode() + " removed");
        entry.device.reset(); // releases what the twin holds, ungrabs, destroys the twin
    }
    m_passedOver.clear();
    m_seen.clear();
    m_gestureDevice = nullptr;
    if (m_monitor != nullptr) {
        unwatchFd(m_monitorFd);
        udev_monitor_unref(m_monitor);
    }
    m_monitor = nullptr;
    m_monitorFd = -1;
    if (m_udev != nullptr)
        udev_unref(m_udev);
    m_udev = nullptr;
    if (hadMice)
        devicesChanged();
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

void LinuxInputBackend::remember(const MouseIdentity &identity)
{
    if (std::find(m_seen.begin(), m_seen.end(), identity) == m_seen.end())
        m_seen.push_back(identity);
}

void LinuxInputBackend::devicesChanged()
{
    m_listChanged = false;
    if (m_devicesChanged)
        m_devicesChanged();
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
        service(*held);
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

    const MouseIdentity identity = identityOf(device);
    const char *syspathText = udev_device_get_syspath(device);
    const std::string syspath = syspathText != nullptr ? syspathText : "";
    if (isDisabled(identity)) {
        Log::write("[Kestrix] Leaving " + node + " (" + describeIdentity(identity)
            + ") alone: switched off in the preferences");
        remember(identity);
        m_passedOver.push_back({ identity, syspath });
        m_listChanged = true;
        return;
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
    // A node is read dry at every wake-up (service()), so its edge is all the loop needs, and
    // epoll does not look at the node once more after each frame.
    watchFd(raw->fd(), EPOLLIN | EPOLLET);
    {
        std::lock_guard lock(m_devicesMutex);
        m_devices.push_back({ std::move(opened), identity, true, {}, syspath });
    }
    remember(identity);
    Log::debug(
        "[Kestrix] Took over " + describe(*raw) + " at " + std::to_string(dpi) + " dpi; twin " + raw->twinNode());
    tryGrab(m_devices.back());
    if (m_watchdog != nullptr)
        watchCurrentDevices();
    m_listChanged = true;
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
    m_listChanged = true;
}

LinuxInputBackend::Entry *LinuxInputBackend::findByFd(int fd)
{
    for (Entry &entry : m_devices) {
        if (entry.device->fd() == fd)
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

// On the watchdog's thread, while the input thread is stuck.
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

void LinuxInputBackend::onReadable(int fd)
{
    if (Entry *entry = findByFd(fd)) {
        service(*entry);
        return;
    }
    if (fd == m_timerFd) {
        std::uint64_t expirations = 0;
        if (::read(m_timerFd, &expirations, sizeof expirations) > 0 && m_engine != nullptr) {
            TwinPoster poster(*this);
            m_engine->momentumTick(poster);
        }
        return;
    }
    if (fd == m_monitorFd && m_monitor != nullptr)
        onMonitorReadable();
}

void LinuxInputBackend::afterPass()
{
    if (m_watchdog != nullptr)
        m_watchdog->serviced();
    // The watchdog gave the mice back while this thread was stuck; now it runs again, the engine
    // hears of it and switches the hook back on (reenable()).
    if (m_watchdogFired.load(std::memory_order_relaxed) && m_watchdogFired.exchange(false)) {
        m_listChanged = true;
        if (m_engine != nullptr && m_engine->isStarted()) {
            TwinPoster poster(*this);
            m_engine->handleEvent({ PointerEventType::HookDisabledByTimeout, 0.0, 0.0, {}, 0 }, poster);
        } else {
            reenable();
        }
    }
    if (m_listChanged)
        devicesChanged();
}

void LinuxInputBackend::onMonitorReadable()
{
    udev_device *device = udev_monitor_receive_device(m_monitor);
    if (device == nullptr)
        return;
    const char *action = udev_device_get_action(device);
    const char *node = udev_device_get_devnode(device);
    const char *syspath = udev_device_get_syspath(device);
    if (action != nullptr && node != nullptr && syspath != nullptr) {
        if (std::strcmp(action, "add") == 0) {
            considerDevice(device);
        } else if (std::strcmp(action, "remove") == 0) {
            const auto held = std::find_if(
                m_devices.begin(), m_devices.end(), [&](const Entry &entry) { return entry.syspath == syspath; });
            if (held != m_devices.end())
                removeEntry(*held);
            std::erase_if(m_passedOver, [&](const PassedOver &passed) {
                m_listChanged = m_listChanged || passed.syspath == syspath;
                return passed.syspath == syspath;
            });
        }
    }
    udev_device_unref(device);
}

void LinuxInputBackend::removeEntry(Entry &entry)
{
    PointerDevice *device = entry.device.get();
    unwatchFd(device->fd());

    // Back to a neutral state before the mouse goes: a gesture it held ends as a release would
    // end it, but nothing more is written to its twin.
    m_leavingDevice = device;
    if (entry.gesture.held && !entry.gesture.excluded && m_engine != nullptr) {
        TwinPoster poster(*this);
        m_engine->handleEvent({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 }, poster);
    }
    entry.gesture = {};
    if (m_gestureDevice == device)
        m_gestureDevice = nullptr;
    m_leavingDevice = nullptr;

    std::unique_ptr<PointerDevice> gone;
    {
        std::lock_guard lock(m_devicesMutex);
        gone = std::move(entry.device);
        m_devices.erase(m_devices.begin() + (&entry - m_devices.data()));
    }
    if (m_watchdog != nullptr)
        watchCurrentDevices();
    Log::debug("[Kestrix] " + describe(*gone) + " is gone; twin " + gone->twinNode() + " removed");
    gone.reset(); // releases what the twin holds and destroys it
    if (m_devices.empty() && isInstalled())
        Log::write("[Kestrix] No mouse to take over yet; waiting for one to be plugged in");
    m_listChanged = true;
}

void LinuxInputBackend::service(Entry &entry)
{
    PointerDevice *device = entry.device.get();
    std::span<const input_event> frame;
    for (;;) {
        switch (device->readFrame(frame)) {
        case PointerDevice::ReadStatus::Frame:
            handleFrame(entry, frame);
            if (device->takeDrained())
                break;
            continue;
        case PointerDevice::ReadStatus::Gone:
            removeEntry(entry);
            break;
        case PointerDevice::ReadStatus::Drained:
            break;
        }
        break;
    }
}

void LinuxInputBackend::handleFrame(Entry &entry, std::span<const input_event> frame)
{
    PointerDevice &device = *entry.device;
    Gesture &gesture = entry.gesture;
    const bool grabbed = device.isGrabbed();
    if (!grabbed) {
        const std::int64_t lostAt = device.grabLostAt();
        if (lostAt == 0 || eventTimeNs(frame.front()) >= lostAt) {
            handleSharedFrame(entry, frame);
            return;
        }
    }

    std::int64_t countsX = 0;
    std::int64_t countsY = 0;
    int buttonValue = -1;
    bool ownWheel = false;
    bool wheelWithoutHiRes = false;
    for (const input_event &event : frame) {
        if (event.type == EV_REL) {
            if (event.code == REL_X) {
                countsX += event.value;
            } else if (event.code == REL_Y) {
                countsY += event.value;
            } else {
                ownWheel = true;
                wheelWithoutHiRes = wheelWithoutHiRes || (event.code == REL_WHEEL && !device.sourceHasHiResWheel())
                    || (event.code == REL_HWHEEL && !device.sourceHasHiResHWheel());
            }
        } else if (event.type == EV_KEY && (gesture.held ? event.code == gesture.code : isTrigger(event.code))) {
            buttonValue = event.value;
        }
    }
    m_frameWheel.clear();
    FramePoster poster(*this, device, ownWheel ? nullptr : &m_frameWheel);
    const bool engineGesture = gesture.held && !gesture.excluded && m_engine != nullptr;

    // The frame's motion happened with the button as it was before the frame's own press or
    // release: a drag first, then the button change. The engine gets whole points; the rest waits
    // for the next frame, so a slow drag of a fine mouse adds up to what a fast one scrolls.
    Verdict motion = Verdict::Pass;
    if ((countsX != 0 || countsY != 0) && engineGesture) {
        const double scale = device.pointsPerCount();
        const double pointsX = clampCounts(countsX) * scale + gesture.carryX;
        const double pointsY = clampCounts(countsY) * scale + gesture.carryY;
        // Whole points toward zero; the counts are clamped, so the points fit an integer.
        const auto wholeX = static_cast<double>(static_cast<std::int64_t>(pointsX));
        const auto wholeY = static_cast<double>(static_cast<std::int64_t>(pointsY));
        gesture.carryX = pointsX - wholeX;
        gesture.carryY = pointsY - wholeY;
        if (wholeX != 0.0 || wholeY != 0.0)
            motion = m_engine->handleEvent({ PointerEventType::RightMouseDragged, wholeX, wholeY, {}, 0 }, poster);
        else if (m_engine->state() == GrabScrollManager::State::Pending)
            motion = Verdict::Drop; // too little to count yet, still withheld like every pending drag
    }
    Verdict button = Verdict::Pass;
    std::uint16_t buttonCode = gesture.code;
    if (buttonValue == 1 && !gesture.held) {
        buttonCode = 0;
        for (const input_event &event : frame) {
            if (event.type == EV_KEY && event.value == 1 && isTrigger(event.code))
                buttonCode = event.code;
        }
        const bool excluded = m_excludedApp != nullptr && m_excludedApp->load(std::memory_order_relaxed);
        gesture = { true, buttonCode, excluded, 0.0, 0.0 };
        if (!excluded && m_engine != nullptr) {
            m_gestureDevice = &device;
            m_gestureCode = buttonCode;
            m_wheel.reset();
            button = m_engine->handleEvent({ PointerEventType::RightMouseDown, 0.0, 0.0, {}, 0 }, poster);
        }
    } else if (buttonValue == 0 && gesture.held) {
        gesture.held = false;
        if (engineGesture)
            button = m_engine->handleEvent({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 }, poster);
    }

    std::span<const input_event> out = frame;
    if (motion == Verdict::Drop || button == Verdict::Drop || wheelWithoutHiRes) {
        m_out.clear();
        for (const input_event &event : frame) {
            if (event.type == EV_SYN && event.code == SYN_REPORT)
                m_out.insert(m_out.end(), m_frameWheel.begin(), m_frameWheel.end());
            if (event.type == EV_REL && (event.code == REL_X || event.code == REL_Y) && motion == Verdict::Drop)
                continue;
            if (event.type == EV_KEY && event.code == buttonCode && button == Verdict::Drop)
                continue;
            m_out.push_back(event);
            // The twin announces the high-resolution wheels, so every wheel frame it sends must
            // carry them, or libinput counts each later detent twice.
            if (event.type == EV_REL && event.code == REL_WHEEL && !device.sourceHasHiResWheel())
                m_out.push_back(makeEvent(EV_REL, REL_WHEEL_HI_RES, event.value * WheelEncoder::unitsPerDetent));
            else if (event.type == EV_REL && event.code == REL_HWHEEL && !device.sourceHasHiResHWheel())
                m_out.push_back(makeEvent(EV_REL, REL_HWHEEL_HI_RES, event.value * WheelEncoder::unitsPerDetent));
        }
        out = m_out;
    } else if (!m_frameWheel.empty() && frame.size() + m_frameWheel.size() <= m_scrollingFrame.size()) {
        // The frame goes out whole, with the scroll before its closing SYN_REPORT.
        std::size_t length = 0;
        for (std::size_t i = 0; i + 1 < frame.size(); ++i)
            m_scrollingFrame[length++] = frame[i];
        for (const input_event &event : m_frameWheel)
            m_scrollingFrame[length++] = event;
        m_scrollingFrame[length++] = frame.back();
        out = { m_scrollingFrame.data(), length };
    } else if (!m_frameWheel.empty()) {
        m_out.assign(frame.begin(), frame.end() - 1);
        m_out.insert(m_out.end(), m_frameWheel.begin(), m_frameWheel.end());
        m_out.push_back(frame.back());
        out = m_out;
    }
    if (out.size() > 1 && !device.writeFrame(out))
        Log::write("[Kestrix] Writing to the twin of " + describe(device) + " failed: " + std::strerror(errno));

    if (!grabbed && entry.wantGrab) // the watchdog released the grab while this frame waited
        tryGrab(entry);
}

// A frame that other readers of the source saw as well (the grab is not held). Only releases of
// what the twin still holds go to the twin, so nothing stays pressed there; the trigger's release
// still ends the engine's gesture.
void LinuxInputBackend::handleSharedFrame(Entry &entry, std::span<const input_event> frame)
{
    PointerDevice &device = *entry.device;
    m_out.clear();
    for (const input_event &event : frame) {
        if (event.type != EV_KEY || event.value != 0)
            continue;
        if (entry.gesture.held && event.code == entry.gesture.code) {
            const bool engineGesture = !entry.gesture.excluded && m_engine != nullptr;
            entry.gesture = {};
            if (engineGesture) {
                TwinPoster poster(*this);
                m_engine->handleEvent({ PointerEventType::RightMouseUp, 0.0, 0.0, {}, 0 }, poster);
            }
        }
        if (device.twinKeyHeld(event.code))
            m_out.push_back(event);
    }
    if (!m_out.empty()) {
        m_out.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
        device.writeFrame(m_out);
    }
    if (entry.wantGrab)
        tryGrab(entry);
}

PointerDevice *LinuxInputBackend::scrollTarget()
{
    if (m_gestureDevice != nullptr && m_gestureDevice != m_leavingDevice)
        return m_gestureDevice;
    // Momentum outlives an unplugged mouse: it goes on through another twin when there is one.
    for (const Entry &entry : m_devices) {
        if (entry.device != nullptr && entry.device.get() != m_leavingDevice)
            return entry.device.get();
    }
    return nullptr;
}

bool LinuxInputBackend::encodeScroll(const ScrollEvent &event, PointerDevice &target, std::vector<input_event> &out)
{
    // The desktop reverses the twin's wheel as well when natural scrolling is on for mice, so the
    // engine's direction is reversed here first: reverseScroll means the same on every desktop.
    const std::int32_t sign = m_settings.naturalScroll ? -1 : 1;
    WheelEncoder::Frame frame; // only the first `length` events are written, and read
    const std::optional<std::size_t> length
        = m_wheel.encode(event.unit, sign * event.vertical, sign * event.horizontal, frame);
    if (!length) {
        Log::write("[Kestrix] Scroll amount " + std::to_string(event.vertical) + ", " + std::to_string(event.horizontal)
            + " does not fit a wheel event; skipped");
        return false;
    }
    if (Log::debugEnabled())
        logScroll(event, target, { frame.data(), *length });
    for (std::size_t i = 0; i < *length; ++i)
        out.push_back(frame[i]);
    return true;
}

bool LinuxInputBackend::writeScroll(const ScrollEvent &event, PointerDevice &target)
{
    m_scratch.clear();
    if (!encodeScroll(event, target, m_scratch))
        return false;
    if (m_scratch.empty())
        return true;
    m_scratch.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
    return target.writeFrame(m_scratch);
}

bool LinuxInputBackend::replayClick(PointerDevice &target, std::uint16_t code)
{
    const input_event press[] = { makeEvent(EV_KEY, code, 1), makeEvent(EV_SYN, SYN_REPORT, 0) };
    const input_event release[] = { makeEvent(EV_KEY, code, 0), makeEvent(EV_SYN, SYN_REPORT, 0) };
    const bool posted = target.writeFrame(press) && target.writeFrame(release);
    Log::debug("[Kestrix] Replayed click of button " + std::to_string(code) + " on " + target.twinNode()
        + (posted ? "" : " failed"));
    return posted;
}

void LinuxInputBackend::start(std::chrono::milliseconds period)
{
    const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(period).count();
    itimerspec spec {};
    spec.it_interval.tv_sec = static_cast<time_t>(ns / 1'000'000'000);
    spec.it_interval.tv_nsec = static_cast<long>(ns % 1'000'000'000);
    spec.it_value = spec.it_interval;
    timerfd_settime(m_timerFd, 0, &spec, nullptr);
}

void LinuxInputBackend::cancel()
{
    const itimerspec disarmed {};
    if (m_timerFd >= 0)
        timerfd_settime(m_timerFd, 0, &disarmed, nullptr);
}

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

std::vector<MouseInfo> LinuxInputBackend::mice() const
{
    std::vector<MouseInfo> connected;
    std::vector<MouseInfo> unplugged;
    for (const MouseIdentity &identity : m_seen) {
        const bool active = std::any_of(
            m_devices.begin(), m_devices.end(), [&](const Entry &entry) { return entry.identity == identity; });
        const bool passedOver = std::any_of(m_passedOver.begin(), m_passedOver.end(),
            [&](const PassedOver &passed) { return passed.identity == identity; });
        (active || passedOver ? connected : unplugged).push_back({ identity, active || passedOver, active });
    }
    connected.insert(connected.end(), unplugged.begin(), unplugged.end());
    return connected;
}

} // namespace kestrix
