#include "Grammar/Suggestion.h"

#include <algorithm>

namespace Cli {

namespace {

/// Returns how many characters have to be added, left out, replaced or swapped with the next one.
std::size_t CountChanges(std::string_view from, std::string_view to)
{
    std::vector<std::vector<std::size_t>> changes(from.size() + 1,
                                                  std::vector<std::size_t>(to.size() + 1));
    for (std::size_t i = 0; i <= from.size(); ++i)
        for (std::size_t j = 0; j <= to.size(); ++j) {
            auto& here = changes[i][j];
            here = std::max(i, j);
            if (i == 0 || j == 0)
                continue;
            const std::size_t replaced = from[i - 1] == to[j - 1] ? 0 : 1;
            here = std::min(
                {changes[i - 1][j] + 1, changes[i][j - 1] + 1, changes[i - 1][j - 1] + replaced});
            if (i > 1 && j > 1 && from[i - 1] == to[j - 2] && from[i - 2] == to[j - 1])
                here = std::min(here, changes[i - 2][j - 2] + 1);
        }
    return changes.back().back();
}

} // namespace

std::string Suggest(std::string_view word, const std::vector<std::string>& names)
{
    // A third of the word may be wrong; of short words, one character.
    const auto atMost = std::max<std::size_t>(1, word.size() / 3);
    const std::string* best = nullptr;
    auto fewest = atMost + 1;
    for (const auto& name : names) {
        const auto changes = CountChanges(word, name);
        if (changes < fewest && changes < name.size()) {
            best = &name;
            fewest = changes;
        }
    }
    return best == nullptr ? std::string() : "; did you mean '" + *best + "'?";
}

} // namespace Cli
