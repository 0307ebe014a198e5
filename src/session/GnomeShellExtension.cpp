#include "session/GnomeShellExtension.h"

#include "session/DBusCall.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QFileInfo>
#include <QStandardPaths>
#include <QVariantMap>

namespace kestrix::GnomeShellExtension {

using namespace Qt::StringLiterals;

namespace {

QDBusMessage extensionsCall(const QString &method)
{
    // The shell itself serves its extensions interface, on its own name and object.
    QDBusMessage message = QDBusMessage::createMethodCall(
        u"org.gnome.Shell"_s, u"/org/gnome/Shell"_s, u"org.gnome.Shell.Extensions"_s, method);
    message << QString(Uuid);
    return message;
}

// GNOME Shell's extension states (js/misc/extensionUtils.js; 45 renamed ENABLED and DISABLED to
// ACTIVE and INACTIVE, same numbers).
constexpr int ShellEnabled = 1;
constexpr int ShellDisabled = 2;
constexpr int ShellInitialized = 6;
constexpr int ShellDisabling = 7;
constexpr int ShellEnabling = 8;

} // namespace

bool installedOnDisk()
{
    return !QStandardPaths::locate(
        QStandardPaths::GenericDataLocation, u"gnome-shell/extensions/%1/metadata.json"_s.arg(Uuid))
                .isEmpty();
}

void queryState(QObject *context, const std::function<void(State)> &done)
{
    dbus::call(context, extensionsCall(u"GetExtensionInfo"_s), [done](const QDBusMessage &reply) {
        if (reply.type() != QDBusMessage::ReplyMessage) {
            done(State::NoShell);
            return;
        }
        const QVariantMap info = qdbus_cast<QVariantMap>(reply.arguments().value(0));
        if (info.isEmpty()) {
            done(installedOnDisk() ? State::NeedsNewSession : State::NotInstalled);
            return;
        }
        switch (info.value(u"state"_s).toInt()) {
        case ShellEnabled:
        case ShellEnabling:
            done(State::Enabled);
            return;
        case ShellDisabled:
        case ShellInitialized:
        case ShellDisabling:
            done(State::Disabled);
            return;
        default:
            done(State::Failed);
            return;
        }
    });
}

void enable(QObject *context, const std::function<void(bool)> &done)
{
    dbus::call(context, extensionsCall(u"EnableExtension"_s), [done](const QDBusMessage &reply) {
        done(reply.type() == QDBusMessage::ReplyMessage && reply.arguments().value(0).toBool());
    });
}

} // namespace kestrix::GnomeShellExtension
