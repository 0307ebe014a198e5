// The Linux backend against a real kernel: source mice made through uinput, taken over by the
// backend, real events written to them, and what comes out of their twins read back, as the
// desktop would read it. Needs a writable /dev/uinput: tests/linux/run-kernel-tests runs this in a
// VM where the machine has none.
//
// Amounts: at scroll speed 1.0 a drag of N points scrolls N pixels, which are N x 120 / 55
// high-resolution wheel units (WheelEncoder), so 100 points make 218 units and one legacy click.

#include "VirtualMouse.h"
#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "core/TestSupport.h"
#include "engine/GrabScrollManager.h"
#include "engine/ScrollConfig.h"
#include "linux/InputThread.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonValue>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>
#include <QThread>

#include <atomic>
#include <csignal>
#include <mutex>
#include <random>
#include <thread>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

constexpr int deadlineMs = 20000; // generous: the VM runs under emulation

// The input thread as the application runs it; the engine is looked at on its own thread.
struct Session
{
    InputThread input;

    std::optional<LinuxInputBackend::DeviceInfo> device(const QString &node) const
    {
        for (const auto &info : input.devices()) {
            if (info.node == node)
                return info;
        }
        return std::nullopt;
    }
    bool grabbed(const QString &node) const { return device(node).has_value() && device(node)->grabbed; }
    template<typename Value> Value ask(Value (GrabScrollManager::*question)() const)
    {
        Value answer {};
        input.runOnInputThread([&](GrabScrollManager &engine, LinuxInputBackend &) { answer = (engine.*question)(); });
        return answer;
    }
    GrabScrollManager::State state() { return ask(&GrabScrollManager::state); }
    bool momentumRunning() { return ask(&GrabScrollManager::isMomentumRunning); }
};

// Holds the input thread still, between two frames, for as long as it lives.
class Stall
{
public:
    explicit Stall(InputThread &input)
        : m_thread([this, &input] {
            input.runOnInputThread([this](GrabScrollManager &, LinuxInputBackend &) {
                m_inside.store(true);
                while (m_stalled.load())
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
            });
        })
    {
        while (!m_inside.load())
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~Stall()
    {
        m_stalled.store(false);
        m_thread.join();
    }

private:
    std::atomic<bool> m_stalled { true };
    std::atomic<bool> m_inside { false };
    std::thread m_thread;
};

// Every log line of the current test, also those the watchdog writes from its own thread.
std::mutex logMutex;
QString logText;
bool logged(const QString &part)
{
    std::lock_guard lock(logMutex);
    return logText.contains(part);
}
void clearLog()
{
    std::lock_guard lock(logMutex);
    logText.clear();
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
    (session).input.start();                                                                                           \
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
        clearLog();
    }

    // A short press is withheld, then replayed once as a plain click, press and release in frames
    // of their own, leaving nothing pressed; nothing of it reaches another reader of the grabbed
    // source. When the kernel's buffer overflows as the button goes up, the release is lost with
    // it, and the resynchronisation still ends the press with that one click. A plain
    // wheel notch passes with its high-resolution value added.
    void shortClick()
    {
        for (const bool overflow : { false, true }) {
            const Row row { overflow ? u"release lost in an overflow"_s : u"released"_s };
            init();
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
            QTRY_COMPARE_WITH_TIMEOUT(session.state(), GrabScrollManager::State::Pending, deadlineMs);
            mouse.move(2, 1); // under the threshold: withheld, so the click lands where the press was
            SYNC(mouse, twin);
            QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 0);
            QCOMPARE(twin.sum(EV_REL, REL_X), 0);

            // The release, then (with the input thread held still) far more than the kernel keeps.
            if (overflow) {
                const Stall stall(session.input);
                mouse.release(BTN_RIGHT);
                mouse.clickBurst(BTN_MIDDLE, 80);
            } else {
                mouse.release(BTN_RIGHT);
            }
            // What came after an overflow is lost as well (the resynchronisation drains it unread),
            // so the sync waits until the backend has been through it.
            QTRY_COMPARE_WITH_TIMEOUT(session.state(), GrabScrollManager::State::Idle, deadlineMs);
            SYNC(mouse, twin);
            QVERIFY(isOneClick(twin));
            QCOMPARE(twin.heldButtons(), std::vector<int> {});
            QCOMPARE(logged(u"overflowed: events were lost"_s), overflow);
            QVERIFY(!logged(u"Input watchdog"_s));
            QVERIFY(otherReader.pump().frames.empty());
        }
    }

    // A drag scrolls with the content following the hand (reverse scrolling on) or against it; a
    // mostly vertical one scrolls both axes on its first step, then keeps to the vertical; line
    // units are whole detents. A mouse whose MOUSE_DPI (from the test VM's udev rule, tests/linux/vm)
    // cannot be read counts as 1000 dpi; slowAndFastDragsScrollAlike covers the readable ones. The drag itself still
    // reaches the twin, the right button never does, and every legacy click comes in the frame of its high-resolution
    // value.
    void dragScrolls()
    {
        // REL_WHEEL positive moves the content down, REL_HWHEEL positive moves it left. wheel and hwheel:
        // the expected REL_WHEEL_HI_RES and REL_HWHEEL_HI_RES totals; the legacy ones are their whole 120s.
        const char *const plain = "Kestrix Test Mouse";
        const struct
        {
            const char *name, *mouse;
            bool reverse, pixels;
            int steps, dx, dy, wheel, hwheel;
        } rows[] = { { "down, following", plain, true, true, 10, 0, 10, 218, 0 },
            { "right, following", plain, true, true, 10, 10, 0, 0, -218 },
            { "down, against", plain, false, true, 10, 0, 10, -218, 0 },
            { "right, against", plain, false, true, 10, 10, 0, 0, 218 },
            { "axis lock: 3 pixels across, then 80 down", plain, true, true, 10, 3, 8, 174, -6 },
            { "line units: 10 lines a step, a third of a detent each", plain, true, false, 3, 0, 10, 1200, 0 },
            { "MOUSE_DPI \"fast\"", "Kestrix Test Mouse bad dpi", true, true, 10, 0, 10, 218, 0 } };
        for (const auto &[name, mouse, reverse, pixels, steps, dx, dy, wheel, hwheel] : rows) {
            const Row row { QString::fromUtf8(name) };
            const bool badDpi = mouse != plain;
            if (badDpi && !QFile::exists(u"/run/udev/rules.d/70-kestrix-test-mice.rules"_s))
                continue; // the MOUSE_DPI rule of tests/linux/vm is not installed
            init(); // each row afresh
            set(SettingsKeys::reverseScroll, reverse);
            set(SettingsKeys::usePixelScrolling, pixels);

            VirtualMouse source(mouse);
            Session session;
            TAKE_OVER(session, source, twin);
            EventLog otherReader(source.node());
            QCOMPARE(session.device(source.node())->dpi, 1000);
            QCOMPARE(logged(u"Ignoring MOUSE_DPI \"fast\""_s), badDpi);

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
        QTRY_VERIFY_WITH_TIMEOUT(session.momentumRunning(), deadlineMs);
        // Read on the way: the kernel keeps only a few dozen events for a reader that lags.
        QTRY_VERIFY_WITH_TIMEOUT((twin.pump(), !session.momentumRunning()), deadlineMs);
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
        QTRY_COMPARE_WITH_TIMEOUT(session.state(), GrabScrollManager::State::Pending, deadlineMs);
        QVERIFY(!session.momentumRunning());
        SYNC(mouse, twin);
        const std::size_t pressed = twin.frames.size();
        for (int i = 0; i < 5; ++i)
            SYNC(mouse, twin);
        QCOMPARE(twin.framesWith(EV_REL, REL_WHEEL_HI_RES, pressed), 0);
    }

    // Started before any mouse, Kestrix waits for one and takes over the first plugged in; a second
    // one too, but never its twin. The first, unplugged mid-drag with the left button also held,
    // leaves the engine idle, and its twin goes away never having seen the right button. (What the
    // twin releases just before it goes cannot be read back: the kernel drops a reader's queue when
    // its node disappears. The watchdog test reads that release on a twin that stays.) With every
    // mouse gone it waits again; stop() gives every mouse back and removes every twin.
    void hotPlugUnplugAndStop()
    {
        Session session;
        session.input.start();
        session.state(); // the start has run
        if (!session.input.devices().empty())
            QSKIP("this machine has a mouse of its own");
        QVERIFY(session.input.isStarted());
        QVERIFY(logged(u"waiting for one to be plugged in"_s));
        auto first = std::make_unique<VirtualMouse>("Kestrix Test Mouse");
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(first->node()), deadlineMs);
        EventLog firstTwin(session.device(first->node())->twinNode);
        auto second = std::make_unique<VirtualMouse>("Kestrix Test Mouse Two");
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(second->node()), deadlineMs);
        EventLog secondTwin(session.device(second->node())->twinNode);
        second->drag(0, 10);
        SYNC(*second, secondTwin);
        QCOMPARE(secondTwin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
        QCOMPARE(firstTwin.pump().sum(EV_REL, REL_WHEEL_HI_RES), 0);
        for (const auto &info : session.input.devices()) {
            for (const auto &other : session.input.devices())
                QVERIFY2(info.node != other.twinNode, qPrintable(info.node + u" is a twin"_s));
        }

        first->press(BTN_LEFT);
        first->press(BTN_RIGHT);
        for (int i = 0; i < 5; ++i)
            first->move(0, 10);
        SYNC(*first, firstTwin);
        QCOMPARE(session.state(), GrabScrollManager::State::Scrolling);
        QCOMPARE(firstTwin.heldButtons(), std::vector<int> { BTN_LEFT });
        QSignalSpy changed(&session.input, &InputControl::miceChanged);
        const QString node = first->node();
        first.reset();
        QTRY_VERIFY_WITH_TIMEOUT(!session.device(node).has_value(), deadlineMs);
        QCOMPARE(session.state(), GrabScrollManager::State::Idle);
        QTRY_VERIFY_WITH_TIMEOUT(changed.count() >= 1, deadlineMs);
        QTRY_VERIFY_WITH_TIMEOUT(firstTwin.pump().isGone(), deadlineMs);
        QCOMPARE(firstTwin.framesWith(EV_KEY, BTN_RIGHT), 0);

        clearLog();
        second.reset();
        QTRY_VERIFY_WITH_TIMEOUT(logged(u"waiting for one to be plugged in"_s), deadlineMs);
        VirtualMouse third("Kestrix Test Mouse");
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(third.node()), deadlineMs);
        session.input.stop();
        QTRY_VERIFY_WITH_TIMEOUT(session.input.devices().empty(), deadlineMs);
        QVERIFY(!isGrabbedByOther(third.node()));
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
            session.input.start();
            QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(mouse.node()) || session.input.isStarted(), deadlineMs);
            session.state(); // the start has run
            QVERIFY(session.input.isStarted());
            QVERIFY(!session.device(otherTwin).has_value());
        }

        ::kill(static_cast<pid_t>(other.processId()), SIGKILL);
        QVERIFY(other.waitForFinished(deadlineMs));
        EventLog reader(mouse.node()); // sees nothing while a grab is held
        mouse.move(1, 0);
        QTRY_COMPARE_WITH_TIMEOUT(reader.pump().sum(EV_REL, REL_X), 1, deadlineMs);
    }

    // A stuck input thread: after 250 ms of unread input the watchdog gives the mouse back to every
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

        // Stall the input thread while writing, until another reader sees the mouse. The log line
        // follows the release on the watchdog's thread.
        auto stall = std::make_unique<Stall>(session.input);
        const QDeadlineTimer deadline(deadlineMs);
        while (otherReader.pump().frames.empty() && !deadline.hasExpired()) {
            mouse.move(1, 0);
            QThread::msleep(10); // pacing the writes of the stall, not waiting for a result
        }
        const QString stallLine = u"Input watchdog: input waited 250 ms unread"_s;
        while (!logged(stallLine) && !deadline.hasExpired())
            QThread::msleep(1);
        QVERIFY(!otherReader.frames.empty());
        QVERIFY(logged(stallLine));
        // The left button, still down on the source, is up on the twin: the source's own release
        // goes straight to the desktop now.
        QCOMPARE(twin.heldButtons(), std::vector<int> {});

        // The input thread runs again (its waiting input is handled at once), but takes no grab
        // while a button is held: the desktop must see that release from the source.
        stall.reset();
        session.state(); // one more pass of the input thread
        QVERIFY(!isGrabbedByOther(mouse.node()));
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
    // The same hand travel scrolls the same, dragged slowly (one count a frame) or quickly (frames
    // of many counts), at every resolution: half an inch, 500 points, scrolls 495 past the
    // threshold, 1080 units.
    void slowAndFastDragsScrollAlike()
    {
        if (!QFile::exists(u"/run/udev/rules.d/70-kestrix-test-mice.rules"_s))
            QSKIP("the MOUSE_DPI rule of tests/linux/vm is not installed");
        for (const int dpi : { 400, 1600, 16000 }) {
            const Row row { QString::number(dpi) };
            VirtualMouse source((QByteArray("Kestrix Test Mouse ") + QByteArray::number(dpi) + "dpi").constData());
            Session session;
            TAKE_OVER(session, source, twin);
            QCOMPARE(session.device(source.node())->dpi, dpi);
            const int counts = dpi / 2;
            int scrolled[2] = {};
            for (const int frameCounts : { 1, dpi / 10 }) {
                const int before = twin.pump().sum(EV_REL, REL_WHEEL_HI_RES);
                source.press(BTN_RIGHT);
                for (int moved = frameCounts, frames = 1; moved <= counts; moved += frameCounts, ++frames) {
                    source.move(0, frameCounts);
                    // The kernel keeps only a few dozen events for a reader that lags, the backend's
                    // read of the source included: every 16 frames, wait until they came through.
                    if (frames % 16 == 0)
                        SYNC(source, twin);
                }
                source.release(BTN_RIGHT);
                SYNC(source, twin);
                QCOMPARE(twin.dropped(), 0);
                scrolled[frameCounts == 1 ? 0 : 1] = twin.sum(EV_REL, REL_WHEEL_HI_RES) - before;
            }
            QVERIFY2(qAbs(scrolled[0] - 1080) <= 32 && qAbs(scrolled[1] - 1080) <= 32,
                qPrintable(u"slow %1, fast %2"_s.arg(scrolled[0]).arg(scrolled[1])));
        }
    }

    // Another trigger button, or the desktop's left hand: the chosen button drags to scroll and
    // clicks as itself when short, and every other button passes untouched.
    void triggerButtons()
    {
        const std::tuple<const char *, bool, int, int> rows[]
            = { { "middle", false, BTN_MIDDLE, BTN_RIGHT }, { "secondary", true, BTN_LEFT, BTN_RIGHT } };
        for (const auto &[button, leftHanded, trigger, other] : rows) {
            const Row row { QString::fromLatin1(button) };
            init();
            set(SettingsKeys::triggerButton, QString::fromLatin1(button));
            VirtualMouse mouse("Kestrix Test Mouse");
            Session session;
            session.input.setDesktopPointer(leftHanded, false);
            TAKE_OVER(session, mouse, twin);

            mouse.drag(0, 10, 10, trigger);
            SYNC(mouse, twin);
            QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
            QCOMPARE(twin.framesWith(EV_KEY, trigger), 0);
            mouse.press(trigger);
            mouse.release(trigger);
            mouse.drag(0, 10, 10, other);
            SYNC(mouse, twin);
            QCOMPARE(twin.framesWith(EV_KEY, trigger), 2); // the short press, replayed as a click
            QCOMPARE(twin.framesWith(EV_KEY, other), 2); // the other button's drag, untouched
            QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
            QCOMPARE(twin.heldButtons(), std::vector<int> {});
        }
    }

    // A mouse switched off in the preferences is given back at once, its twin gone, while the
    // other one still scrolls; switched on again it is taken over again. A press over an excluded
    // app passes whole.
    void switchedOffMiceAndExcludedApps()
    {
        VirtualMouse trackball("Kestrix Test Mouse Two");
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(trackball.node()), deadlineMs);
        EventLog trackballTwin(session.device(trackball.node())->twinNode);

        const MouseIdentity identity { 0x4b58, 0x0001, u"Kestrix Test Mouse Two"_s };
        ScrollConfig::setMouseDisabled(identity, true);
        QTRY_VERIFY_WITH_TIMEOUT(!session.device(trackball.node()).has_value(), deadlineMs);
        QVERIFY(!isGrabbedByOther(trackball.node()));
        QTRY_VERIFY_WITH_TIMEOUT(trackballTwin.pump().isGone(), deadlineMs);
        const auto mice = session.input.mice();
        QVERIFY(std::any_of(mice.begin(), mice.end(),
            [&](const MouseInfo &info) { return info.identity == identity && info.connected && !info.active; }));
        mouse.drag(0, 10);
        SYNC(mouse, twin);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 218);

        ScrollConfig::setMouseDisabled(identity, false);
        QTRY_VERIFY_WITH_TIMEOUT(session.grabbed(trackball.node()), deadlineMs);

        session.input.setPointerOverExcludedApp(true);
        mouse.drag(0, 10);
        SYNC(mouse, twin);
        QCOMPARE(twin.sum(EV_REL, REL_WHEEL_HI_RES), 218);
        QCOMPARE(twin.framesWith(EV_KEY, BTN_RIGHT), 2);
        QCOMPARE(twin.sum(EV_REL, REL_Y), 200);
    }

    // The GUI thread stopped for two seconds: the mouse goes on moving and scrolling through the
    // input thread, the grab held and the watchdog quiet.
    void stalledGuiThreadStopsNothing()
    {
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        EventLog otherReader(mouse.node());
        const QDeadlineTimer stall(2000);
        mouse.press(BTN_RIGHT);
        int moves = 0;
        while (!stall.hasExpired()) { // no event loop runs on this thread meanwhile
            mouse.move(0, 2);
            ++moves;
            twin.pump();
            QThread::msleep(8); // the pace of a hand, not a wait for a result
        }
        mouse.release(BTN_RIGHT);
        // All but the first 4 points, withheld under the threshold.
        QTRY_VERIFY_WITH_TIMEOUT(twin.pump().sum(EV_REL, REL_Y) == 2 * moves - 4, deadlineMs);
        QVERIFY(twin.sum(EV_REL, REL_WHEEL_HI_RES) > 0);
        QVERIFY(otherReader.pump().frames.empty());
        QVERIFY(!logged(u"Input watchdog"_s));
    }
    // Random valid input (any button in any order, motion, the wheel, bursts past the kernel's
    // buffer, drags into momentum and presses during it) leaves nothing pressed on the twin and the
    // engine idle once every button is up.
    void randomInputLeavesNothingPressed()
    {
        set(SettingsKeys::momentumScroll, true);
        VirtualMouse mouse("Kestrix Test Mouse");
        Session session;
        TAKE_OVER(session, mouse, twin);
        std::mt19937 random(20261123);
        const int buttons[] = { BTN_LEFT, BTN_RIGHT, BTN_MIDDLE, BTN_SIDE };
        bool held[4] = {};
        for (int step = 0; step < 3000; ++step) {
            const auto pick = random() % 10;
            if (pick < 3) {
                const std::size_t button = random() % 4;
                held[button] = !held[button];
                mouse.frame({ { buttons[button], held[button] ? 1 : 0 } });
            } else if (pick < 8) {
                mouse.move(static_cast<int>(random() % 41) - 20, static_cast<int>(random() % 41) - 20);
            } else if (pick < 9) {
                mouse.frame({ { REL_WHEEL, random() % 2 == 0 ? 1 : -1 } });
            } else if (step % 500 == 9) {
                mouse.clickBurst(BTN_MIDDLE, 80);
            }
            if (step % 64 == 0)
                twin.pump();
        }
        for (std::size_t button = 0; button < 4; ++button) {
            if (held[button])
                mouse.release(buttons[button]);
        }
        QTRY_COMPARE_WITH_TIMEOUT(session.state(), GrabScrollManager::State::Idle, deadlineMs);
        SYNC(mouse, twin);
        QCOMPARE(twin.heldButtons(), std::vector<int> {});
        QVERIFY(session.grabbed(mouse.node()));
    }
};

QTEST_GUILESS_MAIN(LinuxInputBackendTest)
#include "LinuxInputBackendTest.moc"
