// What Kestrix's evdev path costs a mouse, on a real kernel (run in the test VM when this machine
// has no /dev/uinput): the latency each frame gains on its way from the mouse to its twin, and the
// CPU spent per frame, against a minimal forwarder that only reads the grabbed mouse and writes
// the same bytes to a uinput twin (the floor any grab-and-re-emit design pays); wake-ups while the
// mouse is idle; the spacing of momentum steps; the longest gap on the twin while the GUI thread
// stands still for two seconds.

#include "VirtualMouse.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/GrabScrollManager.h"
#include "engine/ScrollConfig.h"
#include "linux/InputThread.h"

#include <QCoreApplication>
#include <QJsonValue>
#include <QTemporaryDir>

#include <dirent.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

using namespace kestrix;
using namespace kestrix::test;

namespace {

// Rounds alternate pointer motion and scrolling drags; every figure is over all their frames.
constexpr int framesPerRound = 500;
constexpr int rounds = 6;

std::int64_t nowNs(clockid_t clock = CLOCK_MONOTONIC)
{
    timespec time {};
    clock_gettime(clock, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

std::int64_t eventNs(const input_event &event)
{
    return static_cast<std::int64_t>(event.input_event_sec) * 1'000'000'000
        + static_cast<std::int64_t>(event.input_event_usec) * 1000;
}

// Opens a node for reading with kernel timestamps in the monotonic clock.
int openReader(const std::string &node)
{
    const int fd = ::open(node.c_str(), O_RDONLY | O_CLOEXEC);
    int clock = CLOCK_MONOTONIC;
    ioctl(fd, EVIOCSCLOCKID, &clock);
    return fd;
}

// Blocks until a frame holding an event of (type, code) arrives; its SYN_REPORT's timestamp, or -1
// after `timeoutMs` without one.
std::int64_t awaitFrame(int fd, int type, int code, int timeoutMs = 2000)
{
    bool seen = false;
    for (;;) {
        pollfd entry { fd, POLLIN, 0 };
        if (poll(&entry, 1, timeoutMs) <= 0)
            return -1;
        input_event events[64];
        const ssize_t got = ::read(fd, events, sizeof events);
        if (got <= 0)
            return -1;
        for (std::size_t i = 0; i < static_cast<std::size_t>(got) / sizeof(input_event); ++i) {
            seen = seen || (events[i].type == type && events[i].code == code);
            if (seen && events[i].type == EV_SYN && events[i].code == SYN_REPORT)
                return eventNs(events[i]);
        }
    }
}

// One way from a hand to a desktop: a mouse, the thread that forwards it, the twin it comes out of.
struct Path
{
    const char *name;
    VirtualMouse *mouse = nullptr;
    int dy = 0; // every frame moves (1, dy)
    std::string twinNode;
    pthread_t forwarder {};
    std::vector<double> latenciesUs;
    std::vector<double> cpuUs; // the forwarding thread's CPU from one frame of this path to the next
};

// Frames go to the paths in turn, each once the previous one came out of its twin, the order
// rotating from frame to frame: every path meets the machine's neighbours at the same moments,
// which is what makes their figures comparable on a shared host. Latency runs from just before
// the write to the kernel's timestamp on the twin. CPU is read from the forwarding thread's clock
// at every frame of its path, so a frame's figure holds all its work, and a median of them leaves
// out the bursts in which the emulated CPU stood still on the host and the guest counted it.
void drive(const std::vector<Path *> &paths, int frames)
{
    std::vector<int> twins;
    std::vector<clockid_t> clocks(paths.size());
    std::vector<std::int64_t> lastCpu(paths.size(), -1);
    for (std::size_t i = 0; i < paths.size(); ++i) {
        twins.push_back(openReader(paths[i]->twinNode));
        pthread_getcpuclockid(paths[i]->forwarder, &clocks[i]);
    }
    for (int frame = 0; frame < frames; ++frame) {
        for (std::size_t k = 0; k < paths.size(); ++k) {
            const std::size_t i = (k + static_cast<std::size_t>(frame)) % paths.size();
            const std::int64_t cpu = nowNs(clocks[i]);
            if (lastCpu[i] >= 0)
                paths[i]->cpuUs.push_back(static_cast<double>(cpu - lastCpu[i]) / 1000.0);
            lastCpu[i] = cpu;
            const std::int64_t written = nowNs();
            paths[i]->mouse->move(1, paths[i]->dy);
            const std::int64_t arrived = awaitFrame(twins[i], EV_REL, REL_X);
            if (arrived < 0) {
                std::fprintf(stderr, "bench: a frame did not come out of the twin of %s\n", paths[i]->name);
                return;
            }
            paths[i]->latenciesUs.push_back(static_cast<double>(arrived - written) / 1000.0);
        }
    }
    for (const int twin : twins)
        ::close(twin);
}

// The floor: grab, read whatever is there, write the same bytes to a uinput twin. With
// `addWheel`, every frame also carries one high-resolution wheel event before its SYN_REPORT: the
// least a scrolling frame writes. Runs on this thread until `stopFd` is written.
void minimalForwarder(
    const std::string &sourceNode, int stopFd, bool addWheel, std::string &twinNode, std::atomic<bool> &ready)
{
    const int source = ::open(sourceNode.c_str(), O_RDONLY | O_CLOEXEC);
    ioctl(source, EVIOCGRAB, 1);
    libevdev *description = nullptr;
    libevdev_new_from_fd(source, &description);
    libevdev_enable_event_code(description, EV_REL, REL_WHEEL_HI_RES, nullptr);
    libevdev_uinput *twin = nullptr;
    libevdev_uinput_create_from_device(description, LIBEVDEV_UINPUT_OPEN_MANAGED, &twin);
    twinNode = libevdev_uinput_get_devnode(twin);
    ready.store(true);
    const int out = libevdev_uinput_get_fd(twin);
    pollfd entries[2] = { { source, POLLIN, 0 }, { stopFd, POLLIN, 0 } };
    input_event events[65];
    while (poll(entries, 2, -1) > 0 && (entries[1].revents & POLLIN) == 0) {
        const ssize_t got = ::read(source, events, sizeof events - sizeof(input_event));
        if (got <= 0)
            break;
        auto count = static_cast<std::size_t>(got) / sizeof(input_event);
        if (addWheel) {
            events[count] = events[count - 1];
            events[count - 1].type = EV_REL;
            events[count - 1].code = REL_WHEEL_HI_RES;
            events[count - 1].value = 12;
            ++count;
        }
        if (::write(out, events, count * sizeof(input_event)) != static_cast<ssize_t>(count * sizeof(input_event)))
            break;
    }
    libevdev_uinput_destroy(twin);
    libevdev_free(description);
    ::close(source);
}

// Context switches of one thread of this process, or of all of them.
long contextSwitches(pid_t onlyTid = 0)
{
    long total = 0;
    DIR *tasks = opendir("/proc/self/task");
    while (const dirent *entry = tasks != nullptr ? readdir(tasks) : nullptr) {
        if (entry->d_name[0] == '.' || (onlyTid != 0 && std::to_string(onlyTid) != entry->d_name))
            continue;
        std::ifstream status(std::string("/proc/self/task/") + entry->d_name + "/status");
        std::string line;
        while (std::getline(status, line)) {
            if (line.rfind("voluntary_ctxt_switches:", 0) == 0 || line.rfind("nonvoluntary_ctxt_switches:", 0) == 0)
                total += std::stol(line.substr(line.find(':') + 1));
        }
    }
    if (tasks != nullptr)
        closedir(tasks);
    return total;
}

// Polls, for a benchmark that has no event loop to wait in.
bool waitFor(const std::function<bool()> &condition)
{
    for (int i = 0; i < 20000 && !condition(); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return condition();
}

} // namespace

int main(int argc, char **argv)
{
    if (access("/dev/uinput", R_OK | W_OK) != 0) {
        std::printf("bench_linux_backend: no writable /dev/uinput; run through tests/linux/run-kernel-tests\n");
        return 77;
    }
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toUtf8());
    QCoreApplication app(argc, argv);
    SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, 1.0);

    // The floors' mice are switched off for Kestrix: each is grabbed by a minimal forwarder.
    VirtualMouse mouse("Kestrix Bench Mouse");
    const char *floorNames[]
        = { "Kestrix Bench Floor Motion", "Kestrix Bench Floor Drag", "Kestrix Bench Floor Wheel" };
    VirtualMouse motionFloorMouse(floorNames[0]);
    VirtualMouse dragFloorMouse(floorNames[1]);
    VirtualMouse wheelFloorMouse(floorNames[2]);
    for (const char *floorName : floorNames)
        ScrollConfig::setMouseDisabled({ 0x4b58, 0x0001, QString::fromUtf8(floorName) }, true);
    if (!motionFloorMouse.isValid() || !dragFloorMouse.isValid() || !wheelFloorMouse.isValid())
        return 1;
    if (!mouse.isValid())
        return 1;
    const std::string sourceNode = mouse.node().toStdString();

    InputThread input;
    pthread_t inputThread {};
    pid_t inputTid = 0;
    input.runOnInputThread([&](GrabScrollManager &, LinuxInputBackend &) {
        inputThread = pthread_self();
        inputTid = static_cast<pid_t>(syscall(SYS_gettid));
    });
    std::string twinNode;
    const auto takeOver = [&] {
        input.start();
        twinNode.clear();
        return waitFor([&] {
            for (const auto &device : input.devices()) {
                if (device.node.toStdString() == sourceNode && device.grabbed)
                    twinNode = device.twinNode.toStdString();
            }
            return !twinNode.empty();
        });
    };
    if (!takeOver()) {
        std::fprintf(stderr, "bench: the backend did not take the mouse over\n");
        return 1;
    }

    // The floors: the motion frame forwarded, the drag frame (both axes) forwarded, and the drag
    // frame forwarded with the one wheel event a scrolling frame cannot do without.
    Path motionFloor { "floor: motion frame forwarded", &motionFloorMouse, 0, {}, {}, {}, {} };
    Path dragFloor { "floor: drag frame forwarded", &dragFloorMouse, 1, {}, {}, {}, {} };
    Path wheelFloor { "floor: drag frame plus a wheel event", &wheelFloorMouse, 1, {}, {}, {}, {} };
    Path plain { "Kestrix, pointer motion", &mouse, 0, twinNode, inputThread, {}, {} };
    Path scrolling { "Kestrix, scrolling drag", &mouse, 1, twinNode, inputThread, {}, {} };
    const int stopFd = eventfd(0, EFD_CLOEXEC);
    std::vector<std::thread> forwarders;
    for (Path *floor : { &motionFloor, &dragFloor, &wheelFloor }) {
        std::atomic<bool> ready { false };
        forwarders.emplace_back([&, floor] {
            floor->forwarder = pthread_self();
            minimalForwarder(floor->mouse->node().toStdString(), stopFd, floor == &wheelFloor, floor->twinNode, ready);
        });
        while (!ready.load())
            std::this_thread::yield();
    }

    // Scrolling: every frame is a drag the engine turns into a wheel frame as well.
    for (int round = 0; round < rounds; ++round) {
        drive({ &motionFloor, &plain }, framesPerRound);
        SettingsStore::shared().setValue(SettingsKeys::momentumScroll, false);
        mouse.press(BTN_RIGHT);
        mouse.move(0, 10);
        drive({ &dragFloor, &wheelFloor, &scrolling }, framesPerRound);
        mouse.release(BTN_RIGHT);
        SettingsStore::shared().remove(SettingsKeys::momentumScroll);
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t stopped = ::write(stopFd, &one, sizeof one);
    for (std::thread &forwarder : forwarders)
        forwarder.join();
    ::close(stopFd);

    // Momentum of a quick flick: the spacing of its wheel frames on the twin.
    std::vector<double> intervalsMs;
    {
        // Requests run in order: once this one has, momentum is switched back on.
        input.runOnInputThread([](GrabScrollManager &, LinuxInputBackend &) {});
        const int twin = openReader(twinNode);
        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            mouse.move(0, 30);
        mouse.release(BTN_RIGHT);
        awaitFrame(twin, EV_SYN, SYN_REPORT); // the drag's own frames
        std::int64_t previous = -1;
        for (;;) {
            const std::int64_t at = awaitFrame(twin, EV_REL, REL_WHEEL_HI_RES, 300);
            if (at < 0)
                break;
            if (previous >= 0)
                intervalsMs.push_back(static_cast<double>(at - previous) / 1e6);
            previous = at;
        }
        ::close(twin);
    }
    // Its last steps move nothing but still tick.
    waitFor([&] {
        bool running = true;
        input.runOnInputThread(
            [&](GrabScrollManager &engine, LinuxInputBackend &) { running = engine.isMomentumRunning(); });
        return !running;
    });

    // Idle: two seconds with the mouse untouched, this thread asleep too.
    const long inputBefore = contextSwitches(inputTid);
    const long allBefore = contextSwitches();
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const long inputWakeUps = contextSwitches(inputTid) - inputBefore;
    const long otherWakeUps = contextSwitches() - allBefore - inputWakeUps;

    // The GUI thread (this one) stands still for two seconds while a hand drags at 125 Hz: the
    // longest gap between frames on the twin, and whether the watchdog let go of the mouse.
    double longestGapMs = 0;
    double longestWriteGapMs = 0; // the hand's own pace, which a loaded host stretches too
    bool grabHeld = true;
    {
        const int twin = openReader(twinNode);
        std::atomic<bool> dragging { true };
        std::thread hand([&] {
            mouse.press(BTN_RIGHT);
            std::int64_t previous = -1;
            while (dragging.load()) {
                mouse.move(0, 2);
                const std::int64_t now = nowNs();
                if (previous >= 0)
                    longestWriteGapMs = std::max(longestWriteGapMs, static_cast<double>(now - previous) / 1e6);
                previous = now;
                std::this_thread::sleep_for(std::chrono::milliseconds(8));
            }
            mouse.release(BTN_RIGHT);
        });
        std::thread desktop([&] {
            std::int64_t previous = -1;
            for (;;) {
                const std::int64_t at = awaitFrame(twin, EV_REL, REL_Y, 500);
                if (at < 0)
                    break;
                if (previous >= 0)
                    longestGapMs = std::max(longestGapMs, static_cast<double>(at - previous) / 1e6);
                previous = at;
            }
        });
        std::this_thread::sleep_for(std::chrono::seconds(2)); // the stalled GUI thread
        grabHeld = isGrabbedByOther(QString::fromStdString(sourceNode));
        dragging.store(false);
        hand.join();
        desktop.join();
        ::close(twin);
    }
    input.stop();
    waitFor([&] { return input.devices().empty(); });

    struct Figures
    {
        double medianUs = 0;
        double p99Us = 0;
        double cpuUs = 0;
    };
    const auto figures = [](Path &path) {
        std::vector<double> &all = path.latenciesUs;
        std::vector<double> &cpu = path.cpuUs;
        std::sort(all.begin(), all.end());
        std::sort(cpu.begin(), cpu.end());
        if (all.empty() || cpu.empty())
            return Figures {};
        return Figures { all[all.size() / 2], all[all.size() * 99 / 100], cpu[cpu.size() / 2] };
    };
    std::printf("Linux backend, mouse to twin (kernel timestamps), %d frames a path, in turn with the floors:\n",
        rounds * framesPerRound);
    for (Path *path : { &motionFloor, &dragFloor, &wheelFloor, &plain, &scrolling }) {
        const Figures f = figures(*path);
        std::printf(
            "  %-38s median %6.1f us   p99 %7.1f us   CPU %6.1f us/frame\n", path->name, f.medianUs, f.p99Us, f.cpuUs);
    }
    const auto ratios = [&](const char *name, Path &path, Path &base) {
        const Figures a = figures(path);
        const Figures b = figures(base);
        std::printf("  %s: median %.2fx, p99 %.2fx, CPU %.2fx\n", name, a.medianUs / b.medianUs, a.p99Us / b.p99Us,
            a.cpuUs / b.cpuUs);
    };
    ratios("pointer motion to its floor", plain, motionFloor);
    ratios("scrolling drag to the drag frame forwarded", scrolling, dragFloor);
    ratios("scrolling drag to the drag frame plus a wheel event", scrolling, wheelFloor);
    std::printf("  idle 2 s: input thread woken %ld time(s), other threads %ld (this one's own sleep included)\n",
        inputWakeUps, otherWakeUps);
    std::printf("  GUI thread stopped 2 s during a 125 Hz drag: longest gap on the twin %.1f ms, between the "
                "hand's own writes %.1f ms (frame period 8 ms), grab %s\n",
        longestGapMs, longestWriteGapMs, grabHeld ? "held" : "LOST");
    if (!intervalsMs.empty()) {
        double sum = 0;
        double worst = 0;
        int within = 0;
        for (const double interval : intervalsMs) {
            sum += interval;
            worst = std::max(worst, std::abs(interval - 16.0));
            within += std::abs(interval - 16.0) <= 1.0 ? 1 : 0;
        }
        std::printf("  momentum: %zu steps, mean spacing %.2f ms, %d of them within 16 +- 1 ms, worst off by %.2f ms\n",
            intervalsMs.size() + 1, sum / static_cast<double>(intervalsMs.size()), within, worst);
    }
    return 0;
}
