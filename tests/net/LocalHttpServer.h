#pragma once

// What the network tests (here and in tests/updates) share: a small HTTP/1.1 server on
// 127.0.0.1, written with Qt's own QTcpServer, so the code under test talks to it over real
// sockets exactly as it would to a real server.

#include "core/TestSupport.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QPointer>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

namespace kestrix::test {

struct HttpRequest
{
    QByteArray line; // method, path and query as sent, protocol
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

struct HttpResponse
{
    int status = 200;
    QByteArray body;
    enum Behaviour {
        Answer,
        Hang, // read the request, then keep the connection open without a byte of answer
        Close, // read the request, then close the connection without a byte of answer
        Stall, // send the headers and the body, promise 1000 bytes more, and keep the connection open
        Truncate, // as Stall, but then close the connection
        Endless, // send the body again and again, without a length, until the client goes
    };
    Behaviour behaviour = Answer;
    QByteArray headers = {}; // more header lines, each ending in "\r\n"
};

// One request per connection; every answer closes the connection.
class LocalHttpServer final : public QObject
{
    Q_OBJECT

public:
    // Listens on 127.0.0.1 at a port the system picks, and sets the environment variable
    // `baseUrlVariable` to its address, so the code under test (which reads it once, at first
    // use) never talks to any other host.
    explicit LocalHttpServer(const char *baseUrlVariable);

    QUrl baseUrl() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort())); }
    QUrl url(const char *path) const { return baseUrl().resolved(QUrl(QString::fromLatin1(path))); }

    // The answer to requests whose path (query left out) is `path`; unknown paths get a 404.
    void setResponse(const QByteArray &path, const HttpResponse &response) { m_responses.insert(path, response); }
    // Closes every connection still waiting for an answer.
    void closeUnanswered();

    QList<HttpRequest> requests;

Q_SIGNALS:
    void requestReceived();

private:
    void readFrom(QTcpSocket *socket);

    QTcpServer m_server;
    QHash<QByteArray, HttpResponse> m_responses;
    QList<QPointer<QTcpSocket>> m_hanging;
};

// JSON written with single quotes, so the tables stay readable.
inline QByteArray json(const char *text) { return QByteArray(text).replace('\'', '"'); }

// Makes `folder` the user's Downloads folder through user-dirs.dirs in $XDG_CONFIG_HOME, as on a
// desktop. The folder need not exist.
void setDownloadsFolder(const QString &folder);

} // namespace kestrix::test
