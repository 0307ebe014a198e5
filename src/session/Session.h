#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>

namespace kestrix {

// The kind of desktop session Kestrix runs in, from the variables every session manager exports.
// Each watcher of this layer picks where it reads from with it; tests build one by hand.
struct Session
{
    enum class Desktop { Gnome, Kde, Sway, Other };

    Desktop desktop = Desktop::Other;
    bool wayland = false; // WAYLAND_DISPLAY is set
    QByteArray x11Display; // DISPLAY; empty when there is no X server (or Xwayland) to ask
    QString swaySocket; // SWAYSOCK (i3 IPC); empty outside sway

    static Session fromEnvironment(const QProcessEnvironment &environment = QProcessEnvironment::systemEnvironment());
};

} // namespace kestrix
