// The Linux backend against a real kernel: source mice made through uinput, taken over by the
// backend, real events written to them, and what comes out of their twins read back, as the
// desktop would read it. Needs a writable /dev/uinput: tests/linux/run-kernel-tests runs this in a
// VM where the machine has none.
//
// Amounts: at scroll speed 1.0 a drag of N points scrolls N pixels, which are N x 120 / 55
// high-resolution wheel units (WheelEncoder), so 100 points make 218 units and one legacy click.

#include "linux/LinuxInputBackend.h"
#include "VirtualMouse.h"
#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/GrabScrollManager.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonValue>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <csignal>
#include <mutex>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

constexpr int deadlineMs = 20000; // generous: the VM runs under emulation

// The backend and the engine as the application wires them.
struct Session
{
    LinuxInputBackend backend;
    GrabScrollManager engine { backend, backend, backend };

    Session() { backend.setEngine(&engine); }
    ~Session() { engine.stop(); }

    std::optional<LinuxInputBackend::DeviceInfo> device(const QString &node) const
    {
        for (const auto &info : backend.devices()) {
            if (info.node == node)
                return info;
        }
        return std::nullopt;
    }
    bool grabbed(const QString &node) const { return device(node).has_value() && device(node)->grabbed; }
};

// Every log line of the current test, also those the watchdog writes from its own thread.
std::mutex logMutex;
QString logText;
bool logged(const QString &part)
{
    std::lock_guard lock(logMutex);
    return logText.contains(part);
}

// One replayed click on `log`: a press and a release of the right button, each alone in a frame
// of its own, and no other right-button event.
bool isOneClick(const EventLog &log)
{
    std::vector<std::pair<std::size_t, int>> found; // (length of its frame, value) of each event
    for (const auto &frame : log.frames) {
        for (const input_event &event : frame) {
            if (event.type == EV_KEY && event.code == BTN_RIGHT)
                found.emplace_back(frame.size(), event.value);
        }
    }
    return found == std::vector<std::pair<std::size_t, int>> { { 2, 1 }, { 2, 0 } };
}

void set(QLatin1StringView key, const QJsonValue &value) { SettingsStore::shared().setValue(key, value); }

} // namespace

// Waits until everything written to `mouse` so far went through the backend: a side-button click
// is written and its two frames awaited on the twin.
#define SYNC(mouse, twin)                                                                                              \
    do {                                                                                                               \
        const int seen = (twin).pump().framesWith(EV_KEY, BTN_SIDE);                                                   \
        (mouse).press(BTN_SIDE);                                                                                       \
        (mouse).release(BTN_SIDE);                                                                                     \
        QTRY_VERIFY_WITH_TIMEOUT((twin).pump().framesWith(EV_KEY, BTN_SIDE) >= seen + 2, deadlineMs);                  \
    } while (false)

// A source mouse taken over by a started session, and a reader of its twin.
#define TAKE_OVER(session, mouse, twinVar)                                                                             \
    QVERIFY((mouse).isValid());                                                                                        \
    QVERIFY((mouse).waitForUdev());                                                                                    \
    (session).engine.start();                                                                                          \
    QVERIFY((session).engine.isStarted());                                                                             \
    QTRY_VERIFY_WITH_TIMEOUT((session).grabbed((mouse).node()), deadlineMs);                                           \
    EventLog twinVar((session).device((mouse).node())->twinNode);                                                      \
    QVERIFY(twinVar.isOpen())

class LinuxInputBackendTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (access("/dev/uinput", R_OK | W_OK) != 0)
            QSKIP("no writable /dev/uinput: run through tests/linux/run-kernel-tests");
        Log::setObserver([](std::string_view line) {
            std::lock_guard lock(logMutex);
            logText += QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size())) + u'\n';
        });
    }
    void cleanupTestCase() { Log::setObserver(nullptr); }

    void init()
    {
        SettingsStore::shared().clear();
        set(SettingsKeys::scrollSpeed, 1.0);
        set(SettingsKeys::momentumScroll, false); // on only where momentum is tested
        std::lock_guard lock(logMutex);
        logText.clear();
    }

    // A short press is withheld, then replayed once as a plain click, press and release in frames
    // of their own, leaving nothing pressed; nothing of it reaches another reader of the grabbed
    // source. When the kernel's buffer overflows as the button goes up, the release is lost with
    // it, and libevdev's resynchronisation still ends the press with that one click. A plain
    // wheel notch passes with its high-resolution value added.
    void shortClick_data()
    {
        QTest::addColumn<bool>("overflow");
        QTest::newRow("released") << false;
        QTest::newRow("release lost in an overflow") << true;
    }
    void shortClick()
    {
        QFETCH(bool, overflow);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        EventLog otherReader(mouse.node());

        mouse.frame({ { REL_WHEEL, -1 } });
        SYNC(mouse, twin);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), -1);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), -120);
        QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL_HI_RES), 1);

        mouse.press(BTN_RIGHT);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Pending, deadlineMs);
        mouse.move(2, 1); // under the threshold: withheld, so the click lands where the press was
        SYNC(mouse, twin);
        QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 0);
        QCOMPARE(twin.sum(EV_REL, REL_X), 0);

        // Without returning to the event loop: the release, then far more than the kernel keeps.
        mouse.release(BTN_RIGHT);
        if (overflow)
            mouse.clickBurst(BTN_MIDDLE, 80);
        // What came after an overflow is lost as well (libevdev discards it when it resynchronises),
        // so the sync waits until the backend has been through it.
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Idle, deadlineMs);
        SYNC(mouse, twin);
        QVERIFY(isOneClick(twin));
        QCOMPARE(twin.heldButtons(), std::vector<int> {});
        QCOMPARE(logged(u"overflowed: events were lost"_s), overflow);
        QVERIFY(!logged(u"Input watchdog"_s));
        QVERIFY(otherReader.pump().frames.empty());
    }

    // A drag scrolls with the content following the hand (reverse scrolling on) or against it; a
    // mostly vertical one scrolls both axes on its first step, then keeps to the vertical; line
    // units are whole detents. The same hand travel scrolls the same on a 400 dpi and a 16000 dpi
    // mouse (MOUSE_DPI from the test VM's udev rule, tests/linux/vm), and one whose MOUSE_DPI
    // cannot be read counts as 1000 dpi. The drag itself still reaches the twin, the right button
    // never does, and every legacy click comes in the frame of its high-resolution value.
    void dragScrolls_data()
    {
        QTest::addColumn<QByteArray>("mouse");
        QTest::addColumn<int>("dpi");
        QTest::addColumn<bool>("reverse");
        QTest::addColumn<bool>("pixels");
        QTest::addColumn<int>("steps");
        QTest::addColumn<int>("dx");
        QTest::addColumn<int>("dy");
        QTest::addColumn<int>("wheel"); // expected REL_WHEEL_HI_RES total; REL_WHEEL is its whole 120s
        QTest::addColumn<int>("hwheel"); // the same for REL_HWHEEL_HI_RES and REL_HWHEEL

        // REL_WHEEL positive moves the content down, REL_HWHEEL positive moves it left.
        const QByteArray plain = "Kestrix Test Mouse";
        QTest::newRow("down, following") << plain << 1000 << true << true << 10 << 0 << 10 << 218 << 0;
        QTest::newRow("right, following") << plain << 1000 << true << true << 10 << 10 << 0 << 0 << -218;
        QTest::newRow("down, against") << plain << 1000 << false << true << 10 << 0 << 10 << -218 << 0;
        QTest::newRow("right, against") << plain << 1000 << false << true << 10 << 10 << 0 << 0 << 218;
        QTest::newRow("axis lock: 3 pixels across, then 80 down")
            << plain << 1000 << true << true << 10 << 3 << 8 << 174 << -6;
        QTest::newRow("line units: 10 lines a step") << plain << 1000 << true << false << 3 << 0 << 10 << 3600 << 0;
        // 10 points a step on every mouse.
        QTest::newRow("400 dpi") << QByteArray("Kestrix Test Mouse 400dpi") << 400 << true << true << 10 << 0 << 4
                                 << 218 << 0;
        QTest::newRow("16000 dpi") << QByteArray("Kestrix Test Mouse 16000dpi") << 16000 << true << true << 10 << 0
                                   << 160 << 218 << 0;
        QTest::newRow("MOUSE_DPI \"fast\"")
            << QByteArray("Kestrix Test Mouse bad dpi") << 1000 << true << true << 10 << 0 << 10 << 218 << 0;
    }
    void dragScrolls()
    {
        QFETCH(QByteArray, mouse);
        QFETCH(int, dpi);
        QFETCH(bool, reverse);
        QFETCH(bool, pixels);
        QFETCH(int, steps);
        QFETCH(int, dx);
        QFETCH(int, dy);
        QFETCH(int, wheel);
        QFETCH(int, hwheel);
        if (mouse.endsWith("dpi") && !QFile::exists(u"/run/udev/rules.d/70-kestrix-test-mice.rules"_s))
            QSKIP("the MOUSE_DPI rule of tests/linux/vm is not installed");
        set(SettingsKeys::reverseScroll, reverse);
        set(SettingsKeys::usePixelScrolling, pixels);

        VirtualMouse source(mouse.constData());
        Session session;
        TAKE_OVER(session, source, twin);
        EventLog otherReader(source.node());
        QCOMPARE(session.device(source.node())->dpi, dpi);
        QCOMPARE(logged(u"Ignoring MOUSE_DPI \"fast\""_s), mouse.endsWith("bad dpi"));

        source.drag(dx, dy, steps);
        SYNC(source, twin);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), wheel);
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL_HI_RES), hwheel);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), wheel / 120);
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL), hwheel / 120);
        for (const auto &frame : twin.frames) {
            const auto has = [&](int code) {
                return std::any_of(frame.begin(), frame.end(),
                    [&](const input_event &e) { return e.type == EV_REL && e.code == code; });
            };
            QVERIFY(!has(REL_WHEEL) || has(REL_WHEEL_HI_RES));
            QVERIFY(!has(REL_HWHEEL) || has(REL_HWHEEL_HI_RES));
        }
        QCOMPARE(twin.sum(EV_REL, REL_X), steps * dx);
        QCOMPARE(twin.sum(EV_REL, REL_Y), steps * dy);
        QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 0);
        QVERIFY(otherReader.pump().frames.empty());
    }

    // After the release the scroll goes on by itself in the drag's direction, every step on the
    // twin, until it decays; a new press stops a running momentum at once.
    void momentum()
    {
        set(SettingsKeys::momentumScroll, true);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);

        mouse.drag(0, 10);
        SYNC(mouse, twin);
        const std::size_t released = twin.frames.size();
        QTRY_VERIFY_WITH_TIMEOUT(session.engine.isMomentumRunning(), deadlineMs);
        // Read on the way: the kernel keeps only a few dozen events for a reader that lags.
        QTRY_VERIFY_WITH_TIMEOUT((twin.pump(), !session.engine.isMomentumRunning()), deadlineMs);
        QCOMPARE(twin.pump().dropped(), 0);
        // From 10 pixels a step the run adds 255 pixels: 355 in all, 774 units, 6 clicks.
        QVERIFY(twin.framesWith(EV_REL, REL_WHEEL_HI_RES, released) > 50);
        QVERIFY(qAbs(twin.sum(EV_REL, REL_WHEEL_HI_RES) - 774) <= 1);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), 6);

        // The second run is cut short by a press: no wheel step follows it.
        mouse.drag(0, -10);
        SYNC(mouse, twin);
        const std::size_t secondRelease = twin.frames.size();
        QTRY_VERIFY_WITH_TIMEOUT(twin.pump().framesWith(EV_REL, REL_WHEEL_HI_RES, secondRelease) >= 3, deadlineMs);
        QVERIFY(twin.sum(EV_REL, REL_WHEEL_HI_RES, secondRelease) < 0);
        mouse.press(BTN_RIGHT);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Pending, deadlineMs);
        QVERIFY(!session.engine.isMomentumRunning());
        SYNC(mouse, twin);
        const std::size_t pressed = twin.frames.size();
        for (int i = 0; i < 5; ++i)
            SYNC(mouse, twin);
        QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL_HI_RES, pressed), 0);
    }

    // A mouse plugged in mid-session is taken over; its twin is not. Another, unplugged mid-drag
    // with the left button also held, leaves the engine idle, and its twin goes away never having
    // seen the right button. (What the twin releases just before it goes cannot be read back: the
    // kernel drops a reader's queue when its node disappears. The watchdog test reads that release
    // on a twin that stays.) stop() gives every mouse back and removes every twin.
    void hotPlugUnplugAndStop()
    {
        VirtualMouse first("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, first, firstTwin);

        VirtualMouse second("Kestrix Test Mouse Two");
        QVERIFY(second.isValid());
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(second.node()), deadlineMs);
        EventLog secondTwin(session.device(second.node())->twinNode);
        second.drag(0, 10);
        SYNC(second, secondTwin);
        QCOMPARE(secondTwin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
        QCOMPARE(firstTwin.pump().sum(EV_REL, REL_WHEEL_HI_RES), 0);
        for (const auto &info : session.backend.devices()) {
            for (const auto &other : session.backend.devices())
                QVERIFY2(info.node != other.twinNode, qPrintable(info.node + u" is a twin"_s));
        }

        first.press(BTN_LEFT);
        first.press(BTN_RIGHT);
        for (int i = 0; i < 5; ++i)
            first.move(0, 10);
        SYNC(first, firstTwin);
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Scrolling);
        QCOMPARE(firstTwin.heldButtons(), std::vector<int> { BTN_LEFT });
        QSignalSpy changed(&session.backend, &LinuxInputBackend::devicesChanged);
        const QString node = first.node();
        first.unplug();
        QTRY_VERIFY_WITH_TIMEOUT(!session.device(node).has_value(), deadlineMs);
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Idle);
        QVERIFY(changed.count() >= 1);
        QTRY_VERIFY_WITH_TIMEOUT(firstTwin.pump().isGone(), deadlineMs);
        QCOMPARE(firstTwin.framesWith(EV_KEY, BTN_RIGHT), 0);

        QVERIFY(isGrabbedByOther(second.node()));
        session.engine.stop();
        QVERIFY(session.backend.devices().empty());
        QVERIFY(!isGrabbedByOther(second.node()));
        QTRY_VERIFY_WITH_TIMEOUT(secondTwin.pump().isGone(), deadlineMs);
    }

    // Another running copy holds the mouse: its twin is never grabbed by this one. Killed with
    // SIGKILL, it leaves the mouse readable by everyone.
    void anotherCopyAndItsDeath()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        QVERIFY(mouse.isValid());
        QVERIFY(mouse.waitForUdev());

        QProcess other;
        other.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        other.start(QStringLiteral(KESTRIX_GRAB_HELPER), {});
        QByteArray output; // "device <node> twin <twin node>" for each mouse it took over, then "ready"
        QTRY_VERIFY_WITH_TIMEOUT((output += other.readAll()).endsWith("ready\n"), deadlineMs);
        QString otherTwin;
        for (const QByteArray &line : output.split('\n')) {
            if (line.startsWith("device " + mouse.node().toUtf8() + " twin "))
                otherTwin = QString::fromUtf8(line.split(' ').value(3));
        }
        QVERIFY(!otherTwin.isEmpty());
        QVERIFY(isGrabbedByOther(mouse.node()));
        {
            Session session;
            session.engine.start();
            QVERIFY(session.engine.isStarted());
            QVERIFY(!session.device(otherTwin).has_value());
        }

        ::kill(static_cast<pid_t>(other.processId()), SIGKILL);
        QVERIFY(other.waitForFinished(deadlineMs));
        EventLog reader(mouse.node()); // sees nothing while a grab is held
        mouse.move(1, 0);
        QTRY_COMPARE_WITH_TIMEOUT(reader.pump().sum(EV_REL, REL_X), 1, deadlineMs);
    }

    // A stuck main thread: after 250 ms of unread input the watchdog gives the mouse back to every
    // reader; when the thread runs again the grab is taken back and nothing leaks any more.
    void watchdogReleasesAStalledGrab()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        mouse.press(BTN_LEFT);
        SYNC(mouse, twin);
        QCOMPARE(twin.heldButtons(), std::vector<int> { BTN_LEFT });
        EventLog otherReader(mouse.node());

        // Stall this thread (the backend's) while writing, until another reader sees the mouse.
        // The log line follows the release on the watchdog's thread; this thread must not run the
        // backend yet, so it waits without the event loop.
        const QDeadlineTimer deadline(deadlineMs);
        while (otherReader.pump().frames.empty() && !deadline.hasExpired()) {
            mouse.move(1, 0);
            QThread::msleep(10); // pacing the writes of the stall, not waiting for a result
        }
        const QString stalled = u"Input watchdog: input waited 250 ms unread"_s;
        while (!logged(stalled) && !deadline.hasExpired())
            QThread::msleep(1);
        QVERIFY(!otherReader.frames.empty());
        QVERIFY(logged(stalled));
        // The left button, still down on the source, is up on the twin: the source's own release
        // goes straight to the desktop now.
        QCOMPARE(twin.heldButtons(), std::vector<int> {});

        // The backend runs again (its waiting input is dispatched at once), but takes no grab while
        // a button is held: the desktop must see that release from the source.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QVERIFY(!session.grabbed(mouse.node()));
        mouse.release(BTN_LEFT);

        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(mouse.node()), deadlineMs);
        QVERIFY(logged(u"grabbed again"_s));
        SYNC(mouse, twin);
        otherReader.pump().frames.clear();
        mouse.move(0, 1);
        SYNC(mouse, twin);
        QVERIFY(otherReader.pump().frames.empty());
        QVERIFY(twin.sum(EV_REL, REL_Y) >= 1);
    }
};

QTEST_GUILESS_MAIN(LinuxInputBackendTest)
#include "LinuxInputBackendTest.moc"
