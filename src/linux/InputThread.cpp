#include "linux/InputThread.h"

#include "core/Log.h"
#include "core/SettingsStore.h"
#include "engine/GrabScrollManager.h"

#include <QMetaObject>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <condition_variable>
#include <cstring>

namespace kestrix {

InputThread::InputThread(QObject *parent)
    : InputControl(parent)
    , m_epollFd(epoll_create1(EPOLL_CLOEXEC))
    , m_wakeFd(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    epoll_event wake {};
    wake.events = EPOLLIN;
    wake.data.u64 = static_cast<std::uint64_t>(m_wakeFd);
    epoll_ctl(m_epollFd, EPOLL_CTL_ADD, m_wakeFd, &wake);

    m_backend = std::make_unique<LinuxInputBackend>(m_epollFd);
    m_engine = std::make_unique<GrabScrollManager>(*m_backend, *m_backend);
    m_backend->setEngine(m_engine.get());
    m_backend->setExcludedAppFlag(&m_pointerOverExcludedApp);
    m_backend->setDevicesChanged([this] { publish(); });

    // Settings as they stand now, and again at every change, also one made by hand in the file.
    pushSettings();
    connect(&SettingsStore::shared(), &SettingsStore::changed, this, &InputThread::pushSettings);

    m_thread = std::thread([this] { run(); });
}

InputThread::~InputThread()
{
    post([this] {
        if (m_engine->isStarted())
            m_engine->stop();
        m_quitting = true;
    });
    m_thread.join();
    m_engine.reset();
    m_backend.reset();
    ::close(m_wakeFd);
    ::close(m_epollFd);
}

void InputThread::post(Request request)
{
    {
        std::lock_guard lock(m_requestsMutex);
        m_requests.push_back(std::move(request));
    }
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wakeFd, &one, sizeof one);
}

bool InputThread::start()
{
    post([this] {
        if (m_enabled.load())
            m_engine->start();
        m_started.store(m_engine->isStarted());
    });
    return true;
}

void InputThread::stop()
{
    post([this] {
        m_engine->stop();
        m_started.store(false);
    });
}

void InputThread::setEnabled(bool enabled)
{
    m_enabled.store(enabled);
    post([this, enabled] {
        m_engine->setEnabled(enabled);
        if (enabled)
            m_engine->start();
        else
            m_engine->stop();
        m_started.store(m_engine->isStarted());
    });
}

void InputThread::setDesktopPointer(bool leftHanded, bool naturalScroll)
{
    if (m_settings.leftHanded == leftHanded && m_settings.naturalScroll == naturalScroll)
        return;
    m_settings.leftHanded = leftHanded;
    m_settings.naturalScroll = naturalScroll;
    post([this, settings = m_settings] { m_backend->applySettings(settings); });
}

void InputThread::pushSettings()
{
    m_settings.scroll = ScrollConfig::snapshot();
    m_settings.disabledMice = ScrollConfig::disabledMice();
    post([this, settings = m_settings] { m_backend->applySettings(settings); });
}

void InputThread::runOnInputThread(const std::function<void(GrabScrollManager &, LinuxInputBackend &)> &task)
{
    std::mutex doneMutex;
    std::condition_variable doneChanged;
    bool done = false;
    post([&] {
        task(*m_engine, *m_backend);
        std::lock_guard lock(doneMutex);
        done = true;
        doneChanged.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneChanged.wait(lock, [&] { return done; });
}

std::vector<MouseInfo> InputThread::mice() const
{
    std::lock_guard lock(m_publishedMutex);
    return m_publishedMice;
}

std::vector<LinuxInputBackend::DeviceInfo> InputThread::devices() const
{
    std::lock_guard lock(m_publishedMutex);
    return m_publishedDevices;
}

void InputThread::publish()
{
    {
        std::lock_guard lock(m_publishedMutex);
        m_publishedMice = m_backend->mice();
        m_publishedDevices = m_backend->devices();
    }
    // Queued to the GUI thread; the input thread never waits for it.
    QMetaObject::invokeMethod(this, &InputControl::miceChanged, Qt::QueuedConnection);
}

void InputThread::takeRequests()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t got = ::read(m_wakeFd, &count, sizeof count);
    std::deque<Request> requests;
    {
        std::lock_guard lock(m_requestsMutex);
        requests.swap(m_requests);
    }
    for (Request &request : requests)
        request();
}

void InputThread::run()
{
    std::array<epoll_event, 16> ready {};
    while (!m_quitting) {
        const int count = epoll_wait(m_epollFd, ready.data(), static_cast<int>(ready.size()), -1);
        if (count < 0) {
            if (errno == EINTR)
                continue;
            Log::write(std::string("[Kestrix] The input thread cannot wait for input: ") + std::strerror(errno));
            m_engine->stop();
            return;
        }
        for (int i = 0; i < count; ++i) {
            const int fd = static_cast<int>(ready[static_cast<std::size_t>(i)].data.u64);
            if (fd == m_wakeFd)
                takeRequests();
            else
                m_backend->onReadable(fd);
        }
        m_backend->afterPass();
    }
}

} // namespace kestrix
