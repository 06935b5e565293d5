#include "Grammar/CommandGrammar.h"

#include <utility>

namespace Cli {

namespace {

constexpr const char* listFooter =
    "Without PATH, the current directory is listed. -l shows permissions, size, local "
    "time and name; of a server without file objects, only the kind (d: directory; -: "
    "anything else) and the time. Owners are not known. Names that begin with a dot are "
    "always listed. -s finds sizes by reading if the server has no file objects, which "
    "takes a few round trips for each file. On a terminal, control characters in names "
    "are shown as \\xNN; elsewhere names are printed as they are.";

constexpr const char* findFooter =
    "NAME is a pattern (* ? [...]) for the last name of a path, or, with a slash in it, "
    "for the whole path as find prints it; * matches slashes there. Quote it, so that "
    "your shell leaves it alone: find '*.log' logs; find 'logs/*.gz'. Without PATH, the "
    "search begins in the current directory.";

constexpr const char* spaceFooter =
    "Without PATH, all folders of the server are shown. Sizes are in bytes.";

} // namespace

void CommandGrammar::AddListing()
{
    auto* const command =
        Add("ls", "[-R] [-l] [-h] [-s] [-0] [PATH]...", "list directories and files", listFooter);
    auto* const paths = AddPaths(command);
    auto* const recursive = AddFlag(*command, "-R,--recursive", "list subdirectories, too");
    auto* const isLong = AddFlag(*command, "-l,--long", "show permissions, size and time, too");
    auto* const human = AddHumanReadable(*command);
    auto* const sizes = AddFlag(*command, "-s,--size", "show the sizes of files");
    auto* const zero =
        AddFlag(*command, "-0,--print0", "print names unchanged, each followed by a zero byte");
    AddFlag(*command, "-a,--all", "no effect: all names are always listed");
    AddFlag(*command, "-1", "no effect: each name always has a line of its own");
    makers[command] = [=] {
        return ListCommand{.paths = GetPatternsOr(paths, "."),
                           .isRecursive = IsSet(recursive),
                           .isLong = IsSet(isLong),
                           .hasSizes = IsSet(sizes),
                           .isHumanReadable = IsSet(human),
                           .endsWithZero = IsSet(zero)};
    };
    AddStates();
    AddTrees();
}

void CommandGrammar::AddStates()
{
    auto* const stat =
        Add("stat", "PATH...", "show kind, size, time, permissions and access of paths");
    auto* const known = AddPaths(stat);
    makers[stat] = [=] {
        return StateCommand{GetPatterns(stat, known)};
    };
    auto* const space =
        Add("df", "[-h] [PATH]...", "show the disk space of the server's folders", spaceFooter);
    auto* const disks = AddPaths(space);
    auto* const human = AddHumanReadable(*space);
    makers[space] = [=] {
        SpaceCommand made{.paths = {}, .isHumanReadable = IsSet(human)};
        if (disks->count() > 0)
            made.paths = GetPatterns(space, disks);
        return made;
    };
    auto* const cat = Add("cat", "REMOTE...", "write files to standard output");
    auto* const files = AddPaths(cat);
    makers[cat] = [=] {
        return CatCommand{GetPatterns(cat, files)};
    };
    auto* const exists =
        Add("exists", "PATH...", "print the kind of each path; fail if one is missing");
    auto* const tested = AddPaths(exists);
    makers[exists] = [=] {
        return ExistsCommand{GetPaths(exists, tested)};
    };
}

void CommandGrammar::AddTrees()
{
    auto* const usage =
        Add("du", "[-h] [-s] [PATH]...", "show the bytes of all files below directories");
    auto* const measured = AddPaths(usage);
    auto* const human = AddHumanReadable(*usage);
    auto* const summary = AddFlag(*usage, "-s,--summarize", "show the total of each PATH only");
    makers[usage] = [=] {
        return UsageCommand{.paths = GetPatternsOr(measured, "."),
                            .isSummary = IsSet(summary),
                            .isHumanReadable = IsSet(human)};
    };
    auto* const tree = Add("tree", "[PATH]...", "show directories as trees");
    auto* const drawn = AddPaths(tree);
    makers[tree] = [=] {
        return TreeCommand{GetPatternsOr(drawn, ".")};
    };
    auto* const find =
        Add("find", "NAME [PATH]...", "find files and directories by name", findFooter);
    auto* const words = AddPaths(find);
    makers[find] = [=] {
        if (words->count() == 0)
            throw Client::InvalidArgumentException("find: needs a name");
        auto patterns = GetPatterns(find, words);
        FindCommand made{.name = patterns.front(), .paths = {"."}};
        patterns.erase(patterns.begin());
        if (!patterns.empty())
            made.paths = std::move(patterns);
        return made;
    };
}

} // namespace Cli
