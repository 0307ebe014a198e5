// Renders the preferences window in English, Korean and Arabic, with and without the no-tray
// commands, its Advanced page and the tray menu in the same three languages, into ui-screenshots/
// under the build folder, for people to look at; what they must show is checked by the other ui
// tests. On a real X server (the X11 run of this test) it also photographs the screen with the
// window mapped on it, as the window manager shows it.

#include "UiTestSupport.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/ScrollConfig.h"

#include <QAbstractItemView>
#include <QComboBox>
#include <QDir>
#include <QGuiApplication>
#include <QMenu>
#include <QPainter>
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

    void window_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<bool>("commands");
        for (const char *code : { "en", "ko", "ar" })
            QTest::newRow(code) << QString::fromLatin1(code) << false;
        QTest::newRow("de-no-tray") << u"de"_s << true;
    }

    void window()
    {
        QFETCH(QString, code);
        QFETCH(bool, commands);
        SettingsStore::shared().setValue(SettingsKeys::language, code);
        SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, 12.34);
        Shown shown;
        PreferencesWindow &window = shown.window;
        window.setCommandsVisible(commands);
        window.setEngineEnabled(true);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        save(window.grab().toImage(), u"preferences-"_s + QString::fromLatin1(QTest::currentDataTag()) + u".png"_s);
        if (QGuiApplication::platformName() == "xcb"_L1) {
            // The screen itself: what the X server shows, frame (or none) and all.
            QTest::qWait(200);
            const QRect around = window.frameGeometry().adjusted(-24, -24, 24, 24);
            const QPixmap screen
                = window.screen()->grabWindow(0, around.x(), around.y(), around.width(), around.height());
            save(screen.toImage(), u"screen-"_s + QString::fromLatin1(QTest::currentDataTag()) + u".png"_s);
        }
    }

    void advanced_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<AppSourceStatus>("source");
        for (const char *code : { "en", "ko", "ar" })
            QTest::newRow(code) << QString::fromLatin1(code) << AppSourceStatus::Working;
        QTest::newRow("en-gnome") << u"en"_s << AppSourceStatus::GnomeExtensionOff;
    }

    void advanced()
    {
        // Two mice plugged in, one unplugged, one switched off and never seen; the default apps.
        QFETCH(QString, code);
        QFETCH(AppSourceStatus, source);
        SettingsStore::shared().setValue(SettingsKeys::language, code);
        SettingsStore::shared().setValue(SettingsKeys::triggerButton, u"middle"_s);
        SettingsStore::shared().setValue(SettingsKeys::dragThreshold, 8);
        const MouseIdentity trackball { 0x046d, 0xc408, u"Logitech USB Trackball"_s };
        ScrollConfig::setMouseDisabled(trackball, true);
        ScrollConfig::setMouseDisabled({ 0x1532, 0x0084, u"Razer DeathAdder V2"_s }, true);
        TrayFixture fixture;
        fixture.window.appSource.status = source;
        fixture.input.setMice({ { { 0x046d, 0xc077, u"Logitech USB Optical Mouse"_s }, true, true },
            { trackball, true, false }, { { 0x093a, 0x2510, u"PixArt USB Optical Mouse"_s }, false, false } });
        fixture.controller->showPreferences();
        PreferencesWindow &window = *fixture.controller->preferencesWindow();
        window.showAdvancedPage();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        save(window.grab().toImage(), u"advanced-"_s + QString::fromLatin1(QTest::currentDataTag()) + u".png"_s);
    }

    void menu_data()
    {
        QTest::addColumn<QString>("code");
        for (const char *code : { "en", "ko", "ar" })
            QTest::newRow(code) << QString::fromLatin1(code);
    }

    void menu()
    {
        QFETCH(QString, code);
        SettingsStore::shared().setValue(SettingsKeys::language, code);
        TrayFixture fixture;
        QMenu *menu = fixture.controller->menu();
        menu->popup(QPoint(0, 0));
        QVERIFY(QTest::qWaitForWindowExposed(menu));
        save(menu->grab().toImage(), u"menu-"_s + code + u".png"_s);
        menu->hide();
    }
};

QTEST_MAIN(ScreenshotTest)
#include "ScreenshotTest.moc"
