#pragma once

// Real X clients for tests against an X server of the test's own: top-level windows with the
// properties window managers and toolkits set, and the pointer moved through XTest.

#include <QByteArray>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <memory>

namespace kestrix::test {

class X11TestClients
{
public:
    X11TestClients()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        if (!xcb_connection_has_error(m_connection.get()))
            m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get())).data;
    }

    bool isConnected() const { return m_screen != nullptr; }
    xcb_connection_t *connection() const { return m_connection.get(); }
    xcb_window_t root() const { return m_screen->root; }

    // A mapped window 200 high at (x, 0) of `parent`. WM_CLASS is "instance\0class\0"; a window
    // without an instance gets no WM_CLASS at all. WM_STATE marks a client of a window manager.
    xcb_window_t window(xcb_window_t parent, int16_t x, int16_t width, const QByteArray &instance,
        const QByteArray &wmClass, bool wmState)
    {
        xcb_connection_t *c = m_connection.get();
        const xcb_window_t id = xcb_generate_id(c);
        xcb_create_window(c, XCB_COPY_FROM_PARENT, id, parent, x, 0, uint16_t(width), 200, 0,
            XCB_WINDOW_CLASS_INPUT_OUTPUT, m_screen->root_visual, 0, nullptr);
        if (!instance.isEmpty()) {
            const QByteArray value = instance + '\0' + wmClass + '\0';
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 8,
                uint32_t(value.size()), value.constData());
        }
        if (wmState) {
            xcb_intern_atom_reply_t *atom = xcb_intern_atom_reply(c, xcb_intern_atom(c, 0, 8, "WM_STATE"), nullptr);
            const uint32_t normal[2] = { 1, XCB_WINDOW_NONE };
            xcb_change_property(c, XCB_PROP_MODE_REPLACE, id, atom->atom, atom->atom, 32, 2, normal);
            std::free(atom);
        }
        xcb_map_window(c, id);
        return id;
    }

    void movePointer(int16_t x, int16_t y)
    {
        xcb_test_fake_input(m_connection.get(), XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_screen->root, x, y, 0);
        xcb_flush(m_connection.get());
    }

private:
    struct Disconnect
    {
        void operator()(xcb_connection_t *c) const { xcb_disconnect(c); }
    };
    std::unique_ptr<xcb_connection_t, Disconnect> m_connection;
    xcb_screen_t *m_screen = nullptr;
};

} // namespace kestrix::test
