// The X11 sources against a real X server (Xvfb, started by CTest through xvfb-run): the server's
// button map for the mouse switches, and real client windows for the app under the pointer, one
// plain top-level window and one framed the way a reparenting window manager frames clients.

#include "X11TestClients.h"
#include "session/AppUnderPointer.h"
#include "session/PointerPreferences.h"

#include <QSignalSpy>
#include <QTest>

#include <cstdlib>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class X11SessionTest : public QObject
{
    Q_OBJECT

    X11TestClients m_x11;

    Session session() const { return { Session::Desktop::Other, false, qgetenv("DISPLAY"), {} }; }

    // The server takes a map only of its own length: the first buttons are replaced, the rest kept.
    void setButtonMap(std::initializer_list<uint8_t> first)
    {
        xcb_connection_t *c = m_x11.connection();
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
        QVERIFY(m_x11.isConnected());
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
        xcb_connection_t *c = m_x11.connection();
        // Left: a frame without WM_CLASS holding a client with WM_STATE, as a window manager makes it.
        const xcb_window_t frame = m_x11.window(m_x11.root(), 0, 200, {}, {}, false);
        m_x11.window(frame, 0, 200, "remmina", "org.remmina.Remmina", true);
        // Right: a plain top-level window, as without a window manager.
        m_x11.window(m_x11.root(), 300, 200, "Navigator", "firefox", false);
        xcb_flush(c);

        m_x11.movePointer(250, 50); // between the two: the bare root window
        AppUnderPointer app(session());
        QVERIFY(app.available());
        QCOMPARE(app.source(), AppUnderPointer::Source::X11Pointer);
        QSignalSpy changed(&app, &AppUnderPointer::changed);

        m_x11.movePointer(100, 100);
        QTRY_COMPARE(app.current(), (WindowApp { u"org.remmina.Remmina"_s, u"remmina"_s }));
        m_x11.movePointer(400, 100);
        QTRY_COMPARE(app.current(), (WindowApp { u"firefox"_s, u"Navigator"_s }));
        QTRY_COMPARE(changed.last().value(0).toString(), u"firefox"_s);

        // A window mapped under the resting pointer is seen without a move.
        m_x11.window(m_x11.root(), 350, 200, "steam_app_42", "steam_app_42", false);
        xcb_flush(c);
        QTRY_COMPARE(app.current().appId, u"steam_app_42"_s);

        std::optional<WindowApp> looked;
        m_x11.movePointer(50, 50);
        app.lookUpOnce([&](std::optional<WindowApp> found) { looked = found; });
        QTRY_COMPARE(looked, (WindowApp { u"org.remmina.Remmina"_s, u"remmina"_s }));
    }
};

QTEST_GUILESS_MAIN(X11SessionTest)
#include "X11SessionTest.moc"
