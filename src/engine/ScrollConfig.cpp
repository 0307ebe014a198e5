#include "engine/ScrollConfig.h"

#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"

#include <QJsonArray>

#include <array>
#include <cmath>

namespace kestrix::ScrollConfig {
namespace {

using namespace Qt::StringLiterals;

bool readSwitch(QLatin1StringView key, bool fallback)
{
    return SettingsStore::shared().boolValue(key).value_or(fallback);
}

// A number inside [minimum, maximum], else the default. Written so that NaN falls to the default.
double readBounded(QLatin1StringView key, double minimum, double maximum, double fallback)
{
    const double stored = SettingsStore::shared().doubleValue(key);
    return stored >= minimum && stored <= maximum ? stored : fallback;
}

constexpr std::array<QLatin1StringView, 4> buttonNames { "secondary"_L1, "middle"_L1, "back"_L1, "forward"_L1 };

std::optional<std::uint16_t> hexId(const QJsonValue &value)
{
    bool isNumber = false;
    const uint id = value.toString().toUInt(&isNumber, 16);
    if (!isNumber || id > 0xffff)
        return std::nullopt;
    return static_cast<std::uint16_t>(id);
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
    if (!(stored > 0.0))
        return defaultScrollSpeed;
    if (stored > maximumScrollSpeed) {
        // A hand-typed speed past any use; once per value, not at every drag.
        static double reported = 0.0;
        if (stored != reported) {
            reported = stored;
            Log::write("[Kestrix] scrollSpeed " + std::to_string(stored) + " in the settings file is above "
                + std::to_string(static_cast<int>(maximumScrollSpeed)) + "; scrolling at "
                + std::to_string(static_cast<int>(maximumScrollSpeed)));
        }
        return maximumScrollSpeed;
    }
    return stored;
}

TriggerButton triggerButton()
{
    const std::optional<QString> stored = SettingsStore::shared().stringValue(SettingsKeys::triggerButton);
    return stored ? triggerButtonFromName(*stored).value_or(TriggerButton::Secondary) : TriggerButton::Secondary;
}

double dragThreshold()
{
    return readBounded(SettingsKeys::dragThreshold, minimumDragThreshold, maximumDragThreshold, 5.0);
}

double momentumGlide()
{
    return readBounded(SettingsKeys::momentumGlide, minimumMomentumGlide, maximumMomentumGlide, 0.97);
}

std::vector<MouseIdentity> disabledMice()
{
    std::vector<MouseIdentity> mice;
    for (const QJsonValue entry : SettingsStore::shared().value(SettingsKeys::disabledMice).toArray()) {
        if (std::optional<MouseIdentity> mouse = mouseFromJson(entry))
            mice.push_back(std::move(*mouse));
    }
    return mice;
}

ScrollSettings snapshot()
{
    return { enableVerticalScroll(), enableHorizontalScroll(), diagonalScroll(), reverseScroll(), momentumScroll(),
        usePixelScrolling(), scrollSpeed(), triggerButton(), dragThreshold(), momentumGlide() };
}

QLatin1StringView triggerButtonName(TriggerButton button) { return buttonNames[static_cast<std::size_t>(button)]; }

std::optional<TriggerButton> triggerButtonFromName(QStringView name)
{
    for (std::size_t i = 0; i < buttonNames.size(); ++i) {
        if (name == buttonNames[i])
            return static_cast<TriggerButton>(i);
    }
    return std::nullopt;
}

QJsonObject mouseToJson(const MouseIdentity &mouse)
{
    return { { u"vendor"_s, u"%1"_s.arg(mouse.vendor, 4, 16, QChar(u'0')) },
        { u"product"_s, u"%1"_s.arg(mouse.product, 4, 16, QChar(u'0')) }, { u"name"_s, mouse.name } };
}

std::optional<MouseIdentity> mouseFromJson(const QJsonValue &value)
{
    const QJsonObject object = value.toObject();
    const std::optional<std::uint16_t> vendor = hexId(object.value("vendor"_L1));
    const std::optional<std::uint16_t> product = hexId(object.value("product"_L1));
    if (!vendor || !product || !object.value("name"_L1).isString())
        return std::nullopt;
    return MouseIdentity { *vendor, *product, object.value("name"_L1).toString() };
}

void setMouseDisabled(const MouseIdentity &mouse, bool disabled)
{
    SettingsStore &store = SettingsStore::shared();
    QJsonArray entries;
    for (const QJsonValue entry : store.value(SettingsKeys::disabledMice).toArray()) {
        if (mouseFromJson(entry) != mouse)
            entries.append(entry);
    }
    if (disabled)
        entries.append(mouseToJson(mouse));
    store.setValue(SettingsKeys::disabledMice, entries);
}

} // namespace kestrix::ScrollConfig
