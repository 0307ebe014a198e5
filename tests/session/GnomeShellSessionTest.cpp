// Kestrix's GNOME Shell extension inside a real GNOME Shell (headless Wayland display server, one
// virtual monitor) on the test's own session bus (CTest runs it under dbus-run-session), with a
// second private bus standing in for the system bus the shell insists on. The extension is found in
// the test's own $XDG_DATA_HOME, turned on the way the preferences window turns it on, and answers.
// Not covered: a window taking the focus, which the headless shell does not give to a new window
// without user input, so the class it reports is always empty here.

#include "session/AppUnderPointer.h"
#include "session/GnomeShellExtension.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

class GnomeShellSessionTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_home;
    QProcess m_systemBus;
    QProcess m_shell;

    // The shell's answer; -1 when none came.
    int state()
    {
        std::optional<GnomeShellExtension::State> answer;
        GnomeShellExtension::queryState(this, [&](GnomeShellExtension::State state) { answer = state; });
        for (int waited = 0; waited < 100 && !answer; ++waited)
            QTest::qWait(50);
        return answer ? int(*answer) : -1;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (QStandardPaths::findExecutable(u"gnome-shell"_s).isEmpty())
            QSKIP("gnome-shell is not installed (Debian package gnome-shell)");
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("No session bus: the test runs under dbus-run-session");
        QVERIFY(m_home.isValid());
        const QString extension = m_home.filePath(u"data/gnome-shell/extensions/"_s + GnomeShellExtension::Uuid);
        QVERIFY(QDir().mkpath(extension));
        for (const QString &file : { u"metadata.json"_s, u"extension.js"_s })
            QVERIFY(QFile::copy(QStringLiteral(KESTRIX_GNOME_EXTENSION_DIR "/") + file, extension + u'/' + file));
        qputenv("XDG_DATA_HOME", QFile::encodeName(m_home.filePath(u"data"_s)));

        const QString systemBus = u"unix:path="_s + m_home.filePath(u"system_bus"_s);
        m_systemBus.start(u"dbus-daemon"_s, { u"--session"_s, u"--nofork"_s, u"--address="_s + systemBus });
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"DISPLAY"_s);
        environment.remove(u"QT_QPA_PLATFORM"_s);
        for (const auto &[name, value] :
            { std::pair { u"DBUS_SYSTEM_BUS_ADDRESS"_s, systemBus }, { u"XDG_RUNTIME_DIR"_s, m_home.path() },
                { u"HOME"_s, m_home.path() }, { u"GSETTINGS_BACKEND"_s, u"memory"_s } })
            environment.insert(name, value);
        m_shell.setProcessEnvironment(environment);
        m_shell.start(u"gnome-shell"_s,
            { u"--headless"_s, u"--wayland"_s, u"--no-x11"_s, u"--virtual-monitor"_s, u"800x600"_s,
                u"--wayland-display"_s, u"kestrix-test"_s });
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        // Started when its extensions are loaded: ours then reads as off.
        QElapsedTimer started;
        started.start();
        while (started.elapsed() < 30000 && m_shell.state() != QProcess::NotRunning) {
            if (bus->isServiceRegistered(u"org.gnome.Shell"_s) && state() == int(GnomeShellExtension::State::Disabled))
                break;
            QTest::qWait(100);
        }
        if (!bus->isServiceRegistered(u"org.gnome.Shell"_s))
            QSKIP(qPrintable(u"GNOME Shell did not start here: "_s
                + QString::fromLocal8Bit(m_shell.readAllStandardError().right(400))));
    }

    void cleanupTestCase()
    {
        m_shell.terminate();
        if (!m_shell.waitForFinished())
            m_shell.kill();
        m_systemBus.kill();
        m_systemBus.waitForFinished();
    }

    void enabledFromKestrix()
    {
        QVERIFY(GnomeShellExtension::installedOnDisk());
        QCOMPARE(state(), int(GnomeShellExtension::State::Disabled));
        AppUnderPointer app(Session { Session::Desktop::Gnome, true, {}, {} });
        QCOMPARE(app.source(), AppUnderPointer::Source::GnomeShellExtension);
        QTRY_COMPARE(app.remedy(), AppUnderPointer::Remedy::GnomeEnableExtension);
        QVERIFY(!app.available());

        bool enabled = false;
        GnomeShellExtension::enable(this, [&](bool ok) { enabled = ok; });
        QTRY_VERIFY(enabled);
        QCOMPARE(state(), int(GnomeShellExtension::State::Enabled));
        app.refresh();
        QTRY_VERIFY(app.available());

        std::optional<WindowApp> looked;
        app.lookUpOnce([&](std::optional<WindowApp> found) { looked = found; });
        QTRY_VERIFY(looked); // the extension answered (with no focused window)
    }
};

QTEST_GUILESS_MAIN(GnomeShellSessionTest)
#include "GnomeShellSessionTest.moc"
