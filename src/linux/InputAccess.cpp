#include "linux/InputAccess.h"

#include "linux/PointerDeviceFilter.h"

#include <fcntl.h>
#include <libudev.h>
#include <unistd.h>

namespace kestrix::InputAccess {
namespace {

// The effective ids decide what open() allows, so they are the ones asked about.
bool accessible(const char *path, int mode) { return faccessat(AT_FDCWD, path, mode, AT_EACCESS) == 0; }

} // namespace

bool isGranted()
{
    if (!accessible("/dev/uinput", R_OK | W_OK))
        return false;

    udev *context = udev_new();
    if (context == nullptr)
        return false;
    udev_enumerate *enumerate = udev_enumerate_new(context);
    udev_enumerate_add_match_subsystem(enumerate, "input");
    udev_enumerate_scan_devices(enumerate);

    bool granted = true;
    udev_list_entry *entry = nullptr;
    udev_list_entry_foreach(entry, udev_enumerate_get_list_entry(enumerate))
    {
        udev_device *device = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
        if (device == nullptr)
            continue;
        // Only nodes udev describes as pointers are asked about: telling an undescribed node apart
        // would need it open, and a desktop's udev describes every node.
        if (PointerDeviceFilter::classify(device) == PointerDeviceFilter::Verdict::Pointer) {
            if (!accessible(udev_device_get_devnode(device), R_OK))
                granted = false;
        }
        udev_device_unref(device);
    }
    udev_enumerate_unref(enumerate);
    udev_unref(context);
    return granted;
}

} // namespace kestrix::InputAccess
