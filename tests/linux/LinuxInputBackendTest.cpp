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
#include <QJsonValue>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <csignal>
#include <memory>
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

// Every log line, also those the watchdog writes from its own thread.
class LogRecorder
{
public:
    LogRecorder()
    {
        Log::setObserver([this](std::string_view line) {
            std::lock_guard lock(m_mutex);
            m_lines.append(QString::fromUtf8(line.data(), static_cast<qsizetype>(line.size())));
        });
    }
    ~LogRecorder() { Log::setObserver(nullptr); }
    bool contains(const QString &part) const
    {
        std::lock_guard lock(m_mutex);
        for (const QString &line : m_lines) {
            if (line.contains(part))
                return true;
        }
        return false;
    }

private:
    mutable std::mutex m_mutex;
    QStringList m_lines;
};

void set(QLatin1StringView key, const QJsonValue &value) { SettingsStore::shared().setValue(key, value); }

} // namespace

// Waits until everything written to `mouse` so far went through the backend: a side-button click
// is written and awaited on the twin.
#define SYNC(mouse, twin)                                                                                              \
    do {                                                                                                               \
        const int seen = (twin).pump().count(EV_KEY, BTN_SIDE, 0);                                                     \
        (mouse).press(BTN_SIDE);                                                                                       \
        (mouse).release(BTN_SIDE);                                                                                     \
        QTRY_VERIFY_WITH_TIMEOUT((twin).pump().count(EV_KEY, BTN_SIDE, 0) > seen, deadlineMs);                         \
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
    }

    void init()
    {
        SettingsStore::shared().clear();
        set(SettingsKeys::scrollSpeed, 1.0);
    }

    // A short press is withheld, then replayed once as a plain click on the twin; nothing of it
    // reaches another reader of the grabbed source.
    void shortClickIsReplayedOnce()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        EventLog otherReader(mouse.node());

        mouse.press(BTN_RIGHT);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Pending, deadlineMs);
        mouse.move(2, 1); // under the threshold: withheld, so the click lands where the press was
        SYNC(mouse, twin);
        QCOMPARE(twin.count(EV_KEY, BTN_RIGHT, 1), 0);
        QCOMPARE(twin.sum(EV_REL, REL_X), 0);

        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);
        QCOMPARE(twin.count(EV_KEY, BTN_RIGHT, 1), 1);
        QCOMPARE(twin.count(EV_KEY, BTN_RIGHT, 0), 1);
        // Press and release are frames of their own, in that order.
        std::vector<std::vector<input_event>> clickFrames;
        for (const auto &frame : twin.frames) {
            if (frame.front().type == EV_KEY && frame.front().code == BTN_RIGHT)
                clickFrames.push_back(frame);
        }
        QCOMPARE(clickFrames.size(), std::size_t { 2 });
        QCOMPARE(clickFrames[0].size(), std::size_t { 2 });
        QCOMPARE(clickFrames[0][0].value, 1);
        QCOMPARE(clickFrames[1][0].value, 0);
        QCOMPARE(otherReader.pump().eventCount(), std::size_t { 0 });
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Idle);
    }

    // A drag scrolls with the content following the hand (reverse scrolling on) or against it; the
    // drag itself still reaches the twin, the right button never does, and every legacy click comes
    // with its high-resolution value.
    void dragScrolls_data()
    {
        QTest::addColumn<bool>("reverse");
        QTest::addColumn<int>("dx");
        QTest::addColumn<int>("dy");
        QTest::addColumn<int>("wheel"); // expected REL_WHEEL_HI_RES total
        QTest::addColumn<int>("hwheel"); // expected REL_HWHEEL_HI_RES total

        // REL_WHEEL positive moves the content down, REL_HWHEEL positive moves it left.
        QTest::newRow("down, following") << true << 0 << 10 << 218 << 0;
        QTest::newRow("up, following") << true << 0 << -10 << -218 << 0;
        QTest::newRow("right, following") << true << 10 << 0 << 0 << -218;
        QTest::newRow("left, following") << true << -10 << 0 << 0 << 218;
        QTest::newRow("down, against") << false << 0 << 10 << -218 << 0;
        QTest::newRow("right, against") << false << 10 << 0 << 0 << 218;
    }
    void dragScrolls()
    {
        QFETCH(bool, reverse);
        QFETCH(int, dx);
        QFETCH(int, dy);
        QFETCH(int, wheel);
        QFETCH(int, hwheel);
        set(SettingsKeys::reverseScroll, reverse);
        set(SettingsKeys::momentumScroll, false);

        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        EventLog otherReader(mouse.node());

        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            mouse.move(dx, dy);
        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);

        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), wheel);
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL_HI_RES), hwheel);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), wheel / 120);
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL), hwheel / 120);
        for (const auto &frame : twin.frames) {
            bool legacy = false;
            bool hiRes = false;
            for (const input_event &event : frame) {
                legacy = legacy || (event.type == EV_REL && (event.code == REL_WHEEL || event.code == REL_HWHEEL));
                hiRes = hiRes
                    || (event.type == EV_REL && (event.code == REL_WHEEL_HI_RES || event.code == REL_HWHEEL_HI_RES));
            }
            QVERIFY(!legacy || hiRes);
        }
        QCOMPARE(twin.sum(EV_REL, REL_X), 10 * dx);
        QCOMPARE(twin.sum(EV_REL, REL_Y), 10 * dy);
        QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 0);
        QCOMPARE(otherReader.pump().eventCount(), std::size_t { 0 });
    }

    // Mostly vertical: the first step scrolls both axes, then the gesture keeps to the vertical.
    // A plain mouse's own wheel notch passes with its high-resolution value added.
    void axisLockAndWheelPassThrough()
    {
        set(SettingsKeys::momentumScroll, false);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);

        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            mouse.move(3, 8);
        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL_HI_RES), -6); // 3 pixels, before the lock
        QCOMPARE(twin.sum(EV_REL, REL_HWHEEL), 0);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 174); // 80 pixels
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), 1);

        twin.clear();
        mouse.frame({ { REL_WHEEL, -1 } });
        SYNC(mouse, twin);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), -1);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), -120);
        QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL_HI_RES), 1);
    }

    void lineUnits()
    {
        set(SettingsKeys::momentumScroll, false);
        set(SettingsKeys::usePixelScrolling, false);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);

        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 3; ++i)
            mouse.move(0, 10);
        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);
        QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL), 3);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), 30);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 3600);
    }

    // After the release the scroll goes on by itself in the drag's direction, every step on the
    // twin, until it decays; a new press stops a running momentum at once.
    void momentum()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);

        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            mouse.move(0, 10);
        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);
        const std::size_t released = twin.frames.size();
        QTRY_VERIFY_WITH_TIMEOUT(session.engine.isMomentumRunning(), deadlineMs);
        // Read on the way: the kernel keeps only a few dozen events for a reader that lags.
        QTRY_VERIFY_WITH_TIMEOUT((twin.pump(), !session.engine.isMomentumRunning()), deadlineMs);
        twin.pump();
        QCOMPARE(twin.dropped(), 0);
        // From 10 pixels a step the run adds 255 pixels: 355 in all, 774 units, 6 clicks.
        QVERIFY(twin.framesWith(EV_REL, REL_WHEEL_HI_RES, released) > 50);
        QVERIFY(qAbs(twin.sum(EV_REL, REL_WHEEL_HI_RES) - 774) <= 1);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL), 6);

        // The second run is cut short by a press.
        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            mouse.move(0, -10);
        mouse.release(BTN_RIGHT);
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
        mouse.release(BTN_RIGHT);
        SYNC(mouse, twin);
    }

    // The same hand travel on a 400 dpi and a 16000 dpi mouse: the same threshold, the same scroll.
    // The resolutions come from MOUSE_DPI, set by the test's udev rule (tests/linux/vm).
    void resolutionDoesNotChangeTheFeel()
    {
        set(SettingsKeys::momentumScroll, false);
        VirtualMouse low("Kestrix Test Mouse 400dpi");
        VirtualMouse high("Kestrix Test Mouse 16000dpi");
        VirtualMouse broken("Kestrix Test Mouse bad dpi");
        QVERIFY(low.waitForUdev() && high.waitForUdev() && broken.waitForUdev());
        LogRecorder log;
        Session session;
        TAKE_OVER(session, low, lowTwin);
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(high.node()) && session.grabbed(broken.node()), deadlineMs);
        if (session.device(low.node())->dpi != 400)
            QSKIP("the MOUSE_DPI rule of tests/linux/vm is not installed");
        EventLog highTwin(session.device(high.node())->twinNode);
        QCOMPARE(session.device(high.node())->dpi, 16000);
        QCOMPARE(session.device(broken.node())->dpi, 1000);
        QVERIFY(log.contains(u"Ignoring MOUSE_DPI \"fast\""_s));

        // 79 counts at 16000 dpi are under 5 points: a click, not a scroll.
        high.press(BTN_RIGHT);
        high.move(0, 79);
        SYNC(high, highTwin);
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Pending);
        high.release(BTN_RIGHT);
        SYNC(high, highTwin);
        QCOMPARE(highTwin.count(EV_KEY, BTN_RIGHT, 1), 1);

        // 2 counts at 400 dpi and 80 at 16000 dpi are both 5 points: each starts the scroll, and
        // the 90 points that follow scroll the same on both.
        low.press(BTN_RIGHT);
        low.move(0, 2);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Scrolling, deadlineMs);
        for (int i = 0; i < 9; ++i)
            low.move(0, 4);
        low.release(BTN_RIGHT);
        SYNC(low, lowTwin);

        high.press(BTN_RIGHT);
        high.move(0, 80);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Scrolling, deadlineMs);
        for (int i = 0; i < 9; ++i)
            high.move(0, 160);
        high.release(BTN_RIGHT);
        SYNC(high, highTwin);

        // 95 pixels each.
        QCOMPARE(lowTwin.sum(EV_REL, REL_WHEEL_HI_RES), 207);
        QCOMPARE(highTwin.sum(EV_REL, REL_WHEEL_HI_RES), 207);
    }

    // A mouse plugged in mid-session is taken over; its twin is not.
    void hotPlug()
    {
        set(SettingsKeys::momentumScroll, false);
        VirtualMouse first("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, first, firstTwin);

        VirtualMouse second("Kestrix Test Mouse Two");
        QVERIFY(second.isValid());
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(second.node()), deadlineMs);
        const QString secondTwinNode = session.device(second.node())->twinNode;
        EventLog secondTwin(secondTwinNode);
        second.press(BTN_RIGHT);
        for (int i = 0; i < 10; ++i)
            second.move(0, 10);
        second.release(BTN_RIGHT);
        SYNC(second, secondTwin);
        QCOMPARE(secondTwin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
        QCOMPARE(firstTwin.pump().sum(EV_REL, REL_WHEEL_HI_RES), 0);

        for (const auto &info : session.backend.devices()) {
            for (const auto &other : session.backend.devices())
                QVERIFY2(info.node != other.twinNode, qPrintable(info.node + u" is a twin"_s));
        }
    }

    // Unplugged mid-drag with the left button also held: the engine is idle again and the twin
    // goes away, never having seen the right button. (What the twin releases just before it goes
    // cannot be read back: the kernel drops a reader's queue when its node disappears. The
    // watchdog test reads that release on a twin that stays.)
    void unplugMidDrag()
    {
        set(SettingsKeys::momentumScroll, false);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);

        mouse.press(BTN_LEFT);
        mouse.press(BTN_RIGHT);
        for (int i = 0; i < 5; ++i)
            mouse.move(0, 10);
        SYNC(mouse, twin);
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Scrolling);
        QCOMPARE(twin.count(EV_KEY, BTN_LEFT, 1), 1);

        QSignalSpy changed(&session.backend, &LinuxInputBackend::devicesChanged);
        const QString node = mouse.node();
        mouse.unplug();
        QTRY_VERIFY_WITH_TIMEOUT(!session.device(node).has_value(), deadlineMs);
        QCOMPARE(session.engine.state(), GrabScrollManager::State::Idle);
        QVERIFY(changed.count() >= 1);
        QTRY_VERIFY_WITH_TIMEOUT(twin.pump().isGone(), deadlineMs);
        QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 0);
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
        QString otherTwin;
        QTRY_VERIFY_WITH_TIMEOUT(other.canReadLine() || other.state() == QProcess::NotRunning, deadlineMs);
        for (;;) {
            QTRY_VERIFY_WITH_TIMEOUT(other.canReadLine(), deadlineMs);
            const QString line = QString::fromUtf8(other.readLine()).trimmed();
            if (line == "ready"_L1)
                break;
            QVERIFY2(line.startsWith("device "_L1), qPrintable(line));
            if (line.section(u' ', 1, 1) == mouse.node())
                otherTwin = line.section(u' ', 3, 3);
        }
        QVERIFY(!otherTwin.isEmpty());
        QVERIFY(isGrabbedByOther(mouse.node()));

        {
            Session session;
            session.engine.start();
            QVERIFY(session.engine.isStarted());
            QVERIFY(!session.device(otherTwin).has_value());
            for (const auto &info : session.backend.devices())
                QVERIFY(!info.name.isEmpty() && info.node != otherTwin);
        }

        ::kill(static_cast<pid_t>(other.processId()), SIGKILL);
        QVERIFY(other.waitForFinished(deadlineMs));
        QVERIFY(!isGrabbedByOther(mouse.node()));
        EventLog reader(mouse.node());
        mouse.move(1, 0);
        QTRY_COMPARE_WITH_TIMEOUT(reader.pump().sum(EV_REL, REL_X), 1, deadlineMs);
    }

    // A stuck main thread: after 250 ms of unread input the watchdog gives the mouse back to every
    // reader; when the thread runs again the grab is taken back and nothing leaks any more.
    void watchdogReleasesAStalledGrab()
    {
        LogRecorder log;
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        mouse.press(BTN_LEFT);
        SYNC(mouse, twin);
        QCOMPARE(twin.count(EV_KEY, BTN_LEFT, 1), 1);
        EventLog otherReader(mouse.node());

        // Stall this thread (the backend's) while writing, until another reader sees the mouse.
        const QDeadlineTimer deadline(deadlineMs);
        bool released = false;
        while (!released && !deadline.hasExpired()) {
            mouse.move(1, 0);
            released = otherReader.pump().eventCount() > 0;
            QThread::msleep(10); // pacing the writes of the stall, not waiting for a result
        }
        QVERIFY(released);
        // The line follows the release on the watchdog's thread; this thread must not run the
        // backend yet, so it waits without the event loop.
        const QDeadlineTimer logDeadline(deadlineMs);
        while (!log.contains(u"Input watchdog: input waited 250 ms unread"_s) && !logDeadline.hasExpired())
            QThread::msleep(1);
        QVERIFY(log.contains(u"Input watchdog: input waited 250 ms unread"_s));
        // The left button, still down on the source, is up on the twin: the source's own release
        // goes straight to the desktop now.
        QCOMPARE(twin.pump().count(EV_KEY, BTN_LEFT, 0), 1);

        // The backend runs again (its waiting input is dispatched at once), but takes no grab while
        // a button is held: the desktop must see that release from the source.
        QCoreApplication::processEvents();
        QCoreApplication::processEvents();
        QVERIFY(!session.grabbed(mouse.node()));
        mouse.release(BTN_LEFT);

        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(mouse.node()), deadlineMs);
        QVERIFY(log.contains(u"grabbed again"_s));
        SYNC(mouse, twin);
        otherReader.pump().clear();
        mouse.move(0, 1);
        SYNC(mouse, twin);
        QCOMPARE(otherReader.pump().eventCount(), std::size_t { 0 });
        QVERIFY(twin.sum(EV_REL, REL_Y) >= 1);
    }

    // The kernel's buffer overflows while the right button goes up: the release is lost with it,
    // and libevdev's resynchronisation still ends the pending press with one click, leaving nothing
    // pressed.
    void droppedEventsAreResynchronised()
    {
        LogRecorder log;
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        mouse.press(BTN_RIGHT);
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Pending, deadlineMs);

        // Without returning to the event loop: the release, then far more than the kernel keeps.
        mouse.release(BTN_RIGHT);
        mouse.clickBurst(BTN_MIDDLE, 80);
        // What came after the overflow is lost as well (libevdev discards it when it resynchronises),
        // so the next sync waits until the backend has been through it.
        QTRY_COMPARE_WITH_TIMEOUT(session.engine.state(), GrabScrollManager::State::Idle, deadlineMs);
        SYNC(mouse, twin);
        QVERIFY(log.contains(u"overflowed: events were lost"_s));
        QVERIFY(!log.contains(u"Input watchdog"_s));
        // The twin's own state: nothing held.
        const int fd = ::open(session.device(mouse.node())->twinNode.toUtf8().constData(), O_RDONLY | O_CLOEXEC);
        unsigned char keys[KEY_MAX / 8 + 1] = {};
        QVERIFY(ioctl(fd, EVIOCGKEY(sizeof keys), keys) >= 0);
        ::close(fd);
        QCOMPARE(keys[BTN_RIGHT / 8] & (1 << (BTN_RIGHT % 8)), 0);
        QCOMPARE(keys[BTN_MIDDLE / 8] & (1 << (BTN_MIDDLE % 8)), 0);
        QCOMPARE(twin.count(EV_KEY, BTN_RIGHT, 1), 1);
        QCOMPARE(twin.count(EV_KEY, BTN_RIGHT, 0), 1);
    }

    // stop() gives every mouse back and removes every twin.
    void stopReleasesEverything()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        QVERIFY(isGrabbedByOther(mouse.node()));
        session.engine.stop();
        QVERIFY(session.backend.devices().empty());
        QVERIFY(!isGrabbedByOther(mouse.node()));
        QTRY_VERIFY_WITH_TIMEOUT(twin.pump().isGone(), deadlineMs);
    }
};

QTEST_GUILESS_MAIN(LinuxInputBackendTest)
#include "LinuxInputBackendTest.moc"
