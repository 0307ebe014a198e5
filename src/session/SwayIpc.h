#pragma once

#include <QByteArray>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QObject>
#include <QString>

#include <deque>
#include <functional>
#include <optional>
#include <vector>

namespace kestrix {

// A client of sway's IPC (the i3 IPC framing: "i3-ipc", payload length, message type, both 32-bit
// in the machine's byte order, then a JSON payload). Asynchronous: it never waits on sway, so it
// may live on the GUI thread. Replies come back in the order requests were sent; events (type with
// the high bit set) arrive through event() once subscribed on the same connection.
class SwayIpc final : public QObject
{
    Q_OBJECT

public:
    enum Message : quint32 { RunCommand = 0, GetWorkspaces = 1, Subscribe = 2, GetTree = 4, GetInputs = 100 };
    static constexpr quint32 EventBit = 0x80000000u;
    enum Event : quint32 { WorkspaceEvent = EventBit | 0, WindowEvent = EventBit | 3, InputEvent = EventBit | 21 };

    struct Frame
    {
        quint32 type = 0;
        QByteArray payload;
    };

    explicit SwayIpc(QObject *parent = nullptr);
    ~SwayIpc() override;

    // Connects synchronously to a local socket (a few milliseconds); false, with one log line, when
    // nothing listens there.
    bool connectTo(const QString &socketPath);
    bool isConnected() const;

    // Sends one message; `reply` gets the parsed reply, or a null document when the connection
    // closed first or the reply was not JSON.
    using Reply = std::function<void(const QJsonDocument &)>;
    void send(quint32 type, const QByteArray &payload, Reply reply);
    // Subscribes to events by name ("window", "workspace", "input"); they come through event().
    void subscribe(const QStringList &events);

    static QByteArray encode(quint32 type, QByteArrayView payload);
    // Takes every whole frame off the front of `buffer` and leaves a partial one in it. Nothing
    // (and the caller drops the connection) when the stream is not i3 IPC or claims an absurd size.
    static std::optional<std::vector<Frame>> decode(QByteArray &buffer);

Q_SIGNALS:
    void event(quint32 type, const QJsonDocument &payload);
    void disconnected();

private:
    void readFrames();
    void drop();

    QLocalSocket m_socket;
    QByteArray m_buffer;
    std::deque<Reply> m_pending;
};

} // namespace kestrix
