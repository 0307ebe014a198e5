#pragma once

// A real Wayland compositor of the test's own, screenless, in a runtime folder of its own, with
// real windows (WaylandWindow.cpp) whose app ids the test chooses:
//   sway (headless backend, pixman renderer), reached through its IPC socket; sway refuses to run
//   as root, so as root it and its windows run as the unprivileged user nobody;
//   KWin (kwin_wayland --virtual), reached through D-Bus on the session bus the test runs on.
// Everything it started is killed with it.

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <ranges>

#include <unistd.h>

namespace kestrix::test {

class HeadlessCompositor
{
public:
    ~HeadlessCompositor()
    {
        for (auto &process : m_processes | std::views::reverse) {
            process->kill();
            process->waitForFinished();
        }
    }

    // False where sway cannot run here; socket() is its IPC socket.
    bool startSway()
    {
        using namespace Qt::StringLiterals;
        const QDir runtime(m_runtime.path());
        QFile config(runtime.filePath(u"config"_s));
        m_asNobody = geteuid() == 0;
        if (QStandardPaths::findExecutable(u"sway"_s).isEmpty()
            || QStandardPaths::findExecutable(u"setpriv"_s).isEmpty()
            || (m_asNobody && chown(QFile::encodeName(runtime.path()).constData(), 65534, 65534) != 0)
            || !config.open(QIODevice::WriteOnly) || config.write("xwayland disable\n") <= 0)
            return false;
        config.close();
        run(u"sway"_s, { u"-c"_s, config.fileName() });
        const auto found = [&](const QString &name) { return runtime.entryList({ name }, QDir::System).value(0); };
        if (!QTest::qWaitFor(
                [&] { return !found(u"wayland-?"_s).isEmpty() && !found(u"sway-ipc.*.sock"_s).isEmpty(); }, 20000))
            return false;
        m_display = found(u"wayland-?"_s);
        m_socket = runtime.filePath(found(u"sway-ipc.*.sock"_s));
        return true;
    }

    // False where KWin cannot run here or no session bus is at hand.
    bool startKWin()
    {
        using namespace Qt::StringLiterals;
        const QString kwin = QStandardPaths::findExecutable(u"kwin_wayland"_s);
        if (kwin.isEmpty() || !QDBusConnection::sessionBus().isConnected())
            return false;
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path())); // where the KWin script is written
        // kwin_wayland carries a file capability, which a container may forbid executing; a copy has
        // none. KWin's platform plugin accepts only a program named kwin_wayland.
        const QString copy = m_runtime.filePath(u"kwin_wayland"_s);
        if (!QFile::copy(kwin, copy))
            return false;
        run(copy,
            { u"--virtual"_s, u"--no-lockscreen"_s, u"--socket"_s, u"kestrix-test"_s, u"--width"_s, u"800"_s,
                u"--height"_s, u"600"_s });
        m_display = u"kestrix-test"_s;
        return QTest::qWaitFor(
            [] { return QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.kde.KWin"_s).value(); },
            20000);
    }

    void openWindow(const QString &appId)
    {
        using namespace Qt::StringLiterals;
        run(QStringLiteral(KESTRIX_WAYLAND_WINDOW), { appId, u"-platform"_s, u"wayland"_s });
    }
    // The window opened last goes away.
    void closeLastWindow() { m_processes.back()->kill(); }

    const QString &socket() const { return m_socket; }
    // What the compositor said on its way out, for a test that skips.
    QString errors() const
    {
        return QString::fromLocal8Bit(
            m_processes.empty() ? QByteArray() : m_processes.front()->readAllStandardError().right(400));
    }

private:
    void run(const QString &program, const QStringList &arguments)
    {
        using namespace Qt::StringLiterals;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"DISPLAY"_s);
        environment.remove(u"QT_QPA_PLATFORM"_s); // KWin brings its own platform plugin
        for (const auto &[name, value] : { std::pair { u"XDG_RUNTIME_DIR"_s, m_runtime.path() },
                 { u"HOME"_s, m_runtime.path() }, { u"WLR_BACKENDS"_s, u"headless"_s },
                 { u"WLR_RENDERER"_s, u"pixman"_s }, { u"WLR_LIBINPUT_NO_DEVICES"_s, u"1"_s } })
            environment.insert(name, value);
        if (!m_display.isEmpty()) // the compositor's own, for its windows
            environment.insert(u"WAYLAND_DISPLAY"_s, m_display);
        QProcess &process = *m_processes.emplace_back(std::make_unique<QProcess>());
        process.setProcessEnvironment(environment);
        process.setStandardOutputFile(QProcess::nullDevice());
        if (m_asNobody)
            process.start(u"setpriv"_s,
                QStringList { u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program } + arguments);
        else
            process.start(program, arguments);
    }

    QTemporaryDir m_runtime;
    std::vector<std::unique_ptr<QProcess>> m_processes; // the compositor, then its windows
    bool m_asNobody = false;
    QString m_display;
    QString m_socket;
};

} // namespace kestrix::test
