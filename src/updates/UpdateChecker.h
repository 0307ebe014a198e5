#pragma once

#include <QString>
#include <QUrl>

#include <optional>

// Asks the update server whether a newer Kestrix exists and, when it answers, tells the user.
// No state: nothing about a check, an offer or a refusal is kept, so every check that finds an
// update offers it again. Checks are not serialised; two running at once ask twice. All of it on
// the main thread; the network never blocks it.
namespace kestrix::UpdateChecker {

// The tray menu's "Check for Updates...": tells the user whether an update exists. When the
// server gives no usable answer nothing is shown and nothing is logged: the user sees no answer.
void checkForUpdate();
// At launch and when the preferences window opens: speaks only when an update is available.
void checkSilently();

// The offer of `version`, modal: Download (the default) or Later. Download with an address that
// is an absolute http or https URL starts downloadDMG(); anything else ends here.
void showUpdateAlert(
    const QString &version, const std::optional<QString> &notes, const std::optional<QString> &downloadUrl);
// "No Updates", modal, with one button whose text is always "OK".
void showNoUpdateAlert();
// Downloads the installer into the Downloads folder, replacing a file of the same name, then, once
// it is in place, hands it to the desktop's default handler for its type. Returns at once.
void downloadDMG(const QUrl &from);

// The offer's body: the update message for `version`, then, when there are notes (even empty
// ones), two line feeds and the notes as they are, cut after 10,000 characters with an ellipsis.
QString updateAlertBody(const QString &version, const std::optional<QString> &notes);

} // namespace kestrix::UpdateChecker
