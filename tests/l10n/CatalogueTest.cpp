// The languages and the catalogue: every cell of every key in the 50 languages checked for what a
// translator can get wrong (blanks, the placeholder, the closing "...", length, script and direction),
// and the lookup seen from outside: it follows the stored language at once and falls back to English.

#include "l10n/Catalogue.h"
#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"
#include "core/TestSupport.h"
#include "l10n/L10n.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonValue>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <algorithm>
#include <span>
#include <tuple>

using namespace kestrix;
using namespace kestrix::L10n;
using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(kestrix::Language)

namespace {

// A text must fit the narrowest place it is shown: a line of an alert or of the window. The
// sentences of a notification's body or of a note on a page wrap over a few lines.
constexpr qsizetype maximumLength = 67;
constexpr qsizetype maximumSentenceLength = 140;
constexpr Key sentences[] = { Key::AccessNeededMessage, Key::AppSourceMissing, Key::AppSourceHint };
// The menu items and buttons that open something more end with "...".
constexpr Key opensMore[] = { Key::Preferences, Key::CheckForUpdates, Key::Advanced, Key::AddAppUnderPointer };
constexpr QChar zeroWidthNonJoiner(0x200C);

// Each accessor with the key it must show, so that a crossed wire (quit() showing the preferences
// text) is caught.
struct Accessor
{
    Key key;
    QString (*text)();
};
const Accessor accessors[] = { { Key::Enabled, &L10n::enabled }, { Key::Preferences, &L10n::preferences },
    { Key::CheckForUpdates, &L10n::checkForUpdates }, { Key::Quit, &L10n::quit }, { Key::Subtitle, &L10n::subtitle },
    { Key::ScrollDirection, &L10n::scrollDirection }, { Key::VerticalScroll, &L10n::verticalScroll },
    { Key::MomentumScroll, &L10n::momentumScroll }, { Key::DiagonalScroll, &L10n::diagonalScroll },
    { Key::HorizontalScroll, &L10n::horizontalScroll }, { Key::Behavior, &L10n::behavior },
    { Key::ReverseScroll, &L10n::reverseScroll }, { Key::SmoothScroll, &L10n::smoothScroll },
    { Key::ScrollSpeed, &L10n::scrollSpeed }, { Key::LanguageLabel, &L10n::languageLabel },
    { Key::LaunchAtLogin, &L10n::launchAtLogin }, { Key::UpdateAvailable, &L10n::updateAvailable },
    { Key::NoUpdateTitle, &L10n::noUpdateTitle }, { Key::NoUpdateMessage, &L10n::noUpdateMessage },
    { Key::Download, &L10n::download }, { Key::Later, &L10n::later },
    { Key::WaitingForAccess, &L10n::waitingForAccess }, { Key::AccessNeededTitle, &L10n::accessNeededTitle },
    { Key::AccessNeededMessage, &L10n::accessNeededMessage }, { Key::NoMouseConnected, &L10n::noMouseConnected },
    { Key::Advanced, &L10n::advanced }, { Key::Back, &L10n::back }, { Key::ScrollButton, &L10n::scrollButton },
    { Key::SecondaryButton, &L10n::secondaryButton }, { Key::MiddleButton, &L10n::middleButton },
    { Key::BackButton, &L10n::backButton }, { Key::ForwardButton, &L10n::forwardButton },
    { Key::DragThreshold, &L10n::dragThreshold }, { Key::Glide, &L10n::glide }, { Key::GlideShort, &L10n::glideShort },
    { Key::GlideLong, &L10n::glideLong }, { Key::DefaultMark, &L10n::defaultMark }, { Key::Mice, &L10n::mice },
    { Key::NotConnected, &L10n::notConnected }, { Key::ExcludedApps, &L10n::excludedApps },
    { Key::AddAppUnderPointer, &L10n::addAppUnderPointer }, { Key::Remove, &L10n::remove },
    { Key::AppSourceMissing, &L10n::appSourceMissing }, { Key::AppSourceHint, &L10n::appSourceHint },
    { Key::EnableGnomeExtension, &L10n::enableGnomeExtension }, { Key::NoAppUnderPointer, &L10n::noAppUnderPointer } };

// The texts that take a value, each accessor called with one, and what must stand in place of the
// "%@". Text values carry "%" and "%@" of their own, which must come out unchanged.
struct Formatted
{
    Key key = Key::UpdateMessage;
    QString (*text)() = nullptr;
    QStringView shown;
};
constexpr Formatted formatted[] = {
    { Key::UpdateMessage, [] { return L10n::updateMessage(u"10.2%1%@-beta"_s); }, u"10.2%1%@-beta" },
    { Key::PointsValue, [] { return L10n::pointsValue(12); }, u"12" },
    { Key::AddAppCountdown, [] { return L10n::addAppCountdown(3); }, u"3" },
    { Key::AppAdded, [] { return L10n::appAdded(u"steam_app_%1 %@"_s); }, u"steam_app_%1 %@" },
};
static_assert(std::size(accessors) + std::size(formatted) == keyCount);

template<typename T> bool among(std::span<const T> items, T item)
{
    return std::ranges::find(items, item) != items.end();
}

bool takesAValue(Key key)
{
    return std::ranges::any_of(formatted, [key](const Formatted &f) { return f.key == key; });
}

// The accessors whose text in `language` is not their key's cell, by name.
QStringList wrongAccessors(Language language)
{
    QStringList wrong;
    for (const Accessor &accessor : accessors) {
        if (accessor.text() != cell(accessor.key, language))
            wrong << keyName(accessor.key);
    }
    for (const Formatted &f : formatted) {
        if (f.text() != cell(f.key, language).toString().replace(placeholder, f.shown.toString()))
            wrong << keyName(f.key);
    }
    return wrong;
}

constexpr Language rightToLeft[] = { Language::Arabic, Language::Hebrew, Language::Persian, Language::Urdu };
// The languages whose spelling needs the zero-width non-joiner.
constexpr Language nonJoiner[] = { Language::Persian, Language::Telugu, Language::Kannada, Language::Malayalam };

// Japanese mixes kana with kanji; they count as one script here.
QChar::Script scriptGroup(char32_t c)
{
    const QChar::Script script = QChar::script(c);
    return script == QChar::Script_Hiragana || script == QChar::Script_Katakana ? QChar::Script_Han : script;
}

// The script of a language: that of the first letter of its own name.
QChar::Script scriptOf(Language language)
{
    for (const char32_t c : Languages::displayName(language).toUcs4()) {
        if (QChar::isLetter(c))
            return scriptGroup(c);
    }
    return QChar::Script_Unknown;
}

// The paragraph direction a renderer picks for the text: that of its first strong character.
bool startsRightToLeft(const QString &text)
{
    for (const char32_t c : text.toUcs4()) {
        const QChar::Direction direction = QChar::direction(c);
        if (direction == QChar::DirR || direction == QChar::DirAL)
            return true;
        if (direction == QChar::DirL)
            return false;
    }
    return false;
}

// Everything wrong with one cell, as readable complaints; empty when the cell is fine.
QStringList faultsOf(Key key, Language language)
{
    const QString text = cell(key, language).toString();
    const QList<uint> codePoints = text.toUcs4();
    QStringList faults;
    if (text.isEmpty())
        return { u"empty"_s };

    static const QRegularExpression blanks(u"^\\s|\\s$|\\s\\s"_s, QRegularExpression::UseUnicodePropertiesOption);
    if (text.contains(blanks))
        faults << u"blank at an end, or two in a row"_s;
    for (qsizetype i = 0; i < text.size(); ++i) {
        const QChar c = text[i];
        if (c == zeroWidthNonJoiner) {
            // It only ever sits inside a word, between a letter (or its vowel sign) and a letter.
            const bool inWord = i > 0 && i + 1 < text.size() && (text[i - 1].isLetter() || text[i - 1].isMark())
                && text[i + 1].isLetter();
            if (!inWord || !among<Language>(nonJoiner, language))
                faults << u"zero-width non-joiner out of place"_s;
        } else if (c.category() == QChar::Other_Control || c.category() == QChar::Other_Format) {
            faults << u"invisible character U+%1"_s.arg(uint(c.unicode()), 4, 16, QChar(u'0'));
        }
    }
    if (codePoints.size() > (among<Key>(sentences, key) ? maximumSentenceLength : maximumLength))
        faults << u"%1 characters"_s.arg(codePoints.size());

    const qsizetype placeholders = text.count(placeholder);
    if (placeholders != (takesAValue(key) ? 1 : 0))
        faults << u"%1 placeholders"_s.arg(placeholders);
    if (text.count(u'%') != placeholders)
        faults << u"stray %"_s;

    if (among<Key>(opensMore, key) != (text.endsWith("..."_L1) && !text.endsWith("...."_L1)))
        faults << u"three full stops only and always after an item that opens something more"_s;
    if (text.contains(QChar(0x2026)))
        faults << u"ellipsis character instead of three full stops"_s;

    if (startsRightToLeft(text) != among<Language>(rightToLeft, language))
        faults << u"wrong direction"_s;
    const QChar::Script script = scriptOf(language);
    if (std::none_of(codePoints.cbegin(), codePoints.cend(),
            [script](uint c) { return QChar::isLetter(c) && scriptGroup(c) == script; }))
        faults << u"not in the language's own script"_s;

    // Persian and Urdu write their own yeh and keheh; the Arabic letters look alike but sort,
    // search and sometimes render differently.
    if ((language == Language::Persian || language == Language::Urdu)
        && (text.contains(QChar(0x064A)) || text.contains(QChar(0x0643))))
        faults << u"Arabic yeh or kaf in Persian or Urdu"_s;
    return faults;
}

} // namespace

class CatalogueTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { SettingsStore::shared().clear(); }

    void everyCellIsFit_data()
    {
        QTest::addColumn<Language>("language");
        for (const Language language : Languages::allCases)
            QTest::newRow(Languages::rawValue(language).data()) << language;
    }

    // Nor is a row copied from English instead of translated. A few words are the language's own too
    // (Danish "Download", Dutch "Later"), so two matches are allowed.
    void everyCellIsFit()
    {
        QFETCH(Language, language);
        QStringList report;
        int sameAsEnglish = 0;
        for (const Key key : allKeys) {
            const QStringList faults = faultsOf(key, language);
            if (!faults.isEmpty())
                report << keyName(key) + ": "_L1 + faults.join(u", "_s);
            sameAsEnglish += cell(key, language) == cell(key, Language::English) ? 1 : 0;
        }
        QVERIFY2(report.isEmpty(), qPrintable(report.join(u"; "_s)));
        QVERIFY(language == Language::English || sameAsEnglish <= 2);
    }

    // The stored code, read at every call, whatever the system's locale: each exact code shows its
    // language through every accessor; anything else, or nothing, shows English. Nothing is written
    // back. (Two languages of one code would fail here.)
    void storedLanguage()
    {
        std::vector<std::pair<QJsonValue, Language>> rows { { QJsonValue::Undefined, Language::English } };
        for (const Language language : Languages::allCases)
            rows.emplace_back(QString(Languages::rawValue(language)), language);
        // Codes already stored by users, where a locale library would suggest another (zh-Hans, iw, nb, fil).
        for (const auto &[code, language] : { std::pair { "zh", Language::Chinese }, { "he", Language::Hebrew },
                 { "no", Language::Norwegian }, { "tl", Language::Filipino } })
            rows.emplace_back(QString::fromLatin1(code), language);
        for (const char *code : { "EN", "Ko", "en-US", "pt_BR", "zh-Hans", "", " de", "xx", "nb", "eng", "English" })
            rows.emplace_back(QString::fromLatin1(code), Language::English);
        for (const QJsonValue &other : { QJsonValue(7), QJsonValue(true), QJsonValue(QJsonValue::Null) })
            rows.emplace_back(other, Language::English);
        for (const auto &[stored, shown] : rows) {
            const test::Row row { QString::fromUtf8(
                QJsonDocument(QJsonArray { stored }).toJson(QJsonDocument::Compact)) };
            SettingsStore::shared().clear();
            QLocale::setDefault(QLocale(QLocale::German, QLocale::Germany));
            qputenv("LANG", "de_DE.UTF-8");
            if (!stored.isUndefined())
                SettingsStore::shared().setValue(SettingsKeys::language, stored);
            QSignalSpy writes(&SettingsStore::shared(), &SettingsStore::changed);
            QCOMPARE(Languages::current(), shown);
            QCOMPARE(wrongAccessors(shown), QStringList());
            QCOMPARE(writes.count(), 0);
            QCOMPARE(SettingsStore::shared().value(SettingsKeys::language), stored);
            QLocale::setDefault(QLocale::c());
        }
    }
};

QTEST_GUILESS_MAIN(CatalogueTest)
#include "CatalogueTest.moc"
