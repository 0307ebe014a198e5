#include "linux/PointerDevice.h"

#include "core/Log.h"
#include "linux/MouseDpi.h"
#include "linux/PointerDeviceFilter.h"

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <linux/uinput.h>

#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace kestrix {
namespace {

std::string describeError(int error) { return std::strerror(error < 0 ? -error : error); }

} // namespace

std::unique_ptr<PointerDevice> PointerDevice::open(const std::string &node, int dpi, std::string &error)
{
    std::unique_ptr<PointerDevice> device(new PointerDevice);
    device->m_node = node;
    device->m_dpi = dpi;
    device->m_pointsPerCount = MouseDpi::pointsPerCount(dpi);
    device->m_partial.reserve(64);

    device->m_fd = ::open(node.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (device->m_fd < 0) {
        error = "cannot open " + node + ": " + describeError(errno);
        return nullptr;
    }
    const int rc = libevdev_new_from_fd(device->m_fd, &device->m_source);
    if (rc < 0) {
        error = "cannot read " + node + ": " + describeError(rc);
        return nullptr;
    }
    libevdev *source = device->m_source;
    device->m_name = libevdev_get_name(source);
    switch (PointerDeviceFilter::classify(source)) {
    case PointerDeviceFilter::Verdict::Pointer:
        break;
    case PointerDeviceFilter::Verdict::PointerKeyboard:
        error = "Skipping " + node + " (" + device->m_name
            + "): it reports keys as well as motion, and Kestrix never takes over a keyboard";
        return nullptr;
    case PointerDeviceFilter::Verdict::KestrixTwin:
    case PointerDeviceFilter::Verdict::Unclassified:
    case PointerDeviceFilter::Verdict::Other:
        return nullptr; // not for Kestrix; nothing to report
    }
    // Event times in the monotonic clock, the clock the watchdog measures its release by.
    libevdev_set_clock_id(source, CLOCK_MONOTONIC);

    device->m_sourceHiResWheel = libevdev_has_event_code(source, EV_REL, REL_WHEEL_HI_RES) != 0;
    device->m_sourceHiResHWheel = libevdev_has_event_code(source, EV_REL, REL_HWHEEL_HI_RES) != 0;

    // The twin is described by this same libevdev object: these changes only touch libevdev's own
    // description of the source, never the kernel's device.
    for (const int code : { REL_WHEEL, REL_HWHEEL, REL_WHEEL_HI_RES, REL_HWHEEL_HI_RES })
        libevdev_enable_event_code(source, EV_REL, static_cast<unsigned int>(code), nullptr);
    // libevdev leaves a uinput device's phys empty, so the marker is set on our own uinput handle
    // before libevdev creates the device through it.
    device->m_uinputFd = ::open("/dev/uinput", O_RDWR | O_CLOEXEC);
    if (device->m_uinputFd < 0) {
        error = "cannot open /dev/uinput: " + describeError(errno);
        return nullptr;
    }
    const std::string phys = PointerDeviceFilter::twinPhys(libevdev_get_phys(source));
    if (ioctl(device->m_uinputFd, UI_SET_PHYS, phys.c_str()) != 0) {
        error = "cannot mark the virtual twin of " + node + ": " + describeError(errno);
        return nullptr;
    }
    const int created = libevdev_uinput_create_from_device(source, device->m_uinputFd, &device->m_twin);
    if (created < 0) {
        error = "cannot create the virtual twin of " + node + " through /dev/uinput: " + describeError(created);
        return nullptr;
    }
    const char *twinNode = libevdev_uinput_get_devnode(device->m_twin);
    device->m_twinNode = twinNode != nullptr ? twinNode : "";
    return device;
}

PointerDevice::~PointerDevice()
{
    if (m_twin != nullptr) {
        std::lock_guard lock(m_outputMutex);
        releaseTwinKeysLocked();
        if (m_grabbed)
            ioctl(m_fd, EVIOCGRAB, 0);
        m_grabbed = false;
    }
    if (m_twin != nullptr)
        libevdev_uinput_destroy(m_twin);
    if (m_uinputFd >= 0)
        ::close(m_uinputFd);
    if (m_source != nullptr)
        libevdev_free(m_source);
    if (m_fd >= 0)
        ::close(m_fd);
}

int PointerDevice::fd() const { return m_fd; }

bool PointerDevice::anyKeyHeld() const
{
    for (unsigned int code = 0; code < KEY_CNT; ++code) {
        if (libevdev_has_event_code(m_source, EV_KEY, code) != 0
            && libevdev_get_event_value(m_source, EV_KEY, code) != 0)
            return true;
    }
    return false;
}

bool PointerDevice::grab()
{
    if (anyKeyHeld())
        return false;
    std::lock_guard lock(m_outputMutex);
    if (m_grabbed)
        return true;
    if (ioctl(m_fd, EVIOCGRAB, 1) != 0) {
        Log::write("[Kestrix] Cannot grab " + m_node + " (" + m_name + "): " + describeError(errno));
        return false;
    }
    m_grabbed = true;
    m_grabLostAtNs.store(0);
    return true;
}

bool PointerDevice::isGrabbed() const { return m_grabbed.load(); }

bool PointerDevice::releaseGrab(std::int64_t nowNs)
{
    std::lock_guard lock(m_outputMutex);
    if (!m_grabbed)
        return false;
    // The source's own releases will now reach the desktop directly; the twin must not keep
    // anything pressed that they would never release.
    releaseTwinKeysLocked();
    ioctl(m_fd, EVIOCGRAB, 0);
    m_grabbed = false;
    m_grabLostAtNs.store(nowNs);
    return true;
}

PointerDevice::ReadStatus PointerDevice::readFrame(std::vector<input_event> &frame)
{
    for (;;) {
        input_event event {};
        const int rc
            = libevdev_next_event(m_source, m_syncing ? LIBEVDEV_READ_FLAG_SYNC : LIBEVDEV_READ_FLAG_NORMAL, &event);
        if (rc == -EAGAIN) {
            if (m_syncing) {
                m_syncing = false;
                continue;
            }
            return ReadStatus::Drained;
        }
        if (rc == LIBEVDEV_READ_STATUS_SYNC && !m_syncing) {
            // SYN_DROPPED: the kernel's buffer overflowed. The partial frame is void; libevdev
            // hands out the state changes that were lost instead.
            m_syncing = true;
            m_partial.clear();
            Log::write("[Kestrix] " + m_node + " overflowed: events were lost, the button state is resynchronised");
            continue;
        }
        if (rc < 0) {
            if (rc != -ENODEV)
                Log::write("[Kestrix] Reading " + m_node + " failed: " + describeError(rc));
            return ReadStatus::Gone;
        }
        m_partial.push_back(event);
        if (event.type == EV_SYN && event.code == SYN_REPORT) {
            frame.swap(m_partial);
            m_partial.clear();
            return ReadStatus::Frame;
        }
    }
}

bool PointerDevice::writeFrame(std::span<const input_event> frame)
{
    std::lock_guard lock(m_outputMutex);
    return writeLocked(frame);
}

bool PointerDevice::writeLocked(std::span<const input_event> frame)
{
    const auto size = static_cast<ssize_t>(frame.size_bytes());
    ssize_t written = 0;
    do {
        written = ::write(libevdev_uinput_get_fd(m_twin), frame.data(), frame.size_bytes());
    } while (written < 0 && errno == EINTR);
    if (written != size)
        return false;
    for (const input_event &event : frame) {
        if (event.type == EV_KEY && event.code < KEY_CNT && event.value != 2)
            m_twinKeys.set(event.code, event.value != 0);
    }
    return true;
}

bool PointerDevice::twinKeyHeld(std::uint16_t code) const
{
    std::lock_guard lock(m_outputMutex);
    return code < KEY_CNT && m_twinKeys.test(code);
}

void PointerDevice::releaseTwinKeysLocked()
{
    if (m_twinKeys.none())
        return;
    std::vector<input_event> frame;
    for (std::uint16_t code = 0; code < KEY_CNT; ++code) {
        if (m_twinKeys.test(code))
            frame.push_back(makeEvent(EV_KEY, code, 0));
    }
    frame.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
    if (!writeLocked(frame))
        Log::write("[Kestrix] Could not release the buttons held on the twin of " + m_node);
    m_twinKeys.reset();
}

} // namespace kestrix
