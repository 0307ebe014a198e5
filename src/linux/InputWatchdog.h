#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace kestrix {

// Never a dead mouse: while Kestrix holds a grab, the mouse only works through the input thread.
// This thread watches the grabbed nodes and, when input has been waiting unread for `limit` while
// the input thread has not serviced any, calls `release` (on this thread) to give every mouse back.
//
// It sleeps in poll() on the nodes, so an idle mouse wakes it never; during input it wakes when a
// frame arrives and then at most once per `limit`.
class InputWatchdog
{
public:
    using Clock = std::chrono::steady_clock;

    InputWatchdog(std::chrono::milliseconds limit, std::function<void()> release);
    ~InputWatchdog();
    InputWatchdog(const InputWatchdog &) = delete;
    InputWatchdog &operator=(const InputWatchdog &) = delete;

    // The nodes to watch; the thread picks them up at once.
    void watch(std::vector<int> fds);
    // The input thread has read every node dry just now. Called from the input thread, once per
    // pass: a counter, so the path of every frame reads no clock.
    void serviced() { m_services.fetch_add(1, std::memory_order_relaxed); }

    static std::int64_t now();

private:
    void run();
    bool sleepUntil(std::int64_t deadline); // false when asked to stop
    bool anyReadable();

    const std::int64_t m_limitNs;
    const std::function<void()> m_release;
    std::atomic<std::uint64_t> m_services { 0 };
    int m_wakeFd = -1; // eventfd: the set of nodes changed, or the thread must stop
    std::atomic<bool> m_stopping { false };
    std::mutex m_fdsMutex;
    std::vector<int> m_fds;
    std::thread m_thread;
};

} // namespace kestrix
