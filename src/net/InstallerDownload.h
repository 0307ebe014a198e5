#pragma once

#include <QString>
#include <QUrl>

#include <functional>

// Downloads an installer into the user's Downloads folder, for the user to open and install by
// hand. No progress, no verification: what the server sends is what is saved.
namespace kestrix::InstallerDownload {

// The user's Downloads folder (XDG user dirs: XDG_DOWNLOAD_DIR in user-dirs.dirs, else
// ~/Downloads), created when missing. None at all is a programming error and stops the process.
QString downloadsFolder();

// Where `url` is saved: the Downloads folder plus the last segment of the URL's path, decoded, as
// it stands (no check of the extension). Empty when the URL names no file ("", ".", "..").
QString destinationFor(const QUrl &url);

// Starts the download of `url` and returns at once. When the server has answered, whatever the
// HTTP status (an error page is saved as it is), the body replaces any file of the same name in
// one atomic step and `saved` is called on the main thread with the destination path; it is
// called even when that replacement failed, so the desktop, not Kestrix, tells the user. A
// failure below HTTP (no connection, reset, TLS) leaves any existing file untouched and `saved`
// is never called. Several downloads may run at once; the last to finish wins.
void download(const QUrl &url, std::function<void(const QString &destination)> saved);

} // namespace kestrix::InstallerDownload
