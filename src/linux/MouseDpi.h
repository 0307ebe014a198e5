#pragma once

#include <optional>
#include <string_view>

// A mouse's resolution as udev's hwdb gives it in MOUSE_DPI, and the conversion of its motion
// counts to the engine's points.
//
// One point is one count of a 1000 dpi mouse, the resolution libinput normalises pointer motion
// to. A device of D dpi therefore moves 1000 / D points per count: 2.5 for a 400 dpi mouse, 0.0625
// for a 16000 dpi one, so the 5-point threshold and the 10-point axis lock both stand for the same
// 5 and 10 thousandths of an inch of hand travel on every mouse.
namespace kestrix::MouseDpi {

// Most mice carry no MOUSE_DPI at all; they are taken to be 1000 dpi, as libinput does.
inline constexpr int defaultDpi = 1000;
// Anything outside this range is a broken hwdb entry, not a mouse.
inline constexpr int minimumDpi = 50;
inline constexpr int maximumDpi = 100000;

// Reads "800", "800@125" or a list such as "400@125 *800@125 1600@125" (the starred entry is the
// device's default; without a star the first entry is taken). Nothing for text that is not one of
// these forms or names a resolution outside [minimumDpi, maximumDpi].
std::optional<int> parse(std::string_view value);

inline double pointsPerCount(int dpi) { return 1000.0 / dpi; }

} // namespace kestrix::MouseDpi
