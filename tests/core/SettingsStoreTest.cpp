// The settings store and the scroll settings read through it: types kept apart, defaults for what
// is absent or of the wrong type, hand edits seen at once, and a broken file never lost.

#include "core/SettingsStore.h"
#include "core/SettingsKeys.h"
#include "core/TestSupport.h"
#include "engine/ScrollConfig.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrix;
using namespace kestrix::test;
using namespace Qt::StringLiterals;

namespace {

// The snapshot's fields as numbers, by name, so one table covers every kind of setting.
QHash<QString, double> fields(const ScrollSettings &s)
{
    return { { u"vertical"_s, s.enableVerticalScroll }, { u"diagonal"_s, s.diagonalScroll },
        { u"reverse"_s, s.reverseScroll }, { u"momentum"_s, s.momentumScroll }, { u"speed"_s, s.scrollSpeed },
        { u"button"_s, double(s.triggerButton) }, { u"threshold"_s, s.dragThreshold },
        { u"glide"_s, s.momentumGlide } };
}

} // namespace

class SettingsStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    // Empty, it reads the defaults.
    void sharedStoreLivesUnderXdgConfigHome()
    {
        const QString expected = qEnvironmentVariable("XDG_CONFIG_HOME") + "/kestrix/settings.json"_L1;
        QCOMPARE(SettingsStore::shared().filePath(), expected);
        QCOMPARE(ScrollConfig::snapshot(), ScrollSettings {});
        QVERIFY(ScrollConfig::disabledMice().empty());
    }

    // What a hand-edited file may hold: the wrong type or a value out of range reads as the
    // default, an absurd speed as the ceiling, and nothing ends the program.
    void storedValuesReadAsTheyShould()
    {
        // Switches stored as strings, numbers, null; speeds out of range, huge, as text, as a Boolean;
        // button names known and not; thresholds and glides at and past their ends.
        const struct
        {
            QLatin1StringView key;
            QJsonValue stored;
            const char *field;
            double read;
        } rows[] = { { SettingsKeys::diagonalScroll, u"true"_s, "diagonal", 0 },
            { SettingsKeys::reverseScroll, u"false"_s, "reverse", 1 },
            { SettingsKeys::enableVerticalScroll, 0.0, "vertical", 1 },
            { SettingsKeys::momentumScroll, QJsonValue::Null, "momentum", 1 },
            { SettingsKeys::reverseScroll, false, "reverse", 0 }, { SettingsKeys::scrollSpeed, 0.0, "speed", 3.0 },
            { SettingsKeys::scrollSpeed, -2.0, "speed", 3.0 }, { SettingsKeys::scrollSpeed, 0.5, "speed", 0.5 },
            { SettingsKeys::scrollSpeed, 500.0, "speed", 500.0 }, { SettingsKeys::scrollSpeed, 1e12, "speed", 1000.0 },
            { SettingsKeys::scrollSpeed, u"2.5"_s, "speed", 2.5 },
            { SettingsKeys::scrollSpeed, u"fast"_s, "speed", 3.0 }, { SettingsKeys::scrollSpeed, true, "speed", 3.0 },
            { SettingsKeys::triggerButton, u"middle"_s, "button", 1 },
            { SettingsKeys::triggerButton, u"forward"_s, "button", 3 },
            { SettingsKeys::triggerButton, u"Middle"_s, "button", 0 },
            { SettingsKeys::dragThreshold, 2.0, "threshold", 2.0 },
            { SettingsKeys::dragThreshold, 20.0, "threshold", 20.0 },
            { SettingsKeys::dragThreshold, 1.0, "threshold", 5.0 },
            { SettingsKeys::dragThreshold, 21.0, "threshold", 5.0 },
            { SettingsKeys::momentumGlide, 0.90, "glide", 0.90 }, { SettingsKeys::momentumGlide, 0.99, "glide", 0.99 },
            { SettingsKeys::momentumGlide, 1.0, "glide", 0.97 }, { SettingsKeys::momentumGlide, 0.5, "glide", 0.97 } };
        for (const auto &[key, stored, name, read] : rows) {
            SettingsStore::shared().clear();
            SettingsStore::shared().setValue(key, stored);
            const QString row = key + u' '
                + QString::fromUtf8(QJsonDocument(QJsonArray { stored }).toJson(QJsonDocument::Compact)) + u' ';
            QCOMPARE(
                row + QString::number(fields(ScrollConfig::snapshot()).value(QString::fromLatin1(name), -1), 'g', 15),
                row + QString::number(read, 'g', 15));
        }
    }

    // Switching mice off and on keeps what the user typed for the others, and skips what is not
    // a mouse.
    void disabledMiceKeepTheirEntries()
    {
        SettingsStore &store = SettingsStore::shared();
        store.setValue(SettingsKeys::disabledMice,
            QJsonArray { u"junk"_s, QJsonObject { { u"vendor"_s, u"zz"_s } },
                QJsonObject { { u"vendor"_s, u"046d"_s }, { u"product"_s, u"C077"_s }, { u"name"_s, u"Mouse"_s } } });
        const MouseIdentity trackball { 0x047d, 0x2041, u"Trackball"_s };
        ScrollConfig::setMouseDisabled(trackball, true);
        QCOMPARE(
            ScrollConfig::disabledMice(), (std::vector<MouseIdentity> { { 0x046d, 0xc077, u"Mouse"_s }, trackball }));
        ScrollConfig::setMouseDisabled({ 0x046d, 0xc077, u"Mouse"_s }, false);
        QCOMPARE(ScrollConfig::disabledMice(), std::vector<MouseIdentity> { trackball });
        QCOMPARE(store.value(SettingsKeys::disabledMice).toArray().size(), 3);
    }

    void typesAndAbsenceSurviveTheFile()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(u"kestrix/settings.json"_s);
        {
            SettingsStore writer(path);
            writer.setValue(SettingsKeys::reverseScroll, false);
            writer.setValue(SettingsKeys::scrollSpeed, 12.3456);
            writer.setValue(SettingsKeys::language, u"true"_s);
        }
        SettingsStore reader(path);
        QCOMPARE(reader.boolValue(SettingsKeys::reverseScroll), std::optional<bool>(false));
        QCOMPARE(reader.doubleValue(SettingsKeys::scrollSpeed), 12.3456);
        QCOMPARE(reader.stringValue(SettingsKeys::language), std::optional<QString>(u"true"_s));
        QCOMPARE(reader.boolValue(SettingsKeys::language), std::nullopt);
        QCOMPARE(reader.boolValue(SettingsKeys::diagonalScroll), std::nullopt);
    }

    void handEditsAreSeenWithoutRestart()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(u"settings.json"_s);
        SettingsStore store(path);
        store.setValue(SettingsKeys::scrollSpeed, 2.0);
        QSignalSpy changed(&store, &SettingsStore::changed);

        // An editor writing in place...
        writeFile(path, "{\"scrollSpeed\": 7}");
        QTRY_COMPARE(store.doubleValue(SettingsKeys::scrollSpeed), 7.0);
        // ...and one that saves a new file and renames it over the old one.
        writeFile(path + ".new"_L1, "{\"scrollSpeed\": 9, \"diagonalScroll\": true}");
        QVERIFY(QFile::remove(path));
        QVERIFY(QFile::rename(path + ".new"_L1, path));
        QTRY_COMPARE(store.doubleValue(SettingsKeys::scrollSpeed), 9.0);
        QCOMPARE(store.boolValue(SettingsKeys::diagonalScroll), std::optional<bool>(true));
        QVERIFY(changed.count() >= 2);
    }

    // A broken file is set aside, named in one log line, and never lost; an empty one is no settings
    // at all, left where it is without a word.
    void brokenFileIsSetAsideNotLost()
    {
        // Truncated JSON, not an object, binary junk; empty.
        for (const QByteArray &contents : { QByteArray("{\"scrollSpeed\": 4, \"reverse"), QByteArray("[true, 1]"),
                 QByteArray("\x00\xff\xfe garbage", 12), QByteArray() }) {
            const Row row { QString::fromLatin1(contents.toHex()) };
            SettingsStore::shared().clear();
            QTemporaryDir folder;
            const QString path = folder.filePath(u"settings.json"_s);
            writeFile(path, contents);

            LogLines lines;
            SettingsStore store(path);
            QVERIFY(!store.contains(SettingsKeys::scrollSpeed));
            const QStringList aside = QDir(folder.path()).entryList({ u"settings.json.broken-*"_s }, QDir::Files);
            if (contents.isEmpty()) {
                QVERIFY(lines.isEmpty() && aside.isEmpty());
                continue;
            }
            QCOMPARE(lines.size(), 1);
            QVERIFY2(lines[0].startsWith("[Kestrix] Settings file "_L1), qPrintable(lines[0]));
            QCOMPARE(ScrollConfig::scrollSpeed(), 3.0);
            QCOMPARE(aside.size(), 1);
            QVERIFY2(lines[0].contains(aside[0]), "the log line names where the file went");
            QCOMPARE(readFile(folder.filePath(aside[0])), contents);

            // The next write makes a fresh file and leaves the set-aside copy alone.
            store.setValue(SettingsKeys::momentumScroll, false);
            QCOMPARE(SettingsStore(path).boolValue(SettingsKeys::momentumScroll), std::optional<bool>(false));
            QCOMPARE(readFile(folder.filePath(aside[0])), contents);
        }
    }

    void unwritableFolderKeepsTheValueAndSaysSo()
    {
        QTemporaryDir folder;
        // The "folder" is a plain file, so nothing can be created in it, even by root.
        writeFile(folder.filePath(u"blocker"_s), "x");
        SettingsStore store(folder.filePath(u"blocker/settings.json"_s));

        LogLines lines;
        store.setValue(SettingsKeys::scrollSpeed, 4.0);

        QCOMPARE(store.doubleValue(SettingsKeys::scrollSpeed), 4.0);
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines[0].contains("cannot be created"_L1));
    }
};

QTEST_GUILESS_MAIN(SettingsStoreTest)
#include "SettingsStoreTest.moc"
