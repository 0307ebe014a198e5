#pragma once

#include <chrono>
#include <cstdint>
#include <optional>

// The narrow seam between the scroll engine and the platform it runs on. The engine sees pointer
// events and answers pass or drop; it posts synthesized events and runs a repeating timer, all
// through the three interfaces below. It never touches a device, a clock or a window system.
namespace kestrix {

struct PointerLocation
{
    double x = 0.0;
    double y = 0.0;
};

enum class PointerEventType : std::uint8_t {
    RightMouseDown,
    RightMouseUp,
    RightMouseDragged,
    // The platform switched the hook off behind the engine's back (it was too slow, or the user
    // intervened). The engine asks for it to be switched on again.
    HookDisabledByTimeout,
    HookDisabledByUserInput,
    Other,
};

struct PointerEvent
{
    PointerEventType type = PointerEventType::Other;
    // Pointer movement since the previous event, in points: x to the right, y downward.
    double deltaX = 0.0;
    double deltaY = 0.0;
    PointerLocation location;
    // The 64-bit user value the event was posted with; the engine's own clicks carry its marker.
    std::uint64_t userData = 0;
};

enum class Verdict : std::uint8_t { Pass, Drop };

enum class ScrollUnit : std::uint8_t { Pixel = 0, Line = 1 };

// The three gesture fields of a phased scroll event. Plain wheel events carry none of them.
struct ScrollPhases
{
    std::int64_t scrollPhase = 0; // 1 gesture began, 2 changed, 8 ended, 0 not a gesture step
    std::int64_t momentumPhase = 0; // 1 momentum began, 2 continues, 8 ended, 0 no momentum
    std::int64_t isContinuous = 0; // 1: a precise, pixel-based device
};

struct ScrollEvent
{
    ScrollUnit unit = ScrollUnit::Pixel;
    std::int32_t vertical = 0; // wheel 1: positive moves the content down
    std::int32_t horizontal = 0; // wheel 2: positive moves the content right
    std::optional<ScrollPhases> phases;
};

// The global input hook: sees every right-button press, drag and release of the system and hands
// them to the engine on the engine's thread.
class InputHook
{
public:
    virtual ~InputHook() = default;
    // Installs and enables the hook; false when it cannot (no permission, no device).
    virtual bool install() = 0;
    virtual void uninstall() = 0;
    // Switches an installed hook back on after the platform disabled it.
    virtual void reenable() = 0;
};

// Injects synthesized events below every application.
class EventPoster
{
public:
    virtual ~EventPoster() = default;
    // Where the pointer is now; nothing when the platform cannot tell.
    virtual std::optional<PointerLocation> currentPointerLocation() = 0;
    // False when the event could not be made; nothing was posted then.
    virtual bool postScroll(const ScrollEvent &event) = 0;
    // A right-button press and release at `location`, both tagged with `marker` so the hook lets
    // them through. False when the events could not be made; nothing was posted then.
    virtual bool postRightClick(PointerLocation location, std::uint64_t marker) = 0;
};

// A repeating timer on the engine's thread. Its owner calls GrabScrollManager::momentumTick() on
// every firing, the first one period after start(), until cancel().
class RepeatingTimer
{
public:
    virtual ~RepeatingTimer() = default;
    virtual void start(std::chrono::milliseconds period) = 0;
    virtual void cancel() = 0;
};

} // namespace kestrix
