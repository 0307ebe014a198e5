#include "LocalHttpServer.h"

#include <QHostAddress>
#include <QTcpSocket>

namespace kestrix::test {

LocalHttpServer::LocalHttpServer()
{
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("the test HTTP server cannot listen on 127.0.0.1: %s", qPrintable(m_server.errorString()));
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            m_pending.insert(socket, {});
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
            connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
                m_pending.remove(socket);
                socket->deleteLater();
            });
        }
    });
}

QUrl LocalHttpServer::baseUrl() const { return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_server.serverPort())); }

void LocalHttpServer::setResponse(const QByteArray &path, const HttpResponse &response)
{
    m_responses.insert(path, response);
}

void LocalHttpServer::closeUnanswered()
{
    const QList<QTcpSocket *> sockets = m_pending.keys();
    for (QTcpSocket *socket : sockets)
        socket->abort();
}

void LocalHttpServer::readFrom(QTcpSocket *socket)
{
    QByteArray &buffer = m_pending[socket];
    buffer += socket->readAll();
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;

    HttpRequest request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3)
        qFatal("the test HTTP server got a malformed request line: %s", lines.first().constData());
    request.method = requestLine[0];
    request.target = requestLine[1];
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length", "0").toLongLong();
    if (buffer.size() < headerEnd + 4 + length)
        return; // the body is still on its way
    request.body = buffer.mid(headerEnd + 4, length);
    buffer.clear();

    const qsizetype query = request.target.indexOf('?');
    const QByteArray path = query < 0 ? request.target : request.target.left(query);
    requests.append(request);
    const HttpResponse response
        = m_responses.value(path, HttpResponse { 404, "no such path", "text/plain", HttpResponse::Answer });
    switch (response.behaviour) {
    case HttpResponse::Answer:
        socket->write("HTTP/1.1 " + QByteArray::number(response.status) + " Test\r\n" + "Content-Type: "
            + response.contentType + "\r\n" + "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n"
            + "Connection: close\r\n\r\n" + response.body);
        socket->disconnectFromHost();
        break;
    case HttpResponse::Hang:
        break;
    case HttpResponse::Close:
        socket->abort();
        break;
    }
    Q_EMIT requestReceived();
}

} // namespace kestrix::test
