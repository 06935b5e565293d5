#include "Grammar/CommandGrammar.h"
#include "Output/Text.h"

#include <type_traits>
#include <utility>

namespace Cli {

namespace {

constexpr const char* putFooter =
    "REMOTE is a directory to put into, or the new name of the one LOCAL. LOCAL - is "
    "standard input. A path that ends in . or .. stands for the contents of that "
    "directory.\n"
    "\n"
    "A file is written beside its target, as .NAME.talvensor-part-NUMBER, and replaces "
    "the target when it is complete, even a read-only one. A link is replaced, not the "
    "file that it leads to. An interruption leaves the target as it was; put names the "
    "part that was sent, and put --continue carries on from there, unless the source or "
    "the part has changed since.\n"
    "\n"
    "With --in-place, and on a server without file objects, put writes into the target "
    "itself: others see a part of the file meanwhile, and after an interruption.\n"
    "\n"
    "Times are set to whole seconds. A new file or directory gets the permissions of its "
    "source without those that the umask 022 takes, and the owner of a directory all. A file that "
    "is replaced keeps its "
    "permissions, and becomes executable or read-only if the source is; a directory that "
    "is there keeps its own. With --in-place, and on a server without file objects, files "
    "get two alone: executable (if the owner may execute the source) and read-only (if "
    "nobody may write to it). Links and special files in a directory are skipped.";

constexpr const char* getFooter =
    "LOCAL is a directory to put into, or the new name of the one REMOTE; - is standard "
    "output. A path that ends in . or .. stands for the contents of that directory.\n"
    "\n"
    "A file is written beside its target, as .NAME.talvensor-part, and replaces the "
    "target when it is complete. An interruption leaves the target as it was, and get "
    "--continue carries on.\n"
    "\n"
    "Times are set to whole seconds. If the server has file objects, files and new "
    "directories get the permissions that they have there, without those that the umask "
    "takes.";

} // namespace

CommandGrammar::Transfer CommandGrammar::AddTransfer(const std::string& name,
                                                     const std::string& arguments,
                                                     const std::string& text,
                                                     const std::string& end)
{
    auto* const command = Add(name, "[-r] [-c] [--verify] [-j COUNT] " + arguments, text, end);
    auto jobs = std::make_shared<std::size_t>(2);
    command->add_option("-j,--jobs", *jobs, "transfer this many large files at once, 1 to 64 (2)")
        ->type_name("COUNT")
        ->check(CLI::Range(1, 64).description(""));
    AddFlag(*command, "-p,--preserve", "no effect: times are always kept");
    return {.command = command,
            .paths = AddPaths(command),
            .recursive =
                AddFlag(*command, "-r,--recursive", "transfer directories with their contents"),
            .resumes = AddFlag(*command, "-c,--continue",
                               "continue an earlier transfer where it broke off; start "
                               "over if source or target have changed since"),
            .verifies = AddFlag(*command, "--verify", "compare the contents afterwards"),
            .progress = AddFlag(*command, "--progress",
                                "show progress even if standard error is not a terminal: a line "
                                "every five seconds"),
            .jobs = jobs,
            .rate = AddRate(*command)};
}

/// In the shell one path is enough: the target is the current directory then.
template <typename Made>
Made CommandGrammar::MakeTransfer(const Transfer& parts) const
{
    auto paths = GetTexts(parts.paths);
    if (paths.size() < 2 && (paths.empty() || place != Place::Shell))
        throw Client::InvalidArgumentException(parts.command->get_name() +
                                               ": needs a source and a target");
    const bool arePatterns = place == Place::Shell || std::is_same_v<Made, GetCommand>;
    auto sources = arePatterns ? GetPatterns(parts.command, parts.paths) : paths;
    Made made;
    made.target = paths.size() > 1 ? paths.back() : ".";
    if (paths.size() > 1)
        sources.pop_back();
    made.sources = std::move(sources);
    made.isRecursive = IsSet(parts.recursive);
    made.resumes = IsSet(parts.resumes);
    made.verifies = IsSet(parts.verifies);
    made.showsProgress = IsSet(parts.progress);
    made.jobs = *parts.jobs;
    if (const auto text = GetText(parts.rate))
        made.bytesPerSecond = ParseRate(*text);
    return made;
}

void CommandGrammar::AddTransfers()
{
    const auto put = AddTransfer("put", "[--in-place] [-f] LOCAL... REMOTE",
                                 "send files to the server", putFooter);
    auto* const inPlace = AddFlag(*put.command, "--in-place", "write into the targets themselves");
    auto* const force =
        AddFlag(*put.command, "-f,--force",
                "with --in-place: delete a target that cannot be opened, and try again");
    auto* const links = AddFlag(*put.command, "-L,--copy-links",
                                "follow links in directories instead of skipping them");
    makers[put.command] = [=, this] {
        auto made = MakeTransfer<PutCommand>(put);
        made.isInPlace = IsSet(inPlace);
        made.followsLinks = IsSet(links);
        made.replaces = IsSet(force);
        return made;
    };
    const auto get =
        AddTransfer("get", "REMOTE... LOCAL", "fetch files from the server", getFooter);
    makers[get.command] = [this, get] {
        return MakeTransfer<GetCommand>(get);
    };
}

} // namespace Cli
