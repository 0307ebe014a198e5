#pragma once

#include <QLatin1StringView>

// Every key of the per-user settings store, in one place. Readers and writers use these names and
// nothing else; the defaults live with the readers (ScrollConfig for the scroll switches).
namespace kestrix::SettingsKeys {

using namespace Qt::StringLiterals;

// Scroll engine (Boolean switches and a number).
inline constexpr QLatin1StringView enableVerticalScroll = "enableVerticalScroll"_L1;
inline constexpr QLatin1StringView enableHorizontalScroll = "enableHorizontalScroll"_L1;
inline constexpr QLatin1StringView diagonalScroll = "diagonalScroll"_L1;
inline constexpr QLatin1StringView reverseScroll = "reverseScroll"_L1;
inline constexpr QLatin1StringView momentumScroll = "momentumScroll"_L1;
inline constexpr QLatin1StringView usePixelScrolling = "usePixelScrolling"_L1;
inline constexpr QLatin1StringView scrollSpeed = "scrollSpeed"_L1;

// What starts a scroll and how it ends: the button ("secondary", "middle", "back" or "forward"),
// the points of travel before a press scrolls, and momentum's decay per 16 ms tick.
inline constexpr QLatin1StringView triggerButton = "triggerButton"_L1;
inline constexpr QLatin1StringView dragThreshold = "dragThreshold"_L1;
inline constexpr QLatin1StringView momentumGlide = "momentumGlide"_L1;
// The mice Kestrix leaves alone: an array of { "vendor": "046d", "product": "c077", "name": "..." }.
inline constexpr QLatin1StringView disabledMice = "disabledMice"_L1;
// The apps whose windows get the button untouched: an array of app ids or window classes, matched
// without regard to case, a trailing "*" matching any rest. Absent: a default list.
inline constexpr QLatin1StringView excludedApps = "excludedApps"_L1;

// Interface language: a language code string.
inline constexpr QLatin1StringView language = "language"_L1;
// Record of the last successful launch-at-login change (Boolean); read by nothing.
inline constexpr QLatin1StringView launchAtLogin = "launchAtLogin"_L1;
// Anonymous analytics client identifier (string).
inline constexpr QLatin1StringView gaClientId = "ga_client_id"_L1;

} // namespace kestrix::SettingsKeys
