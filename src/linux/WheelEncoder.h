#pragma once

#include "engine/InputPlatform.h"

#include <linux/input.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
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

    // Up to four wheel events; the caller closes the frame they go into.
    using Frame = std::array<input_event, 4>;

    // Fills `frame` and returns how many wheel events it holds, 0 when the amounts move no wheel
    // at all (a zero event, or a fraction still being carried). Returns nothing and changes nothing
    // when the amount does not fit an evdev value.
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
        Axis next;
        std::int64_t hiRes = 0;
        std::int64_t clicks = 0;
    };
    // What `amount` more sends on an axis, and the axis after it.
    static AxisOutput step(const Axis &axis, Ratio unitsPerAmount, std::int64_t amount);
    static bool fitsEvdev(std::int64_t value)
    {
        return value >= std::numeric_limits<std::int32_t>::min() && value <= std::numeric_limits<std::int32_t>::max();
    }

    Axis m_vertical;
    Axis m_horizontal;
};

// Defined here, inline: the input thread runs them for every scrolling frame.
inline WheelEncoder::AxisOutput WheelEncoder::step(const Axis &axis, Ratio unitsPerAmount, std::int64_t amount)
{
    if (amount == 0)
        return { axis, 0, 0 };
    AxisOutput out { axis, 0, 0 };
    Axis &next = out.next;
    // A turn of direction starts counting afresh: a remainder of the other direction must not eat
    // into the first click of this one. A fraction in other parts (the unit changed) is dropped too.
    if ((amount > 0 && (next.remainder < 0 || next.fraction < 0))
        || (amount < 0 && (next.remainder > 0 || next.fraction > 0)) || next.fractionOf != unitsPerAmount.per) {
        next.remainder = 0;
        next.fraction = 0;
        next.fractionOf = unitsPerAmount.per;
    }
    // Division truncates toward zero: what is left keeps the amount's sign, like the hand's way.
    const std::int64_t exact = amount * unitsPerAmount.units + next.fraction;
    out.hiRes = exact / unitsPerAmount.per;
    next.fraction = exact - out.hiRes * unitsPerAmount.per;
    next.remainder += out.hiRes;
    out.clicks = next.remainder / unitsPerDetent;
    next.remainder -= out.clicks * unitsPerDetent;
    return out;
}

inline std::optional<std::size_t> WheelEncoder::encode(
    ScrollUnit unit, std::int32_t vertical, std::int32_t horizontal, Frame &frame)
{
    const Ratio unitsPerAmount = unit == ScrollUnit::Line ? hiResUnitsPerLine : hiResUnitsPerPixel;
    const AxisOutput v = step(m_vertical, unitsPerAmount, vertical);
    // REL_HWHEEL positive moves the content left; the engine's positive moves it right.
    const AxisOutput h = step(m_horizontal, unitsPerAmount, -static_cast<std::int64_t>(horizontal));
    if (!fitsEvdev(v.hiRes) || !fitsEvdev(h.hiRes))
        return std::nullopt;
    m_vertical = v.next;
    m_horizontal = h.next;

    std::size_t count = 0;
    if (v.hiRes != 0)
        frame[count++] = makeEvent(EV_REL, REL_WHEEL_HI_RES, static_cast<std::int32_t>(v.hiRes));
    if (v.clicks != 0)
        frame[count++] = makeEvent(EV_REL, REL_WHEEL, static_cast<std::int32_t>(v.clicks));
    if (h.hiRes != 0)
        frame[count++] = makeEvent(EV_REL, REL_HWHEEL_HI_RES, static_cast<std::int32_t>(h.hiRes));
    if (h.clicks != 0)
        frame[count++] = makeEvent(EV_REL, REL_HWHEEL, static_cast<std::int32_t>(h.clicks));
    return count;
}

inline void WheelEncoder::reset()
{
    m_vertical = {};
    m_horizontal = {};
}

} // namespace kestrix
