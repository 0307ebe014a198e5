// Launch at login against a real autostart folder (this test's own $XDG_CONFIG_HOME).

#include "desktop/LaunchAtLoginHelper.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "core/TestSupport.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QStandardPaths>
#include <QTest>

#include <unistd.h>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

QString autostartFolder() { return QFileInfo(LaunchAtLoginHelper::autostartEntryPath()).absolutePath(); }

} // namespace

class LaunchAtLoginHelperTest : public QObject
{
    Q_OBJECT

private:
    LogLines m_log;

    QStringList errorLines() const { return m_log.filter(u"[Kestrix] Launch at login error: "_s); }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(LaunchAtLoginHelper::autostartEntryPath().startsWith(
            qEnvironmentVariable("XDG_CONFIG_HOME") + "/autostart/"_L1));
    }

    void init()
    {
        m_log.clear();
        QFile::setPermissions(autostartFolder(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        QFile::remove(autostartFolder()); // a plain file left there by a failure case
        QVERIFY(QDir(autostartFolder()).removeRecursively());
        SettingsStore::shared().clear();
    }

    void enableWritesAnEntryThatReadsBackAndDisableRemovesIt()
    {
        // Read back live: the entry is there, names this program and is not switched off.
        QVERIFY(!LaunchAtLoginHelper::isEnabled());
        LaunchAtLoginHelper::setEnabled(true);
        QVERIFY(LaunchAtLoginHelper::isEnabled());
        QCOMPARE(SettingsStore::shared().boolValue(SettingsKeys::launchAtLogin), std::optional<bool>(true));

        const QString validator = QStandardPaths::findExecutable(u"desktop-file-validate"_s);
        if (!validator.isEmpty()) {
            QProcess validate;
            validate.setProcessChannelMode(QProcess::MergedChannels);
            validate.start(validator, { LaunchAtLoginHelper::autostartEntryPath() });
            QVERIFY(validate.waitForFinished());
            QVERIFY2(validate.exitCode() == 0, validate.readAll().constData());
        }

        LaunchAtLoginHelper::setEnabled(false);
        QVERIFY(!QFile::exists(LaunchAtLoginHelper::autostartEntryPath()));
        QVERIFY(!LaunchAtLoginHelper::isEnabled());
        QCOMPARE(SettingsStore::shared().boolValue(SettingsKeys::launchAtLogin), std::optional<bool>(false));

        LaunchAtLoginHelper::setEnabled(false); // nothing to remove is no failure
        QCOMPARE(SettingsStore::shared().boolValue(SettingsKeys::launchAtLogin), std::optional<bool>(false));
        QVERIFY(errorLines().isEmpty());
    }

    // "Enabled" is the live state of whatever entry is there, also one the desktop's own autostart
    // settings wrote or switched off.
    void liveStateOfAnExistingEntry()
    {
        // The installed program, one on the path, a quoted path with a space; hidden, switched off in
        // GNOME, another program, no Exec, an unterminated quote, Exec and Hidden of another group.
        const QByteArray head = "[Desktop Entry]\nType=Application\nName=Kestrix\n";
        const std::pair<const char *, bool> rows[] = { { "Exec=/usr/bin/kestrix\n", true }, { "Exec=kestrix\n", true },
            { "Exec=\"/opt/my apps/kestrix\"\n", true }, { "Exec=/usr/bin/kestrix\nHidden=true\n", false },
            { "Exec=kestrix\nX-GNOME-Autostart-enabled=false\n", false }, { "Exec=/usr/bin/firefox\n", false },
            { "", false }, { "Exec=\"/usr/bin/kestrix\n", false }, { "[Desktop Action x]\nExec=kestrix\n", false },
            { "Exec=kestrix\n[Desktop Action x]\nHidden=true\n", true } };
        for (const auto &[entry, enabled] : rows) {
            writeFile(LaunchAtLoginHelper::autostartEntryPath(), head + entry);
            QVERIFY2(LaunchAtLoginHelper::isEnabled() == enabled, entry);
        }
    }

    // The Exec value must start exactly this program, whatever its path holds: plain, a space, a
    // dollar and a quote, a backslash, a percent sign.
    void execLineRoundTrip()
    {
        const std::pair<QString, QString> rows[] = { { u"/usr/bin/kestrix"_s, u"/usr/bin/kestrix"_s },
            { u"/home/a b/kestrix"_s, u"\"/home/a b/kestrix\""_s },
            { u"/tmp/$x\"y/kestrix"_s, u"\"/tmp/\\$x\\\"y/kestrix\""_s },
            { u"/tmp/a\\b/kestrix"_s, u"\"/tmp/a\\\\b/kestrix\""_s },
            { u"/tmp/100%/kestrix"_s, u"/tmp/100%%/kestrix"_s } };
        for (const auto &[program, exec] : rows) {
            QCOMPARE(LaunchAtLoginHelper::execLine(program), exec);
            QCOMPARE(LaunchAtLoginHelper::execProgram(exec), program);
        }
    }

    // A failure is logged with the reason, and the key keeps its last value.
    void failuresLogAndLeaveTheKey()
    {
        // Enable with autostart a file; disable with the entry a folder; either in a read-only folder
        // (not as root, who writes there).
        const std::pair<bool, QLatin1StringView> rows[] = { { true, "file"_L1 }, { false, "entry-folder"_L1 },
            { true, "read-only"_L1 }, { false, "read-only"_L1 } };
        for (const auto &[enable, obstacle] : rows) {
            const Row row { obstacle + (enable ? " enable"_L1 : " disable"_L1) };
            init();
            if (obstacle == "read-only"_L1 && ::geteuid() == 0)
                continue; // root writes into read-only folders

            SettingsStore::shared().setValue(SettingsKeys::launchAtLogin, !enable);
            if (obstacle == "file"_L1) {
                writeFile(autostartFolder(), "not a folder");
            } else if (obstacle == "entry-folder"_L1) {
                writeFile(LaunchAtLoginHelper::autostartEntryPath() + "/inside"_L1, "x");
            } else {
                if (!enable)
                    writeFile(LaunchAtLoginHelper::autostartEntryPath(), "[Desktop Entry]\nExec=kestrix\n");
                QDir().mkpath(autostartFolder());
                QVERIFY(QFile::setPermissions(autostartFolder(), QFile::ReadOwner | QFile::ExeOwner));
            }

            LaunchAtLoginHelper::setEnabled(enable);
            QCOMPARE(errorLines().size(), 1);
            QVERIFY2(
                errorLines().first().size() > u"[Kestrix] Launch at login error: "_s.size(), "the reason is missing");
            QCOMPARE(SettingsStore::shared().boolValue(SettingsKeys::launchAtLogin), std::optional<bool>(!enable));
        }
    }

    void cleanupTestCase()
    {
        QFile::setPermissions(autostartFolder(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    }
};

QTEST_GUILESS_MAIN(LaunchAtLoginHelperTest)
#include "LaunchAtLoginHelperTest.moc"
