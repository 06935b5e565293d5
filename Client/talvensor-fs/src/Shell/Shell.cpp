#include "Shell/Shell.h"

#include "Commands/PathArguments.h"
#include "Connection/ConnectionSettings.h"
#include "Grammar/Completion.h"
#include "Grammar/Grammar.h"
#include "Output/Text.h"
#include "Output/Words.h"
#include "Shell/LineEditor.h"
#include "Shell/LocalProgram.h"
#include "TidyEnd.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string_view>
#include <system_error>
#include <utility>

namespace Cli {

namespace {

namespace fs = std::filesystem;

std::vector<Candidate> ListRemote(Remote& remote, const std::string& directory,
                                  const Client::Cancellation& cancellation)
{
    std::vector<Candidate> candidates;
    const auto path = remote.Resolve(directory.empty() ? "." : directory);
    for (const auto& entry : remote.GetFiles().List(path, false, &cancellation).entries)
        candidates.push_back({.name = entry.path, .isDirectory = entry.isDirectory});
    return candidates;
}

void ChangeLocalFolder(const std::string& path)
{
    const char* const home = std::getenv("HOME"); // NOLINT(concurrency-mt-unsafe)
    const fs::path folder = path.empty() && home != nullptr ? home : path.c_str();
    std::error_code error;
    fs::current_path(folder, error);
    if (error)
        throw Client::OperationFailedException(folder.string() + ": " + error.message());
}

/// Of a program of this machine.
ExitStatus ToExitStatus(int status)
{
    return status == 0 ? ExitStatus::Done : ExitStatus::Failed;
}

/// In the folder for this program's state, made where it is missing. Empty when there is none.
fs::path FindHistoryFile()
{
    try {
        const auto folder = GetStateFolder();
        std::error_code error;
        if (fs::create_directories(folder, error))
            fs::permissions(folder, fs::perms::owner_all, error);
        return folder / "history";
    } catch (const Client::InvalidArgumentException&) {
        return {};
    }
}

/// Lines of standard input.
class InputLines
{
public:
    /// Nothing at the end. Throws CancelledException, ClientException.
    std::optional<std::string> Read(const Client::Cancellation& cancellation)
    {
        for (;;) {
            if (const auto end = gathered.find('\n'); end != std::string::npos) {
                auto line = gathered.substr(0, end);
                gathered.erase(0, end + 1);
                return line;
            }
            std::array<unsigned char, 4096> block{};
            const auto count = ReadInput(block, cancellation);
            if (count == 0)
                break;
            gathered.append(reinterpret_cast<const char*>(block.data()), count);
        }
        if (gathered.empty())
            return std::nullopt;
        return std::exchange(gathered, {});
    }

private:
    std::string gathered;
};

/// Throws InvalidArgumentException.
std::vector<std::string> ReadLines(const std::string& file)
{
    std::ifstream stream(file, std::ios::binary);
    std::vector<std::string> lines;
    if (stream)
        for (std::string line; std::getline(stream, line);)
            lines.push_back(line);
    if (stream.bad() || !stream.eof())
        throw Client::InvalidArgumentException(file + ": " +
                                               std::generic_category().message(errno));
    return lines;
}

/// Returns the server as the prompt shows it: without the scheme and the usual port.
std::string ShortenUrl(std::string url)
{
    if (const auto scheme = url.find("://"); scheme != std::string::npos)
        url.erase(0, scheme + 3);
    url.erase(std::min(url.find('/'), url.size()));
    constexpr std::string_view usualPort = ":4840";
    if (url.ends_with(usualPort))
        url.erase(url.size() - usualPort.size());
    return url;
}

std::string_view RemoveBlanks(std::string_view line)
{
    constexpr auto* blanks = " \t\r\n";
    const auto begin = std::min(line.find_first_not_of(blanks), line.size());
    line.remove_prefix(begin);
    return line.substr(0, line.find_last_not_of(blanks) + 1);
}

} // namespace

Shell::Shell(Remote& remote, Console& console, OutputChoice choice, Interruption& interruption,
             const std::string& url)
    : remote(remote)
    , console(console)
    , choice(choice)
    , interruption(interruption)
    , server(ShortenUrl(url))
{}

ExitStatus Shell::Run(const ShellCommand& command)
{
    auto status = ExitStatus::Done;
    if (!command.lines.empty() || (command.file && command.file != standardStream)) {
        const auto lines = command.file ? ReadLines(*command.file) : command.lines;
        auto next = lines.begin();
        status = RunLines(command.file.value_or("-c"), [&]() -> std::optional<std::string> {
            return next == lines.end() ? std::nullopt : std::optional(*next++);
        });
    } else if (command.file || isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
        InputLines input;
        status =
            RunLines("standard input", [&] { return input.Read(interruption.GetCancellation()); });
    } else {
        RunOnTerminal();
    }
    return end.value_or(status);
}

void Shell::RunOnTerminal()
{
    const Completer completer(
        GetShellCommands(),
        [this](const std::string& directory) {
            return ListRemote(remote, directory, interruption.GetCancellation());
        },
        MakeLocalTree().list);
    LineEditor editor(FindHistoryFile(),
                      [&completer](std::string_view line) { return completer.Complete(line); });
    while (!end) {
        try {
            if (Output::IsInsideLine())
                Print("\n");
            const auto line = editor.Read(MakePrompt(), interruption.GetCancellation());
            if (!line) {
                Print("\n");
                break;
            }
            std::ignore = RunLine(*line);
        } catch (const Client::CancelledException&) {
            if (Interruption::GetSignal() != SIGINT)
                throw;
            interruption.Renew();
        }
    }
}

ExitStatus Shell::RunLines(const std::string& name, const LineSource& source)
{
    for (std::size_t number = 1; !end; ++number) {
        const auto line = source();
        if (!line)
            break;
        auto text = RemoveBlanks(*line);
        const bool mayFail = text.starts_with('-');
        if (mayFail)
            text.remove_prefix(1);
        const auto status = RunLine(std::string(text));
        if (status == ExitStatus::Done || mayFail)
            continue;
        console.Report(name + ":" + std::to_string(number) + ": stopped at '" + std::string(text) +
                       "'");
        return status;
    }
    return ExitStatus::Done;
}

ExitStatus Shell::RunLine(const std::string& line)
{
    try {
        const auto text = RemoveBlanks(line);
        if (text.starts_with('!'))
            return ToExitStatus(RunLocalLine(std::string(text.substr(1))));
        const auto words = SplitMarkedWords(text);
        if (words.empty() || words.front().starts_with('#'))
            return ExitStatus::Done;
        const auto parsed = ParseShellLine(words);
        return Execute(parsed.command, {.isQuiet = choice.isQuiet || parsed.choice.isQuiet,
                                        .isJson = choice.isJson || parsed.choice.isJson});
    } catch (const Client::CancelledException&) {
        console.Report("interrupted");
        throw;
    } catch (const Client::ConnectionLostException&) {
        throw;
    } catch (const BrokenPipeException&) {
        throw;
    } catch (const Client::InvalidArgumentException& error) {
        console.Report(error.what());
        return ExitStatus::Usage;
    } catch (const Client::ClientException& error) {
        console.Report(error.what());
        return ExitStatus::Failed;
    }
}

ExitStatus Shell::Execute(const Command& command, OutputChoice lineChoice)
{
    if (const auto* const folder = std::get_if<ChangeFolderCommand>(&command))
        ChangeFolder(*folder);
    else if (const auto* const localFolder = std::get_if<ChangeLocalFolderCommand>(&command))
        ChangeLocalFolder(localFolder->path);
    else if (const auto* const show = std::get_if<ShowFolderCommand>(&command))
        ShowFolder(*show);
    else if (const auto* const help = std::get_if<HelpCommand>(&command))
        Print(help->text);
    else if (const auto* const local = std::get_if<LocalProgramCommand>(&command))
        return RunLocally(*local);
    else if (const auto* const exit = std::get_if<ExitCommand>(&command))
        end = static_cast<ExitStatus>(exit->status);
    else
        return RunOnServer(command, lineChoice);
    return ExitStatus::Done;
}

ExitStatus Shell::RunLocally(const LocalProgramCommand& command)
{
    const auto program = command.arguments.begin();
    std::vector<std::string> patterns(program + 1, command.arguments.end());
    const auto workplace = MakeWorkplace(choice);
    PathArguments paths(workplace);
    paths.ExpandLocal(patterns);
    if (paths.HasFailed())
        return ExitStatus::Failed;
    patterns.insert(patterns.begin(), *program);
    return ToExitStatus(RunLocalProgram(patterns));
}

ExitStatus Shell::RunOnServer(const Command& command, OutputChoice lineChoice)
{
    // The connection is for the next commands.
    const TidyEnd tidyEnd(interruption.GetCancellation(), console, {});
    return RunCommand(command, MakeWorkplace(lineChoice));
}

Workplace Shell::MakeWorkplace(OutputChoice lineChoice) const
{
    return {.remote = remote,
            .console = console,
            .choice = lineChoice,
            .cancellation = interruption.GetCancellation(),
            .place = Place::Shell};
}

void Shell::ChangeFolder(const ChangeFolderCommand& command)
{
    if (command.path.empty()) {
        remote.SetFolder({});
        return;
    }
    auto path = fs::path(remote.Resolve(command.path)).lexically_normal().string();
    if (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    if (remote.GetFiles().GetKind(path, &interruption.GetCancellation()) != Client::Kind::Directory)
        throw Client::OperationFailedException(command.path + ": No such directory");
    remote.SetFolder(path == "." ? std::string() : path);
}

void Shell::ShowFolder(const ShowFolderCommand& command) const
{
    const auto& folder = remote.GetFolder();
    const auto remoteFolder = folder.empty() ? "." : folder;
    Print(EscapeName(command.isLocal ? fs::current_path().string() : remoteFolder) + "\n");
}

void Shell::Print(const std::string& text) const
{
    Output output(interruption.GetCancellation(), nullptr);
    output.Write(text);
    output.Flush();
}

std::string Shell::MakePrompt() const
{
    const auto& folder = remote.GetFolder();
    return EscapeText(server) + ":" + (folder.empty() ? "." : EscapeName(folder)) + "> ";
}

} // namespace Cli
