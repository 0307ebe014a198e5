// The active window on KDE Plasma through the KWin script, against a real KWin (kwin_wayland
// --virtual, no screen) on the test's own session bus (CTest runs it under dbus-run-session) with
// real Wayland clients (Qt windows with app ids of the test's own, see WaylandWindow.cpp). Skips
// itself where KWin cannot start.

#include "session/AppUnderPointer.h"
#include "session/KWinActiveWindow.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QFile>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

class KWinSessionTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_runtime;
    QProcess m_kwin;
    std::vector<std::unique_ptr<QProcess>> m_clients;

    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.remove(u"QT_QPA_PLATFORM"_s); // KWin brings its own platform plugin
        environment.remove(u"DISPLAY"_s);
        environment.insert(u"XDG_RUNTIME_DIR"_s, m_runtime.path());
        environment.insert(u"WAYLAND_DISPLAY"_s, u"kestrix-test"_s);
        return environment;
    }

    void startClient(const QString &appId)
    {
        auto &client = m_clients.emplace_back(std::make_unique<QProcess>());
        QProcessEnvironment clientEnvironment = environment();
        clientEnvironment.insert(u"QT_QPA_PLATFORM"_s, u"wayland"_s);
        client->setProcessEnvironment(clientEnvironment);
        client->start(QStringLiteral(KESTRIX_WAYLAND_WINDOW), { appId });
    }

private Q_SLOTS:
    void initTestCase()
    {
        const QString kwin = QStandardPaths::findExecutable(u"kwin_wayland"_s);
        if (kwin.isEmpty())
            QSKIP("kwin_wayland is not installed (Debian package kwin-wayland)");
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("No session bus: the test runs under dbus-run-session");
        QVERIFY(m_runtime.isValid());
        qputenv("XDG_RUNTIME_DIR", QFile::encodeName(m_runtime.path())); // where the script is written
        // kwin_wayland carries a file capability, which a container may forbid executing; a copy has
        // none. KWin's platform plugin accepts only a program named kwin_wayland.
        const QString copy = m_runtime.filePath(u"kwin_wayland"_s);
        QVERIFY(QFile::copy(kwin, copy));
        m_kwin.setProcessEnvironment(environment());
        m_kwin.start(copy,
            { u"--virtual"_s, u"--no-lockscreen"_s, u"--socket"_s, u"kestrix-test"_s, u"--width"_s, u"800"_s,
                u"--height"_s, u"600"_s });
        QDBusConnectionInterface *bus = QDBusConnection::sessionBus().interface();
        for (int waited = 0; waited < 150 && !bus->isServiceRegistered(u"org.kde.KWin"_s); ++waited) {
            if (m_kwin.state() == QProcess::NotRunning)
                break;
            QTest::qWait(100);
        }
        if (!bus->isServiceRegistered(u"org.kde.KWin"_s))
            QSKIP(qPrintable(
                u"KWin did not start here: "_s + QString::fromLocal8Bit(m_kwin.readAllStandardError().right(400))));
    }

    void cleanupTestCase()
    {
        for (auto &client : m_clients) {
            client->kill();
            client->waitForFinished();
        }
        m_kwin.terminate();
        m_kwin.waitForFinished();
    }

    void activeWindowFollowed()
    {
        AppUnderPointer app(Session { Session::Desktop::Kde, true, {}, {} });
        QCOMPARE(app.source(), AppUnderPointer::Source::KWinScript);
        QTRY_VERIFY_WITH_TIMEOUT(app.available(), 10000);

        startClient(u"kestrix-test-one"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
        startClient(u"kestrix-test-two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-two"_s, 15000);

        // Anyone but KWin reporting a window is not listened to.
        QDBusConnection other = QDBusConnection::connectToBus(QDBusConnection::SessionBus, u"other"_s);
        QDBusMessage forged = QDBusMessage::createMethodCall(QDBusConnection::sessionBus().baseService(),
            QString::fromLatin1(KWinActiveWindow::ObjectPath), u"com.orvane.kestrix.ActiveWindow"_s,
            u"setActiveWindow"_s);
        forged << u"forged"_s << u"forged"_s;
        other.asyncCall(forged);
        QTest::qWait(300);
        QCOMPARE(app.current().appId, u"kestrix-test-two"_s);
        QDBusConnection::disconnectFromBus(u"other"_s);

        m_clients.back()->kill();
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
    }
};

QTEST_GUILESS_MAIN(KWinSessionTest)
#include "KWinSessionTest.moc"
