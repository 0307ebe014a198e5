#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QObject>

#include <functional>

namespace kestrix::dbus {

// Milliseconds a desktop service may take to answer; past that the call counts as failed.
constexpr int CallTimeoutMs = 3000;

// Sends `message` on the session bus without waiting; `onReply` runs on `context`'s thread with the
// reply or the error message, never after `context` is gone.
inline void call(QObject *context, const QDBusMessage &message, std::function<void(const QDBusMessage &)> onReply)
{
    auto *watcher
        = new QDBusPendingCallWatcher(QDBusConnection::sessionBus().asyncCall(message, CallTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, onReply = std::move(onReply)] {
        watcher->deleteLater();
        if (onReply)
            onReply(watcher->reply());
    });
}

} // namespace kestrix::dbus
