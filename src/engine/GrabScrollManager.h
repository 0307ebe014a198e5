#pragma once

#include "engine/InputPlatform.h"
#include "engine/ScrollConfig.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace kestrix {

// The scroll engine: turns drags with the trigger button into scroll events.
//
// "Right" below is the trigger button: the desktop's secondary button unless the user chose
// another; the platform tells the engine which presses are the trigger's. A press is always
// withheld. If the pointer then travels the drag threshold (5 points unless set otherwise) with
// the button held, the gesture scrolls: every further drag step becomes one synthesized scroll
// event, and after the release momentum may carry the scroll on. A release before that replays an
// ordinary click of the same button at the press position, so context menus keep working.
//
// Gesture states (what holds in each):
//   Idle       no right button held through the engine; everything passes.
//   Pending    the press was withheld; drags are withheld while the path stays under the threshold.
//   Scrolling  the path reached the threshold; drags pass and each one is also posted as a scroll.
//
//   from       input        condition            action                                 to         event
//   any        right down   -                    cancel momentum, remember position     Pending    dropped
//   Idle       drag         -                    -                                      Idle       passed
//   Idle       right up     -                    -                                      Idle       passed
//   Pending    drag         path < threshold     add step length                        Pending    dropped
//   Pending    drag         path >= threshold    reset gesture, scroll by this step     Scrolling  passed
//   Pending    right up     -                    replay right click at press position   Idle       dropped
//   Scrolling  drag         -                    scroll by this step                    Scrolling  passed
//   Scrolling  right up     momentum on          post gesture end, start momentum       Idle       dropped
//   Scrolling  right up     momentum off         -                                      Idle       dropped
//   any        stop()       -                    hook removed                           Idle       -
//
// Everything runs on one thread: the hook's events, the momentum timer, start()/stop() and
// setSettings(). The settings are a snapshot handed in between two events, so a change applies
// from the next event on. Whatever the engine posts goes to the poster handed in with the event
// or the tick that caused it: the platform decides per call where a scroll lands.
class GrabScrollManager
{
public:
    enum class State : std::uint8_t { Idle, Pending, Scrolling };
    enum class LockedAxis : std::uint8_t { None, Vertical, Horizontal };

    // Written into the user value of both events of a replayed click: "Kestrix" in ASCII, read as
    // one big-endian number. The hook passes events that carry it untouched.
    static constexpr std::uint64_t syntheticEventMarker = 0x4B657374726978;

    // The axis lock is taken once one axis has travelled twice the drag threshold (10 points at
    // the default threshold of 5).
    static constexpr double axisLockFactor = 2.0;
    static constexpr std::size_t velocityHistoryDepth = 8;
    static constexpr std::chrono::milliseconds momentumInterval { 16 };
    static constexpr double momentumStartVelocity = 1.0; // amount per step needed to start momentum
    static constexpr double momentumStopVelocity = 0.3; // both axes below this end momentum
    static constexpr std::int64_t phaseEnded = 8; // scroll and momentum phase "ended"

    GrabScrollManager(InputHook &hook, RepeatingTimer &momentumTimer);
    GrabScrollManager(const GrabScrollManager &) = delete;
    GrabScrollManager &operator=(const GrabScrollManager &) = delete;

    // Installs the hook; does nothing when it is installed already.
    void start();
    // Removes the hook and forgets the gesture. A running momentum goes on to its natural end.
    void stop();
    bool isStarted() const { return m_hookInstalled; }

    // Master switch, true at every launch; a disabled engine passes every event untouched.
    bool isEnabled() const { return m_isEnabled; }
    void setEnabled(bool enabled) { m_isEnabled = enabled; }

    // The settings from the next event on.
    void setSettings(const ScrollSettings &settings) { m_settings = settings; }
    const ScrollSettings &settings() const { return m_settings; }

    // The hook's callback: every event the hook sees, answered with pass or drop. What it posts
    // goes to `poster`.
    Verdict handleEvent(const PointerEvent &event, EventPoster &poster);

    // The momentum timer's handler.
    void momentumTick(EventPoster &poster);

    // Read-only views for diagnostics and tests.
    State state() const { return m_state; }
    bool isMomentumRunning() const { return m_momentumRunning; }

private:
    // The last amounts of a gesture, never more than velocityHistoryDepth: a ring, the oldest
    // overwritten.
    class History
    {
    public:
        void append(double value);
        void clear() { m_count = m_oldest = 0; }
        bool empty() const { return m_count == 0; }
        double average() const; // summed oldest first

    private:
        std::array<double, velocityHistoryDepth> m_values {};
        std::size_t m_oldest = 0;
        std::size_t m_count = 0;
    };

    struct Velocity
    {
        double x = 0.0;
        double y = 0.0;
    };

    Verdict handleRightMouseDown(const PointerEvent &event, EventPoster &poster);
    Verdict handleRightMouseDragged(const PointerEvent &event, EventPoster &poster);
    Verdict handleRightMouseUp(EventPoster &poster);
    void beginScrolling();
    void postScrollEvent(double deltaX, double deltaY, EventPoster &poster);
    void applyAxisLock(double &deltaX, double &deltaY);
    Velocity averageVelocity() const;
    void startMomentumScroll();
    void cancelMomentum();

    InputHook &m_hook;
    RepeatingTimer &m_momentumTimer;
    ScrollSettings m_settings;

    State m_state = State::Idle;
    bool m_hookInstalled = false;
    PointerLocation m_initialPosition;
    double m_accumulatedDelta = 0.0;
    bool m_isEnabled = true;
    LockedAxis m_lockedAxis = LockedAxis::None;
    double m_axisAccX = 0.0;
    double m_axisAccY = 0.0;
    History m_velocityHistoryX;
    History m_velocityHistoryY;
    bool m_isFirstScrollEvent = true;
    bool m_momentumRunning = false;
    double m_momentumVX = 0.0;
    double m_momentumVY = 0.0;
    bool m_momentumIsFirst = true;
};

} // namespace kestrix
