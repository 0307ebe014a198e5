#include "linux/PointerDeviceFilter.h"

#include <libevdev/libevdev.h>
#include <libudev.h>

#include <cstring>
#include <string_view>

namespace kestrix::PointerDeviceFilter {
namespace {

bool isSet(udev_device *device, const char *property)
{
    const char *value = udev_device_get_property_value(device, property);
    return value != nullptr && std::string_view(value) == "1";
}

bool contains(const char *text, const char *part) { return text != nullptr && std::strstr(text, part) != nullptr; }

// What udev's input_id marks as ID_INPUT_KEY, so a node udev has not described is judged as the udev
// rule and classify(udev_device *) would judge it: any key code below the buttons; failing that,
// any in the two blocks of keys above them. Buttons (BTN_*) alone are no keys.
bool reportsKeys(const libevdev *device)
{
    const auto anyIn = [device](unsigned first, unsigned end) {
        for (unsigned code = first; code < end; ++code) {
            if (libevdev_has_event_code(device, EV_KEY, code) != 0)
                return true;
        }
        return false;
    };
    return anyIn(KEY_ESC, BTN_MISC) || anyIn(KEY_OK, BTN_DPAD_UP) || anyIn(KEY_ALS_TOGGLE, BTN_TRIGGER_HAPPY);
}

} // namespace

std::string twinPhys(const char *sourcePhys)
{
    std::string phys = "kestrix-";
    phys += marker;
    phys += '/';
    phys += sourcePhys != nullptr ? sourcePhys : "";
    return phys;
}

bool carriesMarker(const char *phys, const char *uniq) { return contains(phys, marker) || contains(uniq, marker); }

Verdict classify(udev_device *device)
{
    const char *node = udev_device_get_devnode(device);
    const char *sysname = udev_device_get_sysname(device);
    if (node == nullptr || sysname == nullptr || std::strncmp(sysname, "event", 5) != 0)
        return Verdict::Other;

    // The phys and uniq strings belong to the input device, the parent of the event node.
    udev_device *input = udev_device_get_parent_with_subsystem_devtype(device, "input", nullptr);
    if (input != nullptr
        && carriesMarker(udev_device_get_sysattr_value(input, "phys"), udev_device_get_sysattr_value(input, "uniq")))
        return Verdict::KestrixTwin;

    if (!isSet(device, "ID_INPUT"))
        return Verdict::Unclassified;
    if (isSet(device, "ID_INPUT_TOUCHPAD") || isSet(device, "ID_INPUT_TABLET") || isSet(device, "ID_INPUT_TOUCHSCREEN")
        || isSet(device, "ID_INPUT_JOYSTICK"))
        return Verdict::Other;
    // The same nodes as the udev rule (data/70-kestrix.rules) opens up, so access never waits on
    // a node the rule leaves closed. udev marks pointing sticks with buttons as mice too.
    if (!isSet(device, "ID_INPUT_MOUSE"))
        return Verdict::Other;
    // ID_INPUT_KEY, not ID_INPUT_KEYBOARD: udev calls a node a keyboard only when it has every key
    // from Esc to S, and a node with all letters but no Esc can still type.
    if (isSet(device, "ID_INPUT_KEY") || isSet(device, "ID_INPUT_KEYBOARD"))
        return Verdict::PointerKeyboard;
    return Verdict::Pointer;
}

Verdict classify(const libevdev *device)
{
    if (carriesMarker(libevdev_get_phys(device), libevdev_get_uniq(device)))
        return Verdict::KestrixTwin;
    const bool pointer = libevdev_has_event_code(device, EV_REL, REL_X) != 0
        && libevdev_has_event_code(device, EV_REL, REL_Y) != 0
        && libevdev_has_event_code(device, EV_KEY, BTN_RIGHT) != 0;
    // Absolute axes mean a touchpad, tablet or touchscreen, whatever else the node reports.
    if (!pointer || libevdev_has_event_type(device, EV_ABS) != 0)
        return Verdict::Other;
    if (reportsKeys(device))
        return Verdict::PointerKeyboard;
    return Verdict::Pointer;
}

} // namespace kestrix::PointerDeviceFilter
