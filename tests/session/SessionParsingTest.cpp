// What the session layer reads from text the desktop or the user wrote: app patterns, kcminputrc,
// sway's replies and its framing.

#include "session/AppMatcher.h"
#include "session/PointerPreferences.h"
#include "session/SwayIpc.h"

#include <QJsonArray>
#include <QSaveFile>
#include <QStandardPaths>
#include <QTest>

#include <tuple>

using namespace kestrix;
using namespace Qt::StringLiterals;

class SessionParsingTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void appMatching()
    {
        const QStringList defaults = AppMatcher::defaultPatterns();
        // Remmina on Wayland and, old, in any case; virt-viewer by its X11 class; TigerVNC by FLTK's;
        // FreeRDP on X11; a Steam game, but not Steam itself; a browser. Then patterns of their own:
        // matched by the instance only; no partial match without a star; a star only at the end is
        // a wildcard; blanks around a pattern; an empty pattern matches nothing, and no app is never
        // excluded.
        const std::tuple<QStringList, QString, QString, bool> rows[]
            = { { defaults, u"org.remmina.Remmina"_s, {}, true }, { defaults, u"Remmina"_s, u"remmina"_s, true },
                  { defaults, u"Virt-viewer"_s, u"virt-viewer"_s, true },
                  { defaults, u"Vncviewer"_s, u"vncviewer"_s, true }, { defaults, u"xfreerdp"_s, u"xfreerdp"_s, true },
                  { defaults, u"steam_app_570"_s, {}, true }, { defaults, u"steam"_s, u"steamwebhelper"_s, false },
                  { defaults, u"firefox"_s, u"Navigator"_s, false },
                  { { u"navigator"_s }, u"firefox"_s, u"Navigator"_s, true },
                  { { u"remmina"_s }, u"remmina-file-wrapper"_s, {}, false },
                  { { u"*remmina"_s }, u"org.remmina"_s, {}, false }, { { u" krita "_s }, u"krita"_s, {}, true },
                  { { QString(), u"  "_s }, u"x"_s, {}, false }, { { u"*"_s }, {}, {}, false } };
        for (const auto &[patterns, appId, instance, excluded] : rows)
            QVERIFY2(AppMatcher::isExcluded(patterns, { appId, instance }) == excluded, qPrintable(appId));
    }

    void excludedAppsSetting()
    {
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonValue()), AppMatcher::defaultPatterns());
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonValue(u"krita"_s)), AppMatcher::defaultPatterns());
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonArray { u"krita"_s, 3, u" "_s, u"gimp*"_s }),
            (QStringList { u"krita"_s, u"gimp*"_s }));
        QCOMPARE(AppMatcher::patternsFromSetting(QJsonArray {}), QStringList());
    }

    // Empty; a Plasma 6 device; a touchpad is not a mouse; one of two mice switched; Plasma 5 on X11;
    // a device group wins over [Mouse]; the evdev era; other groups, suffixes, junk.
    void kcmInput()
    {
        const std::tuple<QByteArray, bool, bool> rows[] = { { {}, false, false },
            { "[Libinput][1133][49291][Logitech G502 HERO Gaming Mouse]\nLeftHanded=true\nNaturalScroll=true\n", true,
                true },
            { "[Libinput][1739][52934][SYNA801A:00 06CB:CEC6 Touchpad]\nNaturalScroll=true\n", false, false },
            { "[Libinput][1][2][Mouse A]\nLeftHanded=false\n[Libinput][3][4][Mouse B]\nLeftHanded=true\n", true,
                false },
            { "[Mouse]\nXLbInptLeftHanded=true\nXLbInptNaturalScroll=false\n", true, false },
            { "[Mouse]\nXLbInptNaturalScroll=true\n[Libinput][1][2][M]\nNaturalScroll=false\n", false, false },
            { "[Mouse]\nMouseButtonMapping=LeftHanded\nReverseScrollPolarity=true\n", true, true },
            { "[General]\nLeftHanded=true\n[Mouse]\nXLbInptLeftHanded[$e]=true\ngarbage\n[broken\n=\n", true, false } };
        for (const auto &[text, leftHanded, naturalScroll] : rows) {
            const PointerPreferences::Values values = PointerPreferences::fromKcmInput(text);
            QVERIFY2(values.leftHanded == leftHanded && values.naturalScroll == naturalScroll, text.constData());
        }
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
