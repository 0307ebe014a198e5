// The X11 sources against a real X server (Xvfb, started by CTest through xvfb-run): the server's
// button map for the mouse switches, and real client windows for the app under the pointer, one
// plain top-level window and one framed the way a reparenting window manager frames clients.

#include "session/AppUnderPointer.h"
#include "session/PointerPreferences.h"

#include <QSignalSpy>
#include <QTest>

#include <xcb/xcb.h>
#include <xcb/xtest.h>

#include <cstdlib>
#include <memory>

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

struct Disconnect
{
    void operator()(xcb_connection_t *c) const { xcb_disconnect(c); }
};

} // namespace

class X11SessionTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<xcb_connection_t, Disconnect> m_connection;
    xcb_screen_t *m_screen = nullptr;

    Session session() const { return { Session::Desktop::Other, false, qgetenv("DISPLAY"), {} }; }

    // WM_CLASS is "instance\0class\0"; a window without an instance gets no WM_CLASS at all.
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

    // The server takes a map only of its own length: the first buttons are replaced, the rest kept.
    void setButtonMap(std::initializer_list<uint8_t> first)
    {
        xcb_connection_t *c = m_connection.get();
        xcb_get_pointer_mapping_reply_t *current
            = xcb_get_pointer_mapping_reply(c, xcb_get_pointer_mapping(c), nullptr);
        QByteArray map(reinterpret_cast<const char *>(xcb_get_pointer_mapping_map(current)),
            xcb_get_pointer_mapping_map_length(current));
        std::free(current);
        map.replace(0, qsizetype(first.size()), QByteArrayView(first.begin(), qsizetype(first.size())));
        xcb_set_pointer_mapping_reply_t *set = xcb_set_pointer_mapping_reply(c,
            xcb_set_pointer_mapping(c, uint8_t(map.size()), reinterpret_cast<const uint8_t *>(map.constData())),
            nullptr);
        QVERIFY(set && set->status == XCB_MAPPING_STATUS_SUCCESS);
        std::free(set);
    }

private Q_SLOTS:
    void initTestCase()
    {
        // Never the developer's own X server: the test swaps the buttons.
        if (qEnvironmentVariableIsEmpty("KESTRIX_TEST_OWN_X_SERVER") || qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("No X server of the test's own: it runs under xvfb-run (Debian packages xvfb, xauth)");
        m_connection.reset(xcb_connect(nullptr, nullptr));
        QVERIFY(!xcb_connection_has_error(m_connection.get()));
        m_screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection.get())).data;
    }

    void buttonMapFollowedLive()
    {
        setButtonMap({ 1, 2, 3, 4, 5 });
        PointerPreferences preferences(session());
        QCOMPARE(preferences.current(), (PointerPreferences::Values { false, false, u"X11"_s }));
        QSignalSpy changed(&preferences, &PointerPreferences::changed);

        setButtonMap({ 3, 2, 1, 4, 5 }); // xmodmap -e "pointer = 3 2 1"
        QTRY_VERIFY(preferences.current().leftHanded);
        setButtonMap({ 3, 2, 1, 5, 4 });
        QTRY_VERIFY(preferences.current().naturalScroll);
        setButtonMap({ 1, 2, 3, 4, 5 });
        QTRY_COMPARE(preferences.current(), (PointerPreferences::Values { false, false, u"X11"_s }));
        QCOMPARE(changed.count(), 3);
    }

    void appUnderThePointer()
    {
        xcb_connection_t *c = m_connection.get();
        // Left: a frame without WM_CLASS holding a client with WM_STATE, as a window manager makes it.
        const xcb_window_t frame = window(m_screen->root, 0, 200, {}, {}, false);
        window(frame, 0, 200, "remmina", "org.remmina.Remmina", true);
        // Right: a plain top-level window, as without a window manager.
        window(m_screen->root, 300, 200, "Navigator", "firefox", false);
        xcb_flush(c);

        movePointer(250, 50); // between the two: the bare root window
        AppUnderPointer app(session());
        QVERIFY(app.available());
        QCOMPARE(app.source(), AppUnderPointer::Source::X11Pointer);
        QSignalSpy changed(&app, &AppUnderPointer::changed);

        movePointer(100, 100);
        QTRY_COMPARE(app.current(), (WindowApp { u"org.remmina.Remmina"_s, u"remmina"_s }));
        movePointer(400, 100);
        QTRY_COMPARE(app.current(), (WindowApp { u"firefox"_s, u"Navigator"_s }));
        QTRY_COMPARE(changed.last().value(0).toString(), u"firefox"_s);

        // A window mapped under the resting pointer is seen without a move.
        window(m_screen->root, 350, 200, "steam_app_42", "steam_app_42", false);
        xcb_flush(c);
        QTRY_COMPARE(app.current().appId, u"steam_app_42"_s);

        std::optional<WindowApp> looked;
        bool answered = false;
        movePointer(50, 50);
        app.lookUpOnce([&](std::optional<WindowApp> found) {
            looked = found;
            answered = true;
        });
        QTRY_VERIFY(answered);
        QCOMPARE(looked, (WindowApp { u"org.remmina.Remmina"_s, u"remmina"_s }));
    }
};

QTEST_GUILESS_MAIN(X11SessionTest)
#include "X11SessionTest.moc"
