#pragma once

// Test devices on a real kernel: a mouse made through uinput, as the desktop would see a real one,
// and a reader that collects what comes out of an event node.

#include <QString>

#include <libevdev/libevdev-uinput.h>
#include <libevdev/libevdev.h>
#include <libudev.h>

#include <cerrno>
#include <fcntl.h>
#include <linux/input.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <initializer_list>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kestrix::test {

// A USB mouse with left, right, middle and side buttons, motion and a plain wheel.
inline void describeMouse(libevdev *device)
{
    for (const int code : { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE })
        libevdev_enable_event_code(device, EV_KEY, static_cast<unsigned int>(code), nullptr);
    for (const int code : { REL_X, REL_Y, REL_WHEEL })
        libevdev_enable_event_code(device, EV_REL, static_cast<unsigned int>(code), nullptr);
}

// A device made through uinput, by default a mouse; `describe` gives it its codes.
class VirtualMouse
{
public:
    explicit VirtualMouse(const char *name, void (*describe)(libevdev *) = describeMouse)
    {
        libevdev *description = libevdev_new();
        libevdev_set_name(description, name);
        libevdev_set_id_bustype(description, BUS_USB);
        libevdev_set_id_vendor(description, 0x4b58);
        libevdev_set_id_product(description, 0x0001);
        libevdev_set_phys(description, "usb-kestrix-test/input0");
        describe(description);
        libevdev_uinput_create_from_device(description, LIBEVDEV_UINPUT_OPEN_MANAGED, &m_device);
        libevdev_free(description);
        if (m_device != nullptr)
            m_node = QString::fromUtf8(libevdev_uinput_get_devnode(m_device));
    }
    ~VirtualMouse() { unplug(); }
    VirtualMouse(const VirtualMouse &) = delete;
    VirtualMouse &operator=(const VirtualMouse &) = delete;

    bool isValid() const { return m_device != nullptr && !m_node.isEmpty(); }
    const QString &node() const { return m_node; }

    // One frame: the events, then SYN_REPORT.
    void frame(std::initializer_list<std::pair<int, int>> relOrKey)
    {
        for (const auto &[code, value] : relOrKey) {
            const unsigned int type = code >= BTN_MISC ? EV_KEY : EV_REL;
            libevdev_uinput_write_event(m_device, type, static_cast<unsigned int>(code), value);
        }
        libevdev_uinput_write_event(m_device, EV_SYN, SYN_REPORT, 0);
    }
    // Many frames in one write, faster than any reader: `count` clicks of `button`.
    void clickBurst(int button, int count)
    {
        std::vector<input_event> events;
        for (int i = 0; i < 2 * count; ++i) {
            events.push_back({ {}, EV_KEY, static_cast<std::uint16_t>(button), 1 - i % 2 });
            events.push_back({ {}, EV_SYN, SYN_REPORT, 0 });
        }
        [[maybe_unused]] const ssize_t written
            = ::write(libevdev_uinput_get_fd(m_device), events.data(), events.size() * sizeof(input_event));
    }
    void move(int dx, int dy) { frame({ { REL_X, dx }, { REL_Y, dy } }); }
    void press(int button) { frame({ { button, 1 } }); }
    void release(int button) { frame({ { button, 0 } }); }
    // `button` held over `steps` moves of (dx, dy).
    void drag(int dx, int dy, int steps = 10, int button = BTN_RIGHT)
    {
        press(button);
        for (int i = 0; i < steps; ++i)
            move(dx, dy);
        release(button);
    }

    // Waits, where udev runs, until udev has forgotten the node: the kernel hands its name to the
    // next device, which must not be read with this one's properties.
    void unplug()
    {
        if (m_device == nullptr)
            return;
        struct stat node
        { };
        const bool known = ::stat(m_node.toUtf8().constData(), &node) == 0;
        libevdev_uinput_destroy(m_device);
        m_device = nullptr;
        if (!known || access("/run/udev/control", F_OK) != 0)
            return;
        const std::string database
            = "/run/udev/data/c" + std::to_string(major(node.st_rdev)) + ":" + std::to_string(minor(node.st_rdev));
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
        while (access(database.c_str(), F_OK) == 0 && std::chrono::steady_clock::now() < deadline)
            std::this_thread::sleep_for(std::chrono::milliseconds(10)); // polling udev's database
    }

    // Waits until udev has described the node (its rules ran), when a udev daemon runs at all.
    bool waitForUdev(std::chrono::milliseconds limit = std::chrono::seconds(20)) const
    {
        if (access("/run/udev/control", F_OK) != 0)
            return true;
        udev *context = udev_new();
        const auto deadline = std::chrono::steady_clock::now() + limit;
        bool ready = false;
        const std::string sysname = m_node.section(u'/', -1).toStdString();
        while (!ready && std::chrono::steady_clock::now() < deadline) {
            if (udev_device *device = udev_device_new_from_subsystem_sysname(context, "input", sysname.c_str())) {
                ready = udev_device_get_is_initialized(device) > 0;
                udev_device_unref(device);
            }
            if (!ready)
                std::this_thread::sleep_for(std::chrono::milliseconds(10)); // polling udev's database
        }
        udev_unref(context);
        return ready;
    }

private:
    libevdev_uinput *m_device = nullptr;
    QString m_node;
};

// Everything an event node delivers to one more reader, split into frames.
class EventLog
{
public:
    explicit EventLog(const QString &node)
        : m_fd(::open(node.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC))
    { }
    ~EventLog()
    {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    EventLog(const EventLog &) = delete;
    EventLog &operator=(const EventLog &) = delete;

    bool isOpen() const { return m_fd >= 0; }
    // The node went away (its device was destroyed).
    bool isGone() const { return m_gone; }
    // How often this reader fell so far behind that the kernel dropped events.
    int dropped() const { return m_dropped; }

    // Reads what is there; returns *this so checks can be chained inside QTRY_ macros.
    EventLog &pump()
    {
        input_event events[64];
        ssize_t got = 0;
        while ((got = ::read(m_fd, events, sizeof events)) > 0) {
            for (std::size_t i = 0; i < static_cast<std::size_t>(got) / sizeof(input_event); ++i) {
                m_dropped += events[i].type == EV_SYN && events[i].code == SYN_DROPPED ? 1 : 0;
                m_partial.push_back(events[i]);
                if (events[i].type == EV_SYN && events[i].code == SYN_REPORT)
                    frames.push_back(std::exchange(m_partial, {}));
            }
        }
        m_gone = m_gone || (got < 0 && errno == ENODEV);
        return *this;
    }

    // Over the frames from `fromFrame` on: the sum of the values of (type, code), and how many
    // frames hold such an event.
    int sum(int type, int code, std::size_t fromFrame = 0) const
    {
        int total = 0;
        for (std::size_t i = fromFrame; i < frames.size(); ++i) {
            for (const input_event &event : frames[i])
                total += event.type == type && event.code == code ? event.value : 0;
        }
        return total;
    }
    int framesWith(int type, int code, std::size_t fromFrame = 0) const
    {
        const auto holds = [&](const std::vector<input_event> &frame) {
            return std::any_of(
                frame.begin(), frame.end(), [&](const input_event &e) { return e.type == type && e.code == code; });
        };
        return static_cast<int>(
            std::count_if(frames.begin() + static_cast<std::ptrdiff_t>(fromFrame), frames.end(), holds));
    }
    // The buttons the device holds down now, as the kernel keeps its state; {-1} when unreadable.
    std::vector<int> heldButtons() const
    {
        unsigned char keys[KEY_MAX / 8 + 1] = {};
        if (ioctl(m_fd, EVIOCGKEY(sizeof keys), keys) < 0)
            return { -1 };
        std::vector<int> held;
        for (int key = BTN_MOUSE; key < BTN_JOYSTICK; ++key) {
            if ((keys[key / 8] & (1 << (key % 8))) != 0)
                held.push_back(key);
        }
        return held;
    }

    std::vector<std::vector<input_event>> frames;

private:
    int m_fd = -1;
    bool m_gone = false;
    int m_dropped = 0;
    std::vector<input_event> m_partial;
};

// True while another reader holds the node's grab.
inline bool isGrabbedByOther(const QString &node)
{
    const int fd = ::open(node.toUtf8().constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    const bool busy = ioctl(fd, EVIOCGRAB, 1) != 0 && errno == EBUSY;
    if (!busy)
        ioctl(fd, EVIOCGRAB, 0);
    ::close(fd);
    return busy;
}

} // namespace kestrix::test
