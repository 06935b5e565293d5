#include "Grammar/CommandGrammar.h"

#include <utility>

namespace Cli {

namespace {

constexpr const char* listFooter =
    "Without PATH, the current directory is listed. -l shows kind and permissions, the size, the "
    "time in local time, and the name; a server without file objects tells the kind (d: directory; "
    "-: file or anything else) and the time only. Owners are not known. Names that begin with a "
    "dot are always listed. -s finds sizes by reading if the server has no file objects, "
    "which costs a few round trips for each file. On a terminal, control characters in names are "
    "shown as \\xNN; elsewhere names are printed as they are.";

constexpr const char* findFooter =
    "NAME is a pattern (* ? [...]) for the last name of a path, in quotes so that your shell "
    "leaves it alone: find '*.log' logs. Without PATH, the search begins in the current directory.";

constexpr const char* spaceFooter = "Without PATH, all folders of the server are shown.";

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
    auto* const stat = Add("stat", "PATH...", "show all that the server knows of each path");
    auto* const known = AddPaths(stat);
    makers[stat] = [=] {
        return StateCommand{GetPatterns(stat, known)};
    };
    auto* const space =
        Add("df", "[-h] [PATH]...", "show total and free bytes of the server's disks", spaceFooter);
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
        Add("du", "[-h] [-s] [PATH]...", "show how many bytes the files below directories have");
    auto* const measured = AddPaths(usage);
    auto* const human = AddHumanReadable(*usage);
    auto* const summary = AddFlag(*usage, "-s,--summarize", "show the total of each PATH only");
    makers[usage] = [=] {
        return UsageCommand{.paths = GetPatternsOr(measured, "."),
                            .isSummary = IsSet(summary),
                            .isHumanReadable = IsSet(human)};
    };
    auto* const tree = Add("tree", "[PATH]...", "draw all below directories");
    auto* const drawn = AddPaths(tree);
    makers[tree] = [=] {
        return TreeCommand{GetPatternsOr(drawn, ".")};
    };
    auto* const find = Add("find", "NAME [PATH]...", "find files and directories", findFooter);
    auto* const words = AddPaths(find);
    makers[find] = [=] {
        auto patterns = GetPatterns(find, words);
        FindCommand made{.name = patterns.front(), .paths = {"."}};
        patterns.erase(patterns.begin());
        if (!patterns.empty())
            made.paths = std::move(patterns);
        return made;
    };
}

} // namespace Cli
