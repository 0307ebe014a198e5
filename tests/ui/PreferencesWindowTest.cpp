// The preferences window seen from the user's side: what it shows for the stored settings, what
// each control writes and reports, the language switch, the keyboard, and that every one of the
// 50 languages fits the fixed window.

#include "UiTestSupport.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/AppInfo.h"
#include "ui/PreferencesWindow.h"

#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QDesktopServices>
#include <QLabel>
#include <QSet>
#include <QSignalSpy>
#include <QSlider>
#include <QTest>
#include <QUrl>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

// Takes the URLs the window asks the desktop to open, so no browser starts.
class UrlCatcher : public QObject
{
    Q_OBJECT

public:
    QList<QUrl> urls;

public Q_SLOTS:
    void open(const QUrl &url) { urls.append(url); }
};

class PreferencesWindowTest : public QObject
{
    Q_OBJECT

private:
    SettingsStore &store() { return SettingsStore::shared(); }

    template<typename T> static T *control(PreferencesWindow &window, const QString &name)
    {
        T *found = window.findChild<T *>(name);
        if (found == nullptr)
            qFatal("no control %s", qPrintable(name));
        return found;
    }

    static QString text(PreferencesWindow &window, const QString &name)
    {
        if (auto *label = window.findChild<QLabel *>(name))
            return label->text();
        return control<QAbstractButton>(window, name)->text();
    }

private Q_SLOTS:
    void init() { store().clear(); }

    void isAFixedWindowOfTheDesignSize()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        QCOMPARE(window.size(), QSize(416, 520));
        QCOMPARE(window.minimumSize(), window.maximumSize());
        QVERIFY(!window.isVisible());
        QCOMPARE(QString(PreferencesWindow::headerTitle), QString(AppInfo::displayLine));
        QCOMPARE(text(window, u"titleLabel"_s), u"Kestrix v1.0.1"_s);
    }

    void showsDefaultsWithoutWritingAnything()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        QVERIFY(window.isVisible());
        QCOMPARE(text(window, u"speedLabel"_s), u"3.0"_s);
        QCOMPARE(control<QSlider>(window, u"speedSlider"_s)->value(), 3 * PreferencesWindow::speedSliderScale);
        QCOMPARE(control<QComboBox>(window, u"langPopup"_s)->currentIndex(), 0);
        QCOMPARE(control<QComboBox>(window, u"langPopup"_s)->count(), 50);
        QCOMPARE(control<QComboBox>(window, u"langPopup"_s)->itemText(1), u"한국어"_s);
        // The engine's defaults: everything on except diagonal scrolling.
        QVERIFY(control<QCheckBox>(window, u"verticalCheckbox"_s)->isChecked());
        QVERIFY(!control<QCheckBox>(window, u"diagonalCheckbox"_s)->isChecked());
        QVERIFY(control<QCheckBox>(window, u"reverseCheckbox"_s)->isChecked());
        QVERIFY(!store().contains(SettingsKeys::scrollSpeed));
        QVERIFY(!store().contains(SettingsKeys::language));
        QVERIFY(recorder.events.isEmpty());
    }

    void showsTheStoredSpeed_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("sliderValue");
        QTest::newRow("zero") << QJsonValue(0) << u"3.0"_s << 30000;
        QTest::newRow("negative") << QJsonValue(-4.5) << u"3.0"_s << 30000;
        QTest::newRow("not a number") << QJsonValue(u"fast"_s) << u"3.0"_s << 30000;
        QTest::newRow("rounded for display") << QJsonValue(12.34) << u"12.3"_s << 123400;
        QTest::newRow("lowest") << QJsonValue(1.0) << u"1.0"_s << 10000;
        QTest::newRow("above the slider") << QJsonValue(500) << u"500.0"_s << 500000;
    }

    void showsTheStoredSpeed()
    {
        QFETCH(QJsonValue, stored);
        QFETCH(QString, shown);
        QFETCH(int, sliderValue);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        store().setValue(SettingsKeys::scrollSpeed, stored);
        window.showWindow();
        QCOMPARE(text(window, u"speedLabel"_s), shown);
        auto *slider = control<QSlider>(window, u"speedSlider"_s);
        QCOMPARE(slider->value(), std::min(sliderValue, slider->maximum()));
        // Showing is not changing: the stored value stays as it was.
        QCOMPARE(store().value(SettingsKeys::scrollSpeed), stored);
        QVERIFY(recorder.events.isEmpty());
    }

    void selectsTheStoredLanguage_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<int>("index");
        QTest::newRow("japanese") << u"ja"_s << 7;
        QTest::newRow("last") << u"my"_s << 49;
        QTest::newRow("unknown shows the first") << u"xx"_s << 0;
        QTest::newRow("region is unknown") << u"en-US"_s << 0;
        QTest::newRow("upper case is unknown") << u"KO"_s << 0;
    }

    void selectsTheStoredLanguage()
    {
        QFETCH(QString, stored);
        QFETCH(int, index);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        store().setValue(SettingsKeys::language, stored);
        window.showWindow();
        QCOMPARE(control<QComboBox>(window, u"langPopup"_s)->currentIndex(), index);
        QCOMPARE(store().stringValue(SettingsKeys::language), stored);
    }

    void showWindowRefreshesEveryControl()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        const QPoint placed = window.pos();
        store().setValue(SettingsKeys::enableVerticalScroll, false);
        store().setValue(SettingsKeys::diagonalScroll, true);
        store().setValue(SettingsKeys::momentumScroll, false);
        store().setValue(SettingsKeys::scrollSpeed, 7.25);
        recorder.launchAtLoginEnabled = true;
        window.showWindow();
        QVERIFY(!control<QCheckBox>(window, u"verticalCheckbox"_s)->isChecked());
        QVERIFY(control<QCheckBox>(window, u"diagonalCheckbox"_s)->isChecked());
        QVERIFY(!control<QCheckBox>(window, u"momentumCheckbox"_s)->isChecked());
        QVERIFY(control<QCheckBox>(window, u"launchAtLoginCheckbox"_s)->isChecked());
        QCOMPARE(text(window, u"speedLabel"_s), u"7.2"_s);
        QCOMPARE(window.pos(), placed);
        QVERIFY(recorder.events.isEmpty());
    }

    void eachCheckboxWritesItsKeyAndReportsOnce_data()
    {
        QTest::addColumn<QString>("checkbox");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("settingName");
        QTest::newRow("vertical") << u"verticalCheckbox"_s << u"enableVerticalScroll"_s << u"vertical_scroll"_s;
        QTest::newRow("horizontal") << u"horizontalCheckbox"_s << u"enableHorizontalScroll"_s << u"horizontal_scroll"_s;
        QTest::newRow("diagonal") << u"diagonalCheckbox"_s << u"diagonalScroll"_s << u"diagonal_scroll"_s;
        QTest::newRow("reverse") << u"reverseCheckbox"_s << u"reverseScroll"_s << u"reverse_scroll"_s;
        QTest::newRow("smooth") << u"smoothCheckbox"_s << u"usePixelScrolling"_s << u"smooth_scroll"_s;
        QTest::newRow("momentum") << u"momentumCheckbox"_s << u"momentumScroll"_s << u"momentum_scroll"_s;
    }

    void eachCheckboxWritesItsKeyAndReportsOnce()
    {
        QFETCH(QString, checkbox);
        QFETCH(QString, key);
        QFETCH(QString, settingName);
        const QByteArray keyBytes = key.toLatin1();
        const QLatin1StringView storeKey(keyBytes);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        auto *box = control<QCheckBox>(window, checkbox);

        for (int round = 0; round < 2; ++round) {
            const bool expected = !box->isChecked();
            QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
            QCOMPARE(box->isChecked(), expected);
            QCOMPARE(store().value(storeKey), QJsonValue(expected));
            QCOMPARE(recorder.events.size(), round + 1);
            QCOMPARE(recorder.events.last().name, u"setting_changed"_s);
            const QJsonObject params { { u"setting_name"_s, settingName },
                { u"value"_s, expected ? u"true"_s : u"false"_s } };
            QCOMPARE(recorder.events.last().params, params);
        }
        // One control, one key: nothing else was written.
        for (const QLatin1StringView other :
            { SettingsKeys::scrollSpeed, SettingsKeys::language, SettingsKeys::launchAtLogin })
            QVERIFY(!store().contains(other));
    }

    void launchAtLoginGoesToTheAutostartHelperNotTheStore()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        auto *box = control<QCheckBox>(window, u"launchAtLoginCheckbox"_s);
        QVERIFY(!box->isChecked());
        box->click();
        box->click();
        QCOMPARE(recorder.launchAtLoginRequests, (QList<bool> { true, false }));
        QCOMPARE(recorder.events.size(), 2);
        QCOMPARE(recorder.events[0].params,
            (QJsonObject { { u"setting_name"_s, u"launch_at_login"_s }, { u"value"_s, u"true"_s } }));
        QCOMPARE(recorder.events[1].params.value(u"value"_s), QJsonValue(u"false"_s));
        QVERIFY(!store().contains(SettingsKeys::launchAtLogin));
    }

    void speedStoresTheUnroundedValueAndReportsOneDecimal_data()
    {
        QTest::addColumn<int>("sliderValue");
        QTest::addColumn<double>("stored");
        QTest::addColumn<QString>("reported");
        QTest::newRow("12.3456") << 123456 << 12.3456 << u"12.3"_s;
        QTest::newRow("rounds up") << 48960 << 4.896 << u"4.9"_s;
        QTest::newRow("lowest") << 10000 << 1.0 << u"1.0"_s;
        QTest::newRow("highest") << 500000 << 50.0 << u"50.0"_s;
    }

    void speedStoresTheUnroundedValueAndReportsOneDecimal()
    {
        QFETCH(int, sliderValue);
        QFETCH(double, stored);
        QFETCH(QString, reported);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        control<QSlider>(window, u"speedSlider"_s)->setValue(sliderValue);
        QCOMPARE(store().doubleValue(SettingsKeys::scrollSpeed), stored);
        QCOMPARE(text(window, u"speedLabel"_s), reported);
        QCOMPARE(recorder.events.size(), 1);
        QCOMPARE(recorder.events[0].name, u"setting_changed"_s);
        QCOMPARE(recorder.events[0].params,
            (QJsonObject { { u"setting_name"_s, u"scroll_speed"_s }, { u"value"_s, reported } }));
    }

    void arrowKeysStepTheSpeedByATenth()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        auto *slider = control<QSlider>(window, u"speedSlider"_s);
        QTest::keyClick(slider, Qt::Key_Right);
        QCOMPARE(store().doubleValue(SettingsKeys::scrollSpeed), 3.1);
        QCOMPARE(recorder.events.size(), 1);
        QCOMPARE(recorder.events[0].params.value(u"value"_s), QJsonValue(u"3.1"_s));
    }

    void choosingALanguageSwitchesTheWindowAndTellsTheRest_data()
    {
        QTest::addColumn<int>("steps");
        QTest::addColumn<QString>("code");
        QTest::newRow("japanese") << 7 << u"ja"_s;
        QTest::newRow("the last") << 49 << u"my"_s;
    }

    void choosingALanguageSwitchesTheWindowAndTellsTheRest()
    {
        QFETCH(int, steps);
        QFETCH(QString, code);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        QSignalSpy broadcasts(&LanguageNotifier::instance(), &LanguageNotifier::languageDidChange);
        const QString englishHeading = text(window, u"dirLabel"_s);
        auto *popup = control<QComboBox>(window, u"langPopup"_s);
        // Each arrow press is a choice of its own, as a user stepping through the closed pop-up makes.
        for (int step = 0; step < steps; ++step)
            QTest::keyClick(popup, Qt::Key_Down);

        QCOMPARE(store().stringValue(SettingsKeys::language), code);
        QCOMPARE(broadcasts.size(), steps);
        QCOMPARE(recorder.events.size(), steps);
        QCOMPARE(recorder.events.last().name, u"language_changed"_s);
        QCOMPARE(recorder.events.last().params, (QJsonObject { { u"language"_s, code } }));
        // Every translated text follows at once; the product line does not.
        QVERIFY(text(window, u"dirLabel"_s) != englishHeading);
        QCOMPARE(text(window, u"dirLabel"_s), L10n::scrollDirection());
        QCOMPARE(text(window, u"subtitleLabel"_s), L10n::subtitle());
        QCOMPARE(text(window, u"verticalCheckbox"_s), L10n::verticalScroll());
        QCOMPARE(text(window, u"horizontalCheckbox"_s), L10n::horizontalScroll());
        QCOMPARE(text(window, u"diagonalCheckbox"_s), L10n::diagonalScroll());
        QCOMPARE(text(window, u"behLabel"_s), L10n::behavior());
        QCOMPARE(text(window, u"reverseCheckbox"_s), L10n::reverseScroll());
        QCOMPARE(text(window, u"smoothCheckbox"_s), L10n::smoothScroll());
        QCOMPARE(text(window, u"momentumCheckbox"_s), L10n::momentumScroll());
        QCOMPARE(text(window, u"launchAtLoginCheckbox"_s), L10n::launchAtLogin());
        QCOMPARE(text(window, u"speedTitle"_s), L10n::scrollSpeed());
        QCOMPARE(text(window, u"langLabel"_s), L10n::languageLabel());
        QCOMPARE(text(window, u"titleLabel"_s), u"Kestrix v1.0.1"_s);
        QCOMPARE(popup->itemText(0), u"English"_s);
        // Screen readers hear the slider and the pop-up by name, in the new language too.
        QCOMPARE(control<QSlider>(window, u"speedSlider"_s)->accessibleName(), L10n::scrollSpeed());
        QCOMPARE(popup->accessibleName(), L10n::languageLabel());
    }

    void rightToLeftLanguagesMirrorTheWindow()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        store().setValue(SettingsKeys::language, u"ar"_s);
        window.showWindow();
        QCOMPARE(window.layoutDirection(), Qt::RightToLeft);
        QCOMPARE(control<QWidget>(window, u"footer"_s)->layoutDirection(), Qt::LeftToRight);
        store().setValue(SettingsKeys::language, u"ko"_s);
        window.showWindow();
        QCOMPARE(window.layoutDirection(), Qt::LeftToRight);
    }

    void footerLinkOpensTheWebSite()
    {
        UrlCatcher catcher;
        QDesktopServices::setUrlHandler(u"https"_s, &catcher, "open");
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.showWindow();
        auto *link = control<QAbstractButton>(window, u"websiteLink"_s);
        QCOMPARE(link->text(), QString(AppInfo::website));
        QCOMPARE(text(window, u"contactLabel"_s), u" | "_s + AppInfo::contactEmail);
        link->click();
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(catcher.urls, (QList<QUrl> { QUrl(QString(AppInfo::website)) }));
        QVERIFY(recorder.events.isEmpty());
    }

    void keyboardReachesEveryControlAndEscapeCloses()
    {
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.setCommandsVisible(true);
        window.showWindow();
        QVERIFY(QTest::qWaitForWindowActive(&window));

        QSet<QString> reached;
        for (int press = 0; press < 30; ++press) {
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &window, Qt::Key_Tab);
            if (QWidget *focused = QApplication::focusWidget())
                reached.insert(focused->objectName());
        }
        const QSet<QString> controls { u"verticalCheckbox"_s, u"horizontalCheckbox"_s, u"diagonalCheckbox"_s,
            u"reverseCheckbox"_s, u"smoothCheckbox"_s, u"momentumCheckbox"_s, u"launchAtLoginCheckbox"_s,
            u"speedSlider"_s, u"langPopup"_s, u"websiteLink"_s, u"closeButton"_s, u"headerEnabledSwitch"_s,
            u"headerQuitButton"_s };
        QVERIFY2(reached.contains(controls), qPrintable(QStringList(reached.values()).join(u", "_s)));

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QVERIFY(!window.isVisible());
        // Closing only hides: the same window shows again.
        window.showWindow();
        QVERIFY(window.isVisible());
    }

    void everyLanguageFitsTheWindow_data()
    {
        QTest::addColumn<QString>("code");
        for (const Language language : Languages::allCases)
            QTest::newRow(Languages::rawValue(language).data()) << QString(Languages::rawValue(language));
    }

    void everyLanguageFitsTheWindow()
    {
        QFETCH(QString, code);
        store().setValue(SettingsKeys::language, code);
        WindowRecorder recorder;
        PreferencesWindow window(recorder.services());
        window.setCommandsVisible(true);
        window.showWindow();
        QCoreApplication::processEvents();
        // Every text is shown whole: inside its parent and as wide as it needs.
        const QList<QWidget *> widgets = window.findChildren<QWidget *>();
        for (const QWidget *widget : widgets) {
            if (!widget->isVisible() || widget->objectName().isEmpty())
                continue;
            const QWidget *parent = widget->parentWidget();
            QVERIFY2(parent->rect().contains(widget->geometry()),
                qPrintable(widget->objectName() + u" leaves "_s + parent->objectName()));
            if (qobject_cast<const QLabel *>(widget) || qobject_cast<const QCheckBox *>(widget))
                QVERIFY2(widget->width() >= widget->sizeHint().width(), qPrintable(widget->objectName()));
        }
        const QWidget *footer = control<QWidget>(window, u"footer"_s);
        QVERIFY(footer->mapTo(&window, QPoint(0, footer->height())).y() <= window.height());
    }
};

QTEST_MAIN(PreferencesWindowTest)
#include "PreferencesWindowTest.moc"
