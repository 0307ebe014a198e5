#pragma once

#include "engine/InputPlatform.h"

#include <linux/input.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace kestrix {

// One evdev event with its time left at zero: the kernel stamps what is written to uinput.
inline input_event makeEvent(std::uint16_t type, std::uint16_t code, std::int32_t value)
{
    input_event event {};
    event.type = type;
    event.code = code;
    event.value = value;
    return event;
}

// Turns the engine's scroll amounts into evdev wheel events for one frame.
//
// Directions: the engine's vertical amount is positive when the content moves down, which is what
// REL_WHEEL positive does (the wheel turned away from the user). Its horizontal amount is positive
// when the content moves right, and REL_HWHEEL positive scrolls right, that is moves the content
// left: the horizontal sign is flipped here. With reverse scrolling on, the engine's amounts carry
// the hand's direction, so the content follows the hand on both axes.
//
// Units: 120 high-resolution units are one wheel detent. Pixel amounts are scaled by
// hiResUnitsPerPixel; fractions of a unit are carried per axis to the next event, exactly: in
// integers, as elevenths of a unit, so that no amount of drags drifts from the total. The legacy
// REL_WHEEL/REL_HWHEEL click goes out in the same frame each time the high-resolution total of the
// current direction crosses a multiple of 120, the remainder carried, as the kernel's own hi-res
// drivers do. A line is a third of a detent (40 units), because toolkits scroll about three lines
// per detent; lines go through the same carrying as pixels.
//
// The phase, momentum-phase and continuous fields have no evdev form: Linux consumers see plain,
// smooth wheel motion and never the gesture boundaries.
class WheelEncoder
{
public:
    // High-resolution units per amount, as a fraction.
    struct Ratio
    {
        std::int64_t units;
        std::int64_t per;
    };
    // A browser scrolls about 50 to 60 pixels per detent, so 120 / 55 units per pixel make a page
    // at speed 1.0 move about as far as the hand that drags it.
    static constexpr Ratio hiResUnitsPerPixel { 120, 55 };
    static constexpr Ratio hiResUnitsPerLine { 40, 1 };
    static constexpr std::int32_t unitsPerDetent = 120;

    // Up to four wheel events and the SYN_REPORT that closes the frame.
    using Frame = std::array<input_event, 5>;

    // Fills `frame` and returns its length including SYN_REPORT, or 0 when the amounts move no
    // wheel at all (a zero event, or a fraction still being carried). Returns nothing and changes
    // nothing when the amount does not fit an evdev value.
    std::optional<std::size_t> encode(ScrollUnit unit, std::int32_t vertical, std::int32_t horizontal, Frame &frame);

    // Forgets carried fractions and remainders, for a fresh gesture.
    void reset();

private:
    struct Axis
    {
        std::int64_t fraction = 0; // high-resolution units not yet sent, in 1 / fractionOf
        std::int64_t fractionOf = 1;
        std::int64_t remainder = 0; // high-resolution units sent since the last legacy click
    };
    struct AxisOutput
    {
        std::int64_t hiRes = 0;
        std::int64_t clicks = 0;
    };
    static AxisOutput step(Axis &axis, Ratio unitsPerAmount, std::int64_t amount);

    Axis m_vertical;
    Axis m_horizontal;
};

} // namespace kestrix
