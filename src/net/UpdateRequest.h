#pragma once

#include <QByteArray>
#include <QString>
#include <QUrl>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <variant>

// The update check's conversation with the update server: one GET of the update query on the
// product web site's host, and the reply decoded into an UpdateResponse. The server alone decides
// whether an update exists; Kestrix never compares version strings.
namespace kestrix {

// The decoded reply. Fields in the order the server documents them.
struct UpdateResponse
{
    bool updateAvailable = false;
    QString latestVersion;
    std::optional<QString> downloadUrl; // absolute address of the installer
    std::optional<QString> releaseNotes; // free text shown under the update message

    friend bool operator==(const UpdateResponse &, const UpdateResponse &) = default;
};

struct UpdateError
{
    enum class Kind : std::uint8_t {
        Transport, // no HTTP answer: no connection, refused, reset, TLS, time-out
        Undecodable, // an HTTP answer whose body is not a valid reply
    };
    Kind kind;
    QString detail; // for the debug log only; never shown to the user

    friend bool operator==(const UpdateError &, const UpdateError &) = default;
};

using UpdateResult = std::variant<UpdateResponse, UpdateError>;

// The body's rules, strict on purpose: a JSON object whose "updateAvailable" is a JSON Boolean
// and whose "latestVersion" is a string; "downloadUrl" and "releaseNotes" are each a string, null
// or absent (null reads as absent); keys are matched exactly and any other key is ignored.
// Anything else, a number for a Boolean, a missing key, a top level that is not an object, an
// empty body, is undecodable as a whole.
UpdateResult decodeUpdateResponse(const QByteArray &body);

namespace UpdateRequest {

// The update server's base address: the product web site, or KESTRIX_UPDATE_BASE_URL when set
// (read once per process).
QUrl serverBaseUrl();
// The address of the check: the base followed by the update query. Invalid when an override of
// the base was refused.
QUrl checkUrl();

// What a reply may cost at most. A reply that passes either limit counts as no answer (Transport),
// so a hostile or broken server can make the check show nothing, and nothing more.
struct Limits
{
    qint64 maxReplyBytes = qint64(1) << 20; // the body as received; the real reply is a few hundred bytes
    std::chrono::milliseconds timeout { 30'000 }; // from the request to the end of the reply
};

// Starts one GET of checkUrl() and returns at once. `completion` is called exactly once, on the
// main thread, from the event loop after the transfer has ended (never from inside the network
// layer's own signal handling, so it may run a modal dialog). The HTTP status is not examined:
// any status whose body decodes is an answer. The request says nothing about the user
// (Network::request). When checkUrl() is invalid nothing is sent and `completion` is never called.
void fetchUpdate(std::function<void(const UpdateResult &)> completion, Limits limits = {});

} // namespace UpdateRequest
} // namespace kestrix
