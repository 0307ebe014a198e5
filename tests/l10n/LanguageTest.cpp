// The languages, the stored choice and the languageDidChange broadcast: codes that round-trip,
// strict parsing of stored codes, a stored value that is read but never repaired.

#include "l10n/Language.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"

#include <QJsonValue>
#include <QSet>
#include <QSignalSpy>
#include <QTest>

using namespace kestrix;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(kestrix::Language)
Q_DECLARE_METATYPE(std::optional<kestrix::Language>)

class LanguageTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void everyLanguageHasItsOwnCodeAndName()
    {
        QSet<QString> codes;
        QSet<QString> names;
        for (const Language language : Languages::allCases) {
            const QString code = Languages::rawValue(language);
            QVERIFY2(code.size() == 2 && code == code.toLower(), qPrintable(code));
            QCOMPARE(Languages::fromRawValue(code), std::optional(language));
            QVERIFY2(!Languages::displayName(language).isEmpty(), qPrintable(code));
            codes.insert(code);
            names.insert(Languages::displayName(language));
        }
        QCOMPARE(codes.size(), 50);
        QCOMPARE(names.size(), 50);
    }

    // The codes and names that differ from what a locale library would suggest, and the two ends
    // of the pop-up order.
    void codesAndNamesAreTheProgramsOwn_data()
    {
        QTest::addColumn<Language>("language");
        QTest::addColumn<QString>("code");
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("position");
        QTest::newRow("first") << Language::English << u"en"_s << u"English"_s << 0;
        QTest::newRow("Chinese without script") << Language::Chinese << u"zh"_s << u"中文"_s << 2;
        QTest::newRow("Hebrew not iw") << Language::Hebrew << u"he"_s << u"עברית"_s << 18;
        QTest::newRow("Norwegian not nb") << Language::Norwegian << u"no"_s << u"Norsk"_s << 27;
        QTest::newRow("Filipino as tl") << Language::Filipino << u"tl"_s << u"Filipino"_s << 30;
        QTest::newRow("last") << Language::Burmese << u"my"_s << u"မြန်မာ"_s << 49;
    }

    void codesAndNamesAreTheProgramsOwn()
    {
        QFETCH(Language, language);
        QFETCH(QString, code);
        QFETCH(QString, name);
        QFETCH(int, position);
        QCOMPARE(QString(Languages::rawValue(language)), code);
        QCOMPARE(Languages::displayName(language), name);
        QCOMPARE(Languages::allCases.at(std::size_t(position)), language);
    }

    void onlyExactCodesParse_data()
    {
        QTest::addColumn<QString>("code");
        QTest::addColumn<std::optional<Language>>("expected");
        QTest::newRow("ja") << u"ja"_s << std::optional(Language::Japanese);
        QTest::newRow("upper case") << u"EN"_s << std::optional<Language>();
        QTest::newRow("mixed case") << u"Ko"_s << std::optional<Language>();
        QTest::newRow("region") << u"en-US"_s << std::optional<Language>();
        QTest::newRow("underscore region") << u"pt_BR"_s << std::optional<Language>();
        QTest::newRow("script") << u"zh-Hans"_s << std::optional<Language>();
        QTest::newRow("empty") << QString() << std::optional<Language>();
        QTest::newRow("blank around") << u" de"_s << std::optional<Language>();
        QTest::newRow("unknown") << u"xx"_s << std::optional<Language>();
        QTest::newRow("Bokmal code") << u"nb"_s << std::optional<Language>();
        QTest::newRow("three letters") << u"eng"_s << std::optional<Language>();
        QTest::newRow("display name") << u"English"_s << std::optional<Language>();
    }

    void onlyExactCodesParse()
    {
        QFETCH(QString, code);
        QFETCH(std::optional<Language>, expected);
        QCOMPARE(Languages::fromRawValue(code), expected);
    }

    void nothingStoredIsEnglishWhateverTheLocale()
    {
        QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
        qputenv("LANG", "de_DE.UTF-8");
        QCOMPARE(Languages::current(), Language::English);
        QLocale::setDefault(QLocale::c());
        QVERIFY(!SettingsStore::shared().contains(SettingsKeys::language));
    }

    void storedChoiceIsReadAtEveryCall()
    {
        SettingsStore &store = SettingsStore::shared();
        store.setValue(SettingsKeys::language, u"ko"_s);
        QCOMPARE(Languages::current(), Language::Korean);
        store.setValue(SettingsKeys::language, u"my"_s);
        QCOMPARE(Languages::current(), Language::Burmese);
        store.remove(SettingsKeys::language);
        QCOMPARE(Languages::current(), Language::English);
    }

    void unusableStoredValueReadsAsEnglishAndStays_data()
    {
        QTest::addColumn<QJsonValue>("stored");
        QTest::newRow("unknown code") << QJsonValue(u"xx"_s);
        QTest::newRow("region code") << QJsonValue(u"en-US"_s);
        QTest::newRow("upper case") << QJsonValue(u"JA"_s);
        QTest::newRow("empty") << QJsonValue(QString());
        QTest::newRow("number") << QJsonValue(7);
        QTest::newRow("Boolean") << QJsonValue(true);
        QTest::newRow("null") << QJsonValue(QJsonValue::Null);
    }

    void unusableStoredValueReadsAsEnglishAndStays()
    {
        QFETCH(QJsonValue, stored);
        SettingsStore &store = SettingsStore::shared();
        store.setValue(SettingsKeys::language, stored);
        QSignalSpy writes(&store, &SettingsStore::changed);

        QCOMPARE(Languages::current(), Language::English);
        QCOMPARE(Languages::current(), Language::English);

        QCOMPARE(writes.count(), 0);
        QCOMPARE(store.value(SettingsKeys::language), stored);
    }

    void broadcastFiresOncePerPost()
    {
        LanguageNotifier &notifier = LanguageNotifier::instance();
        QCOMPARE(&LanguageNotifier::instance(), &notifier);
        QSignalSpy spy(&notifier, &LanguageNotifier::languageDidChange);

        notifier.post();
        QCOMPARE(spy.count(), 1);
        QVERIFY(spy.first().isEmpty());

        notifier.post();
        notifier.post();
        QCOMPARE(spy.count(), 3);
    }
};

QTEST_GUILESS_MAIN(LanguageTest)
#include "LanguageTest.moc"
