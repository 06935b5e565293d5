#include "Grammar/Completion.h"

#include "Output/Words.h"

#include <algorithm>
#include <utility>

namespace Cli {

namespace {

std::string GetCommonPrefix(const std::vector<Candidate>& candidates)
{
    std::string prefix = candidates.front().name;
    for (const auto& candidate : candidates) {
        const auto end = std::mismatch(prefix.begin(), prefix.end(), candidate.name.begin(),
                                       candidate.name.end());
        prefix.erase(end.first, prefix.end());
    }
    return prefix;
}

void KeepThoseThatBeginWith(std::vector<Candidate>& candidates, const std::string& stem)
{
    std::erase_if(candidates,
                  [&stem](const Candidate& one) { return !one.name.starts_with(stem); });
}

/// Returns the typed text when nothing fits.
std::string MakeReplacement(const std::string& directory, const std::string& stem,
                            const std::vector<Candidate>& candidates)
{
    if (candidates.empty())
        return directory.empty() && stem.empty() ? "" : QuoteWord(directory + stem);
    const auto whole = directory + GetCommonPrefix(candidates);
    auto quoted = whole.empty() ? "" : QuoteWord(whole);
    if (candidates.size() > 1)
        return quoted;
    return quoted + (candidates.front().isDirectory ? "/" : " ");
}

/// The first path of `put` is local and the others remote; those of `get` the other way round.
bool IsLocal(const std::string& command, std::size_t pathsBefore)
{
    if (command == "lcd" || command == "lls")
        return true;
    return command == "put" ? pathsBefore == 0 : command == "get" && pathsBefore > 0;
}

bool TakesNoPath(const std::string& command)
{
    return command == "help" || command == "info" || command == "watch" || command == "exit" ||
           command == "pwd" || command == "lpwd";
}

} // namespace

Completer::Completer(std::vector<std::string> commands, Lister remote, Lister local)
    : commands(std::move(commands))
    , remote(std::move(remote))
    , local(std::move(local))
{}

Completion Completer::Complete(std::string_view line) const
{
    const auto partial = SplitPartialLine(line);
    const bool isCommand = partial.words.empty();
    const auto slash = isCommand ? std::string::npos : partial.last.rfind('/');
    const auto directory =
        slash == std::string::npos ? std::string() : partial.last.substr(0, slash + 1);
    const auto stem = partial.last.substr(directory.size());

    std::vector<Candidate> candidates;
    if (isCommand)
        std::transform(
            commands.begin(), commands.end(), std::back_inserter(candidates),
            [](const std::string& name) { return Candidate{.name = name, .isDirectory = false}; });
    else
        candidates = FindPaths(partial.words, directory);
    KeepThoseThatBeginWith(candidates, stem);

    Completion completion{.begin = partial.lastBegin,
                          .replacement = MakeReplacement(directory, stem, candidates),
                          .choices = {}};
    if (candidates.size() > 1) {
        for (const auto& candidate : candidates)
            completion.choices.push_back(candidate.name + (candidate.isDirectory ? "/" : ""));
        std::sort(completion.choices.begin(), completion.choices.end());
    }
    return completion;
}

std::vector<Candidate> Completer::FindPaths(const std::vector<std::string>& words,
                                            const std::string& directory) const
{
    const auto& command = words.front();
    if (TakesNoPath(command))
        return {};
    const auto pathsBefore = std::count_if(words.begin() + 1, words.end(),
                                           [](const auto& word) { return !word.starts_with('-'); });
    const auto& list = IsLocal(command, static_cast<std::size_t>(pathsBefore)) ? local : remote;
    return list(directory);
}

} // namespace Cli
