#include "engine/ScrollConfig.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"

namespace kestrix::ScrollConfig {
namespace {

bool readSwitch(QLatin1StringView key, bool fallback)
{
    return SettingsStore::shared().boolValue(key).value_or(fallback);
}

} // namespace

bool enableVerticalScroll() { return readSwitch(SettingsKeys::enableVerticalScroll, true); }
bool enableHorizontalScroll() { return readSwitch(SettingsKeys::enableHorizontalScroll, true); }
bool diagonalScroll() { return readSwitch(SettingsKeys::diagonalScroll, false); }
bool reverseScroll() { return readSwitch(SettingsKeys::reverseScroll, true); }
bool momentumScroll() { return readSwitch(SettingsKeys::momentumScroll, true); }
bool usePixelScrolling() { return readSwitch(SettingsKeys::usePixelScrolling, true); }

double scrollSpeed()
{
    const double stored = SettingsStore::shared().doubleValue(SettingsKeys::scrollSpeed);
    // Written as "greater than 0" so that NaN falls to the default as well.
    return stored > 0.0 ? stored : defaultScrollSpeed;
}

} // namespace kestrix::ScrollConfig
