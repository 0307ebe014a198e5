#pragma once

// A small HTTP/1.1 server on 127.0.0.1 for the network tests, written with Qt's own QTcpServer:
// real sockets and real HTTP on the wire, so the code under test talks to it exactly as it would
// to a real server. One request per connection; every answer closes the connection.

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

namespace kestrix::test {

struct HttpRequest
{
    QByteArray method;
    QByteArray target; // path and query, as sent
    QHash<QByteArray, QByteArray> headers; // names in lower case
    QByteArray body;
};

struct HttpResponse
{
    int status = 200;
    QByteArray body;
    QByteArray contentType = "application/json";
    enum Behaviour {
        Answer,
        Hang, // read the request, then keep the connection open without a byte of answer
        Close, // read the request, then close the connection without a byte of answer
    };
    Behaviour behaviour = Answer;
};

class LocalHttpServer final : public QObject
{
    Q_OBJECT

public:
    // Listens on 127.0.0.1 at a port the system picks.
    LocalHttpServer();

    // http://127.0.0.1:<port>
    QUrl baseUrl() const;

    // The answer to requests whose path (query left out) is `path`; unknown paths get a 404.
    void setResponse(const QByteArray &path, const HttpResponse &response);
    // Closes every connection still waiting for an answer.
    void closeUnanswered();

    QList<HttpRequest> requests;

Q_SIGNALS:
    void requestReceived();

private:
    void readFrom(QTcpSocket *socket);

    QHash<QByteArray, HttpResponse> m_responses;
    QHash<QTcpSocket *, QByteArray> m_pending;
    // Last, so it goes first: its sockets report their disconnection while m_pending still exists.
    QTcpServer m_server;
};

} // namespace kestrix::test
