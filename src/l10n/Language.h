#pragma once

#include <QLatin1StringView>
#include <QObject>
#include <QString>
#include <QStringView>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace kestrix {

// The interface languages. The order is fixed: it is the order of the language pop-up and of every
// row of the string catalogue, so a new language is appended, never inserted.
// clang-format off
enum class Language : std::uint8_t {
    English, Korean, Chinese, Spanish, Arabic, Portuguese, Russian, Japanese,
    German, French, Turkish, Vietnamese, Italian, Thai, Polish, Dutch, Indonesian, Hindi, Hebrew, Persian, Romanian,
    Czech, Greek, Hungarian, Swedish, Danish, Finnish, Norwegian, Ukrainian, Malay, Filipino, Bengali, Tamil, Telugu,
    Urdu, Swahili, Slovak, Croatian, Bulgarian, Serbian, Lithuanian, Slovenian, Latvian, Estonian, Catalan, Marathi,
    Gujarati, Kannada, Malayalam, Burmese
};
// clang-format on

namespace Languages {

inline constexpr std::size_t count = 50;

// Every language in declaration order: the pop-up order and the row order of every catalogue table.
inline constexpr std::array<Language, count> allCases = [] {
    std::array<Language, count> cases {};
    for (std::size_t i = 0; i < count; ++i)
        cases[i] = static_cast<Language>(i);
    return cases;
}();
static_assert(allCases.back() == Language::Burmese, "a language was added without growing count");

// Position in allCases, so that tables can be indexed by language.
constexpr std::size_t indexOf(Language language) { return static_cast<std::size_t>(language); }

// The code stored under the "language" setting: "en", "ko", "zh", ... (Norwegian "no", Filipino
// "tl", Hebrew "he"; Chinese has the one code "zh", no script or region).
QLatin1StringView rawValue(Language language);
// The language's name in its own language, as the pop-up shows it: "English", "한국어", ...
QString displayName(Language language);
// Exact, case-sensitive match against the 50 codes: "EN", "en-US" and "" are no language.
std::optional<Language> fromRawValue(QStringView code);
// The stored choice, read afresh at every call so a change applies at the next text asked for.
// Nothing stored means English; so does a code that is not one of ours, which is left as it is.
// The system locale is never consulted: until the user picks a language the interface is English.
Language current();

} // namespace Languages

// The in-process broadcast "languageDidChange": posted once each time the user picks a language,
// so that shown texts (the tray menu) are fetched again. It carries nothing: receivers ask the
// catalogue, which reads the stored choice.
class LanguageNotifier final : public QObject
{
    Q_OBJECT

public:
    static LanguageNotifier &instance();
    // Emits languageDidChange() once.
    void post();

Q_SIGNALS:
    void languageDidChange();

private:
    LanguageNotifier() = default;
};

} // namespace kestrix
