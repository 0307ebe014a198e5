#include "linux/InputWatchdog.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <ctime>

namespace kestrix {

InputWatchdog::InputWatchdog(std::chrono::milliseconds limit, std::function<void()> release)
    : m_limitNs(std::chrono::duration_cast<std::chrono::nanoseconds>(limit).count())
    , m_release(std::move(release))
    , m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    m_thread = std::thread([this] { run(); });
}

InputWatchdog::~InputWatchdog()
{
    m_stopping.store(true);
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wakeFd, &one, sizeof one);
    m_thread.join();
    ::close(m_wakeFd);
}

std::int64_t InputWatchdog::now()
{
    timespec time {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<std::int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

void InputWatchdog::watch(std::vector<int> fds)
{
    {
        std::lock_guard lock(m_fdsMutex);
        m_fds = std::move(fds);
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wakeFd, &one, sizeof one);
}

bool InputWatchdog::anyReadable()
{
    std::vector<pollfd> polled;
    {
        std::lock_guard lock(m_fdsMutex);
        for (const int fd : m_fds)
            polled.push_back({ fd, POLLIN, 0 });
    }
    if (polled.empty())
        return false;
    if (poll(polled.data(), polled.size(), 0) <= 0)
        return false;
    for (const pollfd &entry : polled) {
        if ((entry.revents & POLLIN) != 0)
            return true;
    }
    return false;
}

bool InputWatchdog::sleepUntil(std::int64_t deadline)
{
    for (;;) {
        if (m_stopping.load())
            return false;
        const std::int64_t left = deadline - now();
        if (left <= 0)
            return true;
        pollfd wake { m_wakeFd, POLLIN, 0 };
        const int ms = static_cast<int>((left + 999'999) / 1'000'000);
        if (poll(&wake, 1, ms) > 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wakeFd, &count, sizeof count);
        }
    }
}

// One round: sleep until a node has input, then give the input thread `limit` to read it. If it
// ran a service pass since, the input now waiting is newer and gets its own `limit`; if not, the
// input thread is stuck and the grabs go.
void InputWatchdog::run()
{
    std::vector<pollfd> polled;
    while (!m_stopping.load()) {
        polled.clear();
        polled.push_back({ m_wakeFd, POLLIN, 0 });
        {
            std::lock_guard lock(m_fdsMutex);
            for (const int fd : m_fds)
                polled.push_back({ fd, POLLIN, 0 });
        }
        const int ready = poll(polled.data(), polled.size(), -1);
        if (ready < 0 && errno != EINTR)
            return;
        if ((polled[0].revents & POLLIN) != 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wakeFd, &count, sizeof count);
            continue; // a new set of nodes, or the stop
        }
        std::int64_t seen = now();
        std::uint64_t servicesAtSeen = m_services.load();
        while (!m_stopping.load()) {
            if (!sleepUntil(seen + m_limitNs))
                return;
            if (!anyReadable())
                break;
            if (m_services.load() != servicesAtSeen) {
                seen = now();
                servicesAtSeen = m_services.load();
                continue;
            }
            m_release();
            // Input keeps arriving for the other readers now; look again only after the main
            // thread has run.
            while (!m_stopping.load() && m_services.load() == servicesAtSeen) {
                if (!sleepUntil(now() + m_limitNs))
                    return;
            }
            break;
        }
    }
}

} // namespace kestrix
