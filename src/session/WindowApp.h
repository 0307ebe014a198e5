#pragma once

#include <QString>

namespace kestrix {

// Which application a window belongs to, as the desktop names it.
struct WindowApp
{
    // The Wayland app_id, or on X11 the class part of WM_CLASS ("Firefox", "org.remmina.Remmina").
    QString appId;
    // On X11 the instance part of WM_CLASS ("Navigator", "remmina"); KWin's resourceName; else empty.
    QString instance;

    bool isEmpty() const { return appId.isEmpty() && instance.isEmpty(); }
    friend bool operator==(const WindowApp &, const WindowApp &) = default;
};

} // namespace kestrix
