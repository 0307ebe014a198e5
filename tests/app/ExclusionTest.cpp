// Per-app exclusions end to end, on a real kernel (in the test VM) and real desktops: an X server
// of the test's own (xvfb-run) with two real clients side by side, the pointer resting over one;
// and a headless sway with two real Wayland windows, one of them focused. The program's own wiring
// carries the app to the input thread. A right drag on a uinput mouse over the excluded app comes
// out of the twin as that plain drag, the press at once; over the other app it scrolls. Neither
// desktop sees the uinput mouse: the pointer is placed through XTest, the focus through swaymsg.
// The settings are a new user's (the VM's home is empty): the default excluded list.

#include "app/DesktopFollower.h"
#include "core/TestSupport.h"
#include "linux/InputThread.h"
#include "linux/VirtualMouse.h"
#include "session/HeadlessCompositor.h"
#include "session/X11TestClients.h"

#include <QTest>

#include <tuple>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {
constexpr int deadlineMs = 20000; // generous: the VM runs under emulation
} // namespace

class ExclusionTest : public QObject
{
    Q_OBJECT

    X11TestClients m_x11;
    HeadlessCompositor m_sway;
    bool m_swayRuns = false;

private Q_SLOTS:
    void initTestCase()
    {
        // Never the developer's own desktop and settings: the test grabs every mouse.
        if (access("/dev/uinput", R_OK | W_OK) != 0 || qEnvironmentVariableIsEmpty("KESTRIX_TEST_OWN_X_SERVER")
            || qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs a writable /dev/uinput and an X server of its own: runs in the test VM under xvfb-run");
        QVERIFY(m_x11.isConnected());
        // A remote-desktop viewer, in the default excluded list, and a browser beside it.
        m_x11.window(m_x11.root(), 0, 200, "remmina", "org.remmina.Remmina", true);
        m_x11.window(m_x11.root(), 300, 200, "Navigator", "firefox", true);
        xcb_flush(m_x11.connection());

        // sway, where it starts, with the same two apps; the rows on sway skip themselves otherwise.
        m_swayRuns = m_sway.startSway();
        for (const QString &app : { u"org.remmina.Remmina"_s, u"firefox"_s }) {
            if (m_swayRuns)
                m_sway.openWindow(app);
        }
    }

    // On X11 the pointer rests at x over the app; on sway the app is focused.
    void rightDragOverApp()
    {
        const std::tuple<const char *, bool, std::int16_t, QString, bool> rows[]
            = { { "X11, remote-desktop viewer", false, 100, u"org.remmina.Remmina"_s, true },
                  { "X11, browser", false, 400, u"firefox"_s, false },
                  { "sway, remote-desktop viewer", true, 0, u"org.remmina.Remmina"_s, true },
                  { "sway, browser", true, 0, u"firefox"_s, false } };
        for (const auto &[name, sway, x, app, excluded] : rows) {
            const Row row { QString::fromUtf8(name) };
            if (sway && !m_swayRuns) // the rows on sway come last
                QSKIP("sway did not start here (Debian package sway)");
            m_x11.movePointer(x, 100);

            VirtualMouse mouse("Kestrix Test Mouse");
            QVERIFY(mouse.isValid());
            QVERIFY(mouse.waitForUdev());
            InputThread input;
            DesktopFollower follower(input,
                sway ? Session { Session::Desktop::Sway, true, {}, m_sway.socket() }
                     : Session { Session::Desktop::Other, false, qgetenv("DISPLAY"), {} });
            const QString focus = u"[app_id=\"%1\"] focus"_s.arg(app); // fails until the window is mapped
            QTRY_VERIFY_WITH_TIMEOUT(
                (!sway || QProcess::execute(u"swaymsg"_s, { u"-s"_s, m_sway.socket(), focus }) == 0)
                    && follower.appUnderPointer().current().appId == app,
                deadlineMs);
            input.start();
            const auto twinNode = [&]() -> QString {
                for (const auto &device : input.devices()) {
                    if (device.node == mouse.node() && device.grabbed)
                        return device.twinNode;
                }
                return {};
            };
            QTRY_VERIFY_WITH_TIMEOUT(!twinNode().isEmpty(), deadlineMs);
            EventLog twin(twinNode());
            // Asking the kernel which buttons are down drops them from that reader's queue: a reader of its own.
            EventLog buttons(twinNode());
            QVERIFY(twin.isOpen() && buttons.isOpen());

            mouse.press(BTN_RIGHT);
            if (excluded) // passed on while still held, not withheld until the release
                QTRY_COMPARE_WITH_TIMEOUT(buttons.heldButtons(), std::vector<int> { BTN_RIGHT }, deadlineMs);
            for (int i = 0; i < 10; ++i)
                mouse.move(0, 10);
            mouse.release(BTN_RIGHT);
            mouse.press(BTN_SIDE); // its two frames on the twin tell that all before them went through
            mouse.release(BTN_SIDE);
            QTRY_COMPARE_WITH_TIMEOUT(twin.pump().framesWith(EV_KEY, BTN_SIDE), 2, deadlineMs);

            QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), excluded ? 2 : 0);
            QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL_HI_RES) + twin.framesWith(EV_REL, REL_WHEEL) == 0, excluded);
            if (excluded)
                QCOMPARE(twin.sum(EV_REL, REL_Y), 100);
            QCOMPARE(buttons.heldButtons(), std::vector<int> {});
        }
    }
};

QTEST_GUILESS_MAIN(ExclusionTest)
#include "ExclusionTest.moc"
