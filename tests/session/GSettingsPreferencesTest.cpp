// The GNOME switches through GIO with a real backend (GLib's keyfile backend in this test's own
// $XDG_CONFIG_HOME) and the real schema from gsettings-desktop-schemas; changes come from another
// process, the way GNOME's settings panel makes them.

#include "core/TestSupport.h"
#include "session/PointerPreferences.h"

#include <QProcess>
#include <QSignalSpy>
#include <QStandardPaths>
#include <QTest>

#include <gio/gio.h>

using namespace kestrix;
using namespace Qt::StringLiterals;

class GSettingsPreferencesTest : public QObject
{
    Q_OBJECT

    static void gsettingsSet(const QString &key, const QString &value)
    {
        QProcess process;
        process.start(u"gsettings"_s, { u"set"_s, u"org.gnome.desktop.peripherals.mouse"_s, key, value });
        QVERIFY(process.waitForFinished());
        QCOMPARE(process.exitCode(), 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        qputenv("GSETTINGS_BACKEND", "keyfile");
        GSettingsSchemaSource *schemas = g_settings_schema_source_get_default();
        GSettingsSchema *schema
            = schemas ? g_settings_schema_source_lookup(schemas, "org.gnome.desktop.peripherals.mouse", TRUE) : nullptr;
        if (!schema)
            QSKIP("GNOME's mouse schema is not installed (Debian package gsettings-desktop-schemas)");
        g_settings_schema_unref(schema);
        if (QStandardPaths::findExecutable(u"gsettings"_s).isEmpty())
            QSKIP("gsettings is not installed (Debian package libglib2.0-bin)");
    }

    void followsTheSwitchesLive()
    {
        gsettingsSet(u"left-handed"_s, u"false"_s);
        gsettingsSet(u"natural-scroll"_s, u"false"_s);
        test::LogLines log;
        PointerPreferences preferences(Session { Session::Desktop::Gnome, true, {}, {} });
        QCOMPARE(preferences.current(), (PointerPreferences::Values { false, false, u"GSettings"_s }));
        QCOMPARE(
            log, QStringList { u"[Kestrix] Pointer settings from GSettings: right-handed, natural scrolling off"_s });

        QSignalSpy changed(&preferences, &PointerPreferences::changed);
        gsettingsSet(u"left-handed"_s, u"true"_s);
        QTRY_VERIFY(preferences.current().leftHanded);
        gsettingsSet(u"natural-scroll"_s, u"true"_s);
        QTRY_VERIFY(preferences.current().naturalScroll);
        QCOMPARE(changed.count(), 2);
        QCOMPARE(log.last(), u"[Kestrix] Pointer settings from GSettings: left-handed, natural scrolling on"_s);
    }
};

QTEST_GUILESS_MAIN(GSettingsPreferencesTest)
#include "GSettingsPreferencesTest.moc"
