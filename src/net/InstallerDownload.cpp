#include "net/InstallerDownload.h"

#include "core/Log.h"
#include "net/Network.h"

#include <QDir>
#include <QFileInfo>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QStandardPaths>
#include <QTemporaryFile>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

using namespace Qt::StringLiterals;

namespace kestrix::InstallerDownload {
namespace {

std::string describeErrno(int error) { return std::string(std::strerror(error)); }

// Puts the finished temporary file `temporary` in place as `name` inside `folder`. The existing item
// of that name goes first: unlinkat never follows a symbolic link, it removes the link. The new name
// is then made with renameat2's RENAME_NOREPLACE (or a hard link where the file system lacks it): like
// O_EXCL | O_NOFOLLOW, it fails on anything that appeared meanwhile rather than write through it.
bool putInPlace(const QString &folder, const QString &temporary, const QString &name, std::string &error)
{
    const int directory = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) {
        error = describeErrno(errno);
        return false;
    }
    const QByteArray from = QFile::encodeName(QFileInfo(temporary).fileName());
    const QByteArray to = QFile::encodeName(name);
    if (::unlinkat(directory, to.constData(), 0) != 0 && errno != ENOENT) {
        error = "cannot remove the existing item: " + describeErrno(errno);
        ::close(directory);
        return false;
    }
    bool placed = ::renameat2(directory, from.constData(), directory, to.constData(), RENAME_NOREPLACE) == 0;
    if (!placed && (errno == EINVAL || errno == ENOSYS))
        placed = ::linkat(directory, from.constData(), directory, to.constData(), 0) == 0;
    if (!placed)
        error = describeErrno(errno);
    ::close(directory);
    return placed;
}

} // namespace

QString downloadsFolder()
{
    const QString home = QDir::homePath();
    if (home.isEmpty() || home == QDir::rootPath())
        Log::fatal("[Kestrix] no Downloads folder: no home folder is known");
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
    // Compared as written and as resolved: "$HOME/", "$HOME/." and a link to the home folder are it too.
    const auto isHome = [&home](const QString &path) {
        const QString canonicalHome = QFileInfo(home).canonicalFilePath();
        const QString canonical = QFileInfo(path).canonicalFilePath();
        return QDir::cleanPath(path) == QDir::cleanPath(home) || (!canonical.isEmpty() && canonical == canonicalHome);
    };
    if (folder.isEmpty() || isHome(folder))
        folder = home + "/Downloads"_L1;
    QDir().mkpath(folder);
    return folder;
}

QString destinationFor(const QUrl &url)
{
    const QString name = url.fileName(QUrl::FullyDecoded);
    if (name.isEmpty() || name.contains(QChar(0)))
        return {};
    if (name.startsWith(u'.')) {
        Log::write("[Kestrix] installer download refused: \"" + name.toStdString()
            + "\" begins with a dot and would be a hidden file");
        return {};
    }
    return QDir(downloadsFolder()).filePath(name);
}

void download(
    const QUrl &url, std::function<void(const QString &destination)> saved, std::chrono::milliseconds stallTimeout)
{
    const QString destination = destinationFor(url);
    if (destination.isEmpty()) {
        Log::debug("[Kestrix] installer download skipped: the address names no file to save");
        return;
    }
    const QFileInfo target(destination);
    QNetworkRequest request = Network::request(url, true);
    // Qt's transfer time-out counts from the last byte that moved, not from the start.
    request.setTransferTimeout(int(stallTimeout.count()));
    QNetworkAccessManager &manager = Network::manager();
    QNetworkReply *reply = manager.get(request);
    // A hidden file of our own beside the destination, made with O_EXCL, mode 0600. Owned by the
    // reply: deleted with it, it takes its file along unless it was put in place.
    auto *file = new QTemporaryFile(target.path() + "/.kestrix-download-XXXXXX"_L1, reply);
    if (!file->open()) {
        Log::debug("[Kestrix] installer download skipped: cannot write to the Downloads folder");
        reply->abort();
        return;
    }
    QObject::connect(reply, &QNetworkReply::readyRead, file, [reply, file] {
        if (file->write(reply->readAll()) < 0)
            reply->abort();
    });
    QObject::connect(reply, &QNetworkReply::finished, &manager, [reply, file, destination, saved = std::move(saved)] {
        if (!Network::serverAnswered(*reply) || file->error() != QFileDevice::NoError) {
            Log::debug("[Kestrix] installer download failed: " + reply->errorString().toStdString());
            return;
        }
        file->write(reply->readAll());
        file->setPermissions(
            QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
        std::string error;
        if (!file->flush()
            || !putInPlace(QFileInfo(destination).path(), file->fileName(), QFileInfo(destination).fileName(), error)) {
            Log::debug("[Kestrix] installer download not saved: "
                + (error.empty() ? file->errorString().toStdString() : error));
            return;
        }
        // A hard link leaves the temporary name behind; a rename leaves nothing to remove.
        file->remove();
        saved(destination);
    });
}

} // namespace kestrix::InstallerDownload
