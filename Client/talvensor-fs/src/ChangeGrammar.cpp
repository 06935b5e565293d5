#include "CommandGrammar.h"
#include "Times.h"

#include <sstream>
#include <utility>

namespace Cli {

namespace {

constexpr const char* chmodFooter =
    "MODE is +x (everyone may execute), readonly (everyone may read, nobody may write), or both: "
    "+x,readonly. The server can set nothing else, and cannot take it back. The file must be "
    "writable.";

constexpr const char* touchFooter =
    "TIME is YYYY-MM-DD HH:MM:SS in local time, with Z or +HH:MM behind it in that zone, or "
    "@SECONDS since 1970. touch creates no file.";

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
            throw Client::InvalidArgumentException("'" + text +
                                                   "' is not a mode: +x, readonly, or both");
    }
    return permissions;
}

} // namespace

void CommandGrammar::AddChanges()
{
    auto* const remove = Add("rm", "[-r] [-f] PATH...", "delete files");
    auto* const removed = AddPaths(remove);
    auto* const recursive =
        AddFlag(*remove, "-r,--recursive", "delete directories with their contents");
    auto* const force = AddFlag(*remove, "-f,--force", "do not fail if a path is missing");
    makers[remove] = [=] {
        return RemoveCommand{.paths = GetPaths(remove, removed),
                             .isRecursive = IsSet(recursive),
                             .mayBeMissing = IsSet(force)};
    };
    AddForPaths<MakeDirectoryCommand>("mkdir", "PATH...",
                                      "create directories, and those above them");
    auto* const touch =
        Add("touch", "[-d TIME] PATH...", "set the time of files and directories", touchFooter);
    auto* const touched = AddPaths(touch);
    auto* const time =
        touch->add_option("-d,--date")->description("set this time (now)")->type_name("TIME");
    makers[touch] = [=] {
        TouchCommand made{.paths = GetPaths(touch, touched), .time = std::nullopt};
        if (const auto text = GetText(time))
            made.time = ParseTime(*text);
        return made;
    };
    AddPermissions();
}

void CommandGrammar::AddPermissions()
{
    auto* const command = Add("chmod", "MODE PATH...", "set permissions", chmodFooter);
    auto* const words = AddPaths(command);
    makers[command] = [words] {
        auto texts = GetTexts(words);
        if (texts.size() < 2)
            throw Client::InvalidArgumentException("chmod needs a mode and paths");
        const auto permissions = ParsePermissions(texts.front());
        texts.erase(texts.begin());
        return PermissionsCommand{.paths = std::move(texts), .permissions = permissions};
    };
}

} // namespace Cli
