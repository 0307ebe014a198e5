#pragma once

#include <QLatin1StringView>
#include <QUrl>

class QNetworkAccessManager;
class QNetworkReply;
class QNetworkRequest;

// What every conversation of Kestrix with a server shares.
//
// All network work runs on the main thread's event loop through one QNetworkAccessManager: Qt
// moves the transfers to its own threads and delivers every reply back to the main thread, so no
// caller ever waits on the network and none needs a lock.
namespace kestrix::Network {

// The one manager, created at first use as a child of the application object and deleted with it.
// Main thread only; calling it from another thread, or before the application object exists, is a
// programming error and stops the process.
QNetworkAccessManager &manager();

// True when the server answered with a complete HTTP response, whatever its status: Kestrix reads
// a 404 or 500 reply's body like any other. False for failures below HTTP (no connection, refused,
// reset, TLS, time-out, a transfer cut short).
bool serverAnswered(const QNetworkReply &reply);

// The base address (scheme, host, optional port and path prefix, no query) for one server. The
// environment variable `variable`, when set and not empty, replaces `builtIn`; it is read once per
// process, at first use, and is meant for tests and for administrators who host their own server.
// An override that is not an absolute http or https address is refused with one log line and
// yields an invalid QUrl: then that server is not contacted at all, rather than contacting the
// built-in host someone meant to replace.
QUrl baseUrl(const char *variable, QLatin1StringView builtIn);

// A request that tells the server nothing about the user. Qt always sends a User-Agent and an
// Accept-Language; they carry "Kestrix/1.0.1" (or, with `identifyKestrix` false, Qt's generic one)
// and "*" instead of the user's locale. Accept-Encoding is "identity", so no compressed reply can
// expand in memory; cookies are neither stored nor sent.
QNetworkRequest request(const QUrl &url, bool identifyKestrix);

// `base` with `pathAndQuery` (starting with "/") appended to its path. Invalid when `base` is.
QUrl joinUrl(const QUrl &base, QLatin1StringView pathAndQuery);

} // namespace kestrix::Network
