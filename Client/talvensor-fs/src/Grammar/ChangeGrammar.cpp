#include "Grammar/CommandGrammar.h"
#include "Output/Times.h"

#include <charconv>
#include <sstream>
#include <utility>

namespace Cli {

namespace {

constexpr const char* chmodFooter =
    "MODE is an octal number such as 644, which needs a server with file objects; or +x "
    "(everyone may execute), readonly (everyone may read, nobody may write), or both: "
    "+x,readonly. These two work with any server, on files that it may write to.";

constexpr const char* relocationFooter =
    "TARGET is a directory to put into, or the new name of the one SOURCE. A file that "
    "has the new name is replaced, a directory never. The server needs file objects.";

constexpr const char* touchFooter =
    "TIME is YYYY-MM-DD HH:MM:SS in local time, or in the zone that Z or +HH:MM behind it "
    "names; or @SECONDS since 1970. touch creates no files.";

/// Returns nothing for what is no number.
std::optional<std::uint32_t> ParseOctal(const std::string& text)
{
    constexpr std::uint32_t most = 0777;
    std::uint32_t mode = 0;
    const char* const end = text.data() + text.size();
    const auto parsed = std::from_chars(text.data(), end, mode, 8);
    if (parsed.ec != std::errc() || parsed.ptr != end || mode > most)
        return std::nullopt;
    return mode;
}

Client::Permissions ParsePermissions(const std::string& text)
{
    Client::Permissions permissions;
    std::istringstream modes(text);
    for (std::string mode; std::getline(modes, mode, ',');) {
        if (mode == "+x")
            permissions.executable = true;
        else if (mode == "readonly")
            permissions.readOnly = true;
        else
            throw Client::InvalidArgumentException(
                "'" + text + "' is not a mode: an octal number, +x, readonly, or +x,readonly");
    }
    return permissions;
}

} // namespace

std::function<bool()> CommandGrammar::AddGlob(CLI::App& command) const
{
    if (place == Place::Shell)
        return [] {
            return true;
        };
    const auto* const glob = AddFlag(command, "--glob", "treat paths as patterns: * ? [...] **");
    return [glob] {
        return IsSet(glob);
    };
}

void CommandGrammar::AddChanges()
{
    AddRemove();
    auto* const make = Add("mkdir", "PATH...", "create directories and their missing parents");
    auto* const made = AddPaths(make);
    AddFlag(*make, "-p,--parents", "no effect: parents are always created");
    makers[make] = [=] {
        return MakeDirectoryCommand{GetPaths(make, made)};
    };
    AddTouch();
    AddPermissions();
    AddRelocations();
}

void CommandGrammar::AddRemove()
{
    auto* const remove = Add("rm", "[-r] [-f] PATH...", "delete files");
    auto* const removed = AddPaths(remove);
    auto* const recursive =
        AddFlag(*remove, "-r,--recursive", "delete directories with their contents");
    auto* const force = AddFlag(*remove, "-f,--force", "do not fail if a path is missing");
    const auto takesPatterns = AddGlob(*remove);
    makers[remove] = [=] {
        return RemoveCommand{.paths = GetPatterns(remove, removed),
                             .isRecursive = IsSet(recursive),
                             .mayBeMissing = IsSet(force),
                             .takesPatterns = takesPatterns()};
    };
}

void CommandGrammar::AddTouch()
{
    auto* const touch =
        Add("touch", "[-d TIME] PATH...", "set the time of files and directories", touchFooter);
    auto* const touched = AddPaths(touch);
    auto* const time =
        touch->add_option("-d,--date")->description("set this time (now)")->type_name("TIME");
    const auto takesPatterns = AddGlob(*touch);
    makers[touch] = [=] {
        TouchCommand command{.paths = GetPatterns(touch, touched),
                             .time = std::nullopt,
                             .takesPatterns = takesPatterns()};
        if (const auto text = GetText(time))
            command.time = ParseTime(*text);
        return command;
    };
}

template <typename Made>
Made CommandGrammar::MakeRelocation(const CLI::App* command, const CLI::Option* paths) const
{
    if (paths->count() < 2)
        throw Client::InvalidArgumentException(command->get_name() +
                                               ": needs a source and a target");
    Made made;
    made.sources = GetPatterns(command, paths);
    made.sources.pop_back();
    made.target = GetTexts(paths).back();
    return made;
}

void CommandGrammar::AddRelocations()
{
    auto* const move =
        Add("mv", "SOURCE... TARGET", "rename and move files on the server", relocationFooter);
    auto* const moved = AddPaths(move);
    const auto takesPatterns = AddGlob(*move);
    makers[move] = [=, this] {
        auto made = MakeRelocation<MoveCommand>(move, moved);
        made.takesPatterns = takesPatterns();
        return made;
    };
    auto* const copy =
        Add("cp", "[-r] SOURCE... TARGET", "copy files on the server", relocationFooter);
    auto* const copied = AddPaths(copy);
    auto* const recursive =
        AddFlag(*copy, "-r,--recursive", "copy directories with their contents");
    makers[copy] = [=, this] {
        auto made = MakeRelocation<CopyCommand>(copy, copied);
        made.isRecursive = IsSet(recursive);
        return made;
    };
}

void CommandGrammar::AddPermissions()
{
    auto* const command = Add("chmod", "MODE PATH...", "set permissions", chmodFooter);
    auto* const words = AddPaths(command);
    const auto takesPatterns = AddGlob(*command);
    makers[command] = [=] {
        if (words->count() < 2)
            throw Client::InvalidArgumentException("chmod: needs a mode and paths");
        auto paths = GetPatterns(command, words);
        paths.erase(paths.begin());
        const auto text = GetTexts(words).front();
        const auto mode = ParseOctal(text);
        return PermissionsCommand{.paths = std::move(paths),
                                  .permissions =
                                      mode ? Client::Permissions{} : ParsePermissions(text),
                                  .mode = mode,
                                  .takesPatterns = takesPatterns()};
    };
}

} // namespace Cli
