#include "updates/UpdateChecker.h"

#include "core/Log.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/AppInfo.h"
#include "net/InstallerDownload.h"
#include "net/UpdateRequest.h"

#include <QDesktopServices>
#include <QLocale>
#include <QMessageBox>
#include <QPushButton>

#include <cstdint>
#include <string>
#include <variant>

using namespace Qt::StringLiterals;

namespace kestrix::UpdateChecker {
namespace {

enum class Mode : std::uint8_t { Manual, Silent };

// Characters of release notes shown at most, in UTF-16 units: a label laid out with megabytes of
// text freezes the interface for seconds.
constexpr qsizetype maxNotesShown = 10'000;

// An alert reads the way the interface language is written, as the window and the menu do.
void mirrorForLanguage(QMessageBox &box)
{
    box.setLayoutDirection(QLocale(QString(Languages::rawValue(Languages::current()))).textDirection());
}

void check(Mode mode)
{
    UpdateRequest::fetchUpdate([mode](const UpdateResult &result) {
        // Debug lines only: a failed check is silent in both modes, also in the log.
        if (const auto *error = std::get_if<UpdateError>(&result)) {
            Log::debug("[Kestrix] update check: no answer: " + error->detail.toStdString());
            return;
        }
        const auto &response = std::get<UpdateResponse>(result);
        Log::debug("[Kestrix] update check: latest " + response.latestVersion.toStdString()
            + (response.updateAvailable ? ", update available" : ", no update"));
        if (response.updateAvailable)
            showUpdateAlert(response.latestVersion, response.releaseNotes, response.downloadUrl);
        else if (mode == Mode::Manual)
            showNoUpdateAlert();
    });
}

} // namespace

void checkForUpdate() { check(Mode::Manual); }
void checkSilently() { check(Mode::Silent); }

QString updateAlertBody(const QString &version, const std::optional<QString> &notes)
{
    QString body = L10n::updateMessage(version);
    if (!notes)
        return body;
    body += "\n\n"_L1;
    if (notes->size() <= maxNotesShown)
        return body + *notes;
    // Cut between characters, never inside a surrogate pair.
    qsizetype cut = maxNotesShown;
    if (notes->at(cut - 1).isHighSurrogate())
        --cut;
    return body + notes->first(cut) + QChar(0x2026);
}

void showUpdateAlert(
    const QString &version, const std::optional<QString> &notes, const std::optional<QString> &downloadUrl)
{
    QMessageBox box(QMessageBox::Information, AppInfo::displayName, L10n::updateAvailable());
    mirrorForLanguage(box);
    box.setInformativeText(updateAlertBody(version, notes));
    // Download first and default; Later is what Escape and closing the window mean. Where each
    // lands on screen is the desktop's convention (GNOME and KDE put the default on the right).
    QPushButton *download = box.addButton(L10n::download(), QMessageBox::AcceptRole);
    QPushButton *later = box.addButton(L10n::later(), QMessageBox::RejectRole);
    box.setDefaultButton(download);
    box.setEscapeButton(later);
    box.exec();
    if (box.clickedButton() != download || !downloadUrl)
        return;
    const QUrl url(*downloadUrl, QUrl::StrictMode);
    if (url.isValid() && !url.host().isEmpty() && (url.scheme() == "https"_L1 || url.scheme() == "http"_L1))
        downloadDMG(url);
}

void showNoUpdateAlert()
{
    QMessageBox box(QMessageBox::Information, AppInfo::displayName, L10n::noUpdateTitle());
    mirrorForLanguage(box);
    box.setInformativeText(L10n::noUpdateMessage());
    // Not from the catalogue, and not a standard button Qt might translate: "OK" in every language.
    box.setDefaultButton(box.addButton(u"OK"_s, QMessageBox::AcceptRole));
    box.exec();
}

void downloadDMG(const QUrl &from)
{
    InstallerDownload::download(from, [](const QString &destination) {
        // A failed open is the desktop's to report (it usually shows its own dialog).
        if (!QDesktopServices::openUrl(QUrl::fromLocalFile(destination)))
            Log::debug("[Kestrix] no handler opened " + destination.toStdString());
    });
}

} // namespace kestrix::UpdateChecker
