#include "LocalHttpServer.h"

#include <QDir>
#include <QHostAddress>
#include <QTcpSocket>
#include <QTimer>

#include <utility>

namespace kestrix::test {

LocalHttpServer::LocalHttpServer(const char *baseUrlVariable)
{
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("the test HTTP server cannot listen on 127.0.0.1: %s", qPrintable(m_server.errorString()));
    qputenv(baseUrlVariable, baseUrl().toEncoded());
    // Each socket is a child of m_server, so none outlives it.
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readFrom(socket); });
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        }
    });
}

void LocalHttpServer::closeUnanswered()
{
    for (const QPointer<QTcpSocket> &socket : std::exchange(m_hanging, {}))
        if (socket)
            socket->abort();
}

void LocalHttpServer::readFrom(QTcpSocket *socket)
{
    // Nothing is taken from the socket until the whole request has arrived.
    const QByteArray buffer = socket->peek(socket->bytesAvailable());
    const qsizetype headerEnd = buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0)
        return;

    HttpRequest request;
    const QList<QByteArray> lines = buffer.left(headerEnd).split('\n');
    request.line = lines.first().trimmed();
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const qsizetype colon = lines[i].indexOf(':');
        if (colon > 0)
            request.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const qsizetype length = request.headers.value("content-length", "0").toLongLong();
    if (buffer.size() < headerEnd + 4 + length)
        return; // the body is still on its way
    request.body = buffer.mid(headerEnd + 4, length);
    socket->readAll();

    requests.append(request);
    const QByteArray path = request.line.split(' ').value(1).split('?').first();
    const HttpResponse response = m_responses.value(path, HttpResponse { 404, "no such path" });
    const QByteArray status = "HTTP/1.1 " + QByteArray::number(response.status) + " Test\r\n" + response.headers;
    const QByteArray promised
        = QByteArray::number(response.body.size() + (response.behaviour == HttpResponse::Answer ? 0 : 1000));
    switch (response.behaviour) {
    case HttpResponse::Answer:
    case HttpResponse::Stall:
    case HttpResponse::Truncate:
        socket->write(status + "Content-Length: " + promised + "\r\nConnection: close\r\n\r\n" + response.body);
        if (response.behaviour == HttpResponse::Answer)
            socket->disconnectFromHost();
        else if (response.behaviour == HttpResponse::Truncate)
            QTimer::singleShot(50, socket, &QTcpSocket::abort);
        else
            m_hanging.append(socket);
        break;
    case HttpResponse::Hang:
        m_hanging.append(socket);
        break;
    case HttpResponse::Close:
        socket->abort();
        break;
    case HttpResponse::Endless:
        socket->write(status + "Connection: close\r\n\r\n");
        // A little at a time, as the client takes it, so only the client's memory could grow.
        connect(socket, &QTcpSocket::bytesWritten, socket, [socket, body = response.body] {
            if (socket->bytesToWrite() < body.size())
                socket->write(body);
        });
        socket->write(response.body);
        break;
    }
    Q_EMIT requestReceived();
}

void setDownloadsFolder(const QString &folder)
{
    const QString config = qEnvironmentVariable("XDG_CONFIG_HOME");
    if (config.isEmpty() || !QDir().mkpath(config))
        qFatal("the network tests need their own XDG_CONFIG_HOME");
    writeFile(config + QStringLiteral("/user-dirs.dirs"), "XDG_DOWNLOAD_DIR=\"" + folder.toUtf8() + "\"\n");
}

} // namespace kestrix::test
