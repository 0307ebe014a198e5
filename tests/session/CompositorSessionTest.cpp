// The focused app on Wayland compositors, each real and screenless, with real Wayland clients (Qt
// windows with app ids of the test's own, see WaylandWindow.cpp):
//   sway (headless backend, pixman renderer), through its IPC; sway refuses to run as root, so as
//   root the test runs it and its clients as the unprivileged user nobody;
//   KWin (kwin_wayland --virtual), through the KWin script, on the test's own session bus (CTest
//   runs the test under dbus-run-session).
// A row skips itself where its compositor cannot start.

#include "session/AppUnderPointer.h"
#include "session/KWinActiveWindow.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDir>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace kestrix;
using namespace Qt::StringLiterals;

class CompositorSessionTest : public QObject
{
    Q_OBJECT

    std::unique_ptr<QTemporaryDir> m_runtime;
    QProcess m_compositor;
    std::vector<std::unique_ptr<QProcess>> m_clients;
    bool m_asNobody = false;
    QString m_wayland; // the compositor's display, for its clients

    void start(QProcess &process, const QString &program, const QStringList &arguments)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"DISPLAY"_s);
        environment.remove(u"QT_QPA_PLATFORM"_s); // KWin brings its own platform plugin
        for (const auto &[name, value] : { std::pair { u"XDG_RUNTIME_DIR"_s, m_runtime->path() },
                 { u"HOME"_s, m_runtime->path() }, { u"WLR_BACKENDS"_s, u"headless"_s },
                 { u"WLR_RENDERER"_s, u"pixman"_s }, { u"WLR_LIBINPUT_NO_DEVICES"_s, u"1"_s } })
            environment.insert(name, value);
        if (!m_wayland.isEmpty())
            environment.insert(u"WAYLAND_DISPLAY"_s, m_wayland);
        process.setProcessEnvironment(environment);
        if (m_asNobody && geteuid() == 0)
            process.start(u"setpriv"_s,
                QStringList { u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program } + arguments);
        else
            process.start(program, arguments);
    }

    void startClient(const QString &appId)
    {
        auto &client = m_clients.emplace_back(std::make_unique<QProcess>());
        start(*client, QStringLiteral(KESTRIX_WAYLAND_WINDOW), { appId, u"-platform"_s, u"wayland"_s });
    }

    // Waits up to 15 s for `ready`; false when the compositor ended first or never got ready.
    bool waitFor(const std::function<bool()> &ready)
    {
        QElapsedTimer started;
        started.start();
        while (!ready() && m_compositor.state() != QProcess::NotRunning && started.elapsed() < 15000)
            QTest::qWait(100);
        return ready();
    }

    std::optional<Session> startSway()
    {
        if (QStandardPaths::findExecutable(u"sway"_s).isEmpty()
            || QStandardPaths::findExecutable(u"setpriv"_s).isEmpty())
            return std::nullopt;
        m_asNobody = true;
        if (geteuid() == 0 && chown(QFile::encodeName(m_runtime->path()).constData(), 65534, 65534) != 0)
            return std::nullopt;
        QFile config(m_runtime->filePath(u"config"_s));
        if (!config.open(QIODevice::WriteOnly) || config.write("xwayland disable\n") < 0)
            return std::nullopt;
        config.close();
        start(m_compositor, u"sway"_s, { u"-c"_s, config.fileName() });
        QString socket;
        waitFor([&] {
            const QDir folder(m_runtime->path());
            const QStringList found = folder.entryList({ u"sway-ipc.*.sock"_s }, QDir::System);
            const QStringList displays = folder.entryList({ u"wayland-?"_s }, QDir::System);
            socket = found.isEmpty() ? QString() : folder.filePath(found.first());
            m_wayland = displays.value(0);
            return !socket.isEmpty() && !m_wayland.isEmpty();
        });
        return socket.isEmpty() ? std::nullopt : std::optional(Session { Session::Desktop::Sway, true, {}, socket });
    }

    std::optional<Session> startKWin()
    {
        const QString kwin = QStandardPaths::findExecutable(u"kwin_wayland"_s);
        if (kwin.isEmpty() || !QDBusConnection::sessionBus().isConnected())
            return std::nullopt;
        m_asNobody = false;
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime->path())); // where the script is written
        // kwin_wayland carries a file capability, which a container may forbid executing; a copy has
        // none. KWin's platform plugin accepts only a program named kwin_wayland.
        const QString copy = m_runtime->filePath(u"kwin_wayland"_s);
        if (!QFile::copy(kwin, copy))
            return std::nullopt;
        start(m_compositor, copy,
            { u"--virtual"_s, u"--no-lockscreen"_s, u"--socket"_s, u"kestrix-test"_s, u"--width"_s, u"800"_s,
                u"--height"_s, u"600"_s });
        if (!waitFor([] {
                return QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.kde.KWin"_s).value();
            }))
            return std::nullopt;
        m_wayland = u"kestrix-test"_s;
        return Session { Session::Desktop::Kde, true, {}, {} };
    }

private Q_SLOTS:
    void init()
    {
        m_runtime = std::make_unique<QTemporaryDir>();
        m_wayland.clear();
    }

    void cleanup()
    {
        for (auto &client : m_clients) {
            client->kill();
            client->waitForFinished();
        }
        m_clients.clear();
        m_compositor.terminate();
        if (!m_compositor.waitForFinished())
            m_compositor.kill();
    }

    void focusedAppFollowed_data()
    {
        QTest::addColumn<AppUnderPointer::Source>("source");
        QTest::newRow("sway") << AppUnderPointer::Source::SwayFocus;
        QTest::newRow("KWin") << AppUnderPointer::Source::KWinScript;
    }
    void focusedAppFollowed()
    {
        QFETCH(AppUnderPointer::Source, source);
        const std::optional<Session> session = source == AppUnderPointer::Source::SwayFocus ? startSway() : startKWin();
        if (!session)
            QSKIP(qPrintable(
                u"The compositor did not start here (Debian packages sway, kwin-wayland; dbus-run-session): "_s
                + QString::fromLocal8Bit(m_compositor.readAllStandardError().right(400))));
        AppUnderPointer app(*session);
        QCOMPARE(app.source(), source);
        QTRY_VERIFY_WITH_TIMEOUT(app.available(), 10000);

        startClient(u"kestrix-test-one"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
        startClient(u"kestrix-test-two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-two"_s, 15000);

        if (source == AppUnderPointer::Source::KWinScript) {
            // Anyone but KWin reporting a window is not listened to.
            QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other"_s);
            QDBusMessage forged = QDBusMessage::createMethodCall(QDBusConnection::sessionBus().baseService(),
                QString::fromLatin1(KWinActiveWindow::ObjectPath), u"com.orvane.kestrix.ActiveWindow"_s,
                u"setActiveWindow"_s);
            other.call(forged << u"forged"_s << u"forged"_s, QDBus::BlockWithGui);
            QTest::qWait(100);
            QDBusConnection::disconnectFromBus(u"other"_s);
        }
        std::optional<WindowApp> looked;
        app.lookUpOnce([&](std::optional<WindowApp> found) { looked = found; });
        QTRY_VERIFY(looked);
        QCOMPARE(looked->appId, u"kestrix-test-two"_s);

        // The focused window closes: the focus, and the app, go back to the other one.
        m_clients.back()->kill();
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
    }
};

QTEST_GUILESS_MAIN(CompositorSessionTest)
#include "CompositorSessionTest.moc"
