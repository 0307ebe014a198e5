#pragma once

#include <QString>
#include <QUrl>

#include <chrono>
#include <functional>

// Downloads an installer into the user's Downloads folder, for the user to open and install by
// hand. No progress, no verification: what the server sends is what is saved. Nothing a server
// sends can write outside that folder or over a hidden file in it.
namespace kestrix::InstallerDownload {

// The user's Downloads folder (XDG user dirs: XDG_DOWNLOAD_DIR in user-dirs.dirs, else
// ~/Downloads), created when missing. Never the home folder itself: xdg-user-dirs names the home
// folder when Downloads is missing, and then ~/Downloads is used. No home folder at all is a
// programming error and stops the process.
QString downloadsFolder();

// Where `url` is saved: the Downloads folder plus the last segment of the URL's path, decoded, as
// it stands (no check of the extension). Empty when the URL names no file, or a name that begins
// with a dot (a hidden file such as .bashrc, or ".."), which is refused with one log line.
QString destinationFor(const QUrl &url);

// Starts the download of `url` and returns at once. The body goes to a temporary file inside the
// Downloads folder. When the server has answered, whatever the HTTP status (an error page is saved
// as it is), the existing item of that name is removed (a symbolic link itself, never what it points
// to), the file is put in its place without following or replacing anything that appeared there
// meanwhile, and `saved` is called on the main thread with the destination path. A failure below
// HTTP (no connection, reset, TLS), a transfer that brings no data for `stallTimeout`, or a file
// that cannot be put in place removes the temporary file, keeps any earlier file of that name, and
// `saved` is never called. Several downloads may run at once; the last to finish wins.
void download(const QUrl &url, std::function<void(const QString &destination)> saved,
    std::chrono::milliseconds stallTimeout = std::chrono::seconds(60));

} // namespace kestrix::InstallerDownload
