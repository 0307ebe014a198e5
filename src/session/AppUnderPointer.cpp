#include "session/AppUnderPointer.h"

#include "core/Log.h"
#include "session/DBusCall.h"
#include "session/GnomeShellExtension.h"
#include "session/KWinActiveWindow.h"
#include "session/SwayIpc.h"
#include "session/X11PointerTracker.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimer>

namespace kestrix {

using namespace Qt::StringLiterals;

namespace {

const QString GnomeShellService = u"org.gnome.Shell"_s;

// The app of a sway container: app_id for Wayland clients, WM_CLASS under Xwayland.
WindowApp swayApp(const QJsonObject &container)
{
    if (const QString appId = container.value("app_id"_L1).toString(); !appId.isEmpty())
        return { appId, {} };
    const QJsonObject properties = container.value("window_properties"_L1).toObject();
    return { properties.value("class"_L1).toString(), properties.value("instance"_L1).toString() };
}

// The focused node of a get_tree reply, depth first; a focused workspace (no window) has no app.
std::optional<QJsonObject> focusedNode(const QJsonObject &node, int depth = 0)
{
    if (node.value("focused"_L1).toBool())
        return node;
    if (depth > 64)
        return std::nullopt; // no real tree nests this deep
    for (const char *children : { "nodes", "floating_nodes" }) {
        for (const QJsonValue child : node.value(QLatin1StringView(children)).toArray()) {
            if (auto found = focusedNode(child.toObject(), depth + 1))
                return found;
        }
    }
    return std::nullopt;
}

// For the log only; the preferences window words the remedy in the user's language.
QLatin1StringView remedyText(AppUnderPointer::Remedy remedy)
{
    using Remedy = AppUnderPointer::Remedy;
    switch (remedy) {
    case Remedy::GnomeEnableExtension:
        return "GNOME: the Kestrix extension is off"_L1;
    case Remedy::GnomeInstallExtension:
        return "GNOME: the Kestrix extension is not installed"_L1;
    case Remedy::GnomeLogInAgain:
        return "GNOME: the Kestrix extension is seen from the next login"_L1;
    case Remedy::GnomeExtensionFailed:
        return "GNOME: the Kestrix extension failed"_L1;
    case Remedy::UnsupportedWaylandDesktop:
        return "this Wayland desktop tells no program which window is focused"_L1;
    case Remedy::DesktopUnreachable:
        return "the desktop did not answer"_L1;
    case Remedy::NoDisplay:
        return "no display"_L1;
    case Remedy::None:
    case Remedy::Checking:
        break;
    }
    return "checking"_L1;
}

} // namespace

AppUnderPointer::AppUnderPointer(QObject *parent)
    : AppUnderPointer(Session::fromEnvironment(), parent)
{ }

AppUnderPointer::AppUnderPointer(const Session &session, QObject *parent)
    : QObject(parent)
    , m_session(session)
{
    m_current.store(std::make_shared<const WindowApp>());
    refresh();
}

AppUnderPointer::~AppUnderPointer()
{
    // The tracker's thread publishes into this object: it stops first.
    m_x11.reset();
}

WindowApp AppUnderPointer::current() const { return *m_current.load(); }

QString AppUnderPointer::sourceName() const
{
    switch (m_source) {
    case Source::X11Pointer:
        return u"X11"_s;
    case Source::SwayFocus:
        return u"sway"_s;
    case Source::KWinScript:
        return u"KWin"_s;
    case Source::GnomeShellExtension:
        return u"GNOME Shell extension"_s;
    case Source::None:
        break;
    }
    return u"none"_s;
}

void AppUnderPointer::refresh()
{
    m_x11.reset();
    m_sway.reset();
    m_kwin.reset();
    publish({});
    m_remedy = Remedy::Checking;
    // Under Wayland, DISPLAY names Xwayland, which sees only its own windows: the compositor is asked.
    if (!m_session.wayland && !m_session.x11Display.isEmpty()) {
        startX11(m_session.x11Display);
    } else if (!m_session.wayland) {
        m_source = Source::None;
        setRemedy(Remedy::NoDisplay);
    } else {
        switch (m_session.desktop) {
        case Session::Desktop::Sway:
            startSway(m_session.swaySocket);
            break;
        case Session::Desktop::Kde:
            startKWin();
            break;
        case Session::Desktop::Gnome:
            startGnome();
            break;
        case Session::Desktop::Other:
            m_source = Source::None;
            setRemedy(Remedy::UnsupportedWaylandDesktop);
            break;
        }
    }
}

void AppUnderPointer::publish(const WindowApp &app)
{
    auto next = std::make_shared<const WindowApp>(app);
    const std::shared_ptr<const WindowApp> previous = m_current.exchange(next);
    if (previous && *previous == app)
        return;
    const QString name = app.appId.isEmpty() ? app.instance : app.appId;
    Log::debug(u"[Kestrix] App under the pointer: %1"_s.arg(name).toStdString());
    QMetaObject::invokeMethod(
        this, [this, name] { Q_EMIT changed(name); }, Qt::QueuedConnection);
}

void AppUnderPointer::setRemedy(Remedy remedy)
{
    if (remedy == m_remedy)
        return;
    m_remedy = remedy;
    if (remedy == Remedy::None)
        Log::write(u"[Kestrix] The app under the pointer comes from %1"_s.arg(sourceName()).toStdString());
    else if (remedy != Remedy::Checking)
        Log::write(u"[Kestrix] The app under the pointer cannot be known here (%1); no app is excluded"_s
                       .arg(remedyText(remedy))
                       .toStdString());
    Q_EMIT availabilityChanged();
}

void AppUnderPointer::startX11(const QByteArray &display)
{
    m_source = Source::X11Pointer;
    m_x11 = X11PointerTracker::start(display, [this](const WindowApp &app) { publish(app); });
    setRemedy(m_x11 ? Remedy::None : Remedy::DesktopUnreachable);
}

void AppUnderPointer::startSway(const QString &socketPath)
{
    m_source = Source::SwayFocus;
    m_sway = std::make_unique<SwayIpc>();
    if (socketPath.isEmpty() || !m_sway->connectTo(socketPath)) {
        m_sway.reset();
        setRemedy(Remedy::DesktopUnreachable);
        return;
    }
    connect(m_sway.get(), &SwayIpc::event, this, [this](quint32 type, const QJsonDocument &payload) {
        const QJsonObject event = payload.object();
        const QString change = event.value("change"_L1).toString();
        if (type == SwayIpc::WindowEvent && change == "focus"_L1)
            publish(swayApp(event.value("container"_L1).toObject()));
        else if ((type == SwayIpc::WindowEvent && change != "title"_L1)
            || (type == SwayIpc::WorkspaceEvent && change == "focus"_L1))
            querySwayTree({}); // a window closed or moved, or an empty workspace took the focus
    });
    connect(m_sway.get(), &SwayIpc::disconnected, this, [this] {
        publish({});
        setRemedy(Remedy::DesktopUnreachable);
    });
    m_sway->subscribe({ u"window"_s, u"workspace"_s });
    querySwayTree({});
    setRemedy(Remedy::None);
}

void AppUnderPointer::querySwayTree(const std::function<void(std::optional<WindowApp>)> &done)
{
    m_sway->send(SwayIpc::GetTree, {}, [this, done](const QJsonDocument &tree) {
        if (!tree.isObject()) {
            if (done)
                done(std::nullopt);
            return;
        }
        const std::optional<QJsonObject> node = focusedNode(tree.object());
        const WindowApp app = node ? swayApp(*node) : WindowApp {};
        publish(app);
        if (done)
            done(app);
    });
}

void AppUnderPointer::startKWin()
{
    m_source = Source::KWinScript;
    m_kwin = std::make_unique<KWinActiveWindow>([this](const WindowApp &app) { publish(app); });
    m_kwin->load([this](bool loaded) { setRemedy(loaded ? Remedy::None : Remedy::DesktopUnreachable); });
}

void AppUnderPointer::startGnome()
{
    m_source = Source::GnomeShellExtension;
    QDBusConnection bus = QDBusConnection::sessionBus();
    const QString path(GnomeShellExtension::ObjectPath);
    const QString interface(GnomeShellExtension::Interface);
    // Connected before the extension runs, so that turning it on is noticed at its first report.
    bus.disconnect(
        GnomeShellService, path, interface, u"FocusedChanged"_s, this, SLOT(gnomeFocusChanged(QString, QString)));
    bus.connect(
        GnomeShellService, path, interface, u"FocusedChanged"_s, this, SLOT(gnomeFocusChanged(QString, QString)));
    lookUpOnce([this](const std::optional<WindowApp> &app) {
        if (m_source != Source::GnomeShellExtension)
            return;
        if (app) {
            setRemedy(Remedy::None);
            return;
        }
        GnomeShellExtension::queryState(this, [this](GnomeShellExtension::State state) {
            if (m_source != Source::GnomeShellExtension || m_remedy == Remedy::None)
                return;
            using State = GnomeShellExtension::State;
            switch (state) {
            case State::NoShell:
                setRemedy(Remedy::DesktopUnreachable);
                return;
            case State::NotInstalled:
                setRemedy(Remedy::GnomeInstallExtension);
                return;
            case State::NeedsNewSession:
                setRemedy(Remedy::GnomeLogInAgain);
                return;
            case State::Disabled:
            case State::Enabled: // enabled but not answering yet: its first report settles it
                setRemedy(Remedy::GnomeEnableExtension);
                return;
            case State::Failed:
                setRemedy(Remedy::GnomeExtensionFailed);
                return;
            }
        });
    });
}

void AppUnderPointer::gnomeFocusChanged(const QString &wmClass, const QString &wmClassInstance)
{
    // QtDBus delivers only what org.gnome.Shell's owner sends.
    if (m_source != Source::GnomeShellExtension)
        return;
    publish({ wmClass, wmClassInstance });
    setRemedy(Remedy::None);
}

void AppUnderPointer::lookUpOnce(const std::function<void(std::optional<WindowApp>)> &done)
{
    const auto later = [this, done](const std::optional<WindowApp> &app) {
        QMetaObject::invokeMethod(
            this, [done, app] { done(app); }, Qt::QueuedConnection);
    };
    switch (m_source) {
    case Source::X11Pointer:
        if (m_x11) {
            m_x11->lookUpOnce(later);
            return;
        }
        break;
    case Source::SwayFocus:
        if (m_sway) {
            querySwayTree(done);
            return;
        }
        break;
    case Source::KWinScript:
        // The script reports every activation: what it said last is the answer.
        if (m_remedy == Remedy::None) {
            later(current());
            return;
        }
        break;
    case Source::GnomeShellExtension: {
        const QDBusMessage call = QDBusMessage::createMethodCall(GnomeShellService,
            QString(GnomeShellExtension::ObjectPath), QString(GnomeShellExtension::Interface), u"GetFocused"_s);
        dbus::call(this, call, [this, done](const QDBusMessage &reply) {
            if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().size() != 2) {
                done(std::nullopt);
                return;
            }
            const WindowApp app { reply.arguments().at(0).toString(), reply.arguments().at(1).toString() };
            publish(app);
            done(app);
        });
        return;
    }
    case Source::None:
        break;
    }
    later(std::nullopt);
}

} // namespace kestrix
