#include "linux/PointerDevice.h"

#include "core/Log.h"
#include "linux/MouseDpi.h"
#include "linux/PointerDeviceFilter.h"

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <linux/uinput.h>

#include <algorithm>
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
    device->readKeys(device->m_sourceKeys);
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

bool PointerDevice::readKeys(std::bitset<KEY_CNT> &keys) const
{
    std::array<unsigned char, KEY_CNT / 8 + 1> bits {};
    if (ioctl(m_fd, EVIOCGKEY(bits.size()), bits.data()) < 0)
        return false;
    keys.reset();
    for (std::size_t code = 0; code < KEY_CNT; ++code) {
        if ((bits[code / 8] & (1U << (code % 8))) != 0)
            keys.set(code);
    }
    return true;
}

// Asked of the kernel rather than of the frames read so far: a grab waits for the hand, and the
// hand may have let go in a frame still queued.
bool PointerDevice::anyKeyHeld() const
{
    std::bitset<KEY_CNT> keys;
    return readKeys(keys) && keys.any();
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

PointerDevice::ReadStatus PointerDevice::readFrame(std::span<const input_event> &frame)
{
    for (;;) {
        while (m_blockNext < m_blockEnd) {
            const input_event &event = m_block[m_blockNext++];
            if (event.type == EV_SYN && event.code == SYN_DROPPED) {
                resynchronise();
                if (m_resyncFrame.size() > 1) {
                    frame = m_resyncFrame;
                    return ReadStatus::Frame;
                }
                continue;
            }
            if (event.type == EV_KEY && event.code < KEY_CNT && event.value != 2) {
                // Only a change: after a resynchronisation, a key event that was queued while the
                // kernel's state was read already counts in that state. It is left out of the
                // frame, and the events after it move up in place.
                if (m_sourceKeys[event.code] == (event.value != 0))
                    continue;
                m_sourceKeys[event.code] = event.value != 0;
            }
            if (m_frameEnd + 1 != m_blockNext)
                m_block[m_frameEnd] = event;
            ++m_frameEnd;
            if (event.type == EV_SYN && event.code == SYN_REPORT) {
                frame = { m_block.data() + m_frameStart, m_frameEnd - m_frameStart };
                m_frameStart = m_frameEnd = m_blockNext;
                return ReadStatus::Frame;
            }
        }
        // A short block emptied the node's queue when it was read; whatever came since makes the
        // node readable again, and epoll says so.
        if (m_blockWasShort) {
            m_blockWasShort = false;
            return ReadStatus::Drained;
        }
        // The kernel hands out whole frames, so a frame is only cut where a block was full: its
        // start moves to the front and the next read goes after it. A frame longer than the whole
        // block is no mouse's; it is dropped.
        std::size_t kept = m_frameEnd - m_frameStart;
        if (kept == m_block.size())
            kept = 0;
        std::copy(m_block.begin() + static_cast<std::ptrdiff_t>(m_frameStart),
            m_block.begin() + static_cast<std::ptrdiff_t>(m_frameStart + kept), m_block.begin());
        m_frameStart = 0;
        m_frameEnd = m_blockNext = kept;
        const std::size_t room = (m_block.size() - kept) * sizeof(input_event);
        const ssize_t got = ::read(m_fd, m_block.data() + kept, room);
        if (got < 0 && errno == EINTR)
            continue;
        if (got < 0 && errno == EAGAIN) {
            m_blockEnd = kept;
            return ReadStatus::Drained;
        }
        if (got <= 0) {
            if (got < 0 && errno != ENODEV)
                Log::write("[Kestrix] Reading " + m_node + " failed: " + describeError(errno));
            return ReadStatus::Gone;
        }
        m_blockEnd = kept + static_cast<std::size_t>(got) / sizeof(input_event);
        m_blockWasShort = static_cast<std::size_t>(got) < room;
    }
}

// SYN_DROPPED: the kernel's buffer overflowed. The partial frame is void, and so is everything
// still queued: it is drained unread, then the keys are asked of the kernel, and the frame handed
// out instead holds the key changes that were lost. Motion lost is lost.
void PointerDevice::resynchronise()
{
    Log::write("[Kestrix] " + m_node + " overflowed: events were lost, the button state is resynchronised");
    m_blockNext = m_blockEnd = m_frameStart = m_frameEnd = 0;
    m_blockWasShort = false;
    for (int reads = 0; reads < 64; ++reads) { // a bound against a device that never stops
        const ssize_t got = ::read(m_fd, m_block.data(), sizeof m_block);
        if (got < static_cast<ssize_t>(sizeof m_block) && !(got < 0 && errno == EINTR))
            break;
    }
    m_resyncFrame.clear();
    std::bitset<KEY_CNT> keys;
    if (readKeys(keys)) {
        for (std::uint16_t code = 0; code < KEY_CNT; ++code) {
            if (keys.test(code) != m_sourceKeys.test(code))
                m_resyncFrame.push_back(makeEvent(EV_KEY, code, keys.test(code) ? 1 : 0));
        }
        m_sourceKeys = keys;
    }
    m_resyncFrame.push_back(makeEvent(EV_SYN, SYN_REPORT, 0));
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
        written = ::write(m_uinputFd, frame.data(), frame.size_bytes());
    } while (written < 0 && errno == EINTR);
    if (written != size)
        return false;
    for (const input_event &event : frame) {
        if (event.type == EV_KEY && event.code < KEY_CNT && event.value != 2)
            m_twinKeys[event.code] = event.value != 0;
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
