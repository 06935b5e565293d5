#include "CommandGrammar.h"

namespace Cli {

namespace {

constexpr const char* listFooter =
    "-l shows the kind (d: directory; -: file or anything else), the time in local time, and the "
    "name: permissions and owners cannot be read from the server. Sizes cost a few round trips "
    "for each file. On a terminal, control characters in names are shown as \\xNN; elsewhere "
    "names are printed as they are.";

} // namespace

void CommandGrammar::AddListing()
{
    auto* const command =
        Add("ls", "[-R] [-l] [-s] [-0] [PATH...]", "list directories and files", listFooter);
    auto* const paths = AddPaths(command);
    auto* const recursive = AddFlag(*command, "-R,--recursive", "list subdirectories, too");
    auto* const isLong = AddFlag(*command, "-l,--long", "show kind, time and name");
    auto* const sizes = AddFlag(*command, "-s,--size", "show the sizes of files, found by reading");
    auto* const zero = AddFlag(*command, "-0,--print0",
                               "print names as they are, each with a zero byte behind it");
    makers[command] = [=] {
        return ListCommand{.paths = paths->count() == 0 ? std::vector<std::string>{"."}
                                                        : GetPatterns(command, paths),
                           .isRecursive = IsSet(recursive),
                           .isLong = IsSet(isLong),
                           .hasSizes = IsSet(sizes),
                           .endsWithZero = IsSet(zero)};
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

} // namespace Cli
