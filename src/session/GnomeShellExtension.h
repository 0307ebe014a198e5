#pragma once

#include <QLatin1StringView>
#include <QObject>

#include <functional>

// The small GNOME Shell extension Kestrix ships: GNOME on Wayland tells no other program which
// window has the focus, so the extension answers on D-Bus, from inside the shell, with the focused
// window's class (Wayland app id or X11 WM_CLASS) and instance:
//   bus name org.gnome.Shell, object /com/orvane/Kestrix/FocusedWindow,
//   interface com.orvane.Kestrix.FocusedWindow: GetFocused() -> (s class, s instance),
//   signal FocusedChanged(s class, s instance).
// The package installs it system-wide; the user turns it on from Kestrix.
namespace kestrix::GnomeShellExtension {

inline constexpr QLatin1StringView Uuid { "kestrix@orvane.com" };
inline constexpr QLatin1StringView ObjectPath { "/com/orvane/Kestrix/FocusedWindow" };
inline constexpr QLatin1StringView Interface { "com.orvane.Kestrix.FocusedWindow" };

enum class State {
    NoShell, // GNOME Shell is not on the session bus
    NotInstalled, // no copy of the extension in any data folder
    NeedsNewSession, // installed after the shell started; it is seen from the next login on
    Disabled, // known to the shell and off
    Enabled, // running
    Failed, // the shell reports an error or a version it does not support
};

// Whether a copy of the extension lies in $XDG_DATA_HOME or $XDG_DATA_DIRS.
bool installedOnDisk();

// Asks the shell (org.gnome.Shell.Extensions GetExtensionInfo); `done` runs on `context`'s thread.
void queryState(QObject *context, const std::function<void(State)> &done);

// Turns the extension on (org.gnome.Shell.Extensions EnableExtension); `done` gets the shell's answer.
void enable(QObject *context, const std::function<void(bool)> &done);

} // namespace kestrix::GnomeShellExtension
