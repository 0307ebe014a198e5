#pragma once

#include <QLatin1StringView>

// The names by which a running Kestrix is known on this desktop: the desktop-entry identifier and
// the display name. The single-instance rule finds older copies by them, the launcher and autostart
// entries are named after the identifier, and the executable is installed under its own name.
namespace kestrix::AppIdentity {

using namespace Qt::StringLiterals;

inline constexpr QLatin1StringView identifier = "com.orvane.kestrix"_L1;
inline constexpr QLatin1StringView displayName = "Kestrix"_L1;
// The installed program's file name.
inline constexpr QLatin1StringView executableName = "kestrix"_L1;

} // namespace kestrix::AppIdentity
