#include "l10n/L10n.h"

#include "core/Log.h"
#include "l10n/Catalogue.h"

#include <string>

namespace kestrix::L10n {
namespace {

// The text of `key` in the current language. A cell left empty falls back to English; an empty
// English cell can only come from an edit of the tables, so it stops the program at once rather
// than showing a blank menu item.
QString tr(Key key)
{
    QStringView text = cell(key, Languages::current());
    if (text.isEmpty())
        text = cell(key, Language::English);
    if (text.isEmpty()) {
        const QLatin1StringView name = keyName(key);
        Log::fatal(
            "[Kestrix] L10n: no English text for \"" + std::string(name.data(), std::size_t(name.size())) + "\"");
    }
    return text.toString();
}

} // namespace

QString enabled() { return tr(Key::Enabled); }
QString preferences() { return tr(Key::Preferences); }
QString checkForUpdates() { return tr(Key::CheckForUpdates); }
QString quit() { return tr(Key::Quit); }
QString subtitle() { return tr(Key::Subtitle); }
QString scrollDirection() { return tr(Key::ScrollDirection); }
QString verticalScroll() { return tr(Key::VerticalScroll); }
QString momentumScroll() { return tr(Key::MomentumScroll); }
QString diagonalScroll() { return tr(Key::DiagonalScroll); }
QString horizontalScroll() { return tr(Key::HorizontalScroll); }
QString behavior() { return tr(Key::Behavior); }
QString reverseScroll() { return tr(Key::ReverseScroll); }
QString smoothScroll() { return tr(Key::SmoothScroll); }
QString scrollSpeed() { return tr(Key::ScrollSpeed); }
QString languageLabel() { return tr(Key::LanguageLabel); }
QString launchAtLogin() { return tr(Key::LaunchAtLogin); }
QString updateAvailable() { return tr(Key::UpdateAvailable); }
QString noUpdateTitle() { return tr(Key::NoUpdateTitle); }
QString noUpdateMessage() { return tr(Key::NoUpdateMessage); }
QString download() { return tr(Key::Download); }
QString later() { return tr(Key::Later); }
QString waitingForAccess() { return tr(Key::WaitingForAccess); }
QString accessNeededTitle() { return tr(Key::AccessNeededTitle); }
QString accessNeededMessage() { return tr(Key::AccessNeededMessage); }
QString noMouseConnected() { return tr(Key::NoMouseConnected); }
QString advanced() { return tr(Key::Advanced); }
QString back() { return tr(Key::Back); }
QString scrollButton() { return tr(Key::ScrollButton); }
QString secondaryButton() { return tr(Key::SecondaryButton); }
QString middleButton() { return tr(Key::MiddleButton); }
QString backButton() { return tr(Key::BackButton); }
QString forwardButton() { return tr(Key::ForwardButton); }
QString dragThreshold() { return tr(Key::DragThreshold); }
QString glide() { return tr(Key::Glide); }
QString glideShort() { return tr(Key::GlideShort); }
QString glideLong() { return tr(Key::GlideLong); }
QString defaultMark() { return tr(Key::DefaultMark); }
QString mice() { return tr(Key::Mice); }
QString notConnected() { return tr(Key::NotConnected); }
QString excludedApps() { return tr(Key::ExcludedApps); }
QString addAppUnderPointer() { return tr(Key::AddAppUnderPointer); }
QString remove() { return tr(Key::Remove); }
QString appSourceMissing() { return tr(Key::AppSourceMissing); }
QString appSourceHint() { return tr(Key::AppSourceHint); }
QString enableGnomeExtension() { return tr(Key::EnableGnomeExtension); }
QString noAppUnderPointer() { return tr(Key::NoAppUnderPointer); }

QString updateMessage(const QString &version)
{
    // QString::replace never rescans what it inserted, so a "%@" inside the version stays as it is.
    return tr(Key::UpdateMessage).replace(placeholder, version);
}

QString addAppCountdown(int seconds) { return tr(Key::AddAppCountdown).replace(placeholder, QString::number(seconds)); }

QString appAdded(const QString &app) { return tr(Key::AppAdded).replace(placeholder, app); }

QString pointsValue(int points) { return tr(Key::PointsValue).replace(placeholder, QString::number(points)); }

} // namespace kestrix::L10n
