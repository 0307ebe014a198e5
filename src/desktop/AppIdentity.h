#pragma once

#include "net/AppInfo.h"

#include <QLatin1StringView>

// How Kestrix is named on this desktop. The identifier ("com.orvane.kestrix", also the name of the
// launcher and autostart entries) and the display name ("Kestrix") are AppInfo's; the program file
// has its own, lower-case name, as Linux programs do.
namespace kestrix::AppIdentity {

using namespace Qt::StringLiterals;

inline constexpr QLatin1StringView identifier = AppInfo::bundleIdentifier;
inline constexpr QLatin1StringView displayName = AppInfo::displayName;
inline constexpr QLatin1StringView executableName = "kestrix"_L1;

} // namespace kestrix::AppIdentity
