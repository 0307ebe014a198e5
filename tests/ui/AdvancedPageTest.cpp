// The Advanced page's lists seen from the user's side: the mice against the engine's mice and the
// switched-off ones, adding the app under the pointer, and the note where no desktop tells it.

#include "UiTestSupport.h"

#include "core/SettingsStore.h"
#include "engine/ScrollConfig.h"
#include "l10n/L10n.h"
#include "session/AppMatcher.h"
#include "ui/AdvancedControls.h"

#include <QPushButton>
#include <QTest>

#include <tuple>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

SettingsStore &store() { return SettingsStore::shared(); }

const MouseIdentity optical { 0x046d, 0xc077, u"Optical Mouse"_s };
const MouseIdentity trackball { 0x046d, 0xc408, u"Trackball"_s };
const MouseIdentity travel { 0x093a, 0x2510, u"Travel Mouse"_s };
const MouseIdentity drawer { 0x1532, 0x0084, u"Mouse In A Drawer"_s };

// The preferences window as the tray opens it, showing its Advanced page.
struct AdvancedShown : Shown
{
    explicit AdvancedShown(std::vector<MouseInfo> mice = {}, AppSourceStatus source = AppSourceStatus::Working)
        : Shown(std::move(mice), source)
    {
        window.showAdvancedPage();
    }
};

} // namespace

class AdvancedPageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { store().clear(); }

    void miceListShowsConnectedUnpluggedAndSwitchedOffMice()
    {
        ScrollConfig::setMouseDisabled(trackball, true);
        ScrollConfig::setMouseDisabled(drawer, true);
        AdvancedShown shown({ { optical, true, true }, { trackball, true, false }, { travel, false, false } });
        const auto rows = [&shown] {
            QStringList seen;
            for (int i = 0; QWidget *row = shown.window.findChild<QWidget *>(u"mouseRow%1"_s.arg(i)); ++i) {
                seen.append(row->findChild<ElidedLabel *>()->text() + u" "_s
                    + (row->findChild<ToggleSwitch *>()->isChecked() ? u"on"_s : u"off"_s)
                    + (row->findChild<QLabel *>(u"notConnected"_s) != nullptr ? u" away"_s : QString()));
            }
            return seen;
        };
        QCOMPARE(rows(),
            QStringList({ u"Optical Mouse on"_s, u"Trackball off"_s, u"Travel Mouse on away"_s,
                u"Mouse In A Drawer off away"_s }));

        // The switch goes both ways through the stored list, leaving the others in it.
        auto *opticalSwitch = shown.window.findChild<QWidget *>(u"mouseRow0"_s)->findChild<ToggleSwitch *>();
        opticalSwitch->click();
        QCOMPARE(ScrollConfig::disabledMice(), (std::vector { trackball, drawer, optical }));
        opticalSwitch->click();
        QCOMPARE(ScrollConfig::disabledMice(), (std::vector { trackball, drawer }));

        // Plugged in, the travel mouse loses its "Not connected" at once.
        shown.fixture.input.setMice({ { optical, true, true }, { trackball, true, false }, { travel, true, true } });
        QCOMPARE(rows().at(2), u"Travel Mouse on"_s);
    }

    void addingTheAppUnderThePointer()
    {
        // A new app, one covered by a pattern, nothing under the pointer.
        const int defaults = static_cast<int>(AppMatcher::defaultPatterns().size());
        const std::tuple<QString, QString, int> rows[]
            = { { u"org.gimp.GIMP"_s, L10n::appAdded(u"org.gimp.GIMP"_s), defaults + 1 },
                  { u"steam_app_620"_s, L10n::appAdded(u"steam_app_620"_s), defaults },
                  { QString(), L10n::noAppUnderPointer(), defaults } };
        for (const auto &[app, status, listed] : rows) {
            const Row row { app };
            store().clear();
            AdvancedShown shown;
            FakeAppSource &source = shown.recorder.appSource;
            source.appUnderPointer = app;
            auto *add = shown.get<QPushButton>(u"addAppButton"_s);
            add->click();
            // The desktop is asked only once the countdown has run out, not at the click.
            QCOMPARE(add->text(), L10n::addAppCountdown(AdvancedPage::countdownSeconds));
            QVERIFY(!add->isEnabled());
            QCOMPARE(source.lookUps, 0);
            QTRY_COMPARE(shown.get<QLabel>(u"addAppStatus"_s)->text(), status);
            QCOMPARE(source.lookUps, 1);
            QVERIFY(add->isEnabled());
            QTRY_COMPARE(shown.all(u"removeAppButton"_s).size(), listed);
        }
    }

    void withoutASourceThePageSaysSoAndOffersTheGnomeExtension()
    {
        AdvancedShown shown({}, AppSourceStatus::GnomeExtensionOff);
        QVERIFY(shown.get(u"sourceNote"_s)->isVisible());
        QVERIFY(!shown.get(u"addAppButton"_s)->isVisible());
        shown.get<QPushButton>(u"gnomeExtensionButton"_s)->click();
        QVERIFY(!shown.get(u"sourceNote"_s)->isVisible());
        QVERIFY(shown.get(u"addAppButton"_s)->isVisible());

        // The watcher says the desktop stopped answering: the note comes back.
        shown.recorder.appSource.status = AppSourceStatus::Missing;
        shown.recorder.appSource.statusChanged();
        QVERIFY(shown.get(u"sourceNote"_s)->isVisible());
        QVERIFY(!shown.get(u"gnomeExtensionButton"_s)->isVisible());
    }
};

QTEST_MAIN(AdvancedPageTest)
#include "AdvancedPageTest.moc"
