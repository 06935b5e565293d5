#include "Shell.h"

#include "Completion.h"
#include "ConnectionSettings.h"
#include "Grammar.h"
#include "LineEditor.h"
#include "Text.h"
#include "TidyEnd.h"
#include "Words.h"

#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
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

std::vector<Candidate> ListLocal(const std::string& directory)
{
    std::vector<Candidate> candidates;
    std::error_code error;
    for (fs::directory_iterator entry(directory.empty() ? "." : directory, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code unknown;
        candidates.push_back({.name = entry->path().filename().string(),
                              .isDirectory = entry->is_directory(unknown)});
    }
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
class LineSource
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

} // namespace

Shell::Shell(Remote& remote, Console& console, OutputChoice choice, Interruption& interruption)
    : remote(remote)
    , console(console)
    , choice(choice)
    , interruption(interruption)
{}

ExitStatus Shell::Run()
{
    const bool isOnTerminal = isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1;
    return isOnTerminal ? RunOnTerminal() : RunLines();
}

ExitStatus Shell::RunOnTerminal()
{
    const Completer completer(
        GetShellCommands(),
        [this](const std::string& directory) {
            return ListRemote(remote, directory, interruption.GetCancellation());
        },
        ListLocal);
    LineEditor editor(FindHistoryFile(),
                      [&completer](std::string_view line) { return completer.Complete(line); });
    while (!isEnding) {
        try {
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
    return ExitStatus::Done;
}

ExitStatus Shell::RunLines()
{
    auto status = ExitStatus::Done;
    LineSource source;
    while (!isEnding) {
        const auto line = source.Read(interruption.GetCancellation());
        if (!line)
            break;
        const auto one = RunLine(*line);
        status = status == ExitStatus::Done ? one : status;
    }
    return status;
}

ExitStatus Shell::RunLine(const std::string& line)
{
    try {
        const auto words = SplitWords(line);
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
    else if (const auto* const local = std::get_if<ChangeLocalFolderCommand>(&command))
        ChangeLocalFolder(local->path);
    else if (const auto* const show = std::get_if<ShowFolderCommand>(&command))
        ShowFolder(*show);
    else if (const auto* const help = std::get_if<HelpCommand>(&command))
        Print(help->text);
    else if (std::holds_alternative<ExitCommand>(command))
        isEnding = true;
    else
        return RunOnServer(command, lineChoice);
    return ExitStatus::Done;
}

ExitStatus Shell::RunOnServer(const Command& command, OutputChoice lineChoice)
{
    const auto& cancellation = interruption.GetCancellation();
    const TidyEnd tidyEnd(cancellation, console, {}); // the connection is for the next commands
    return RunCommand(
        command,
        {.remote = remote, .console = console, .choice = lineChoice, .cancellation = cancellation});
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
    return folder.empty() ? "talvensor-fs> " : "talvensor-fs:" + EscapeName(folder) + "> ";
}

} // namespace Cli
