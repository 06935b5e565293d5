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
    auto* const command = Add("ls", "[-R] [-l] [-s] [-0] [PATH]", "list a directory", listFooter);
    auto* const path = AddPositional(command);
    auto* const recursive = AddFlag(*command, "-R,--recursive", "list subdirectories, too");
    auto* const isLong = AddFlag(*command, "-l,--long", "show kind, time and name");
    auto* const sizes = AddFlag(*command, "-s,--size", "show the sizes of files, found by reading");
    auto* const zero = AddFlag(*command, "-0,--print0",
                               "print names as they are, each with a zero byte behind it");
    makers[command] = [=] {
        return ListCommand{.path = GetText(path).value_or("."),
                           .isRecursive = IsSet(recursive),
                           .isLong = IsSet(isLong),
                           .hasSizes = IsSet(sizes),
                           .endsWithZero = IsSet(zero)};
    };
    AddForPaths<CatCommand>("cat", "REMOTE...", "write files to standard output");
    AddForPaths<ExistsCommand>("exists", "PATH...",
                               "print the kind of each path; fail if one is missing");
}

} // namespace Cli
