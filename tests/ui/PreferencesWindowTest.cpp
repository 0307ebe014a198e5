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
#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QDesktopServices>
#include <QLabel>
#include <QLocale>
#include <QScopeGuard>
#include <QSet>
#include <QSignalSpy>
#include <QSlider>
#include <QStyleOptionButton>
#include <QStyleOptionComboBox>
#include <QTest>
#include <QTextDocumentFragment>
#include <QUrl>

#include <clocale>
#include <string>
#include <tuple>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

SettingsStore &store() { return SettingsStore::shared(); }

QJsonObject settingChanged(const QString &name, const QString &value)
{
    return { { u"setting_name"_s, name }, { u"value"_s, value } };
}

} // namespace

class PreferencesWindowTest : public QObject
{
    Q_OBJECT
    QList<QUrl> openedUrls;

public Q_SLOTS:
    // Takes the URLs the window asks the desktop to open, so no browser starts.
    void openUrl(const QUrl &url) { openedUrls.append(url); }

private Q_SLOTS:
    void init() { store().clear(); }

    void showsTheStoredSpeedAndLanguageWithoutWritingThem_data()
    {
        // An undefined value is one the store does not hold.
        QTest::addColumn<QJsonValue>("speed");
        QTest::addColumn<QString>("label");
        QTest::addColumn<QJsonValue>("language");
        QTest::addColumn<int>("index");
        const QJsonValue none(QJsonValue::Undefined);
        QTest::newRow("nothing stored") << none << u"3.0"_s << none << 0;
        QTest::newRow("zero, last language") << QJsonValue(0) << u"3.0"_s << QJsonValue(u"my"_s) << 49;
        QTest::newRow("text, region code") << QJsonValue(u"fast"_s) << u"3.0"_s << QJsonValue(u"en-US"_s) << 0;
        QTest::newRow("12.34, japanese") << QJsonValue(12.34) << u"12.3"_s << QJsonValue(u"ja"_s) << 7;
        QTest::newRow("7.25 rounds as C does") << QJsonValue(7.25) << u"7.2"_s << QJsonValue(u"KO"_s) << 0;
    }

    void showsTheStoredSpeedAndLanguageWithoutWritingThem()
    {
        QFETCH(QJsonValue, speed);
        QFETCH(QString, label);
        QFETCH(QJsonValue, language);
        QFETCH(int, index);
        if (!speed.isUndefined())
            store().setValue(SettingsKeys::scrollSpeed, speed);
        if (!language.isUndefined())
            store().setValue(SettingsKeys::language, language);
        Shown shown;
        QCOMPARE(shown.text(u"speedLabel"_s), label);
        QCOMPARE(shown.get<QComboBox>(u"langPopup"_s)->currentIndex(), index);
        // Showing is not changing: the store holds what it held.
        QCOMPARE(store().value(SettingsKeys::scrollSpeed), speed);
        QCOMPARE(store().value(SettingsKeys::language), language);
        QVERIFY(shown.recorder.events.isEmpty());
    }

    void showWindowRefreshesEveryControlInPlace()
    {
        Shown shown;
        QCOMPARE(shown.window.size(), QSize(416, 520));
        QCOMPARE(shown.window.minimumSize(), shown.window.maximumSize());
        QVERIFY(!shown.get<QCheckBox>(u"diagonalCheckbox"_s)->isChecked());
        const QPoint placed = shown.window.pos();
        store().setValue(SettingsKeys::enableVerticalScroll, false);
        store().setValue(SettingsKeys::diagonalScroll, true);
        store().setValue(SettingsKeys::scrollSpeed, 12.34);
        shown.recorder.launchAtLoginEnabled = true;
        shown.window.showWindow();
        QVERIFY(!shown.get<QCheckBox>(u"verticalCheckbox"_s)->isChecked());
        QVERIFY(shown.get<QCheckBox>(u"diagonalCheckbox"_s)->isChecked());
        QVERIFY(shown.get<QCheckBox>(u"launchAtLoginCheckbox"_s)->isChecked());
        QCOMPARE(shown.get<QSlider>(u"speedSlider"_s)->value(), 123400);
        QCOMPARE(shown.window.pos(), placed);
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
        // No key: the autostart entry is the state.
        QTest::newRow("launch at login") << u"launchAtLoginCheckbox"_s << QString() << u"launch_at_login"_s;
    }

    void eachCheckboxWritesItsKeyAndReportsOnce()
    {
        QFETCH(QString, checkbox);
        QFETCH(QString, key);
        QFETCH(QString, settingName);
        Shown shown;
        auto *box = shown.get<QCheckBox>(checkbox);
        QList<bool> states;
        for (int round = 0; round < 2; ++round) {
            const bool expected = !box->isChecked();
            states.append(expected);
            QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(8, box->height() / 2));
            QCOMPARE(box->isChecked(), expected);
            if (!key.isEmpty())
                QCOMPARE(store().value(QLatin1StringView(key.toLatin1())), QJsonValue(expected));
            QCOMPARE(shown.recorder.events.size(), round + 1);
            QCOMPARE(shown.recorder.events.last().name, u"setting_changed"_s);
            QCOMPARE(
                shown.recorder.events.last().params, settingChanged(settingName, expected ? u"true"_s : u"false"_s));
        }
        QCOMPARE(shown.recorder.launchAtLoginRequests, key.isEmpty() ? states : QList<bool>());
        // One control, one key: nothing else was written.
        for (const QLatin1StringView other : { SettingsKeys::scrollSpeed, SettingsKeys::launchAtLogin })
            QVERIFY(!store().contains(other));
    }

    void speedStoresTheUnroundedValueAndReportsOneDecimal_data()
    {
        QTest::addColumn<int>("sliderValue");
        QTest::addColumn<double>("stored");
        QTest::addColumn<QString>("reported");
        QTest::addColumn<QByteArray>("locale"); // the system's, for C and for Qt
        QTest::newRow("12.3456") << 123456 << 12.3456 << u"12.3"_s << QByteArray();
        QTest::newRow("rounds up") << 48960 << 4.896 << u"4.9"_s << QByteArray();
        QTest::newRow("highest") << 500000 << 50.0 << u"50.0"_s << QByteArray();
        // scripts/deps test generates the locale.
        QTest::newRow("German system locale") << 123456 << 12.3456 << u"12.3"_s << QByteArray("de_DE.UTF-8");
    }

    void speedStoresTheUnroundedValueAndReportsOneDecimal()
    {
        QFETCH(int, sliderValue);
        QFETCH(double, stored);
        QFETCH(QString, reported);
        QFETCH(QByteArray, locale);
        const std::string previous = std::setlocale(LC_ALL, nullptr);
        const auto restore = qScopeGuard([&previous] {
            std::setlocale(LC_ALL, previous.c_str());
            QLocale::setDefault(QLocale::c());
        });
        if (!locale.isEmpty()) {
            QVERIFY2(std::setlocale(LC_ALL, locale.constData()) != nullptr, locale.constData());
            QLocale::setDefault(QLocale(QString::fromLatin1(locale)));
        }
        Shown shown;
        shown.get<QSlider>(u"speedSlider"_s)->setValue(sliderValue);
        QCOMPARE(store().doubleValue(SettingsKeys::scrollSpeed), stored);
        QCOMPARE(shown.text(u"speedLabel"_s), reported);
        QCOMPARE(shown.recorder.events.size(), 1);
        QCOMPARE(shown.recorder.events[0].params, settingChanged(u"scroll_speed"_s, reported));
    }

    void choosingALanguageSwitchesTheWindowAndTellsTheRest()
    {
        Shown shown;
        QSignalSpy broadcasts(&LanguageNotifier::instance(), &LanguageNotifier::languageDidChange);
        // Each arrow press on the closed pop-up is a choice of its own; the fourth is Arabic.
        for (int step = 0; step < 4; ++step)
            QTest::keyClick(shown.get(u"langPopup"_s), Qt::Key_Down);
        QCOMPARE(store().stringValue(SettingsKeys::language), u"ar"_s);
        QCOMPARE(broadcasts.size(), 4);
        QCOMPARE(shown.recorder.events.size(), 4);
        QCOMPARE(shown.recorder.events.last().name, u"language_changed"_s);
        QCOMPARE(shown.recorder.events.last().params, (QJsonObject { { u"language"_s, u"ar"_s } }));

        // Every translated text follows at once; the product line does not.
        const QList<std::pair<QString, QString (*)()>> texts { { u"subtitleLabel"_s, L10n::subtitle },
            { u"dirLabel"_s, L10n::scrollDirection }, { u"verticalCheckbox"_s, L10n::verticalScroll },
            { u"horizontalCheckbox"_s, L10n::horizontalScroll }, { u"diagonalCheckbox"_s, L10n::diagonalScroll },
            { u"behLabel"_s, L10n::behavior }, { u"reverseCheckbox"_s, L10n::reverseScroll },
            { u"smoothCheckbox"_s, L10n::smoothScroll }, { u"momentumCheckbox"_s, L10n::momentumScroll },
            { u"launchAtLoginCheckbox"_s, L10n::launchAtLogin }, { u"speedTitle"_s, L10n::scrollSpeed },
            { u"langLabel"_s, L10n::languageLabel } };
        for (const auto &[name, text] : texts)
            QCOMPARE(shown.text(name), text());
        QVERIFY(shown.text(u"dirLabel"_s) != u"Scroll Direction"_s);
        QCOMPARE(shown.text(u"titleLabel"_s), u"Kestrix v1.0.1"_s);
        // Screen readers hear the slider and the pop-up by name, in the new language too.
        QCOMPARE(shown.get(u"speedSlider"_s)->accessibleName(), L10n::scrollSpeed());
        QCOMPARE(shown.get(u"langPopup"_s)->accessibleName(), L10n::languageLabel());
        // Arabic is read from the right: the window mirrors, the web address does not.
        QCOMPARE(shown.window.layoutDirection(), Qt::RightToLeft);
        QCOMPARE(shown.get(u"footer"_s)->layoutDirection(), Qt::LeftToRight);
    }

    // On a compositing desktop: clear round the rounded content, with a shadow below it.
    void compositedWindowIsRoundedWithAShadow()
    {
        Shown shown(true);
        QVERIFY(QTest::qWaitForWindowExposed(&shown.window));
        const QImage image = shown.window.grab().toImage();
        constexpr int margin = PreferencesWindow::shadowMargin;
        QCOMPARE(image.size(), QSize(416 + 2 * margin, 520 + 2 * margin));
        QVERIFY(image.pixelColor(margin, margin).alpha() < 64);
        QCOMPARE(image.pixelColor(margin + 20, margin).alpha(), 255);
        QVERIFY(image.pixelColor(image.width() / 2, margin + 520 + 3).alpha() > 10);
        QCOMPARE(image.pixelColor(2, 2).alpha(), 0);
    }

    // The language list opens below its field: at most 16 rows, never the screen's height.
    void languageListAndFooterLink()
    {
        Shown shown;
        auto *popup = shown.get<QComboBox>(u"langPopup"_s);
        popup->showPopup();
        QWidget *list = popup->view()->window();
        QVERIFY(QTest::qWaitForWindowExposed(list));
        const int row = popup->view()->sizeHintForRow(0);
        QVERIFY2(list->height() <= 16 * row + 16 && list->height() >= 12 * row, qPrintable(QString::number(row)));
        popup->hidePopup();

        // The footer's link opens the web site.
        QDesktopServices::setUrlHandler(u"https"_s, this, "openUrl");
        shown.get<QAbstractButton>(u"websiteLink"_s)->click();
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QCOMPARE(openedUrls, (QList<QUrl> { QUrl(QString(AppInfo::website)) }));
        QVERIFY(shown.recorder.events.isEmpty());
    }

    void keyboardReachesEveryControlAndEscapeCloses()
    {
        Shown shown;
        shown.window.setCommandsVisible(true);
        QVERIFY(QTest::qWaitForWindowActive(&shown.window));
        QCOMPARE(QApplication::focusWidget(), shown.get(u"verticalCheckbox"_s));
        QSet<QString> reached;
        for (int press = 0; press < 30; ++press) {
            QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget() : &shown.window, Qt::Key_Tab);
            if (QWidget *focused = QApplication::focusWidget())
                reached.insert(focused->objectName());
        }
        const QSet<QString> controls { u"verticalCheckbox"_s, u"horizontalCheckbox"_s, u"diagonalCheckbox"_s,
            u"reverseCheckbox"_s, u"smoothCheckbox"_s, u"momentumCheckbox"_s, u"launchAtLoginCheckbox"_s,
            u"speedSlider"_s, u"langPopup"_s, u"websiteLink"_s, u"closeButton"_s, u"headerEnabledSwitch"_s,
            u"headerQuitButton"_s };
        QVERIFY2(reached.contains(controls), qPrintable(QStringList(reached.values()).join(u", "_s)));

        // Arrow keys move the speed by a tenth.
        QTest::keyClick(shown.get(u"speedSlider"_s), Qt::Key_Right);
        QCOMPARE(store().doubleValue(SettingsKeys::scrollSpeed), 3.1);

        QTest::keyClick(QApplication::focusWidget(), Qt::Key_Escape);
        QVERIFY(!shown.window.isVisible());
        shown.window.showWindow(); // closing only hid it
        QVERIFY(shown.window.isVisible());
    }

    // Every language, opened fresh and chosen live after the tallest one (Burmese, whose marks
    // above and below the letters make every line the tallest): every text is whole inside its
    // own rectangle at its real font, wrapped where it wraps, and no font is below 11 pixels.
    void everyLanguageFitsTheWindow_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("before");
        for (const Language language : Languages::allCases) {
            const QString code(Languages::rawValue(language));
            QTest::newRow(qPrintable(code)) << code << QString();
            QTest::newRow(qPrintable(u"my to "_s + code)) << code << u"my"_s;
        }
    }

    void everyLanguageFitsTheWindow()
    {
        QFETCH(QString, code);
        QFETCH(QString, before);
        store().setValue(SettingsKeys::language, before.isEmpty() ? code : before);
        Shown shown;
        shown.window.setCommandsVisible(true);
        QCoreApplication::processEvents();
        if (!before.isEmpty()) {
            auto *popup = shown.get<QComboBox>(u"langPopup"_s);
            popup->setCurrentIndex(popup->findData(code));
            Q_EMIT popup->activated(popup->currentIndex());
            QCOMPARE(store().stringValue(SettingsKeys::language), code);
            QCoreApplication::processEvents();
        }
        for (const QWidget *widget : shown.window.findChildren<QWidget *>()) {
            if (!widget->isVisible() || widget->objectName().isEmpty())
                continue;
            const QString name = widget->objectName();
            QVERIFY2(widget->parentWidget()->rect().contains(widget->geometry()), qPrintable(name));
            // The text, where the widget draws it, and whether it may wrap there.
            QString text;
            QRect area;
            bool wraps = false;
            if (const auto *label = qobject_cast<const QLabel *>(widget)) {
                // A link's label holds markup; what is drawn is its plain text.
                text = Qt::mightBeRichText(label->text()) ? QTextDocumentFragment::fromHtml(label->text()).toPlainText()
                                                          : label->text();
                std::tie(area, wraps) = std::tuple(label->contentsRect(), label->wordWrap());
            } else if (const auto *checkbox = qobject_cast<const QCheckBox *>(widget)) {
                QStyleOptionButton option;
                option.initFrom(checkbox);
                option.text = text = checkbox->text();
                area = checkbox->style()->subElementRect(QStyle::SE_CheckBoxContents, &option, checkbox);
                wraps = true;
            } else if (const auto *popup = qobject_cast<const QComboBox *>(widget)) {
                QStyleOptionComboBox option;
                option.initFrom(popup);
                text = popup->currentText();
                area
                    = popup->style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, popup);
            }
            if (text.isEmpty())
                continue;
            QVERIFY2(widget->font().pixelSize() >= 11, qPrintable(name));
            const QFontMetrics metrics = widget->fontMetrics();
            const QSize needed = wraps
                ? metrics.boundingRect(QRect(0, 0, area.width(), 10000), Qt::TextWordWrap, text).size()
                : metrics.size(0, text);
            QString message;
            QDebug(&message) << name << needed << "in" << area;
            QVERIFY2(needed.width() <= area.width() && needed.height() <= area.height(), qPrintable(message));
        }
    }
};

QTEST_MAIN(PreferencesWindowTest)
#include "PreferencesWindowTest.moc"
