// Per-app exclusions end to end, on a real kernel and a real X server (in the test VM, under
// xvfb-run): two real X clients side by side, the pointer resting over one, and the program's own
// wiring from the app under the pointer to the input thread. A right drag on a uinput mouse over
// the excluded app comes out of the twin as that plain drag, the press at once; over the other app
// it scrolls. The X server never sees the uinput mouse: the pointer is placed through XTest.

#include "app/DesktopFollower.h"
#include "core/SettingsStore.h"
#include "linux/InputThread.h"
#include "linux/VirtualMouse.h"
#include "session/X11TestClients.h"

#include <QTest>

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

private Q_SLOTS:
    void initTestCase()
    {
        if (access("/dev/uinput", R_OK | W_OK) != 0 || qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs a writable /dev/uinput and an X server of its own: runs in the test VM under xvfb-run");
        QVERIFY(m_x11.isConnected());
        // A remote-desktop viewer, in the default excluded list, and a browser beside it.
        m_x11.window(m_x11.root(), 0, 200, "remmina", "org.remmina.Remmina", true);
        m_x11.window(m_x11.root(), 300, 200, "Navigator", "firefox", true);
        xcb_flush(m_x11.connection());
        SettingsStore::shared().clear();
    }

    void rightDragOverApp_data()
    {
        QTest::addColumn<int>("x");
        QTest::addColumn<QString>("app");
        QTest::addColumn<bool>("excluded");
        QTest::newRow("remote-desktop viewer") << 100 << u"org.remmina.Remmina"_s << true;
        QTest::newRow("browser") << 400 << u"firefox"_s << false;
    }
    void rightDragOverApp()
    {
        QFETCH(int, x);
        QFETCH(QString, app);
        QFETCH(bool, excluded);
        m_x11.movePointer(int16_t(x), 100);

        VirtualMouse mouse("Kestrix Test Mouse");
        QVERIFY(mouse.isValid());
        QVERIFY(mouse.waitForUdev());
        InputThread input;
        DesktopFollower follower(input, { Session::Desktop::Other, false, qgetenv("DISPLAY"), {} });
        QTRY_COMPARE_WITH_TIMEOUT(follower.appUnderPointer().current().appId, app, deadlineMs);
        input.start();
        const auto twinOf = [&]() -> QString {
            for (const auto &device : input.devices()) {
                if (device.node == mouse.node() && device.grabbed)
                    return device.twinNode;
            }
            return {};
        };
        QTRY_VERIFY_WITH_TIMEOUT(!twinOf().isEmpty(), deadlineMs);
        EventLog twin(twinOf());
        // Asking the kernel which buttons are down drops them from that reader's queue: a reader of its own.
        EventLog buttons(twinOf());
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
};

QTEST_GUILESS_MAIN(ExclusionTest)
#include "ExclusionTest.moc"
