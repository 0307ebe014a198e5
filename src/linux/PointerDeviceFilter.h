#pragma once

#include <string>

struct udev_device;
struct libevdev;

// Which input nodes Kestrix takes over: mice, trackballs and pointing sticks with a right button
// and relative motion. Never touchpads, tablets, touchscreens, joysticks or keyboards, and never a
// virtual device that Kestrix made, in this process or another.
namespace kestrix::PointerDeviceFilter {

// "Kestrix" in ASCII as one hexadecimal number, the same marker the replayed clicks carry. Every
// twin carries it in its phys string; a device that carries it is never grabbed.
inline constexpr char marker[] = "4B657374726978";
// The phys string of a twin: the marker first, then the source's own phys.
std::string twinPhys(const char *sourcePhys);
bool carriesMarker(const char *phys, const char *uniq);

enum class Verdict {
    Pointer, // grab it
    PointerKeyboard, // motion and keys on one node: grabbing it would route typing through us
    KestrixTwin, // one of ours, or another running copy's
    Unclassified, // udev has not described the node; decide from its capabilities
    Other,
};

// From udev's description of an event node (udev's ID_INPUT_* properties, its phys and uniq).
Verdict classify(udev_device *device);
// From the capabilities the kernel reports, for nodes udev has not described.
Verdict classify(const libevdev *device);

} // namespace kestrix::PointerDeviceFilter
