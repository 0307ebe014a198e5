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

// Interface language: a language code string.
inline constexpr QLatin1StringView language = "language"_L1;
// Record of the last successful launch-at-login change (Boolean); read by nothing.
inline constexpr QLatin1StringView launchAtLogin = "launchAtLogin"_L1;
// Anonymous analytics client identifier (string).
inline constexpr QLatin1StringView gaClientId = "ga_client_id"_L1;

} // namespace kestrix::SettingsKeys
