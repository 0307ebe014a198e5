// What the session layer reads from text the desktop or the user wrote: app patterns, kcminputrc,
// sway's replies and its framing.

#include "session/AppMatcher.h"
#include "session/PointerPreferences.h"
#include "session/SwayIpc.h"

#include <QJsonArray>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

class SessionParsingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void appMatching_data()
    {
        QTest::addColumn<QStringList>("patterns");
        QTest::addColumn<QString>("appId");
        QTest::addColumn<QString>("instance");
        QTest::addColumn<bool>("excluded");
        const QStringList defaults = AppMatcher::defaultPatterns();
        QTest::newRow("Remmina on Wayland") << defaults << u"org.remmina.Remmina"_s << QString() << true;
        QTest::newRow("old Remmina, any case") << defaults << u"Remmina"_s << u"remmina"_s << true;
        QTest::newRow("virt-viewer by its X11 class") << defaults << u"Virt-viewer"_s << u"virt-viewer"_s << true;
        QTest::newRow("TigerVNC by FLTK's class") << defaults << u"Vncviewer"_s << u"vncviewer"_s << true;
        QTest::newRow("FreeRDP on X11") << defaults << u"xfreerdp"_s << u"xfreerdp"_s << true;
        QTest::newRow("Steam game") << defaults << u"steam_app_570"_s << QString() << true;
        QTest::newRow("Steam itself is not a game") << defaults << u"steam"_s << u"steamwebhelper"_s << false;
        QTest::newRow("browser") << defaults << u"firefox"_s << u"Navigator"_s << false;
        QTest::newRow("matched by the instance only")
            << QStringList { u"navigator"_s } << u"firefox"_s << u"Navigator"_s << true;
        QTest::newRow("no partial match without a star")
            << QStringList { u"remmina"_s } << u"remmina-file-wrapper"_s << QString() << false;
        QTest::newRow("star only at the end is a wildcard")
            << QStringList { u"*remmina"_s } << u"org.remmina"_s << QString() << false;
        QTest::newRow("blanks around a pattern") << QStringList { u" krita "_s } << u"krita"_s << QString() << true;
        QTest::newRow("empty pattern matches nothing")
            << QStringList { QString(), u"  "_s } << u"x"_s << QString() << false;
        QTest::newRow("no app is never excluded") << QStringList { u"*"_s } << QString() << QString() << false;
    }
    void appMatching()
    {
        QFETCH(QStringList, patterns);
        QFETCH(QString, appId);
        QFETCH(QString, instance);
        QFETCH(bool, excluded);
        QCOMPARE(AppMatcher::isExcluded(patterns, { appId, instance }), excluded);
    }

    void excludedAppsSetting()
    {
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonValue()), AppMatcher::defaultPatterns());
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonValue(u"krita"_s)), AppMatcher::defaultPatterns());
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonArray { u"krita"_s, 3, u" "_s, u"gimp*"_s }),
            (QStringList { u"krita"_s, u"gimp*"_s }));
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonArray {}), QStringList());
    }

    void kcmInput_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<bool>("leftHanded");
        QTest::addColumn<bool>("naturalScroll");
        QTest::newRow("empty") << QByteArray() << false << false;
        QTest::newRow("Plasma 6 device") << "[Libinput][1133][49291][Logitech G502 HERO Gaming Mouse]\n"
                                            "LeftHanded=true\nNaturalScroll=true\n"_ba
                                         << true << true;
        QTest::newRow("touchpad is not a mouse") << "[Libinput][1739][52934][SYNA801A:00 06CB:CEC6 Touchpad]\n"
                                                    "NaturalScroll=true\n"_ba
                                                 << false << false;
        QTest::newRow("one of two mice switched") << "[Libinput][1][2][Mouse A]\nLeftHanded=false\n"
                                                     "[Libinput][3][4][Mouse B]\nLeftHanded=true\n"_ba
                                                  << true << false;
        QTest::newRow("Plasma 5 X11") << "[Mouse]\nXLbInptLeftHanded=true\nXLbInptNaturalScroll=false\n"_ba << true
                                      << false;
        QTest::newRow("device group wins over [Mouse]") << "[Mouse]\nXLbInptNaturalScroll=true\n"
                                                           "[Libinput][1][2][M]\nNaturalScroll=false\n"_ba
                                                        << false << false;
        QTest::newRow("evdev era") << "[Mouse]\nMouseButtonMapping=LeftHanded\nReverseScrollPolarity=true\n"_ba << true
                                   << true;
        QTest::newRow("other groups, suffixes, junk")
            << "[General]\nLeftHanded=true\n[Mouse]\nXLbInptLeftHanded[$e]=true\n"
               "garbage\n[broken\n=\n"_ba
            << true << false;
    }
    void kcmInput()
    {
        QFETCH(QByteArray, text);
        QFETCH(bool, leftHanded);
        QFETCH(bool, naturalScroll);
        const PointerPreferences::Values values = PointerPreferences::fromKcmInput(text);
        QCOMPARE(values.leftHanded, leftHanded);
        QCOMPARE(values.naturalScroll, naturalScroll);
    }

    // KDE's settings panel saves kcminputrc by writing a new file over the old one, as QSaveFile does.
    void kcmInputFileFollowed()
    {
        const QString path = QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/kcminputrc"_s;
        QFile::remove(path);
        PointerPreferences preferences(Session { Session::Desktop::Kde, true, {}, {} });
        QCOMPARE(preferences.current(), (PointerPreferences::Values { false, false, u"kcminputrc"_s }));
        const auto save = [&path](const QByteArray &text) {
            QSaveFile file(path);
            QVERIFY(file.open(QIODevice::WriteOnly));
            file.write(text);
            QVERIFY(file.commit());
        };
        save("[Libinput][1][2][Mouse]\nLeftHanded=true\n");
        QTRY_VERIFY(preferences.current().leftHanded);
        save("[Libinput][1][2][Mouse]\nLeftHanded=false\nNaturalScroll=true\n");
        QTRY_VERIFY(preferences.current().naturalScroll);
        QVERIFY(!preferences.current().leftHanded);
    }

    // sway lists touchpads apart from mice; only mice count.
    void sway()
    {
        const auto values = PointerPreferences::fromSwayInputs(QJsonDocument::fromJson(R"([
            {"identifier": "1739:52934:Touchpad", "type": "touchpad",
             "libinput": {"left_handed": "enabled", "natural_scroll": "enabled"}},
            {"identifier": "1133:49291:Mouse", "type": "pointer",
             "libinput": {"left_handed": "enabled", "natural_scroll": "disabled"}},
            {"identifier": "0:0:virtual", "type": "pointer"}])"));
        QVERIFY(values.leftHanded);
        QVERIFY(!values.naturalScroll);

        // The IPC framing, fed byte by byte.
        const QByteArray first = SwayIpc::encode(SwayIpc::GetTree, "{}");
        const QByteArray second = SwayIpc::encode(SwayIpc::WindowEvent, R"({"change":"focus"})");
        QCOMPARE(first.size(), 14 + 2);
        // Byte by byte: nothing comes out before a frame is whole, then exactly the frames sent.
        QByteArray buffer;
        std::vector<SwayIpc::Frame> frames;
        for (char byte : first + second) {
            buffer.append(byte);
            auto taken = SwayIpc::decode(buffer);
            QVERIFY(taken);
            frames.insert(frames.end(), taken->begin(), taken->end());
        }
        QCOMPARE(frames.size(), 2u);
        QCOMPARE(frames[0].type, quint32(SwayIpc::GetTree));
        QCOMPARE(frames[1].type, quint32(SwayIpc::WindowEvent));
        QCOMPARE(frames[1].payload, R"({"change":"focus"})"_ba);
        QVERIFY(buffer.isEmpty());

        QByteArray notIpc = "HTTP/1.1 200 OK\r\n\r\n"_ba;
        QVERIFY(!SwayIpc::decode(notIpc));
        QByteArray huge = SwayIpc::encode(0, {}).replace(6, 4, "\xff\xff\xff\x7f");
        QVERIFY(!SwayIpc::decode(huge));
    }
};

QTEST_GUILESS_MAIN(SessionParsingTest)
#include "SessionParsingTest.moc"
