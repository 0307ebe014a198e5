#pragma once

#include "linux/WheelEncoder.h"

#include <linux/input.h>

#include <array>
#include <atomic>
#include <bitset>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <vector>

struct libevdev;
struct libevdev_uinput;

namespace kestrix {

// One physical pointer taken over by Kestrix: its event node (the source), described by libevdev,
// read in blocks straight from the node and grabbed so nobody else sees its events, and the virtual twin made through
// uinput that re-emits what Kestrix lets through.
//
// The twin has the source's name, bus, vendor, product, version and capabilities, so the desktop's
// per-device settings and quirks apply to it as they did to the source, plus the four wheel axes
// Kestrix scrolls with. Its phys string carries the marker, so no copy of Kestrix ever grabs it.
//
// Thread use: everything runs on the input thread except releaseGrab(), which the watchdog calls
// from its own thread; the twin's output and the grab are guarded by one mutex for that.
class PointerDevice
{
public:
    // Opens the node, makes the twin, grabs nothing yet. Nothing on failure, with the reason in
    // `error`, which stays empty when the node is simply not a mouse for Kestrix.
    static std::unique_ptr<PointerDevice> open(const std::string &node, int dpi, std::string &error);
    ~PointerDevice(); // releases every key held on the twin, ungrabs, destroys the twin
    PointerDevice(const PointerDevice &) = delete;
    PointerDevice &operator=(const PointerDevice &) = delete;

    const std::string &node() const { return m_node; }
    const std::string &twinNode() const { return m_twinNode; }
    const std::string &name() const { return m_name; }
    int fd() const { return m_fd; }
    int dpi() const { return m_dpi; }
    // Motion counts to points: see MouseDpi.
    double pointsPerCount() const { return m_pointsPerCount; }
    // Plain mice report the legacy wheel only; the twin must then add the high-resolution value.
    bool sourceHasHiResWheel() const { return m_sourceHiResWheel; }
    bool sourceHasHiResHWheel() const { return m_sourceHiResHWheel; }

    // Grabs the source, only while none of its keys or buttons is held: a press the desktop saw on
    // the source must also reach it as a release from the source. False while one is held, or
    // when the kernel refuses.
    bool grab();
    bool isGrabbed() const { return m_grabbed.load(); }
    bool anyKeyHeld() const;
    // Gives the source back to every reader, first releasing what is held on the twin; true when it
    // was grabbed. `nowNs` (CLOCK_MONOTONIC) tells later frames, which other readers saw too, from
    // earlier ones that only Kestrix saw. Called from the watchdog's thread.
    bool releaseGrab(std::int64_t nowNs);
    // When the watchdog released the grab (CLOCK_MONOTONIC ns), 0 while the grab stands or was
    // released by Kestrix itself.
    std::int64_t grabLostAt() const { return m_grabLostAtNs.load(); }

    enum class ReadStatus : std::uint8_t { Frame, Drained, Gone };
    // The next complete frame, up to and including its SYN_REPORT, valid until the next call: it
    // points into the block read from the node, so no event is copied on the way. After a
    // SYN_DROPPED the frame is the resynchronisation: the key changes that were lost, closed by a
    // SYN_REPORT.
    ReadStatus readFrame(std::span<const input_event> &frame);
    // After a frame: true when the node was read dry with it, so the next readFrame() would only
    // say Drained. Saying it here spares that call for each frame.
    bool takeDrained()
    {
        if (m_blockNext < m_blockEnd || !m_blockWasShort)
            return false;
        m_blockWasShort = false;
        return true;
    }

    // Writes one frame to the twin in a single write. False when the twin refused it.
    bool writeFrame(std::span<const input_event> frame);
    bool twinKeyHeld(std::uint16_t code) const;

private:
    PointerDevice() = default;
    void releaseTwinKeysLocked();
    bool writeLocked(std::span<const input_event> frame);
    bool readKeys(std::bitset<KEY_CNT> &keys) const;
    void resynchronise();

    std::string m_node;
    std::string m_twinNode;
    std::string m_name;
    int m_dpi = 1000;
    double m_pointsPerCount = 1.0;
    bool m_sourceHiResWheel = false;
    bool m_sourceHiResHWheel = false;
    libevdev *m_source = nullptr;
    libevdev_uinput *m_twin = nullptr;
    int m_fd = -1;
    int m_uinputFd = -1; // the twin's handle, owned here because libevdev was given it

    // What one read() brought: the node is read in blocks, one system call for every frame that
    // is waiting, and a block shorter than the buffer means nothing else was waiting. Frames are
    // handed out where they lie: [m_frameStart, m_frameEnd) is the frame being gathered, never
    // ahead of m_blockNext, the next event to look at.
    std::array<input_event, 64> m_block {};
    std::size_t m_blockNext = 0;
    std::size_t m_blockEnd = 0;
    std::size_t m_frameStart = 0;
    std::size_t m_frameEnd = 0;
    bool m_blockWasShort = false;
    std::vector<input_event> m_resyncFrame;
    // The source's keys as the frames handed out left them.
    std::bitset<KEY_CNT> m_sourceKeys;

    mutable std::mutex m_outputMutex; // guards the twin's output, its key state and the grab
    std::atomic<bool> m_grabbed { false }; // written under the mutex, read without it
    std::atomic<std::int64_t> m_grabLostAtNs { 0 };
    std::bitset<KEY_CNT> m_twinKeys;
};

} // namespace kestrix
