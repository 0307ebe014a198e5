#pragma once

#include <QString>

// Launch at login through the desktop's autostart folder: the XDG autostart entry
// $XDG_CONFIG_HOME/autostart/com.orvane.kestrix.desktop starts Kestrix when the user logs in.
//
// The entry itself is the state: "enabled" is read from it every time, so a change made by the
// desktop's own autostart settings shows. SettingsKeys::launchAtLogin only records the last
// successful change and is read by nothing.
namespace kestrix::LaunchAtLoginHelper {

// Writes (true) or removes (false) the entry. On success writes SettingsKeys::launchAtLogin; on
// failure logs "[Kestrix] Launch at login error: " with the reason and leaves the key as it was.
void setEnabled(bool enabled);

// True when the entry exists, is ours (it starts this program or an installed Kestrix) and is not
// switched off (Hidden=true, or the GNOME switch X-GNOME-Autostart-enabled=false).
bool isEnabled();

// Where the entry lives.
QString autostartEntryPath();

// The Exec value that starts `program` with no arguments, quoted as desktop entries require.
QString execLine(const QString &program);
// The program an Exec value starts (its first word, unquoted); empty when the value is malformed.
QString execProgram(const QString &execValue);

} // namespace kestrix::LaunchAtLoginHelper
