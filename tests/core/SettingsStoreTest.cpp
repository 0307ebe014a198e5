// The settings store and the scroll settings read through it: types kept apart, defaults for what
// is absent or of the wrong type, hand edits seen at once, and a broken file never lost.

#include "core/SettingsStore.h"
#include "core/Log.h"
#include "core/SettingsKeys.h"
#include "engine/ScrollConfig.h"

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

namespace {

void writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
    file.write(bytes);
}

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

struct ScrollSettings
{
    bool vertical, horizontal, diagonal, reverse, momentum, pixels;
    double speed;
};

ScrollSettings readScrollSettings()
{
    return { ScrollConfig::enableVerticalScroll(), ScrollConfig::enableHorizontalScroll(),
        ScrollConfig::diagonalScroll(), ScrollConfig::reverseScroll(), ScrollConfig::momentumScroll(),
        ScrollConfig::usePixelScrolling(), ScrollConfig::scrollSpeed() };
}

} // namespace

class SettingsStoreTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void sharedStoreLivesUnderXdgConfigHome()
    {
        const QString expected = qEnvironmentVariable("XDG_CONFIG_HOME") + "/kestrix/settings.json"_L1;
        QCOMPARE(SettingsStore::shared().filePath(), expected);
    }

    void emptyStoreReadsTheDefaults()
    {
        const ScrollSettings settings = readScrollSettings();
        QVERIFY(settings.vertical);
        QVERIFY(settings.horizontal);
        QVERIFY(!settings.diagonal);
        QVERIFY(settings.reverse);
        QVERIFY(settings.momentum);
        QVERIFY(settings.pixels);
        QCOMPARE(settings.speed, 3.0);
    }

    void switchesOfTheWrongTypeReadAsTheirDefault()
    {
        SettingsStore &store = SettingsStore::shared();
        store.setValue(SettingsKeys::diagonalScroll, u"true"_s);
        store.setValue(SettingsKeys::reverseScroll, u"false"_s);
        store.setValue(SettingsKeys::enableVerticalScroll, 0.0);
        store.setValue(SettingsKeys::momentumScroll, QJsonValue::Null);
        const ScrollSettings settings = readScrollSettings();
        QVERIFY(!settings.diagonal);
        QVERIFY(settings.reverse);
        QVERIFY(settings.vertical);
        QVERIFY(settings.momentum);

        store.setValue(SettingsKeys::diagonalScroll, true);
        store.setValue(SettingsKeys::reverseScroll, false);
        QVERIFY(ScrollConfig::diagonalScroll());
        QVERIFY(!ScrollConfig::reverseScroll());
    }

    void speed_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::addColumn<double>("read");
        QTest::newRow("zero") << QJsonValue(0.0) << 3.0;
        QTest::newRow("negative") << QJsonValue(-2.0) << 3.0;
        QTest::newRow("half") << QJsonValue(0.5) << 0.5;
        QTest::newRow("no upper bound") << QJsonValue(500.0) << 500.0;
        QTest::newRow("numeric string") << QJsonValue(u"2.5"_s) << 2.5;
        QTest::newRow("non-numeric string") << QJsonValue(u"fast"_s) << 3.0;
        QTest::newRow("Boolean") << QJsonValue(true) << 3.0;
    }

    void speed()
    {
        QFETCH(QJsonValue, stored);
        QFETCH(double, read);
        SettingsStore::shared().setValue(SettingsKeys::scrollSpeed, stored);
        QCOMPARE(ScrollConfig::scrollSpeed(), read);
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
        QVERIFY(!reader.contains(SettingsKeys::diagonalScroll));
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

    void brokenFileIsSetAsideNotLost_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("truncated JSON") << QByteArray("{\"scrollSpeed\": 4, \"reverse");
        QTest::newRow("not an object") << QByteArray("[true, 1]");
        QTest::newRow("binary junk") << QByteArray("\x00\xff\xfe garbage", 12);
    }

    void brokenFileIsSetAsideNotLost()
    {
        QFETCH(QByteArray, contents);
        QTemporaryDir folder;
        const QString path = folder.filePath(u"settings.json"_s);
        writeFile(path, contents);

        QStringList lines;
        Log::setObserver([&lines](std::string_view line) { lines << QString::fromStdString(std::string(line)); });
        SettingsStore store(path);
        Log::setObserver(nullptr);

        QCOMPARE(lines.size(), 1);
        QVERIFY2(lines[0].startsWith("[Kestrix] Settings file "_L1), qPrintable(lines[0]));
        QVERIFY(!store.contains(SettingsKeys::scrollSpeed));
        QCOMPARE(ScrollConfig::scrollSpeed(), 3.0);

        const QStringList aside = QDir(folder.path()).entryList({ u"settings.json.broken-*"_s }, QDir::Files);
        QCOMPARE(aside.size(), 1);
        QVERIFY2(lines[0].contains(aside[0]), "the log line names where the file went");
        QCOMPARE(readFile(folder.filePath(aside[0])), contents);

        // The next write makes a fresh file and leaves the set-aside copy alone.
        store.setValue(SettingsKeys::momentumScroll, false);
        QCOMPARE(SettingsStore(path).boolValue(SettingsKeys::momentumScroll), std::optional<bool>(false));
        QCOMPARE(readFile(folder.filePath(aside[0])), contents);
    }

    void emptyFileIsNoSettingsNotABrokenOne()
    {
        QTemporaryDir folder;
        const QString path = folder.filePath(u"settings.json"_s);
        writeFile(path, "");
        SettingsStore store(path);
        QCOMPARE(QDir(folder.path()).entryList(QDir::Files), QStringList { u"settings.json"_s });
    }

    void unwritableFolderKeepsTheValueAndSaysSo()
    {
        QTemporaryDir folder;
        // The "folder" is a plain file, so nothing can be created in it, even by root.
        writeFile(folder.filePath(u"blocker"_s), "x");
        SettingsStore store(folder.filePath(u"blocker/settings.json"_s));

        QStringList lines;
        Log::setObserver([&lines](std::string_view line) { lines << QString::fromStdString(std::string(line)); });
        store.setValue(SettingsKeys::scrollSpeed, 4.0);
        Log::setObserver(nullptr);

        QCOMPARE(store.doubleValue(SettingsKeys::scrollSpeed), 4.0);
        QCOMPARE(lines.size(), 1);
        QVERIFY(lines[0].contains("cannot be created"_L1));
    }
};

QTEST_GUILESS_MAIN(SettingsStoreTest)
#include "SettingsStoreTest.moc"
