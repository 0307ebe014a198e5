#pragma once

#include <QLatin1StringView>

// What Kestrix says about itself, fixed when it is built. The version occurs three times (the
// version, the display line, the update query) as whole literals rather than being assembled at
// run time, so each can be searched for as it appears; a test holds all three to the CMake project
// version, so a release that bumps one and forgets another fails the build's tests.
namespace kestrix::AppInfo {

using namespace Qt::StringLiterals;

inline constexpr QLatin1StringView version = "1.0.1"_L1;
// The first item of the tray menu and the preferences header: never translated.
inline constexpr QLatin1StringView displayLine = "Kestrix v1.0.1"_L1;
// The product web site: scheme and host only, no path. The update server answers on this host.
inline constexpr QLatin1StringView website = "https://kestrix.orvane.com"_L1;
// Path and query of the update check on the web site's host; `v` carries the version.
inline constexpr QLatin1StringView updateQuery = "/checkUpdate/?v=1.0.1"_L1;
inline constexpr QLatin1StringView contactEmail = "kestrix@orvane.com"_L1;

// The identity by which a new copy finds older running copies to ask them to quit.
inline constexpr QLatin1StringView bundleIdentifier = "com.orvane.kestrix"_L1;
inline constexpr QLatin1StringView displayName = "Kestrix"_L1;

} // namespace kestrix::AppInfo
