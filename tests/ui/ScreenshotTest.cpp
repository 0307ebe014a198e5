// Renders the preferences window in English, Korean and Arabic, with and without the no-tray
// commands, its Advanced page and the tray menu in the same three languages, into ui-screenshots/
// under the build folder, for people to look at; what they must show is checked by the other ui
// tests. On a real X server (the X11 run of this test) it also photographs the screen with the
// window mapped on it, as the window manager shows it.

#include "UiTestSupport.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/ScrollConfig.h"

#include <QDir>
#include <QGuiApplication>
#include <QMenu>
#include <QScreen>
#include <QTest>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

QDir folder() { return QDir(QStringLiteral(KESTRIX_SCREENSHOT_DIR)); }

// The X11 run writes its own files next to the offscreen run's, so the two may run at once.
void save(const QImage &image, const QString &name)
{
    const QString prefix = QGuiApplication::platformName() == "xcb"_L1 ? u"x11-"_s : QString();
    const QString path = folder().filePath(prefix + name);
    QVERIFY2(image.save(path), qPrintable(path));
    qInfo("wrote %s", qPrintable(path));
}

} // namespace

class ScreenshotTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { QVERIFY(folder().mkpath(u"."_s)); }
    void init() { SettingsStore::shared().clear(); }

    // Two mice plugged in, one unplugged, one switched off and never seen; the default apps. The
    // window in each language, and without a tray in German; the Advanced page in each language, and
    // with the GNOME note in English; the menu in each language.
    void windowAdvancedPageAndMenu()
    {
        const MouseIdentity trackball { 0x046d, 0xc408, u"Logitech USB Trackball"_s };
        for (const QString &name : { u"en"_s, u"ko"_s, u"ar"_s, u"de-no-tray"_s, u"en-gnome"_s }) {
            SettingsStore &store = SettingsStore::shared();
            store.clear();
            store.setValue(SettingsKeys::language, name.left(2));
            store.setValue(SettingsKeys::scrollSpeed, 12.34);
            store.setValue(SettingsKeys::triggerButton, u"middle"_s);
            store.setValue(SettingsKeys::dragThreshold, 8);
            ScrollConfig::setMouseDisabled(trackball, true);
            ScrollConfig::setMouseDisabled({ 0x1532, 0x0084, u"Razer DeathAdder V2"_s }, true);
            const bool gnome = name.endsWith("gnome"_L1);
            Shown shown(
                { { { 0x046d, 0xc077, u"Logitech USB Optical Mouse"_s }, true, true }, { trackball, true, false },
                    { { 0x093a, 0x2510, u"PixArt USB Optical Mouse"_s }, false, false } },
                gnome ? AppSourceStatus::GnomeExtensionOff : AppSourceStatus::Working);
            PreferencesWindow &window = shown.window;
            if (name.size() == 2) {
                QMenu *menu = shown.fixture.controller->menu();
                menu->popup(QPoint(0, 0));
                QVERIFY(QTest::qWaitForWindowExposed(menu));
                save(menu->grab().toImage(), u"menu-"_s + name + u".png"_s);
                menu->hide();
            }
            window.setCommandsVisible(name.endsWith("no-tray"_L1));
            window.setEngineEnabled(true);
            QVERIFY(QTest::qWaitForWindowExposed(&window));
            if (!gnome)
                save(window.grab().toImage(), u"preferences-"_s + name + u".png"_s);
            if (!gnome && QGuiApplication::platformName() == "xcb"_L1) {
                // The screen itself: what the X server shows, frame (or none) and all.
                QTest::qWait(200);
                const QRect around = window.frameGeometry().adjusted(-24, -24, 24, 24);
                const QPixmap screen
                    = window.screen()->grabWindow(0, around.x(), around.y(), around.width(), around.height());
                save(screen.toImage(), u"screen-"_s + name + u".png"_s);
            }
            if (name != "de-no-tray"_L1) {
                window.showAdvancedPage();
                QCoreApplication::processEvents();
                save(window.grab().toImage(), u"advanced-"_s + name + u".png"_s);
            }
        }
    }
};

QTEST_MAIN(ScreenshotTest)
#include "ScreenshotTest.moc"
