// sway's IPC against a real sway (headless backend, pixman renderer) with real Wayland clients
// (Qt windows with app ids of the test's own, see WaylandWindow.cpp). sway refuses to run as root, so as root the test
// runs it, and the clients, as the unprivileged user nobody. It skips itself where sway cannot start.

#include "session/AppUnderPointer.h"
#include "session/SwayIpc.h"

#include <QDir>
#include <QJsonObject>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <unistd.h>

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

constexpr uid_t Nobody = 65534;

} // namespace

class SwaySessionTest : public QObject
{
    Q_OBJECT

    QTemporaryDir m_runtime;
    QProcess m_sway;
    std::vector<std::unique_ptr<QProcess>> m_clients;
    QString m_socket;
    QString m_wayland;

    // Runs `program` as nobody when the test runs as root, in the compositor's runtime folder.
    void startAs(QProcess &process, const QString &program, const QStringList &arguments)
    {
        QProcessEnvironment environment;
        environment.insert(u"PATH"_s, u"/usr/bin:/bin"_s);
        environment.insert(u"HOME"_s, m_runtime.path());
        environment.insert(u"XDG_RUNTIME_DIR"_s, m_runtime.path());
        environment.insert(u"WLR_BACKENDS"_s, u"headless"_s);
        environment.insert(u"WLR_RENDERER"_s, u"pixman"_s);
        environment.insert(u"WLR_LIBINPUT_NO_DEVICES"_s, u"1"_s);
        if (!m_wayland.isEmpty())
            environment.insert(u"WAYLAND_DISPLAY"_s, m_wayland);
        environment.insert(u"QT_QPA_PLATFORM"_s, u"wayland"_s);
        process.setProcessEnvironment(environment);
        if (geteuid() == 0)
            process.start(u"setpriv"_s,
                QStringList { u"--reuid=65534"_s, u"--regid=65534"_s, u"--clear-groups"_s, program } + arguments);
        else
            process.start(program, arguments);
    }

    void startClient(const QString &appId)
    {
        auto &client = m_clients.emplace_back(std::make_unique<QProcess>());
        startAs(*client, QStringLiteral(KESTRIX_WAYLAND_WINDOW), { appId });
    }

private Q_SLOTS:
    void initTestCase()
    {
        for (const QString &program : { u"sway"_s, u"setpriv"_s }) {
            if (QStandardPaths::findExecutable(program).isEmpty())
                QSKIP(qPrintable(program + u" is not installed (Debian packages sway, util-linux)"_s));
        }
        QVERIFY(m_runtime.isValid());
        const QByteArray folder = QFile::encodeName(m_runtime.path());
        QVERIFY(geteuid() != 0 || chown(folder.constData(), Nobody, Nobody) == 0);
        QFile config(m_runtime.filePath(u"config"_s));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("xwayland disable\n");
        config.close();

        startAs(m_sway, u"sway"_s, { u"-c"_s, config.fileName() });
        const QDir runtime(m_runtime.path());
        for (int waited = 0; waited < 100 && m_socket.isEmpty() && m_sway.state() != QProcess::NotRunning; ++waited) {
            QTest::qWait(100);
            const QStringList sockets = runtime.entryList({ u"sway-ipc.*.sock"_s }, QDir::System);
            const QStringList displays = runtime.entryList({ u"wayland-?"_s }, QDir::System);
            if (!sockets.isEmpty() && !displays.isEmpty()) {
                m_socket = runtime.filePath(sockets.first());
                m_wayland = displays.first();
            }
        }
        if (m_socket.isEmpty())
            QSKIP(qPrintable(u"sway did not start headless here: "_s
                + QString::fromLocal8Bit(m_sway.readAllStandardError().right(400))));
    }

    void cleanupTestCase()
    {
        for (auto &client : m_clients) {
            client->kill();
            client->waitForFinished();
        }
        m_sway.terminate();
        m_sway.waitForFinished();
    }

    void inputsAndTree()
    {
        SwayIpc ipc;
        QVERIFY(ipc.connectTo(m_socket));
        QJsonDocument inputs, tree;
        ipc.send(SwayIpc::GetInputs, {}, [&](const QJsonDocument &reply) { inputs = reply; });
        ipc.send(SwayIpc::GetTree, {}, [&](const QJsonDocument &reply) { tree = reply; });
        QTRY_VERIFY(tree.isObject());
        QVERIFY(inputs.isArray());
        QCOMPARE(tree.object().value("type"_L1).toString(), u"root"_s);
    }

    void focusedAppFollowed()
    {
        AppUnderPointer app(Session { Session::Desktop::Sway, true, {}, m_socket });
        QCOMPARE(app.source(), AppUnderPointer::Source::SwayFocus);
        QVERIFY(app.available());
        startClient(u"kestrix-test-one"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
        startClient(u"kestrix-test-two"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-two"_s, 15000);

        SwayIpc ipc;
        QVERIFY(ipc.connectTo(m_socket));
        ipc.send(SwayIpc::RunCommand, "[app_id=kestrix-test-one] focus", {});
        QTRY_COMPARE(app.current().appId, u"kestrix-test-one"_s);

        std::optional<WindowApp> looked;
        app.lookUpOnce([&](std::optional<WindowApp> found) { looked = found; });
        QTRY_VERIFY(looked);
        QCOMPARE(looked->appId, u"kestrix-test-one"_s);

        // The focused window closes: the focus, and the app, go to the other one.
        m_clients.front()->kill();
        QTRY_COMPARE(app.current().appId, u"kestrix-test-two"_s);
    }
};

QTEST_GUILESS_MAIN(SwaySessionTest)
#include "SwaySessionTest.moc"
