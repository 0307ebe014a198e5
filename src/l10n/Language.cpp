#include "l10n/Language.h"

#include "core/SettingsKeys.h"
#include "core/SettingsStore.h"

namespace kestrix {
namespace {

using namespace Qt::StringLiterals;

struct LanguageInfo
{
    Language language = Language::English;
    QLatin1StringView code;
    QStringView name;
};

// One row per language, in allCases order (checked below).
// clang-format off
constexpr std::array<LanguageInfo, Languages::count> infos = {{
    {Language::English, "en"_L1, u"English"},
    {Language::Korean, "ko"_L1, u"한국어"},
    {Language::Chinese, "zh"_L1, u"中文"},
    {Language::Spanish, "es"_L1, u"Español"},
    {Language::Arabic, "ar"_L1, u"العربية"},
    {Language::Portuguese, "pt"_L1, u"Português"},
    {Language::Russian, "ru"_L1, u"Русский"},
    {Language::Japanese, "ja"_L1, u"日本語"},
    {Language::German, "de"_L1, u"Deutsch"},
    {Language::French, "fr"_L1, u"Français"},
    {Language::Turkish, "tr"_L1, u"Türkçe"},
    {Language::Vietnamese, "vi"_L1, u"Tiếng Việt"},
    {Language::Italian, "it"_L1, u"Italiano"},
    {Language::Thai, "th"_L1, u"ไทย"},
    {Language::Polish, "pl"_L1, u"Polski"},
    {Language::Dutch, "nl"_L1, u"Nederlands"},
    {Language::Indonesian, "id"_L1, u"Bahasa Indonesia"},
    {Language::Hindi, "hi"_L1, u"हिन्दी"},
    {Language::Hebrew, "he"_L1, u"עברית"},
    {Language::Persian, "fa"_L1, u"فارسی"},
    {Language::Romanian, "ro"_L1, u"Română"},
    {Language::Czech, "cs"_L1, u"Čeština"},
    {Language::Greek, "el"_L1, u"Ελληνικά"},
    {Language::Hungarian, "hu"_L1, u"Magyar"},
    {Language::Swedish, "sv"_L1, u"Svenska"},
    {Language::Danish, "da"_L1, u"Dansk"},
    {Language::Finnish, "fi"_L1, u"Suomi"},
    {Language::Norwegian, "no"_L1, u"Norsk"},
    {Language::Ukrainian, "uk"_L1, u"Українська"},
    {Language::Malay, "ms"_L1, u"Bahasa Melayu"},
    {Language::Filipino, "tl"_L1, u"Filipino"},
    {Language::Bengali, "bn"_L1, u"বাংলা"},
    {Language::Tamil, "ta"_L1, u"தமிழ்"},
    {Language::Telugu, "te"_L1, u"తెలుగు"},
    {Language::Urdu, "ur"_L1, u"اردو"},
    {Language::Swahili, "sw"_L1, u"Kiswahili"},
    {Language::Slovak, "sk"_L1, u"Slovenčina"},
    {Language::Croatian, "hr"_L1, u"Hrvatski"},
    {Language::Bulgarian, "bg"_L1, u"Български"},
    {Language::Serbian, "sr"_L1, u"Српски"},
    {Language::Lithuanian, "lt"_L1, u"Lietuvių"},
    {Language::Slovenian, "sl"_L1, u"Slovenščina"},
    {Language::Latvian, "lv"_L1, u"Latviešu"},
    {Language::Estonian, "et"_L1, u"Eesti"},
    {Language::Catalan, "ca"_L1, u"Català"},
    {Language::Marathi, "mr"_L1, u"मराठी"},
    {Language::Gujarati, "gu"_L1, u"ગુજરાતી"},
    {Language::Kannada, "kn"_L1, u"ಕನ್ನಡ"},
    {Language::Malayalam, "ml"_L1, u"മലയാളം"},
    {Language::Burmese, "my"_L1, u"မြန်မာ"},
}};
// clang-format on

constexpr bool rowsFollowAllCases()
{
    for (std::size_t i = 0; i < Languages::count; ++i) {
        if (infos[i].language != Languages::allCases[i])
            return false;
    }
    return true;
}
static_assert(rowsFollowAllCases(), "the language table must list the languages in allCases order");

const LanguageInfo &info(Language language) { return infos[Languages::indexOf(language)]; }

} // namespace

namespace Languages {

QLatin1StringView rawValue(Language language) { return info(language).code; }

QString displayName(Language language) { return info(language).name.toString(); }

std::optional<Language> fromRawValue(QStringView code)
{
    for (const LanguageInfo &row : infos) {
        if (code == row.code)
            return row.language;
    }
    return std::nullopt;
}

Language current()
{
    const QString code = SettingsStore::shared().stringValue(SettingsKeys::language).value_or(u"en"_s);
    return fromRawValue(code).value_or(Language::English);
}

} // namespace Languages

LanguageNotifier &LanguageNotifier::instance()
{
    static LanguageNotifier notifier;
    return notifier;
}

void LanguageNotifier::post() { Q_EMIT languageDidChange(); }

} // namespace kestrix
