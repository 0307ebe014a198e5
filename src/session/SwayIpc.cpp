#include "session/SwayIpc.h"

#include "core/Log.h"

#include <QJsonArray>

#include <cstring>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

constexpr QByteArrayView Magic = "i3-ipc";
constexpr qsizetype HeaderSize = Magic.size() + 2 * qsizetype(sizeof(quint32));
// A tree of thousands of windows stays far below this; anything above is a broken or hostile peer.
constexpr quint32 MaxPayload = 64u * 1024u * 1024u;

// Milliseconds a local connect may take before the socket counts as dead.
constexpr int ConnectTimeoutMs = 1000;

} // namespace

SwayIpc::SwayIpc(QObject *parent)
    : QObject(parent)
{
    connect(&m_socket, &QLocalSocket::readyRead, this, &SwayIpc::readFrames);
    connect(&m_socket, &QLocalSocket::disconnected, this, &SwayIpc::drop);
}

SwayIpc::~SwayIpc() { m_socket.disconnect(this); }

bool SwayIpc::connectTo(const QString &socketPath)
{
    m_socket.connectToServer(socketPath);
    if (m_socket.waitForConnected(ConnectTimeoutMs))
        return true;
    Log::write(u"[Kestrix] Could not reach sway at %1: %2"_s.arg(socketPath, m_socket.errorString()).toStdString());
    return false;
}

bool SwayIpc::isConnected() const { return m_socket.state() == QLocalSocket::ConnectedState; }

QByteArray SwayIpc::encode(quint32 type, QByteArrayView payload)
{
    QByteArray frame;
    frame.reserve(HeaderSize + payload.size());
    frame.append(Magic);
    const auto length = quint32(payload.size());
    frame.append(reinterpret_cast<const char *>(&length), sizeof length);
    frame.append(reinterpret_cast<const char *>(&type), sizeof type);
    frame.append(payload);
    return frame;
}

std::optional<std::vector<SwayIpc::Frame>> SwayIpc::decode(QByteArray &buffer)
{
    std::vector<Frame> frames;
    qsizetype at = 0;
    while (buffer.size() - at >= HeaderSize) {
        if (QByteArrayView(buffer).sliced(at, Magic.size()) != Magic)
            return std::nullopt;
        quint32 length = 0;
        quint32 type = 0;
        std::memcpy(&length, buffer.constData() + at + Magic.size(), sizeof length);
        std::memcpy(&type, buffer.constData() + at + Magic.size() + qsizetype(sizeof length), sizeof type);
        if (length > MaxPayload)
            return std::nullopt;
        if (buffer.size() - at - HeaderSize < qsizetype(length))
            break;
        frames.push_back({ type, buffer.mid(at + HeaderSize, qsizetype(length)) });
        at += HeaderSize + qsizetype(length);
    }
    buffer.remove(0, at);
    return frames;
}

void SwayIpc::send(quint32 type, const QByteArray &payload, Reply reply)
{
    if (!isConnected()) {
        if (reply)
            reply(QJsonDocument());
        return;
    }
    m_pending.push_back(std::move(reply));
    m_socket.write(encode(type, payload));
}

void SwayIpc::subscribe(const QStringList &events)
{
    send(Subscribe, QJsonDocument(QJsonArray::fromStringList(events)).toJson(QJsonDocument::Compact), {});
}

void SwayIpc::readFrames()
{
    m_buffer.append(m_socket.readAll());
    auto frames = decode(m_buffer);
    if (!frames) {
        Log::write("[Kestrix] sway sent something that is not i3 IPC; the connection is closed");
        m_socket.abort(); // emits disconnected(), which drops the pending replies
        return;
    }
    for (Frame &frame : *frames) {
        const QJsonDocument document = QJsonDocument::fromJson(frame.payload);
        if ((frame.type & EventBit) != 0) {
            Q_EMIT event(frame.type, document);
        } else if (!m_pending.empty()) {
            Reply reply = std::move(m_pending.front());
            m_pending.pop_front();
            if (reply)
                reply(document);
        }
    }
}

void SwayIpc::drop()
{
    m_buffer.clear();
    // Every caller hears back once, even when sway went away in between.
    auto pending = std::move(m_pending);
    m_pending.clear();
    for (Reply &reply : pending) {
        if (reply)
            reply(QJsonDocument());
    }
    Q_EMIT disconnected();
}

} // namespace kestrix
