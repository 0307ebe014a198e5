#include "session/KWinActiveWindow.h"

#include "core/Log.h"
#include "session/DBusCall.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QFile>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTimer>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

const QString KWinService = u"org.kde.KWin"_s;
const QString ScriptingPath = u"/Scripting"_s;
const QString ScriptingInterface = u"org.kde.kwin.Scripting"_s;
const QString UnknownObjectError = u"org.freedesktop.DBus.Error.UnknownObject"_s;
// How long a KWin that is still starting gets, and how often it is asked meanwhile: at login, an
// autostarted Kestrix can come up before KWin is ready.
constexpr int StartupWaitMs = 30000;
constexpr int RetryIntervalMs = 1000;

QDBusMessage scripting(const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(KWinService, ScriptingPath, ScriptingInterface, method);
    message.setArguments(arguments);
    return message;
}

} // namespace

KWinActiveWindow::KWinActiveWindow(Report report, QObject *parent)
    : QObject(parent)
    , m_report(std::move(report))
{ }

KWinActiveWindow::~KWinActiveWindow()
{
    if (m_loaded)
        QDBusConnection::sessionBus().send(scripting(u"unloadScript"_s, { QString::fromLatin1(ScriptName) }));
    QDBusConnection::sessionBus().unregisterObject(QString::fromLatin1(ObjectPath));
}

void KWinActiveWindow::load(const std::function<void(bool)> &done)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()
        || !bus.registerObject(QString::fromLatin1(ObjectPath), this, QDBusConnection::ExportAllSlots)) {
        Log::write("[Kestrix] The session bus is not reachable; the active KDE window is unknown");
        done(false);
        return;
    }
    m_startupDeadline = QDeadlineTimer(StartupWaitMs);
    attempt(done);
}

void KWinActiveWindow::attempt(const std::function<void(bool)> &done)
{
    // Only KWin's connection may report the active window.
    const QDBusMessage owner = QDBusMessage::createMethodCall(
        u"org.freedesktop.DBus"_s, u"/org/freedesktop/DBus"_s, u"org.freedesktop.DBus"_s, u"GetNameOwner"_s);
    dbus::call(this, QDBusMessage(owner) << KWinService, [this, done](const QDBusMessage &reply) {
        if (reply.type() != QDBusMessage::ReplyMessage) {
            if (retryLater(done))
                return;
            Log::write("[Kestrix] KWin is not on the session bus; the active KDE window is unknown");
            done(false);
            return;
        }
        m_kwinOwner = reply.arguments().value(0).toString();
        loadScript(done);
    });
}

bool KWinActiveWindow::retryLater(const std::function<void(bool)> &done)
{
    if (m_startupDeadline.hasExpired())
        return false;
    QTimer::singleShot(RetryIntervalMs, this, [this, done] { attempt(done); });
    return true;
}

void KWinActiveWindow::loadScript(const std::function<void(bool)> &done)
{
    QFile resource(u":/kestrix/kwin/active-window.js"_s);
    const QString path
        = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation) + u"/kestrix-active-window.js"_s;
    QSaveFile file(path);
    if (!resource.open(QIODevice::ReadOnly) || !file.open(QIODevice::WriteOnly)) {
        Log::write(u"[Kestrix] Could not write the KWin script to %1"_s.arg(path).toStdString());
        done(false);
        return;
    }
    file.write(resource.readAll().replace("@SERVICE@", QDBusConnection::sessionBus().baseService().toUtf8()));
    if (!file.commit()) {
        Log::write(u"[Kestrix] Could not write the KWin script to %1"_s.arg(path).toStdString());
        done(false);
        return;
    }
    // A script of ours left loaded by a Kestrix that ended without unloading it would report to a
    // bus name that no longer exists; it goes first.
    dbus::call(this, scripting(u"unloadScript"_s, { QString::fromLatin1(ScriptName) }),
        [this, path, done](const QDBusMessage &) {
            dbus::call(this, scripting(u"loadScript"_s, { path, QString::fromLatin1(ScriptName) }),
                [this, done](const QDBusMessage &reply) {
                    const int id = reply.arguments().value(0).toInt();
                    // KWin takes its bus name a moment before its scripting object is there.
                    if (reply.errorName() == UnknownObjectError && retryLater(done))
                        return;
                    if (reply.type() != QDBusMessage::ReplyMessage || id < 0) {
                        Log::write(
                            u"[Kestrix] KWin did not load the active-window script: %1"_s.arg(reply.errorMessage())
                                .toStdString());
                        done(false);
                        return;
                    }
                    m_loaded = true;
                    dbus::call(this, scripting(u"start"_s),
                        [done](const QDBusMessage &started) { done(started.type() == QDBusMessage::ReplyMessage); });
                });
        });
}

void KWinActiveWindow::setActiveWindow(const QString &resourceClass, const QString &resourceName)
{
    if (!calledFromDBus() || message().service() != m_kwinOwner) {
        Log::debug(u"[Kestrix] Ignored an active-window report from %1, not from KWin"_s
                       .arg(calledFromDBus() ? message().service() : u"inside"_s)
                       .toStdString());
        return;
    }
    m_report({ resourceClass, resourceName });
}

} // namespace kestrix
