#include "net/InstallerDownload.h"

#include "core/Log.h"
#include "net/Network.h"

#include <QDir>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSaveFile>
#include <QStandardPaths>

#include <utility>

using namespace Qt::StringLiterals;

namespace kestrix::InstallerDownload {

QString downloadsFolder()
{
    QString folder = QStandardPaths::writableLocation(QStandardPaths::DownloadLocation);
    if (folder.isEmpty())
        Log::fatal("[Kestrix] no Downloads folder: neither XDG_DOWNLOAD_DIR nor a home directory is known");
    QDir().mkpath(folder);
    return folder;
}

QString destinationFor(const QUrl &url)
{
    const QString name = url.fileName(QUrl::FullyDecoded);
    if (name.isEmpty() || name == "."_L1 || name == ".."_L1)
        return {};
    return QDir(downloadsFolder()).filePath(name);
}

void download(const QUrl &url, std::function<void(const QString &destination)> saved)
{
    const QString destination = destinationFor(url);
    if (destination.isEmpty()) {
        Log::debug("[Kestrix] installer download skipped: the address names no file");
        return;
    }
    QNetworkAccessManager &manager = Network::manager();
    QNetworkReply *reply = manager.get(QNetworkRequest(url));
    // The body goes to a temporary file next to the destination and replaces it on commit, so a
    // download that fails halfway never destroys the file a previous download left there. Owned
    // by the reply: deleting it uncommitted removes the temporary file.
    auto *file = new QSaveFile(destination, reply);
    if (!file->open(QIODevice::WriteOnly)) {
        Log::debug("[Kestrix] installer download skipped: cannot write to the Downloads folder");
        reply->abort();
        return;
    }
    QObject::connect(reply, &QNetworkReply::readyRead, file, [reply, file] { file->write(reply->readAll()); });
    QObject::connect(reply, &QNetworkReply::finished, &manager, [reply, file, destination, saved = std::move(saved)] {
        if (!Network::serverAnswered(*reply)) {
            Log::debug("[Kestrix] installer download failed: " + reply->errorString().toStdString());
            return;
        }
        file->write(reply->readAll());
        if (!file->commit())
            Log::debug("[Kestrix] installer download not saved: " + file->errorString().toStdString());
        saved(destination);
    });
}

} // namespace kestrix::InstallerDownload
