#include "Commands/ServerCommands.h"

#include "Client/Watch.h"
#include "Connection/Folders.h"
#include "Output/Json.h"
#include "Output/Text.h"
#include "Output/Times.h"

#include <fmt/format.h>

#include <chrono>

namespace Cli {

namespace {

std::string MakeInfoLine(const char* name, const std::string& value)
{
    // A server's words about itself are not trusted more than the names of its files.
    return fmt::format("{:16}{}\n", name, value.empty() ? "-" : EscapeText(value));
}

std::string Join(const std::vector<std::string>& texts)
{
    std::string joined;
    for (const auto& text : texts)
        joined += (joined.empty() ? "" : ", ") + text;
    return joined;
}

std::string FormatLimit(std::uint32_t limit, const char* unit)
{
    return limit == 0 ? "not announced" : fmt::format("{} {}", limit, unit);
}

std::string FormatFolder(const Folder& folder)
{
    auto text = folder.path;
    if (folder.isReadOnly)
        text += ", read-only";
    if (folder.space)
        text += ", " + FormatBytes(folder.space->free) + " of " + FormatBytes(folder.space->total) +
                " free";
    return text;
}

std::string FormatFolders(const std::vector<Folder>& folders)
{
    std::string text;
    for (const auto& folder : folders)
        text += MakeInfoLine(text.empty() ? "folders" : "", FormatFolder(folder));
    return text;
}

std::string FormatInfo(const Client::ServerInfo& info)
{
    const auto timeout = std::chrono::duration<double>(info.sessionTimeout).count();
    return MakeInfoLine("endpoint", info.url) +
           MakeInfoLine("server", info.applicationName + " (" + info.applicationUri + ")") +
           MakeInfoLine("product", info.productName + " " + info.softwareVersion) +
           MakeInfoLine("security", info.securityMode == "None"
                                        ? "none: neither signed nor encrypted"
                                        : info.securityPolicy + ", " + info.securityMode) +
           MakeInfoLine("fingerprint", info.fingerprint) +
           MakeInfoLine("user", info.user.empty() ? "anonymous" : info.user) +
           MakeInfoLine("session",
                        fmt::format("{}, idle time-out: {:g} s", info.sessionId, timeout)) +
           MakeInfoLine("byte strings", FormatLimit(info.maximumByteString, "bytes at most")) +
           MakeInfoLine("arrays", FormatLimit(info.maximumArray, "elements at most")) +
           MakeInfoLine("calls", FormatLimit(info.maximumCalls, "in one request at most")) +
           MakeInfoLine("shared nodes", Join(info.sharedNodes)) +
           MakeInfoLine("modules", Join(info.modules));
}

/// The one that is named, otherwise the first.
std::string ChooseNode(const WatchCommand& command, const Workplace& workplace)
{
    if (!command.node.empty())
        return command.node;
    const auto nodes = workplace.remote.GetConnection().GetInfo().sharedNodes;
    if (nodes.empty())
        throw Client::OperationFailedException("the server has no shared nodes to watch");
    return nodes.front();
}

std::string Describe(const Client::Event& event)
{
    switch (event.kind) {
    case Client::EventKind::Acknowledgement:
        return fmt::format("  handle {}: {}", event.handle, Client::DescribeResult(event.result));
    case Client::EventKind::ExistsResult:
        return event.exists ? "  it exists" : "  it does not exist";
    case Client::EventKind::ListResult:
        return "  " + Count(event.entries.size(), "entry", "entries") +
               (event.isLimitExceeded ? ", and more that were left out" : "");
    case Client::EventKind::Overflow:
        return "  events were lost here: this client was too slow";
    case Client::EventKind::DeleteResult:
    case Client::EventKind::CreateDirectoryResult:
        break;
    }
    return {};
}

std::string FormatText(const Client::Event& event)
{
    const auto seconds = std::chrono::floor<std::chrono::seconds>(event.time);
    const auto rest = std::chrono::floor<std::chrono::milliseconds>(event.time - seconds);
    return fmt::format("{}.{:03}  {}{}", FormatLocalTime(seconds), rest.count(),
                       Client::GetName(event.kind), Describe(event));
}

} // namespace

ExitStatus Run(const InfoCommand&, const Workplace& workplace)
{
    const auto info = workplace.remote.GetConnection().GetInfo();
    Output output(workplace);
    const auto folders = FindFolders(workplace);
    output.Write(workplace.choice.isJson ? ToJson(info, folders, GetReader(output)) + "\n"
                                         : FormatInfo(info) + FormatFolders(folders));
    output.Flush();
    return ExitStatus::Done;
}

ExitStatus Run(const WatchCommand& command, const Workplace& workplace)
{
    const auto node = ChooseNode(command, workplace);
    Client::Watch watch(workplace.remote.GetConnection(), node);
    if (!workplace.choice.isQuiet)
        workplace.console.Report("watching " + node +
                                 "; calls of other nodes, such as those of talvensor-fs, are not "
                                 "shown");
    Output output(workplace);
    for (std::size_t seen = 0; command.count == 0 || seen < command.count; ++seen) {
        const auto event = watch.Next(&workplace.cancellation);
        output.Write(
            (workplace.choice.isJson ? ToJson(event, GetReader(output)) : FormatText(event)) +
            "\n");
        output.Flush();
    }
    return ExitStatus::Done;
}

} // namespace Cli
