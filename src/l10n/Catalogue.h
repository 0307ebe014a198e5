#pragma once

#include "l10n/Language.h"

#include <QLatin1StringView>
#include <QStringView>

#include <array>
#include <cstddef>
#include <cstdint>

// The tables behind L10n: one table per key, one row per language. Everything outside the l10n
// layer asks L10n for texts; this view of the raw cells exists for the lookup and for the tests
// that check every cell.
namespace kestrix::L10n {

// The keys, in the order the catalogue declares them.
// clang-format off
enum class Key : std::uint8_t {
    Enabled, Preferences, CheckForUpdates, Quit, Subtitle, ScrollDirection, VerticalScroll, MomentumScroll,
    DiagonalScroll, HorizontalScroll, Behavior, ReverseScroll, SmoothScroll, ScrollSpeed, LanguageLabel,
    LaunchAtLogin, UpdateAvailable, UpdateMessage, NoUpdateTitle, NoUpdateMessage, Download, Later,
    WaitingForAccess, AccessNeededTitle, AccessNeededMessage, NoMouseConnected,
    Advanced, Back, ScrollButton, SecondaryButton, MiddleButton, BackButton, ForwardButton, DragThreshold,
    PointsValue, Glide, GlideShort, GlideLong, DefaultMark, Mice, NotConnected, ExcludedApps, AddAppUnderPointer,
    AddAppCountdown, AppAdded, Remove, AppSourceMissing, AppSourceHint, EnableGnomeExtension, NoAppUnderPointer
};
// clang-format on

inline constexpr std::size_t keyCount = 50;

inline constexpr std::array<Key, keyCount> allKeys = [] {
    std::array<Key, keyCount> keys {};
    for (std::size_t i = 0; i < keyCount; ++i)
        keys[i] = static_cast<Key>(i);
    return keys;
}();
static_assert(allKeys.back() == Key::NoAppUnderPointer, "a key was added without growing keyCount");

// The placeholder of the texts that take a value (the version of UpdateMessage, ...): replaced
// literally, exactly once per text.
inline constexpr QLatin1StringView placeholder("%@");

// The key's name as the accessor is called: "enabled", "checkForUpdates", ...
QLatin1StringView keyName(Key key);

// The cell exactly as written in the table, with no fallback.
QStringView cell(Key key, Language language);

} // namespace kestrix::L10n
