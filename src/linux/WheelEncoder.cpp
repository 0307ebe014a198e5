#include "linux/WheelEncoder.h"

#include <limits>

namespace kestrix {
namespace {

bool fitsEvdev(std::int64_t value)
{
    return value >= std::numeric_limits<std::int32_t>::min() && value <= std::numeric_limits<std::int32_t>::max();
}

input_event wheelEvent(std::uint16_t code, std::int64_t value)
{
    return makeEvent(EV_REL, code, static_cast<std::int32_t>(value));
}

} // namespace

WheelEncoder::AxisOutput WheelEncoder::step(Axis &axis, Ratio unitsPerAmount, std::int64_t amount)
{
    if (amount == 0)
        return {};
    // A turn of direction starts counting afresh: a remainder of the other direction must not eat
    // into the first click of this one. A fraction in other parts (the unit changed) is dropped too.
    if ((amount > 0 && (axis.remainder < 0 || axis.fraction < 0))
        || (amount < 0 && (axis.remainder > 0 || axis.fraction > 0)) || axis.fractionOf != unitsPerAmount.per) {
        axis.remainder = 0;
        axis.fraction = 0;
        axis.fractionOf = unitsPerAmount.per;
    }
    // Division truncates toward zero: what is left keeps the amount's sign, like the hand's way.
    const std::int64_t exact = amount * unitsPerAmount.units + axis.fraction;
    const std::int64_t hiRes = exact / unitsPerAmount.per;
    axis.fraction = exact - hiRes * unitsPerAmount.per;
    axis.remainder += hiRes;
    const std::int64_t clicks = axis.remainder / unitsPerDetent;
    axis.remainder -= clicks * unitsPerDetent;
    return { hiRes, clicks };
}

std::optional<std::size_t> WheelEncoder::encode(
    ScrollUnit unit, std::int32_t vertical, std::int32_t horizontal, Frame &frame)
{
    const Axis savedVertical = m_vertical;
    const Axis savedHorizontal = m_horizontal;
    const Ratio unitsPerAmount = unit == ScrollUnit::Line ? hiResUnitsPerLine : hiResUnitsPerPixel;
    const AxisOutput v = step(m_vertical, unitsPerAmount, vertical);
    // REL_HWHEEL positive moves the content left; the engine's positive moves it right.
    const AxisOutput h = step(m_horizontal, unitsPerAmount, -static_cast<std::int64_t>(horizontal));
    if (!fitsEvdev(v.hiRes) || !fitsEvdev(h.hiRes)) {
        m_vertical = savedVertical;
        m_horizontal = savedHorizontal;
        return std::nullopt;
    }

    std::size_t count = 0;
    if (v.hiRes != 0)
        frame[count++] = wheelEvent(REL_WHEEL_HI_RES, v.hiRes);
    if (v.clicks != 0)
        frame[count++] = wheelEvent(REL_WHEEL, v.clicks);
    if (h.hiRes != 0)
        frame[count++] = wheelEvent(REL_HWHEEL_HI_RES, h.hiRes);
    if (h.clicks != 0)
        frame[count++] = wheelEvent(REL_HWHEEL, h.clicks);
    if (count == 0)
        return std::size_t { 0 };
    frame[count++] = makeEvent(EV_SYN, SYN_REPORT, 0);
    return count;
}

void WheelEncoder::reset()
{
    m_vertical = {};
    m_horizontal = {};
}

} // namespace kestrix
