// The preferences window seen from the user's side: what it shows for the stored settings, what
// each control of its two pages writes and reports, the language switch, the keyboard on both
// pages, and that every one of the 50 languages fits the fixed window on both. Its look, checked in pixels: the
// gradient's direction and its independence from the repainted region, the cards' white rounded surface and their faint
// purple shadow, the focus ring that only the keyboard brings, a disabled control's pale grey, and the icons.

#include "UiTestSupport.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "engine/ScrollConfig.h"
#include "l10n/L10n.h"
#include "l10n/Language.h"
#include "net/AppInfo.h"
#include "session/AppMatcher.h"
#include "ui/AppStyle.h"
#include "ui/CardView.h"
#include "ui/GradientView.h"
#include "ui/PreferencesWindow.h"
#include "ui/WindowChrome.h"

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QDebug>
#include <QDesktopServices>
#include <QJsonArray>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QScopeGuard>
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

const MouseIdentity optical { 0x046d, 0xc077, u"Optical Mouse"_s };

QJsonObject settingChanged(const QString &name, const QString &value)
{
    return { { u"setting_name"_s, name }, { u"value"_s, value } };
}

// The largest 8-bit channel difference.
int distance(QColor a, QColor b)
{
    return std::max({ std::abs(a.red() - b.red()), std::abs(a.green() - b.green()), std::abs(a.blue() - b.blue()) });
}

// The widget over a background of one colour; only what the widget paints itself covers it.
QImage render(QWidget &widget, QColor background = Qt::black, const QRegion &region = {})
{
    QImage image(widget.size(), QImage::Format_ARGB32);
    image.fill(background);
    widget.render(&image, QPoint(), region, QWidget::DrawChildren);
    return image;
}

// A 120 x 60 card at (40, 40) in a 200 x 140 area.
QImage renderCard(QColor background)
{
    QWidget area;
    area.resize(200, 140);
    (new CardView(&area))->setGeometry(40, 40, 120, 60);
    return render(area, background);
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

    void showsTheStoredSpeedAndLanguageWithoutWritingThem()
    {
        // An undefined value is one the store does not hold; 7.25 rounds as C does.
        const QJsonValue none(QJsonValue::Undefined);
        const struct
        {
            QJsonValue speed, language;
            QString shown; // the label, and the pop-up's index
        } rows[] = { { none, none, u"3.0 0"_s }, { 0, u"my"_s, u"3.0 49"_s }, { u"fast"_s, u"en-US"_s, u"3.0 0"_s },
            { 12.34, u"ja"_s, u"12.3 7"_s }, { 7.25, u"KO"_s, u"7.2 0"_s } };
        for (const auto &[speed, language, expected] : rows) {
            store().clear();
            if (!speed.isUndefined())
                store().setValue(SettingsKeys::scrollSpeed, speed);
            if (!language.isUndefined())
                store().setValue(SettingsKeys::language, language);
            Shown shown;
            QCOMPARE(
                u"%1 %2"_s.arg(shown.text(u"speedLabel"_s)).arg(shown.get<QComboBox>(u"langPopup"_s)->currentIndex()),
                expected);
            // Showing is not changing: the store holds what it held.
            QVERIFY2(store().value(SettingsKeys::scrollSpeed) == speed
                    && store().value(SettingsKeys::language) == language && shown.recorder.events.isEmpty(),
                qPrintable(expected));
        }
    }

    // Showing the window again shows what the store holds now, where the window was.
    void showWindowRefreshesEveryControlInPlace()
    {
        Shown shown;
        QCOMPARE(shown.window.minimumSize(), shown.window.maximumSize());
        const QPoint placed = shown.window.pos();
        store().setValue(SettingsKeys::enableVerticalScroll, false);
        store().setValue(SettingsKeys::diagonalScroll, true);
        store().setValue(SettingsKeys::scrollSpeed, 12.34);
        shown.recorder.launchAtLoginEnabled = true;
        shown.window.showWindow();
        for (const QString &box : { u"verticalCheckbox"_s, u"diagonalCheckbox"_s, u"launchAtLoginCheckbox"_s })
            QVERIFY2(shown.get<QCheckBox>(box)->isChecked() == (box != "verticalCheckbox"_L1), qPrintable(box));
        QCOMPARE(shown.get<QSlider>(u"speedSlider"_s)->value(), 123400);
        QCOMPARE(shown.window.pos(), placed);
    }

    // Each control of either page, moved as a user would, writes its one key and reports it once.
    // Buttons are clicked on their near side, the pop-up moved down one, a slider moved a step by
    // the keyboard or set; launch at login stores nothing: the autostart entry is the state. The speed
    // is stored unrounded and reported with one decimal, under a German system locale too (for C
    // and for Qt; scripts/deps test generates it).
    void eachControlWritesItsSettingAndReportsIt()
    {
        const std::string previous = std::setlocale(LC_ALL, nullptr);
        const auto restore = qScopeGuard([&previous] {
            std::setlocale(LC_ALL, previous.c_str());
            QLocale::setDefault(QLocale::c());
        });
        const QStringList defaults = AppMatcher::defaultPatterns();
        const QJsonValue none(QJsonValue::Undefined);
        const struct
        {
            QString control;
            int setTo; // a slider's value; 0 for one step of the keyboard
            QLatin1StringView key;
            QJsonValue stored;
            QString settingName, value;
            const char *locale = nullptr;
        } rows[] = { { u"verticalCheckbox"_s, 0, SettingsKeys::enableVerticalScroll, false, u"vertical_scroll"_s,
                         u"false"_s },
            { u"horizontalCheckbox"_s, 0, SettingsKeys::enableHorizontalScroll, false, u"horizontal_scroll"_s,
                u"false"_s },
            { u"diagonalCheckbox"_s, 0, SettingsKeys::diagonalScroll, true, u"diagonal_scroll"_s, u"true"_s },
            { u"reverseCheckbox"_s, 0, SettingsKeys::reverseScroll, false, u"reverse_scroll"_s, u"false"_s },
            { u"smoothCheckbox"_s, 0, SettingsKeys::usePixelScrolling, false, u"smooth_scroll"_s, u"false"_s },
            { u"momentumCheckbox"_s, 0, SettingsKeys::momentumScroll, false, u"momentum_scroll"_s, u"false"_s },
            { u"launchAtLoginCheckbox"_s, 0, SettingsKeys::launchAtLogin, none, u"launch_at_login"_s, u"true"_s },
            { u"speedSlider"_s, 0, SettingsKeys::scrollSpeed, 3.1, u"scroll_speed"_s, u"3.1"_s },
            { u"speedSlider"_s, 123456, SettingsKeys::scrollSpeed, 12.3456, u"scroll_speed"_s, u"12.3"_s },
            { u"speedSlider"_s, 48960, SettingsKeys::scrollSpeed, 4.896, u"scroll_speed"_s, u"4.9"_s },
            { u"speedSlider"_s, 500000, SettingsKeys::scrollSpeed, 50.0, u"scroll_speed"_s, u"50.0"_s },
            { u"speedSlider"_s, 123456, SettingsKeys::scrollSpeed, 12.3456, u"scroll_speed"_s, u"12.3"_s,
                "de_DE.UTF-8" },
            { u"buttonPopup"_s, 0, SettingsKeys::triggerButton, u"middle"_s, u"trigger_button"_s, u"middle"_s },
            { u"thresholdSlider"_s, 0, SettingsKeys::dragThreshold, 6, u"drag_threshold"_s, u"6"_s },
            { u"glideSlider"_s, 0, SettingsKeys::momentumGlide, 0.98, u"momentum_glide"_s, u"0.98"_s },
            { u"mouseSwitch"_s, 0, SettingsKeys::disabledMice, QJsonArray { ScrollConfig::mouseToJson(optical) },
                u"disabled_mice"_s, u"1"_s },
            { u"removeAppButton"_s, 0, SettingsKeys::excludedApps, QJsonArray::fromStringList(defaults.mid(1)),
                u"excluded_apps"_s, QString::number(defaults.size() - 1) },
            { u"addAppButton"_s, 0, SettingsKeys::excludedApps,
                QJsonArray::fromStringList(defaults + QStringList { u"org.gimp.GIMP"_s }), u"excluded_apps"_s,
                QString::number(defaults.size() + 1) } };
        for (const auto &[control, setTo, key, stored, settingName, value, locale] : rows) {
            const Row row { u"%1 %2 %3"_s.arg(control).arg(setTo).arg(QLatin1StringView(locale ? locale : "C")) };
            store().clear();
            if (locale != nullptr) {
                QVERIFY2(std::setlocale(LC_ALL, locale) != nullptr, locale);
                QLocale::setDefault(QLocale(QString::fromLatin1(locale)));
            }
            Shown shown({ { optical, true, true } });
            shown.recorder.appSource.appUnderPointer = u"org.gimp.GIMP"_s;
            // Opening the Advanced page builds its lists' rows anew.
            if (!shown.all(control).value(0)->isVisible())
                shown.window.showAdvancedPage();
            QWidget *widget = shown.all(control).value(0);
            if (qobject_cast<QAbstractButton *>(widget) != nullptr)
                QTest::mouseClick(widget, Qt::LeftButton, {}, QPoint(8, widget->height() / 2));
            else if (setTo != 0)
                qobject_cast<QSlider *>(widget)->setValue(setTo);
            else
                QTest::keyClick(widget, qobject_cast<QComboBox *>(widget) ? Qt::Key_Down : Qt::Key_Right);
            QTRY_COMPARE(store().value(key), stored);
            const bool launch = key == SettingsKeys::launchAtLogin;
            QCOMPARE(shown.recorder.launchAtLoginRequests, launch ? QList { true } : QList<bool>());
            QCOMPARE(shown.recorder.events.size(), 1);
            QCOMPARE(shown.recorder.events[0].name, u"setting_changed"_s);
            QCOMPARE(shown.recorder.events[0].params, settingChanged(settingName, value));
            if (control == "speedSlider"_L1)
                QCOMPARE(shown.text(u"speedLabel"_s), value);
            // One control, one key: nothing else was written.
            for (const auto &other : rows)
                QVERIFY(other.key == key || !store().contains(other.key));
        }
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
        Shown shown({}, AppSourceStatus::Working, true);
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

    // Tab runs through each page's controls top to bottom, then its header's, and round again,
    // with nothing of the hidden page in between. Escape leaves the Advanced page, then closes the
    // window, which only hides it.
    void keyboardWalksEachPageAndEscapeGoesBackThenCloses()
    {
        const QStringList mainPage { u"verticalCheckbox"_s, u"horizontalCheckbox"_s, u"diagonalCheckbox"_s,
            u"advancedLink"_s, u"reverseCheckbox"_s, u"smoothCheckbox"_s, u"momentumCheckbox"_s,
            u"launchAtLoginCheckbox"_s, u"speedSlider"_s, u"langPopup"_s, u"websiteLink"_s, u"headerEnabledSwitch"_s,
            u"headerQuitButton"_s, u"closeButton"_s, u"verticalCheckbox"_s };
        QStringList advancedPage { u"buttonPopup"_s, u"thresholdSlider"_s, u"glideSlider"_s, u"mouseSwitch"_s };
        for (qsizetype i = 0; i < AppMatcher::defaultPatterns().size(); ++i)
            advancedPage.append(u"removeAppButton"_s);
        advancedPage += { u"addAppButton"_s, u"backButton"_s, u"advancedCloseButton"_s, u"buttonPopup"_s };
        for (const bool advanced : { false, true }) {
            Shown shown({ { optical, true, true } });
            PreferencesWindow &window = shown.window;
            window.setCommandsVisible(true);
            if (advanced)
                window.showAdvancedPage();
            QVERIFY(QTest::qWaitForWindowActive(&window));
            const QStringList &expected = advanced ? advancedPage : mainPage;
            QStringList chain;
            for (qsizetype i = 0; i < expected.size(); ++i) {
                chain.append(QApplication::focusWidget()->objectName());
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Tab);
            }
            QCOMPARE(chain, expected);
            QTest::keyClick(&window, Qt::Key_Escape);
            QVERIFY(!window.advancedPageShown());
            QCOMPARE(window.isVisible(), advanced);
            if (advanced) {
                // Back on the link that led there, in again with Enter, out with the arrow.
                QTest::keyClick(QApplication::focusWidget(), Qt::Key_Return);
                QVERIFY(window.advancedPageShown());
                shown.get<QAbstractButton>(u"backButton"_s)->click();
                QVERIFY(!window.advancedPageShown());
                QTest::keyClick(&window, Qt::Key_Escape);
            }
            window.showWindow();
            QVERIFY(window.isVisible());
        }
    }

    // Every language, opened fresh and chosen live after the tallest one (Burmese, whose marks
    // above and below the letters make every line the tallest), on the main page and on the fullest
    // Advanced page (an unplugged mouse and the GNOME note): every text is whole inside its own
    // rectangle at its real font, wrapped where it wraps, and no font is below 11 pixels.
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
        Shown shown({ { { 1, 2, u"Optical Mouse"_s }, true, true }, { { 3, 4, u"Travel Mouse"_s }, false, false } },
            AppSourceStatus::GnomeExtensionOff);
        shown.window.setCommandsVisible(true);
        QCoreApplication::processEvents();
        if (!before.isEmpty()) {
            auto *popup = shown.get<QComboBox>(u"langPopup"_s);
            popup->setCurrentIndex(popup->findData(code));
            Q_EMIT popup->activated(popup->currentIndex());
            QCOMPARE(store().stringValue(SettingsKeys::language), code);
            QCoreApplication::processEvents();
        }
        for (const bool advanced : { false, true }) {
            if (advanced) {
                shown.window.showAdvancedPage();
                QCoreApplication::processEvents();
            }
            for (const QWidget *widget : shown.window.findChildren<QWidget *>()) {
                // A list's rows are taller than its window on them: they scroll.
                if (!widget->isVisible() || widget->objectName().isEmpty()
                    || widget->parentWidget()->objectName() == "qt_scrollarea_viewport"_L1)
                    continue;
                const QString name = widget->objectName();
                QVERIFY2(widget->parentWidget()->rect().contains(widget->geometry()), qPrintable(name));
                const auto *label = qobject_cast<const QLabel *>(widget);
                // The text, where the widget draws it, and whether it may wrap there.
                QString text;
                QRect area;
                bool wraps = false;
                if (label != nullptr) {
                    // A link's label holds markup; what is drawn is its plain text.
                    text = Qt::mightBeRichText(label->text())
                        ? QTextDocumentFragment::fromHtml(label->text()).toPlainText()
                        : label->text();
                    std::tie(area, wraps) = std::tuple(label->contentsRect(), label->wordWrap());
                } else if (qobject_cast<const QCheckBox *>(widget) || qobject_cast<const QPushButton *>(widget)) {
                    // A checkbox's label may wrap, a push button's text may not.
                    const auto *button = static_cast<const QAbstractButton *>(widget);
                    wraps = qobject_cast<const QCheckBox *>(widget) != nullptr;
                    QStyleOptionButton option;
                    option.initFrom(button);
                    option.text = text = button->text();
                    area = button->style()->subElementRect(
                        wraps ? QStyle::SE_CheckBoxContents : QStyle::SE_PushButtonContents, &option, button);
                } else if (const auto *popup = qobject_cast<const QComboBox *>(widget)) {
                    QStyleOptionComboBox option;
                    option.initFrom(popup);
                    text = popup->currentText();
                    area = popup->style()->subControlRect(
                        QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, popup);
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
    }

    void gradientRunsFromTopLeftToBottomRight()
    {
        for (const QSize size : { QSize(416, 120), QSize(90, 520) }) { // wide and tall
            GradientView view;
            view.resize(size);
            const QImage image = render(view);
            const int right = size.width() - 1;
            const int bottom = size.height() - 1;
            QVERIFY(distance(image.pixelColor(0, 0), AppStyle::bgStart) <= 1);
            QVERIFY(distance(image.pixelColor(right, bottom), AppStyle::bgEnd) <= 1);
            // At -45 degrees the colour is constant along x + y = c, whatever the aspect ratio.
            const int side = std::min(right, bottom);
            QVERIFY(distance(image.pixelColor(side, 0), image.pixelColor(0, side)) <= 1);
            QVERIFY(image.pixelColor(right / 2, bottom / 2).lightness() > image.pixelColor(right, bottom).lightness());

            // Repainting a part paints it as the whole would: the gradient spans the view, not the
            // region. The region lands at the target's origin.
            const QRect region(right / 2, bottom / 2, 40, 30);
            const QImage part = render(view, Qt::black, region);
            for (const QPoint offset : { QPoint(0, 0), QPoint(39, 29) })
                QCOMPARE(part.pixelColor(offset), image.pixelColor(region.topLeft() + offset));
        }
    }

    void cardIsWhiteRoundedAndCastsAFaintPurpleShadowDownward()
    {
        const QImage onBlack = renderCard(Qt::black);
        QCOMPARE(onBlack.pixelColor(100, 70), QColor(Qt::white));
        QCOMPARE(onBlack.pixelColor(41, 70), QColor(Qt::white)); // the straight left edge
        // A radius of 12 leaves the corner pixel dark, and the point 3 pixels in along the
        // diagonal (inside the square, outside the arc) as well.
        for (const QPoint corner : { QPoint(40, 40), QPoint(43, 43), QPoint(159, 99), QPoint(156, 96) })
            QVERIFY(onBlack.pixelColor(corner).lightness() < 128);
        QVERIFY(onBlack.pixelColor(46, 46).lightness() > 240);

        // On white, anything that is not white is the shadow.
        const QImage onWhite = renderCard(Qt::white);
        const QColor below = onWhite.pixelColor(100, 101);
        const QColor above = onWhite.pixelColor(100, 38);
        QVERIFY2(below.blue() > below.red() + 4 && below.blue() > below.green() + 4, qPrintable(below.name()));
        QVERIFY(below.lightness() < above.lightness()); // offset downward
        QVERIFY(below.lightness() > 200); // faint
        QCOMPARE(onWhite.pixelColor(100, 125), QColor(Qt::white)); // gone beyond the blur
    }

    void focusRingOnlyFromTheKeyboardAndDisabledIsGrey()
    {
        // The box gets the focus, or is disabled; the colours just inside the indicator's edge, beside
        // the box, and inside the ticked box.
        const QColor purple = AppStyle::purple;
        const std::tuple<QString, QColor, QColor> rows[] = { { u"tab"_s, purple, purple },
            { u"click"_s, Qt::white, purple }, { u"disabled"_s, Qt::white, ControlStyle::disabledColor() } };
        for (const auto &[how, edge, box] : rows) {
            Shown shown;
            QVERIFY(QTest::qWaitForWindowActive(&shown.window));
            auto *first = shown.get<QCheckBox>(u"verticalCheckbox"_s);
            auto *checkbox = shown.get<QCheckBox>(u"horizontalCheckbox"_s);
            first->setFocus();
            if (how == "tab"_L1)
                QTest::keyClick(first, Qt::Key_Tab);
            else
                QTest::mouseClick(checkbox, Qt::LeftButton, {}, QPoint(8, checkbox->height() / 2));
            checkbox->setChecked(true);
            checkbox->setEnabled(how != "disabled"_L1);
            const QImage image = checkbox->grab().toImage();
            const int top = (checkbox->height() - ControlStyle::indicatorSize) / 2;
            QVERIFY2(distance(image.pixelColor(1, top + 10), edge) <= 24, qPrintable(how));
            QVERIFY2(distance(image.pixelColor(6, top + 6), box) <= 24, qPrintable(how));
        }
    }

    // Both icons render whole at tray sizes (Qt's SVG icon engine is there): the coloured one opaque
    // in the middle and clear at the corner; the symbolic one, as drawn (no theme recolours it),
    // holds light and dark pixels, so it reads on a dark panel and on a light one.
    void iconsRenderAtTraySizes()
    {
        const QIcon symbolic(u":/icons/kestrix-symbolic.svg"_s);
        for (const int size : { 16, 22, 24, 32, 48, 64 }) {
            const QImage drawn = StatusBarController::appIcon().pixmap(size, size).toImage();
            QCOMPARE(drawn.size(), QSize(size, size));
            QVERIFY(drawn.pixelColor(size / 2, size / 2).alpha() == 255 && drawn.pixelColor(0, 0).alpha() < 255);
            const QImage glyph = symbolic.pixmap(size, size).toImage();
            int light = 0;
            int dark = 0;
            for (int pixel = 0; pixel < size * size; ++pixel) {
                const QColor shade = glyph.pixelColor(pixel % size, pixel / size);
                light += shade.alpha() > 200 && shade.lightness() > 200 ? 1 : 0;
                dark += shade.alpha() > 200 && shade.lightness() < 80 ? 1 : 0;
            }
            QVERIFY(light >= size && dark >= size);
        }
    }
};

QTEST_MAIN(PreferencesWindowTest)
#include "PreferencesWindowTest.moc"
