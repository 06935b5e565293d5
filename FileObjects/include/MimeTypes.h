#pragma once

#include <istream>
#include <string>
#include <unordered_map>
#include <vector>

namespace FileObjects {

/// Finds the type of a file by its name, with the rules of the machine's shared-mime-info database.
/// Constant once it is made; any thread.
class MimeTypes
{
public:
    static constexpr const char* unknown = "application/octet-stream";

    /// Knows no rules.
    MimeTypes() = default;
    /// Reads lines "WEIGHT:TYPE:PATTERN[:FLAGS]", as in the file globs2; skips other lines.
    explicit MimeTypes(std::istream& globs);

    /// Reads the rules of this machine. Knows none where the database is not installed.
    [[nodiscard]] static MimeTypes Load();

    /// The rule with the greatest weight counts, then the one with the longest pattern.
    [[nodiscard]] std::string Find(const std::string& fileName) const;

private:
    struct Rule
    {
        int weight = 0;
        std::string type;
        std::string pattern;
        bool isCaseSensitive = false;
    };
    using Rules = std::unordered_multimap<std::string, Rule>;

    void Add(Rule rule);
    static void Choose(const Rule& rule, const Rule*& best);
    static void ChooseAmong(const Rules& rules, const std::string& text, bool isLowered,
                            const Rule*& best);

    Rules names;    // whole names
    Rules suffixes; // what follows "*" in a pattern without other wildcards
    std::vector<Rule> patterns;
};

} // namespace FileObjects
