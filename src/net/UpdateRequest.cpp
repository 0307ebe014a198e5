#include "net/UpdateRequest.h"

#include "net/AppInfo.h"
#include "net/Network.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonParseError>
#include <QJsonValue>
#include <QMetaObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <memory>
#include <utility>

using namespace Qt::StringLiterals;

namespace kestrix {
namespace {

UpdateError undecodable(const QString &detail) { return { UpdateError::Kind::Undecodable, detail }; }

// An optional string field: absent and null are both "no value"; any other type breaks the reply.
bool readOptionalString(const QJsonObject &object, QLatin1StringView key, std::optional<QString> &out)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull()) {
        out.reset();
        return true;
    }
    if (!value.isString())
        return false;
    out = value.toString();
    return true;
}

} // namespace

UpdateResult decodeUpdateResponse(const QByteArray &body)
{
    QJsonParseError parseError {};
    const QJsonDocument document = QJsonDocument::fromJson(body, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        return undecodable(u"not JSON: "_s + parseError.errorString());
    if (!document.isObject())
        return undecodable(u"the top level is not an object"_s);
    const QJsonObject object = document.object();

    UpdateResponse response;
    const QJsonValue available = object.value("updateAvailable"_L1);
    if (!available.isBool())
        return undecodable(u"updateAvailable is missing or not a Boolean"_s);
    response.updateAvailable = available.toBool();

    const QJsonValue latest = object.value("latestVersion"_L1);
    if (!latest.isString())
        return undecodable(u"latestVersion is missing or not a string"_s);
    response.latestVersion = latest.toString();

    if (!readOptionalString(object, "downloadUrl"_L1, response.downloadUrl))
        return undecodable(u"downloadUrl is neither a string nor null"_s);
    if (!readOptionalString(object, "releaseNotes"_L1, response.releaseNotes))
        return undecodable(u"releaseNotes is neither a string nor null"_s);
    return response;
}

namespace UpdateRequest {

QUrl serverBaseUrl()
{
    static const QUrl base = Network::baseUrl("KESTRIX_UPDATE_BASE_URL", AppInfo::website);
    return base;
}

QUrl checkUrl() { return Network::joinUrl(serverBaseUrl(), AppInfo::updateQuery); }

void fetchUpdate(std::function<void(const UpdateResult &)> completion, Limits limits)
{
    const QUrl url = checkUrl();
    if (!url.isValid())
        return;
    QNetworkAccessManager &manager = Network::manager();
    QNetworkReply *reply = manager.get(Network::request(url, true));
    // Why a reply was cut off, for the debug line; empty while it runs within its limits.
    auto cutOff = std::make_shared<QString>();
    QObject::connect(
        reply, &QNetworkReply::downloadProgress, reply, [reply, cutOff, limits](qint64 received, qint64 total) {
            if (cutOff->isEmpty() && (received > limits.maxReplyBytes || total > limits.maxReplyBytes)) {
                *cutOff = u"the reply is larger than %1 bytes"_s.arg(limits.maxReplyBytes);
                reply->abort();
            }
        });
    QTimer::singleShot(limits.timeout, reply, [reply, cutOff, limits] {
        *cutOff = u"no complete reply within %1 ms"_s.arg(limits.timeout.count());
        reply->abort();
    });
    QObject::connect(reply, &QNetworkReply::finished, &manager, [reply, cutOff, completion = std::move(completion)] {
        UpdateResult result = cutOff->isEmpty() && Network::serverAnswered(*reply)
            ? decodeUpdateResponse(reply->readAll())
            : UpdateResult(
                UpdateError { UpdateError::Kind::Transport, cutOff->isEmpty() ? reply->errorString() : *cutOff });
        // Queued, so that the completion runs from the event loop itself, after the reply's
        // signal handling has unwound: it may open a modal dialog with its own event loop.
        QMetaObject::invokeMethod(
            &Network::manager(), [completion, result = std::move(result)] { completion(result); },
            Qt::QueuedConnection);
    });
}

} // namespace UpdateRequest
} // namespace kestrix
