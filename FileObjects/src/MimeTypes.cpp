#include "MimeTypes.h"

#include <algorithm>
#include <charconv>
#include <fnmatch.h>
#include <fstream>
#include <string_view>
#include <utility>

namespace FileObjects {

namespace {

/// Lowers ASCII letters, as the database's own patterns need it.
std::string Lower(std::string text)
{
    std::ranges::transform(text, text.begin(), [](char letter) {
        return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
    });
    return text;
}

std::string_view TakeField(std::string_view& line)
{
    const auto colon = std::min(line.find(':'), line.size());
    const auto field = line.substr(0, colon);
    line.remove_prefix(std::min(colon + 1, line.size()));
    return field;
}

bool HasWildcard(std::string_view pattern)
{
    return pattern.find_first_of("*?[") != std::string_view::npos;
}

} // namespace

MimeTypes::MimeTypes(std::istream& globs)
{
    for (std::string text; std::getline(globs, text);) {
        std::string_view line = text;
        if (line.starts_with('#'))
            continue;
        Rule rule;
        const auto weight = TakeField(line);
        const auto parsed =
            std::from_chars(weight.data(), weight.data() + weight.size(), rule.weight);
        rule.type = TakeField(line);
        rule.pattern = TakeField(line);
        rule.isCaseSensitive = line.find("cs") != std::string_view::npos;
        if (parsed.ec == std::errc() && !rule.type.empty() && !rule.pattern.empty())
            Add(std::move(rule));
    }
}

MimeTypes MimeTypes::Load()
{
    std::ifstream globs("/usr/share/mime/globs2");
    return MimeTypes(globs);
}

void MimeTypes::Add(Rule rule)
{
    if (!rule.isCaseSensitive)
        rule.pattern = Lower(rule.pattern);
    if (!HasWildcard(rule.pattern)) {
        const std::string name = rule.pattern;
        names.emplace(name, std::move(rule));
    } else if (rule.pattern.front() == '*' && !HasWildcard(rule.pattern.substr(1))) {
        const std::string suffix = rule.pattern.substr(1);
        suffixes.emplace(suffix, std::move(rule));
    } else {
        patterns.push_back(std::move(rule));
    }
}

std::string MimeTypes::Find(const std::string& fileName) const
{
    const std::string lowered = Lower(fileName);
    const Rule* best = nullptr;
    ChooseAmong(names, fileName, false, best);
    ChooseAmong(names, lowered, true, best);
    for (std::size_t i = 0; i < fileName.size(); ++i) {
        ChooseAmong(suffixes, fileName.substr(i), false, best);
        ChooseAmong(suffixes, lowered.substr(i), true, best);
    }
    for (const auto& rule : patterns) {
        const auto& name = rule.isCaseSensitive ? fileName : lowered;
        if (fnmatch(rule.pattern.c_str(), name.c_str(), 0) == 0)
            Choose(rule, best);
    }
    return best != nullptr ? best->type : unknown;
}

void MimeTypes::ChooseAmong(const Rules& rules, const std::string& text, bool isLowered,
                            const Rule*& best)
{
    const auto [first, last] = rules.equal_range(text);
    for (auto each = first; each != last; ++each)
        if (each->second.isCaseSensitive != isLowered)
            Choose(each->second, best);
}

void MimeTypes::Choose(const Rule& rule, const Rule*& best)
{
    const auto rank = [](const Rule& each) {
        return std::make_pair(each.weight, each.pattern.size());
    };
    if (best == nullptr || rank(rule) > rank(*best))
        best = &rule;
}

} // namespace FileObjects
