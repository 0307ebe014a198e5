// The focused app on real, screenless Wayland compositors with real windows (HeadlessCompositor):
// sway through its IPC, KWin through the KWin script on the test's own session bus (CTest runs the
// test under dbus-run-session). A row skips itself where its compositor cannot start.

#include "HeadlessCompositor.h"
#include "session/AppUnderPointer.h"
#include "session/KWinActiveWindow.h"

#include <QDBusMessage>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

class CompositorSessionTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void focusedAppFollowed_data()
    {
        QTest::addColumn<AppUnderPointer::Source>("source");
        QTest::newRow("sway") << AppUnderPointer::Source::SwayFocus;
        QTest::newRow("KWin") << AppUnderPointer::Source::KWinScript;
    }
    void focusedAppFollowed()
    {
        QFETCH(AppUnderPointer::Source, source);
        HeadlessCompositor compositor;
        const bool sway = source == AppUnderPointer::Source::SwayFocus;
        // KWin comes up after Kestrix, as it can at login; sway is needed first for its socket.
        std::optional<AppUnderPointer> following;
        if (!sway)
            following.emplace(Session { Session::Desktop::Kde, true, {}, {} });
        if (!(sway ? compositor.startSway() : compositor.startKWin()))
            QSKIP(qPrintable(
                u"The compositor did not start here (Debian packages sway, kwin-wayland; dbus-run-session): "_s
                + compositor.errors()));
        if (sway)
            following.emplace(Session { Session::Desktop::Sway, true, {}, compositor.socket() });
        AppUnderPointer &app = *following;
        QCOMPARE(app.source(), source);
        QTRY_VERIFY_WITH_TIMEOUT(app.available(), 20000);

        compositor.openWindow(u"kestrix-test-one"_s);
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
        compositor.openWindow(u"kestrix-test-two"_s);
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
        compositor.closeLastWindow();
        QTRY_COMPARE_WITH_TIMEOUT(app.current().appId, u"kestrix-test-one"_s, 15000);
    }
};

QTEST_GUILESS_MAIN(CompositorSessionTest)
#include "CompositorSessionTest.moc"
