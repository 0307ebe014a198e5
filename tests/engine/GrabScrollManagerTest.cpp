// The engine as a user feels it: what reaches the applications, what is withheld, what is posted.
//
// Gestures are written as small scripts, one step per "|":
//   down [X Y]      right button pressed (at X, Y)
//   drag DX DY      pointer moved by DX, DY points with the button held
//   up              right button released
//   marked STEP     the same step carrying the engine's own marker
//   timeout         the platform switched the hook off
// Posted events are written as
//   click X Y                                a replayed, marked right click at X, Y
//   scroll pixel|line V H [phases S M C]     a scroll event: vertical, horizontal, phase fields

#include "engine/GrabScrollManager.h"
#include "RecordingPlatform.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "core/TestSupport.h"

#include <QStringList>
#include <QTest>

#include <tuple>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

double number(const QString &text)
{
    bool ok = false;
    const double value = text.toDouble(&ok);
    if (!ok)
        qFatal("not a number in a test script: %s", qPrintable(text));
    return value;
}

PointerEvent parseEvent(const QString &step)
{
    QStringList words = step.simplified().split(u' ');
    PointerEvent event;
    if (words.first() == "marked"_L1) {
        event.userData = GrabScrollManager::syntheticEventMarker;
        words.removeFirst();
    }
    const QString &verb = words.first();
    if (verb == "down"_L1) {
        event.type = PointerEventType::RightMouseDown;
        if (words.size() == 3)
            event.location = { number(words[1]), number(words[2]) };
    } else if (verb == "up"_L1) {
        event.type = PointerEventType::RightMouseUp;
    } else if (verb == "drag"_L1) {
        event.type = PointerEventType::RightMouseDragged;
        event.deltaX = number(words[1]);
        event.deltaY = number(words[2]);
    } else if (verb == "timeout"_L1) {
        event.type = PointerEventType::HookDisabledByTimeout;
    } else {
        qFatal("unknown step in a test script: %s", qPrintable(step));
    }
    return event;
}

QString describe(const PostedEvent &posted)
{
    if (const auto *click = std::get_if<PostedClick>(&posted)) {
        QString text = u"click %1 %2"_s.arg(click->location.x).arg(click->location.y);
        if (click->marker != GrabScrollManager::syntheticEventMarker)
            text += " UNMARKED"_L1;
        return text;
    }
    const auto &scroll = std::get<ScrollEvent>(posted);
    QString text = u"scroll %1 %2 %3"_s.arg(scroll.unit == ScrollUnit::Pixel ? "pixel"_L1 : "line"_L1)
                       .arg(scroll.vertical)
                       .arg(scroll.horizontal);
    if (scroll.phases)
        text += u" phases %1 %2 %3"_s.arg(scroll.phases->scrollPhase)
                    .arg(scroll.phases->momentumPhase)
                    .arg(scroll.phases->isContinuous);
    return text;
}

QString describeAll(const std::vector<PostedEvent> &posted)
{
    QStringList parts;
    for (const PostedEvent &event : posted)
        parts << describe(event);
    return parts.join(" | "_L1);
}

// "scrollSpeed=1 diagonalScroll=true" and so on, by the stored keys; anything not named keeps its
// default.
void applySettings(const QString &settings)
{
    for (const QString &assignment : settings.split(u' ', Qt::SkipEmptyParts)) {
        const QStringList parts = assignment.split(u'=');
        const QByteArray key = parts[0].toLatin1();
        if (parts[1] == "true"_L1 || parts[1] == "false"_L1)
            SettingsStore::shared().setValue(QLatin1StringView(key), parts[1] == "true"_L1);
        else
            SettingsStore::shared().setValue(QLatin1StringView(key), number(parts[1]));
    }
}

struct Run
{
    QString verdicts;
    QString posted;
};

Run runScript(GrabScrollManager &engine, RecordingPlatform &platform, const QString &script)
{
    QStringList verdicts;
    for (const QString &step : script.split(u'|')) {
        const Verdict verdict = engine.handleEvent(parseEvent(step), platform);
        verdicts << (verdict == Verdict::Pass ? u"pass"_s : u"drop"_s);
    }
    return { verdicts.join(u' '), describeAll(platform.posted) };
}

} // namespace

class GrabScrollManagerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { reset(); }

    void gestures();
    void settingsChangeTheVeryNextEvent();
    void failedScrollKeepsTheGestureUnbegun();
    void momentumRuns();
    void momentumStartNeedsOneAxisAtOne();
    void pressCancelsMomentumSilently();
    void momentumFollowsTheDragDirection();
    void startAndStop();
    void failedInstallLeavesNoHook();

private:
    // A fresh engine over a fresh platform and an empty store, for each function and for each row.
    void reset()
    {
        SettingsStore::shared().disconnect(this);
        SettingsStore::shared().clear();
        platform = std::make_unique<RecordingPlatform>();
        engine = std::make_unique<GrabScrollManager>(*platform, *platform);
        engine->start();
        // As the input thread does: every change of the store reaches the engine as a snapshot.
        connect(&SettingsStore::shared(), &SettingsStore::changed, this,
            [this] { engine->setSettings(ScrollConfig::snapshot()); });
    }

    std::unique_ptr<RecordingPlatform> platform;
    std::unique_ptr<GrabScrollManager> engine;
};

void GrabScrollManagerTest::gestures()
{
    // Each row: its name, the settings, the script, the verdicts and what was posted.
    const char *const rows[][5] = {
        // The state table: without a press everything passes; a short click is replayed once, marked, at
        // the press position, and the engine is idle again after it.
        { "short click replayed once", "", "drag 3 4 | up | down 10 20 | drag 1 1 | drag -1 2 | up | drag 3 4 | up",
            "pass pass drop drop drop drop pass pass", "click 10 20" },
        // The threshold: 5.0 points of path, summed as lengths. Both axes scroll until one sums 10
        // points; the lock stays at twice the threshold.
        { "exactly 5.0 points start scrolling", "", "down | drag 3 4", "drop pass", "scroll pixel 12 9 phases 1 0 1" },
        { "4.99 points do not", "", "down | drag 4.99 0 | up", "drop drop drop", "click 0 0" },
        { "path length, not displacement", "", "down | drag 0 3 | drag 0 -3", "drop drop pass",
            "scroll pixel -9 0 phases 1 0 1" },
        { "the crossing event scrolls by its own delta only", "", "down | drag 0 4 | drag 0 2 | drag 0 1",
            "drop drop pass pass", "scroll pixel 6 0 phases 1 0 1 | scroll pixel 3 0 phases 2 0 1" },
        { "threshold 2: 2 points scroll, the lock comes at 4", "dragThreshold=2",
            "down | drag 2 0 | drag 1 3 | drag 0 1", "drop pass pass pass",
            "scroll pixel 0 6 phases 1 0 1 | scroll pixel 9 3 phases 2 0 1 | scroll pixel 3 0 phases 2 0 1" },
        { "threshold 20: 19.9 points still click", "dragThreshold=20", "down 3 3 | drag 0 19.9 | up", "drop drop drop",
            "click 3 3" },
        // Release of a scroll; units.
        { "release with momentum on posts the gesture end", "scrollSpeed=1", "down | drag 0 5 | drag 0 0.5 | up",
            "drop pass pass drop", "scroll pixel 5 0 phases 1 0 1 | scroll pixel 0 0 phases 8 0 1" },
        { "release with momentum off posts nothing", "momentumScroll=false", "down | drag 0 5 | up", "drop pass drop",
            "scroll pixel 15 0" },
        { "line units without momentum", "momentumScroll=false usePixelScrolling=false", "down | drag 0 5 | up",
            "drop pass drop", "scroll line 15 0" },
        { "phased events are pixels even when lines are chosen", "usePixelScrolling=false", "down | drag 0 5",
            "drop pass", "scroll pixel 15 0 phases 1 0 1" },
        // Axis lock, direction, speed, truncation.
        { "a tie locks vertical, the deciding step already filtered", "", "down | drag 10 10", "drop pass",
            "scroll pixel 30 0 phases 1 0 1" },
        { "the longer axis wins the lock", "", "down | drag 10.5 2 | drag 4 4", "drop pass pass",
            "scroll pixel 0 31 phases 1 0 1 | scroll pixel 0 12 phases 2 0 1" },
        { "the lock holds for the rest of the gesture", "", "down | drag 0 11 | drag 20 0 | drag 1 1",
            "drop pass pass pass", "scroll pixel 33 0 phases 1 0 1 | scroll pixel 3 0 phases 2 0 1" },
        { "diagonal scrolling takes no lock", "diagonalScroll=true", "down | drag 0 11 | drag 20 1", "drop pass pass",
            "scroll pixel 33 0 phases 1 0 1 | scroll pixel 3 60 phases 2 0 1" },
        { "amounts truncate toward zero", "", "down | drag 5 0 | drag 0 1.5 | drag 0 -1.5", "drop pass pass pass",
            "scroll pixel 0 15 phases 1 0 1 | scroll pixel 4 0 phases 2 0 1 | scroll pixel -4 0 phases 2 0 1" },
        { "reverse off scrolls against the hand", "reverseScroll=false", "down | drag 5 0 | drag 0 1.5",
            "drop pass pass", "scroll pixel 0 -15 phases 1 0 1 | scroll pixel -4 0 phases 2 0 1" },
        { "amounts below one are not posted", "scrollSpeed=0.2", "down | drag 0 5 | drag 0 1 | drag 0 1",
            "drop pass pass pass", "scroll pixel 1 0 phases 1 0 1" },
        { "both axes off post nothing, start no momentum", "enableVerticalScroll=false enableHorizontalScroll=false",
            "down | drag 3 4 | drag 0 20 | up", "drop pass pass drop", "scroll pixel 0 0 phases 8 0 1" },
        // Pass-through.
        { "marked events pass in every state", "",
            "marked down | marked up | down 4 4 | marked drag 9 9 | marked up | up", "pass pass drop pass pass drop",
            "click 4 4" },
        { "a press mid-gesture starts over", "", "down | drag 0 5 | down 2 2 | drag 1 0 | up",
            "drop pass drop drop drop", "scroll pixel 15 0 phases 1 0 1 | click 2 2" }
    };
    for (const auto &[name, settings, script, verdicts, posted] : rows) {
        const Row row { QString::fromUtf8(name) };
        reset();
        applySettings(QString::fromUtf8(settings));
        const Run run = runScript(*engine, *platform, QString::fromUtf8(script));
        QCOMPARE(run.verdicts, QString::fromUtf8(verdicts));
        QCOMPARE(run.posted, QString::fromUtf8(posted));
        QCOMPARE(engine->isEnabled(), true);
    }
}

void GrabScrollManagerTest::settingsChangeTheVeryNextEvent()
{
    runScript(*engine, *platform, u"down | drag 0 5"_s);
    SettingsStore::shared().setValue(SettingsKeys::enableVerticalScroll, false);
    engine->handleEvent(parseEvent(u"drag 1 5"_s), *platform);
    SettingsStore::shared().setValue(SettingsKeys::enableVerticalScroll, true);
    SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, 10.0);
    engine->handleEvent(parseEvent(u"drag 0 2"_s), *platform);
    QCOMPARE(describeAll(platform->posted), u"scroll pixel 15 0 phases 1 0 1 | scroll pixel 20 0 phases 2 0 1"_s);
}

void GrabScrollManagerTest::failedScrollKeepsTheGestureUnbegun()
{
    platform->eventsCanBeMade = false;
    runScript(*engine, *platform, u"down | drag 0 5"_s);
    platform->eventsCanBeMade = true;
    engine->handleEvent(parseEvent(u"drag 0 2"_s), *platform);
    // The first event that could be made is still the gesture's first.
    QCOMPARE(describeAll(platform->posted), u"scroll pixel 6 0 phases 1 0 1"_s);
}

void GrabScrollManagerTest::momentumRuns()
{
    // One axis, speed 1: the drag step that crosses the threshold is the only amount recorded. The
    // glide at its ends: about 0.1 s and 1.5 s of momentum from 10 pixels a step.
    const std::tuple<const char *, const char *, int, int> rows[] = { { "0.97", "drag 0 4 | drag 0 1", 39, 0 },
        { "0.97", "drag 0 5", 92, 105 }, { "0.97", "drag 0 10", 115, 255 }, { "0.97", "drag 0 30", 151, 883 },
        { "0.90", "drag 0 10", 33, 71 }, { "0.99", "drag 0 10", 348, 784 } };
    for (const auto &[glide, drags, steps, sum] : rows) {
        const Row row { QLatin1StringView(glide) + u' ' + QLatin1StringView(drags) };
        reset();
        applySettings(u"scrollSpeed=1 momentumGlide="_s + QLatin1StringView(glide));
        runScript(*engine, *platform, "down | "_L1 + QLatin1StringView(drags) + " | up"_L1);
        QVERIFY(platform->timerRunning);
        QCOMPARE(platform->timerPeriod, std::chrono::milliseconds(16));

        const std::size_t before = platform->scrolls().size();
        int ticks = 0;
        while (platform->timerRunning && ticks < 1000) {
            engine->momentumTick(*platform);
            ++ticks;
        }
        const std::vector<ScrollEvent> all = platform->scrolls();
        const std::vector<ScrollEvent> momentum(all.begin() + static_cast<std::ptrdiff_t>(before), all.end());

        QCOMPARE(ticks, steps + 1);
        QCOMPARE(static_cast<int>(momentum.size()), steps + 1);
        int total = 0;
        for (int i = 0; i < steps; ++i) {
            const ScrollEvent &event = momentum[static_cast<std::size_t>(i)];
            QCOMPARE(event.horizontal, 0);
            QVERIFY(event.phases);
            QCOMPARE(event.phases->scrollPhase, 0);
            QCOMPARE(event.phases->momentumPhase, i == 0 ? 1 : 2);
            QCOMPARE(event.phases->isContinuous, 1);
            total += event.vertical;
        }
        QCOMPARE(total, sum);
        QCOMPARE(describe(momentum.back()), u"scroll pixel 0 0 phases 0 8 1"_s);
        QVERIFY(!engine->isMomentumRunning());
    }
}

void GrabScrollManagerTest::momentumStartNeedsOneAxisAtOne()
{
    // Speed 0.11 with 9-point steps: amounts of 0.99 per axis. The last averages over fewer than 8
    // steps: (5 - 4) / 2 = 0.5.
    const std::pair<const char *, bool> rows[]
        = { { "diagonalScroll=true scrollSpeed=0.11 | drag 9 -9", false }, { "scrollSpeed=0.2 | drag 0 5", true },
              { "scrollSpeed=0.2 | drag -5 0", true }, { "scrollSpeed=1 | drag 0 5 | drag 0 -4", false } };
    for (const auto &[gesture, starts] : rows) {
        reset();
        const QStringList parts = QString::fromLatin1(gesture).split(u'|');
        applySettings(parts.first());
        runScript(*engine, *platform, u"down|"_s + parts.mid(1).join(u'|') + u"| up"_s);
        QVERIFY2(platform->timerRunning == starts, gesture);
    }
}

void GrabScrollManagerTest::pressCancelsMomentumSilently()
{
    runScript(*engine, *platform, u"down | drag 0 10 | up"_s);
    engine->momentumTick(*platform);
    engine->momentumTick(*platform);
    const std::size_t posted = platform->posted.size();

    QCOMPARE(engine->handleEvent(parseEvent(u"down"_s), *platform), Verdict::Drop);
    QVERIFY(!platform->timerRunning);
    engine->momentumTick(*platform); // a firing already queued when the press came
    QCOMPARE(platform->posted.size(), posted);
}

void GrabScrollManagerTest::momentumFollowsTheDragDirection()
{
    applySettings(u"reverseScroll=false scrollSpeed=2"_s);
    runScript(*engine, *platform, u"down | drag 0 10 | up"_s);
    engine->momentumTick(*platform);
    // -10 * 2 = -20 average; the first step carries 0.97 of it.
    QCOMPARE(describe(platform->posted.back()), u"scroll pixel -19 0 phases 0 1 1"_s);
    // Sideways alike, and the run goes on while only the horizontal velocity is left.
    runScript(*engine, *platform, u"down | drag 10 0 | up"_s);
    engine->momentumTick(*platform);
    engine->momentumTick(*platform);
    QCOMPARE(describe(platform->posted.back()), u"scroll pixel 0 -18 phases 0 2 1"_s);
    // The run starts from the average of the last eight amounts: 80 and seven times 1, not the 5
    // before them (nine would make 9, seven would not start at all).
    applySettings(u"reverseScroll=true scrollSpeed=1"_s);
    runScript(*engine, *platform, u"down | drag 0 5 | drag 0 80"_s + u" | drag 0 1"_s.repeated(7) + u" | up"_s);
    engine->momentumTick(*platform);
    QCOMPARE(describe(platform->posted.back()), u"scroll pixel 10 0 phases 0 1 1"_s);
}

// Start and stop are idempotent and logged, a stop mid-drag passes the rest, and the platform's
// time-out re-enables the hook.
void GrabScrollManagerTest::startAndStop()
{
    LogLines lines;
    engine->start();
    QCOMPARE(platform->installCalls, 1);
    runScript(*engine, *platform, u"down | drag 0 6"_s);
    engine->stop();
    engine->stop();
    QCOMPARE(platform->uninstallCalls, 1);
    QCOMPARE(engine->state(), GrabScrollManager::State::Idle);
    QCOMPARE(runScript(*engine, *platform, u"drag 0 6 | up"_s).verdicts, u"pass pass"_s);
    engine->start();
    QCOMPARE(platform->installCalls, 2);
    QCOMPARE(engine->handleEvent(parseEvent(u"timeout"_s), *platform), Verdict::Pass);
    QCOMPARE(platform->reenableCalls, 1);
    QCOMPARE(lines,
        QStringList({ u"[Kestrix] 마우스 입력 해제됨"_s, u"[Kestrix] 마우스 입력 해제됨"_s,
            u"[Kestrix] 마우스 입력 연결됨"_s }));
}

void GrabScrollManagerTest::failedInstallLeavesNoHook()
{
    engine->stop();
    platform->installSucceeds = false;
    {
        LogLines lines;
        engine->start();
        QCOMPARE(lines, QStringList { u"[Kestrix] 입력 장치 연결 실패 — /dev/uinput 접근 권한을 확인하세요."_s });
    }
    QVERIFY(!engine->isStarted());
    // A timeout notice for a hook that is not there changes nothing.
    engine->handleEvent(parseEvent(u"timeout"_s), *platform);
    QCOMPARE(platform->reenableCalls, 0);
    // Disabled: everything passes and the state stays where it was.
    engine->setEnabled(false);
    QCOMPARE(runScript(*engine, *platform, u"down | drag 0 9 | up"_s).verdicts, u"pass pass pass"_s);
    QCOMPARE(engine->state(), GrabScrollManager::State::Idle);
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    GrabScrollManagerTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "GrabScrollManagerTest.moc"
