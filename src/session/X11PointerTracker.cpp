#include "session/X11PointerTracker.h"

#include "core/Log.h"
#include "session/XcbSupport.h"

#include <QList>

#include <xcb/xinput.h>

#include <chrono>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kestrix {

namespace {

using Clock = std::chrono::steady_clock;

// Windows searched below a top-level window for the client window, and how deep: frames nest the
// client one or two levels down; the bound keeps a hostile tree from stalling the thread.
constexpr int MaxSearchedWindows = 64;
constexpr int MaxSearchDepth = 4;

} // namespace

class X11PointerTracker::Thread
{
public:
    Thread(xcb::Connection connection, xcb_window_t root, Publish publish)
        : m_connection(std::move(connection))
        , m_root(root)
        , m_publish(std::move(publish))
        , m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
    {
        xcb_connection_t *c = m_connection.get();
        m_wmState = xcb::atom(c, "WM_STATE", false);
        m_thread = std::thread([this] { run(); });
    }

    ~Thread()
    {
        {
            std::lock_guard lock(m_mutex);
            m_stop = true;
        }
        wake();
        m_thread.join();
        if (m_wake >= 0)
            close(m_wake);
        for (Done &done : m_requests)
            done(std::nullopt);
    }

    void request(Done done)
    {
        {
            std::lock_guard lock(m_mutex);
            m_requests.push_back(std::move(done));
        }
        wake();
    }

private:
    void wake() const
    {
        const uint64_t one = 1;
        if (m_wake >= 0) [[maybe_unused]]
            const auto written = write(m_wake, &one, sizeof one);
    }

    void run()
    {
        xcb_connection_t *c = m_connection.get();
        bool lookUpDue = true; // the first value, before any motion
        Clock::time_point lastLookUp {};
        while (true) {
            // Raw motion, or a top-level window mapped, unmapped, moved or restacked: what is under
            // the pointer may have changed.
            while (xcb::Reply<xcb_generic_event_t> event { xcb_poll_for_event(c) })
                lookUpDue = true;

            std::deque<Done> requests;
            {
                std::lock_guard lock(m_mutex);
                if (m_stop)
                    return;
                requests.swap(m_requests);
            }
            if (xcb_connection_has_error(c) != 0) {
                Log::write(
                    "[Kestrix] The X server closed the connection; the app under the pointer is no longer followed");
                m_publish({});
                for (Done &done : requests)
                    done(std::nullopt);
                waitForStop();
                return;
            }
            const Clock::time_point now = Clock::now();
            const auto interval = std::chrono::milliseconds(LookUpIntervalMs);
            if (!requests.empty() || (lookUpDue && now - lastLookUp >= interval)) {
                const WindowApp app = lookUp();
                lastLookUp = now;
                lookUpDue = false;
                m_publish(app);
                for (Done &done : requests)
                    done(app);
                continue; // events may have queued while the replies were awaited
            }

            int timeout = -1;
            if (lookUpDue)
                timeout = int(std::chrono::ceil<std::chrono::milliseconds>(lastLookUp + interval - now).count());
            pollfd fds[2] = { { xcb_get_file_descriptor(c), POLLIN, 0 }, { m_wake, POLLIN, 0 } };
            poll(fds, 2, timeout);
            if ((fds[1].revents & POLLIN) != 0) {
                uint64_t count = 0;
                [[maybe_unused]] const auto got = read(m_wake, &count, sizeof count);
            }
        }
    }

    void waitForStop()
    {
        while (true) {
            pollfd fd = { m_wake, POLLIN, 0 };
            poll(&fd, 1, -1);
            uint64_t count = 0;
            [[maybe_unused]] const auto got = read(m_wake, &count, sizeof count);
            std::lock_guard lock(m_mutex);
            for (Done &done : m_requests)
                done(std::nullopt);
            m_requests.clear();
            if (m_stop)
                return;
        }
    }

    bool hasWmState(xcb_window_t window) const
    {
        xcb_connection_t *c = m_connection.get();
        xcb::Reply<xcb_get_property_reply_t> reply { xcb_get_property_reply(
            c, xcb_get_property(c, 0, window, m_wmState, XCB_ATOM_ANY, 0, 0), nullptr) };
        return reply && reply->type != XCB_ATOM_NONE;
    }

    // The window carrying WM_STATE at or below `top`, breadth first; `top` itself when none does.
    xcb_window_t clientWindow(xcb_window_t top) const
    {
        if (hasWmState(top))
            return top;
        xcb_connection_t *c = m_connection.get();
        std::vector<xcb_window_t> level { top };
        int searched = 0;
        for (int depth = 0; depth < MaxSearchDepth && !level.empty(); ++depth) {
            std::vector<xcb_window_t> next;
            for (xcb_window_t parent : level) {
                xcb::Reply<xcb_query_tree_reply_t> tree { xcb_query_tree_reply(c, xcb_query_tree(c, parent), nullptr) };
                if (!tree)
                    continue;
                const xcb_window_t *children = xcb_query_tree_children(tree.get());
                for (int i = 0, n = xcb_query_tree_children_length(tree.get()); i < n; ++i) {
                    if (++searched > MaxSearchedWindows)
                        return top;
                    if (hasWmState(children[i]))
                        return children[i];
                    next.push_back(children[i]);
                }
            }
            level = std::move(next);
        }
        return top;
    }

    WindowApp lookUp() const
    {
        xcb_connection_t *c = m_connection.get();
        xcb::Reply<xcb_query_pointer_reply_t> pointer { xcb_query_pointer_reply(
            c, xcb_query_pointer(c, m_root), nullptr) };
        // Over the root window itself (the bare desktop) or on another screen: no app.
        if (!pointer || pointer->same_screen == 0 || pointer->child == XCB_WINDOW_NONE)
            return {};
        const xcb_window_t client = clientWindow(pointer->child);
        xcb::Reply<xcb_get_property_reply_t> wmClass { xcb_get_property_reply(
            c, xcb_get_property(c, 0, client, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256), nullptr) };
        if (!wmClass || wmClass->format != 8)
            return {};
        // "instance\0class\0", as clients write it; a missing terminator or part reads as empty.
        const QByteArray value(static_cast<const char *>(xcb_get_property_value(wmClass.get())),
            xcb_get_property_value_length(wmClass.get()));
        const QList<QByteArray> parts = value.split('\0');
        WindowApp app;
        app.instance = QString::fromUtf8(parts.value(0));
        app.appId = QString::fromUtf8(parts.value(1));
        return app;
    }

    xcb::Connection m_connection;
    xcb_window_t m_root;
    xcb_atom_t m_wmState = XCB_ATOM_NONE;
    Publish m_publish;
    int m_wake;
    std::mutex m_mutex;
    std::deque<Done> m_requests;
    bool m_stop = false;
    std::thread m_thread;
};

X11PointerTracker::X11PointerTracker(std::unique_ptr<Thread> thread)
    : m_thread(std::move(thread))
{ }

X11PointerTracker::~X11PointerTracker() = default;

std::unique_ptr<X11PointerTracker> X11PointerTracker::start(const QByteArray &display, Publish publish)
{
    int screenNumber = 0;
    xcb::Connection connection = xcb::connect(display.constData(), &screenNumber);
    xcb_screen_t *screen = connection ? xcb::screenOf(connection.get(), screenNumber) : nullptr;
    if (!screen) {
        Log::write(
            "[Kestrix] The X server named by DISPLAY could not be reached; the app under the pointer is unknown");
        return nullptr;
    }
    xcb_connection_t *c = connection.get();
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(c, &xcb_input_id);
    xcb::Reply<xcb_input_xi_query_version_reply_t> version;
    if (extension && extension->present != 0)
        version.reset(xcb_input_xi_query_version_reply(c, xcb_input_xi_query_version(c, 2, 2), nullptr));
    // Raw events reach a root-window selection from XInput 2.1 on.
    if (!version || version->major_version < 2 || (version->major_version == 2 && version->minor_version < 1)) {
        Log::write("[Kestrix] The X server lacks XInput 2.1; the app under the pointer is unknown");
        return nullptr;
    }
    struct
    {
        xcb_input_event_mask_t head;
        uint32_t bits;
    } mask { { XCB_INPUT_DEVICE_ALL_MASTER, 1 }, XCB_INPUT_XI_EVENT_MASK_RAW_MOTION };
    xcb_input_xi_select_events(c, screen->root, 1, &mask.head);
    const uint32_t substructure = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY;
    xcb_change_window_attributes(c, screen->root, XCB_CW_EVENT_MASK, &substructure);
    xcb_flush(c);
    const xcb_window_t root = screen->root;
    return std::unique_ptr<X11PointerTracker>(
        new X11PointerTracker(std::make_unique<Thread>(std::move(connection), root, std::move(publish))));
}

void X11PointerTracker::lookUpOnce(Done done) { m_thread->request(std::move(done)); }

} // namespace kestrix
