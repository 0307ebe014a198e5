// Renders the preferences window in English, Korean and Arabic, with and without the no-tray
// commands, its Advanced page in the same three languages, and the icon at tray sizes on light and dark panels
// (checking that it renders whole), into ui-screenshots/ under the build folder, for people to look at. On a real X
// server (the X11 run of this test) it also photographs the screen with the window mapped on it, as the window manager
// shows it.

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
        QTest::addColumn<bool>("composited");
        for (const char *code : { "en", "ko", "ar" })
            QTest::newRow(code) << QString::fromLatin1(code) << false << false;
        QTest::newRow("de-no-tray") << u"de"_s << true << false;
        QTest::newRow("en-composited") << u"en"_s << false << true;
    }

    void window()
    {
        QFETCH(QString, code);
        QFETCH(bool, commands);
        QFETCH(bool, composited);
        if (composited && QGuiApplication::platformName() == "xcb"_L1)
            QSKIP("Xvfb runs no compositing manager");
        SettingsStore::shared().setValue(SettingsKeys::language, code);
        SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, 12.34);
        Shown shown(composited);
        PreferencesWindow &window = shown.window;
        window.setCommandsVisible(commands);
        window.setEngineEnabled(true);
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        const QImage image = window.grab().toImage();
        save(image, u"preferences-"_s + QString::fromLatin1(QTest::currentDataTag()) + u".png"_s);
        if (composited) {
            // Clear round the rounded content, with a shadow below it.
            constexpr int margin = PreferencesWindow::shadowMargin;
            QCOMPARE(image.size(), QSize(416 + 2 * margin, 520 + 2 * margin));
            QVERIFY(image.pixelColor(margin, margin).alpha() < 64);
            QCOMPARE(image.pixelColor(margin + 20, margin).alpha(), 255);
            QVERIFY(image.pixelColor(image.width() / 2, margin + 520 + 3).alpha() > 10);
            QCOMPARE(image.pixelColor(2, 2).alpha(), 0);
        }

        if (QGuiApplication::platformName() == "xcb"_L1) {
            // The screen itself: what the X server shows, frame (or none) and all.
            QTest::qWait(200);
            const QRect around = window.frameGeometry().adjusted(-24, -24, 24, 24);
            const QPixmap screen
                = window.screen()->grabWindow(0, around.x(), around.y(), around.width(), around.height());
            save(screen.toImage(), u"screen-"_s + QString::fromLatin1(QTest::currentDataTag()) + u".png"_s);
        }
    }

    // The keyboard's focus ring on the slider, and the language list open below its field: at
    // most 16 rows, never the screen's height.
    void focusAndLanguageList()
    {
        SettingsStore::shared().setValue(SettingsKeys::language, u"en"_s);
        Shown shown;
        QVERIFY(QTest::qWaitForWindowActive(&shown.window));
        QWidget *launchAtLogin = shown.get(u"launchAtLoginCheckbox"_s);
        launchAtLogin->setFocus(Qt::MouseFocusReason);
        QTest::keyClick(launchAtLogin, Qt::Key_Tab);
        QCOMPARE(QApplication::focusWidget(), shown.get(u"speedSlider"_s));
        save(shown.window.grab().toImage(), u"preferences-focus.png"_s);

        auto *popup = shown.get<QComboBox>(u"langPopup"_s);
        popup->showPopup();
        QWidget *list = popup->view()->window();
        QVERIFY(QTest::qWaitForWindowExposed(list));
        const int row = popup->view()->sizeHintForRow(0);
        QVERIFY2(list->height() <= 16 * row + 16, qPrintable(QString::number(list->height())));
        QVERIFY(list->height() >= 12 * row);
        save(list->grab().toImage(), u"language-list.png"_s);
        popup->hidePopup();
    }

    void advanced_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<AppSourceStatus>("source");
        for (const char *code : { "en", "ko", "ar" })
            QTest::newRow(code) << QString::fromLatin1(code) << AppSourceStatus::Working;
        QTest::newRow("en-gnome") << u"en"_s << AppSourceStatus::GnomeExtensionOff;
        QTest::newRow("my-gnome") << u"my"_s << AppSourceStatus::GnomeExtensionOff;
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

    void icons()
    {
        // Each size on a light and on a dark panel, the coloured icon above the symbolic one.
        const QList<int> sizes { 16, 22, 24, 32, 48, 64 };
        const QIcon colour = StatusBarController::appIcon();
        const QIcon symbolic(u":/icons/kestrix-symbolic.svg"_s);
        QImage sheet(300, 2 * 150, QImage::Format_ARGB32);
        QPainter painter(&sheet);
        painter.fillRect(0, 0, sheet.width(), 150, QColor(246, 245, 244));
        painter.fillRect(0, 150, sheet.width(), 150, QColor(36, 36, 40));
        int x = 8;
        for (const int size : sizes) {
            // The bundled drawing renders (Qt's SVG icon engine is there): opaque in the middle,
            // clear at the corner.
            const QImage drawn = colour.pixmap(size, size).toImage();
            QCOMPARE(drawn.size(), QSize(size, size));
            QVERIFY(drawn.pixelColor(size / 2, size / 2).alpha() == 255 && drawn.pixelColor(0, 0).alpha() < 255);
            // The symbolic icon as drawn (no theme recolours it) holds light and dark pixels, so it
            // reads on a dark panel and on a light one.
            const QImage glyph = symbolic.pixmap(size, size).toImage();
            int light = 0;
            int dark = 0;
            for (int pixel = 0; pixel < size * size; ++pixel) {
                const QColor shade = glyph.pixelColor(pixel % size, pixel / size);
                light += shade.alpha() > 200 && shade.lightness() > 200 ? 1 : 0;
                dark += shade.alpha() > 200 && shade.lightness() < 80 ? 1 : 0;
            }
            QVERIFY(light >= size && dark >= size);
            for (const int top : { 0, 150 }) {
                painter.drawImage(x, top + 8, drawn);
                painter.drawImage(x, top + 142 - size, glyph);
            }
            x += size + 10;
        }
        painter.end();
        save(sheet, u"icons.png"_s);
    }
};

QTEST_MAIN(ScreenshotTest)
#include "ScreenshotTest.moc"
