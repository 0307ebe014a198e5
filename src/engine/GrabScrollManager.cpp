#include "engine/GrabScrollManager.h"

#include "core/Log.h"

#include <cmath>
#include <limits>
#include <string>

namespace kestrix {
namespace {

[[noreturn, gnu::cold]] void amountOutOfRange(double amount)
{
    Log::fatal("[Kestrix] Scroll amount " + std::to_string(amount)
        + " does not fit a scroll event; check scrollSpeed in the settings file");
}

// Fractions are dropped, not rounded and not carried to the next event. Only an absurd stored
// speed can push an amount out of the wheel's 32-bit range; that stops the program rather than
// scrolling by a silently clamped amount.
std::int32_t toWheelAmount(double amount)
{
    // Both bounds are exact in a double; NaN fails them as well.
    constexpr double below = static_cast<double>(std::numeric_limits<std::int32_t>::min()) - 1.0;
    constexpr double above = static_cast<double>(std::numeric_limits<std::int32_t>::max()) + 1.0;
    if (!(amount > below && amount < above))
        amountOutOfRange(amount);
    return static_cast<std::int32_t>(amount); // truncates toward zero
}

} // namespace

void GrabScrollManager::History::append(double value)
{
    m_values[(m_oldest + m_count) % m_values.size()] = value;
    if (m_count < m_values.size())
        ++m_count;
    else
        m_oldest = (m_oldest + 1) % m_values.size();
}

double GrabScrollManager::History::average() const
{
    double sum = 0.0;
    for (std::size_t i = 0; i < m_count; ++i)
        sum += m_values[(m_oldest + i) % m_values.size()];
    return sum / static_cast<double>(m_count);
}

GrabScrollManager::GrabScrollManager(InputHook &hook, RepeatingTimer &momentumTimer)
    : m_hook(hook)
    , m_momentumTimer(momentumTimer)
{ }

void GrabScrollManager::start()
{
    if (m_hookInstalled)
        return;
    if (!m_hook.install()) {
        Log::write("[Kestrix] 입력 장치 연결 실패 — /dev/uinput 접근 권한을 확인하세요.");
        return;
    }
    m_hookInstalled = true;
    Log::write("[Kestrix] 마우스 입력 연결됨");
}

void GrabScrollManager::stop()
{
    if (m_hookInstalled) {
        m_hook.uninstall();
        m_hookInstalled = false;
    }
    m_state = State::Idle;
    Log::write("[Kestrix] 마우스 입력 해제됨");
}

Verdict GrabScrollManager::handleEvent(const PointerEvent &event, EventPoster &poster)
{
    // The hook's own notices come first; the engine's switch and marker decide the rest.
    const bool passes = !m_isEnabled || event.userData == syntheticEventMarker;
    switch (event.type) {
    case PointerEventType::HookDisabledByTimeout:
    case PointerEventType::HookDisabledByUserInput:
        if (m_hookInstalled)
            m_hook.reenable();
        return Verdict::Pass;
    case PointerEventType::RightMouseDragged:
        return passes ? Verdict::Pass : handleRightMouseDragged(event, poster);
    case PointerEventType::RightMouseUp:
        return passes ? Verdict::Pass : handleRightMouseUp(poster);
    case PointerEventType::RightMouseDown:
        return passes ? Verdict::Pass : handleRightMouseDown(event, poster);
    case PointerEventType::Other:
        return Verdict::Pass;
    }
    return Verdict::Pass;
}

Verdict GrabScrollManager::handleRightMouseDown(const PointerEvent &event, EventPoster &poster)
{
    // A new press stops momentum at once, without a momentum-end event.
    cancelMomentum();
    m_state = State::Pending;
    m_initialPosition = poster.currentPointerLocation().value_or(event.location);
    m_accumulatedDelta = 0.0;
    return Verdict::Drop;
}

Verdict GrabScrollManager::handleRightMouseDragged(const PointerEvent &event, EventPoster &poster)
{
    if (m_state == State::Idle)
        return Verdict::Pass;

    // The path matters only until it crosses the threshold: a scrolling drag skips the square root.
    if (m_state == State::Pending) {
        m_accumulatedDelta += std::sqrt(event.deltaX * event.deltaX + event.deltaY * event.deltaY);
        if (m_accumulatedDelta < m_settings.dragThreshold)
            return Verdict::Drop;
        beginScrolling();
    }
    // Only this step is scrolled: the path travelled before the threshold never is.
    postScrollEvent(event.deltaX, event.deltaY, poster);
    // The drag itself still reaches the applications; only press and release are withheld.
    return Verdict::Pass;
}

Verdict GrabScrollManager::handleRightMouseUp(EventPoster &poster)
{
    const State endedState = m_state;
    m_state = State::Idle;

    switch (endedState) {
    case State::Idle:
        return Verdict::Pass;
    case State::Pending:
        // The whole click is replayed at release time, at the press position; the real release is
        // dropped. A click that cannot be made is skipped: the gesture is over either way.
        poster.postRightClick(m_initialPosition, syntheticEventMarker);
        return Verdict::Drop;
    case State::Scrolling:
        if (m_settings.momentumScroll) {
            poster.postScroll({ ScrollUnit::Pixel, 0, 0, ScrollPhases { phaseEnded, 0, 1 } });
            startMomentumScroll();
        }
        return Verdict::Drop;
    }
    return Verdict::Drop;
}

void GrabScrollManager::beginScrolling()
{
    m_state = State::Scrolling;
    m_lockedAxis = LockedAxis::None;
    m_axisAccX = 0.0;
    m_axisAccY = 0.0;
    m_velocityHistoryX.clear();
    m_velocityHistoryY.clear();
    m_isFirstScrollEvent = true;
}

// Until one axis has summed twice the threshold (10 points by default) both axes scroll; then the gesture keeps to the
// axis that travelled further (vertical on a tie). The step that decides the lock is already filtered by it.
void GrabScrollManager::applyAxisLock(double &deltaX, double &deltaY)
{
    if (m_lockedAxis == LockedAxis::None) {
        m_axisAccX += std::abs(deltaX);
        m_axisAccY += std::abs(deltaY);
        const double lockDistance = axisLockFactor * m_settings.dragThreshold;
        if (m_axisAccX < lockDistance && m_axisAccY < lockDistance)
            return;
        m_lockedAxis = m_axisAccX > m_axisAccY ? LockedAxis::Horizontal : LockedAxis::Vertical;
    }
    if (m_lockedAxis == LockedAxis::Vertical)
        deltaX = 0.0;
    else
        deltaY = 0.0;
}

void GrabScrollManager::postScrollEvent(double deltaX, double deltaY, EventPoster &poster)
{
    if (!m_settings.diagonalScroll)
        applyAxisLock(deltaX, deltaY);

    // With reverse scrolling on, the amounts keep the sign of the hand's movement: the content
    // follows the hand like a sheet of paper.
    const double direction = m_settings.reverseScroll ? 1.0 : -1.0;
    const double speed = m_settings.scrollSpeed;
    const double vertical = m_settings.enableVerticalScroll ? (deltaY * direction) * speed : 0.0;
    const double horizontal = m_settings.enableHorizontalScroll ? (deltaX * direction) * speed : 0.0;

    // Momentum starts from these amounts, so they are kept even when nothing is posted below.
    m_velocityHistoryY.append(vertical);
    m_velocityHistoryX.append(horizontal);

    const std::int32_t verticalAmount = toWheelAmount(vertical);
    const std::int32_t horizontalAmount = toWheelAmount(horizontal);
    if (verticalAmount == 0 && horizontalAmount == 0)
        return;

    if (m_settings.momentumScroll) {
        // Phased events are always in pixels; the first one of a gesture says "began".
        const ScrollPhases phases { m_isFirstScrollEvent ? 1 : 2, 0, 1 };
        if (poster.postScroll({ ScrollUnit::Pixel, verticalAmount, horizontalAmount, phases }))
            m_isFirstScrollEvent = false;
        return;
    }
    const ScrollUnit unit = m_settings.usePixelScrolling ? ScrollUnit::Pixel : ScrollUnit::Line;
    poster.postScroll({ unit, verticalAmount, horizontalAmount, std::nullopt });
}

// Velocity is an amount per drag step, direction, speed and axis switches applied; the time
// between drag events plays no part.
GrabScrollManager::Velocity GrabScrollManager::averageVelocity() const
{
    if (m_velocityHistoryX.empty())
        return {};
    return { m_velocityHistoryX.average(), m_velocityHistoryY.average() };
}

void GrabScrollManager::startMomentumScroll()
{
    const Velocity start = averageVelocity();
    if (std::abs(start.y) < momentumStartVelocity && std::abs(start.x) < momentumStartVelocity)
        return;
    m_momentumVX = start.x;
    m_momentumVY = start.y;
    m_momentumIsFirst = true;
    cancelMomentum();
    m_momentumTimer.start(momentumInterval);
    m_momentumRunning = true;
}

void GrabScrollManager::cancelMomentum()
{
    if (!m_momentumRunning)
        return;
    m_momentumTimer.cancel();
    m_momentumRunning = false;
}

// The decay comes first, so the first momentum step already carries the glide factor (0.97 by
// default) times the average. Steps
// are posted even when both amounts truncate to 0, so the phase sequence runs unbroken to its end.
void GrabScrollManager::momentumTick(EventPoster &poster)
{
    if (!m_momentumRunning)
        return;
    m_momentumVX *= m_settings.momentumGlide;
    m_momentumVY *= m_settings.momentumGlide;

    if (std::abs(m_momentumVY) < momentumStopVelocity && std::abs(m_momentumVX) < momentumStopVelocity) {
        poster.postScroll({ ScrollUnit::Pixel, 0, 0, ScrollPhases { 0, phaseEnded, 1 } });
        cancelMomentum();
        return;
    }

    const std::int64_t phase = m_momentumIsFirst ? 1 : 2;
    m_momentumIsFirst = false;
    const std::int32_t vertical = toWheelAmount(m_momentumVY);
    const std::int32_t horizontal = toWheelAmount(m_momentumVX);
    poster.postScroll({ ScrollUnit::Pixel, vertical, horizontal, ScrollPhases { 0, phase, 1 } });
}

} // namespace kestrix
