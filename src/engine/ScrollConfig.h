#pragma once

// The scroll settings, read from the per-user settings store at every call: nothing is cached, so
// a value written by the preferences window or edited in the file applies at the next drag event.
//
//   key                      type     default  a value of another type reads as
//   enableVerticalScroll     Boolean  true     true
//   enableHorizontalScroll   Boolean  true     true
//   diagonalScroll           Boolean  false    false
//   reverseScroll            Boolean  true     true
//   momentumScroll           Boolean  true     true
//   usePixelScrolling        Boolean  true     true
//   scrollSpeed              number   3.0      3.0 (and so do 0 and negative numbers)
//
// The defaults are uneven on purpose: diagonal scrolling is the one switch that starts off, and
// reverse scrolling starts on (the content follows the hand).
namespace kestrix::ScrollConfig {

bool enableVerticalScroll();
bool enableHorizontalScroll();
bool diagonalScroll();
bool reverseScroll();
bool momentumScroll();
bool usePixelScrolling();
// Always greater than 0. No upper bound: a stored 500 scrolls at 500.
double scrollSpeed();

inline constexpr double defaultScrollSpeed = 3.0;

} // namespace kestrix::ScrollConfig
