#pragma once

#include "engine/InputControl.h"

#include <QJsonObject>
#include <QLatin1StringView>

#include <cstdint>
#include <optional>
#include <vector>

// The scroll settings: the one table of what the engine reads from the per-user settings store.
//
//   key                      type     default      a value of another type, or out of range, reads as
//   enableVerticalScroll     Boolean  true         true
//   enableHorizontalScroll   Boolean  true         true
//   diagonalScroll           Boolean  false        false
//   reverseScroll            Boolean  true         true
//   momentumScroll           Boolean  true         true
//   usePixelScrolling        Boolean  true         true
//   scrollSpeed              number   3.0          3.0 for 0, negative or NaN; 1000 above 1000
//   triggerButton            string   "secondary"  "secondary" ("middle", "back", "forward")
//   dragThreshold            number   5            5 outside 2 to 20 (points)
//   momentumGlide            number   0.97         0.97 outside 0.90 to 0.99 (decay per tick)
//   disabledMice             array    []           [] (entries that are not mice are skipped)
//
// The defaults are uneven on purpose: diagonal scrolling is the one switch that starts off, and
// reverse scrolling starts on (the content follows the hand).
//
// The per-key readers read the store at every call. The engine reads none of them on its own
// thread: it gets a ScrollSettings snapshot, taken on the GUI thread whenever the store changes.
namespace kestrix {

// Which mouse button drags to scroll. "Secondary" is the desktop's context-menu button: the right
// one, or the left one on a desktop set up for the left hand.
enum class TriggerButton : std::uint8_t { Secondary, Middle, Back, Forward };

struct ScrollSettings
{
    bool enableVerticalScroll = true;
    bool enableHorizontalScroll = true;
    bool diagonalScroll = false;
    bool reverseScroll = true;
    bool momentumScroll = true;
    bool usePixelScrolling = true;
    double scrollSpeed = 3.0;
    TriggerButton triggerButton = TriggerButton::Secondary;
    double dragThreshold = 5.0; // points of travel before a press scrolls
    double momentumGlide = 0.97; // momentum velocity factor per tick

    friend bool operator==(const ScrollSettings &, const ScrollSettings &) = default;
};

namespace ScrollConfig {

bool enableVerticalScroll();
bool enableHorizontalScroll();
bool diagonalScroll();
bool reverseScroll();
bool momentumScroll();
bool usePixelScrolling();
// Always greater than 0 and at most maximumScrollSpeed; a stored value above is read as the
// ceiling, with one log line per value.
double scrollSpeed();
TriggerButton triggerButton();
double dragThreshold();
double momentumGlide();
std::vector<MouseIdentity> disabledMice();

// Every value above at once.
ScrollSettings snapshot();

inline constexpr double defaultScrollSpeed = 3.0;
inline constexpr double maximumScrollSpeed = 1000.0;
inline constexpr double minimumDragThreshold = 2.0;
inline constexpr double maximumDragThreshold = 20.0;
inline constexpr double minimumMomentumGlide = 0.90;
inline constexpr double maximumMomentumGlide = 0.99;

// The stored names of the buttons, and back; nothing for a name that is none of them.
QLatin1StringView triggerButtonName(TriggerButton button);
std::optional<TriggerButton> triggerButtonFromName(QStringView name);

// A mouse as disabledMice keeps it: vendor and product as four hex digits, and the name.
QJsonObject mouseToJson(const MouseIdentity &mouse);
std::optional<MouseIdentity> mouseFromJson(const QJsonValue &value);
// Switches one mouse on or off in disabledMice, keeping every other entry as it is.
void setMouseDisabled(const MouseIdentity &mouse, bool disabled);

} // namespace ScrollConfig
} // namespace kestrix
