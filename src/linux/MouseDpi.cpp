#include "linux/MouseDpi.h"

#include <charconv>
#include <vector>

namespace kestrix::MouseDpi {
namespace {

// One entry of the list: "800" or "800@125", the optional part after '@' being the report rate.
std::optional<int> parseEntry(std::string_view entry)
{
    const std::size_t at = entry.find('@');
    const std::string_view dpiText = entry.substr(0, at);
    int dpi = 0;
    const auto [end, error] = std::from_chars(dpiText.data(), dpiText.data() + dpiText.size(), dpi);
    if (error != std::errc() || end != dpiText.data() + dpiText.size() || dpiText.empty())
        return std::nullopt;
    if (at != std::string_view::npos) {
        const std::string_view rateText = entry.substr(at + 1);
        int rate = 0;
        const auto [rateEnd, rateError] = std::from_chars(rateText.data(), rateText.data() + rateText.size(), rate);
        if (rateError != std::errc() || rateEnd != rateText.data() + rateText.size() || rateText.empty() || rate <= 0)
            return std::nullopt;
    }
    if (dpi < minimumDpi || dpi > maximumDpi)
        return std::nullopt;
    return dpi;
}

} // namespace

std::optional<int> parse(std::string_view value)
{
    std::vector<std::string_view> entries;
    std::size_t position = 0;
    while (position < value.size()) {
        const std::size_t start = value.find_first_not_of(" \t", position);
        if (start == std::string_view::npos)
            break;
        const std::size_t end = value.find_first_of(" \t", start);
        entries.push_back(value.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
        position = end == std::string_view::npos ? value.size() : end;
    }
    if (entries.empty())
        return std::nullopt;

    std::string_view chosen;
    bool chosenIsStarred = false;
    for (const std::string_view entry : entries) {
        // Every entry must be well formed, starred or not: a list with garbage in it is not trusted.
        const bool starred = entry.starts_with('*');
        const std::string_view bare = starred ? entry.substr(1) : entry;
        if (!parseEntry(bare))
            return std::nullopt;
        if (starred && chosenIsStarred)
            return std::nullopt; // two defaults
        if (starred || chosen.empty()) {
            chosen = bare;
            chosenIsStarred = starred;
        }
    }
    return parseEntry(chosen);
}

} // namespace kestrix::MouseDpi
