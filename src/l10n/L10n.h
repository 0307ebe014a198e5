#pragma once

#include <QString>

// The catalogue of interface texts: one accessor per text of the tray menu, the preferences window,
// the update dialogs and the notifications. Each returns the text in the current language
// (Languages::current()), read at the moment of the call; after languageDidChange, ask again.
//
// The log lines, the product line "Kestrix v1.0.1" and the "OK" of the no-update dialog are not
// translated and are not here.
namespace kestrix::L10n {

// Tray menu.
QString enabled();
QString preferences();
QString checkForUpdates();
QString quit();

// Preferences window.
QString subtitle();
QString scrollDirection();
QString verticalScroll();
QString momentumScroll();
QString diagonalScroll();
QString horizontalScroll();
QString behavior();
QString reverseScroll();
QString smoothScroll();
QString scrollSpeed();
QString languageLabel();
QString launchAtLogin();

// Update dialogs.
QString updateAvailable();
QString noUpdateTitle();
QString noUpdateMessage();
QString download();
QString later();

// Mouse access and devices: the tray's tooltip and product line, the desktop notification.
QString waitingForAccess();
QString accessNeededTitle();
// Ends with a colon: the caller shows the command on a line of its own, untranslated.
QString accessNeededMessage();
QString noMouseConnected();

// The Advanced page of the preferences window.
QString advanced();
QString back();
QString scrollButton();
QString secondaryButton();
QString middleButton();
QString backButton();
QString forwardButton();
QString dragThreshold();
QString glide();
QString glideShort();
QString glideLong();
QString defaultMark();
QString mice();
QString notConnected();

// The Advanced page's list of excluded apps.
QString excludedApps();
QString addAppUnderPointer();
QString remove();
QString noAppUnderPointer();
// The notes shown where the desktop does not tell which app is under the pointer, and the button
// that turns the GNOME extension on.
QString appSourceMissing();
QString appSourceHint();
QString enableGnomeExtension();
// The countdown before the app under the pointer is taken: "Point at the app: 3".
QString addAppCountdown(int seconds);
// The app just added, by the name the desktop gives it, inserted literally.
QString appAdded(const QString &app);

// The threshold slider's value: "5 pt" and its translations, the number in ASCII digits whatever
// the language or the system's number format.
QString pointsValue(int points);

// The update message with every "%@" replaced by `version`, literally: the version is not
// interpreted, so one that contains "%" or "%@" itself appears unchanged.
QString updateMessage(const QString &version);

} // namespace kestrix::L10n
