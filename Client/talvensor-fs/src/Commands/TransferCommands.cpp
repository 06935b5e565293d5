#include "Commands/ServerCommands.h"

#include "Client/FileObjects.h"
#include "Output/Json.h"
#include "Output/Progress.h"
#include "Output/Text.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <functional>
#include <system_error>

namespace Cli {

namespace {

namespace fs = std::filesystem;

enum class Direction
{
    Up,
    Down,
};

/// Shows how transfers go on, where somebody wants to see it.
class TransferView
{
public:
    /// In a pipe it is shown only when that is asked for.
    TransferView(const TransferCommand& command, const Workplace& workplace, bool isFree = true)
    {
        const bool isShown = command.showsProgress || (isFree && workplace.console.CanDraw());
        if (isShown && !workplace.choice.isQuiet && workplace.totals == nullptr)
            display.emplace(workplace.console);
    }

    [[nodiscard]] Client::ProgressCallback GetCallback()
    {
        if (!display)
            return {};
        return [this](const Client::Progress& progress) {
            display->Update(progress);
        };
    }

private:
    std::optional<ProgressDisplay> display;
};

Client::TransferOptions MakeOptions(const TransferCommand& command, const Workplace& workplace,
                                    TransferView& view)
{
    Client::TransferOptions options;
    options.isRecursive = command.isRecursive;
    options.jobs = command.jobs;
    options.resumes = command.resumes;
    options.verifies = command.verifies;
    options.followsLinks = command.followsLinks;
    options.bytesPerSecond = command.bytesPerSecond;
    options.progress = view.GetCallback();
    options.cancellation = &workplace.cancellation;
    return options;
}

Client::TransferOptions MakePutOptions(const PutCommand& command, const Workplace& workplace,
                                       TransferView& view)
{
    auto options = MakeOptions(command, workplace, view);
    options.isInPlace = command.isInPlace;
    options.replaces = command.replaces;
    return options;
}

std::string FormatTotals(const Client::TransferResult& result)
{
    const auto seconds = std::chrono::duration<double>(result.duration).count();
    auto text = Count(result.files, "file", "files");
    if (result.directories > 0)
        text += ", " + Count(result.directories, "directory", "directories");
    text += fmt::format(", {} in {:.1f} s", FormatBytes(result.bytes), seconds);
    if (result.bytes > 0 && seconds > 0)
        text += fmt::format(" ({}/s)", FormatBytes(static_cast<std::uint64_t>(
                                           static_cast<double>(result.bytes) / seconds)));
    if (result.skippedFiles > 0)
        text += fmt::format("; {} complete already",
                            Count(result.skippedFiles, "file was", "files were"));
    if (result.resumedBytes > 0)
        text += fmt::format("; {} were there already", FormatBytes(result.resumedBytes));
    if (!result.failures.empty())
        text += "; " + Count(result.failures.size(), "failure", "failures");
    return text;
}

/// Says what came of it. Throws CancelledException, ConnectionLostException when that is what
/// ended it.
ExitStatus Conclude(const Client::TransferResult& result, Direction direction,
                    const Workplace& workplace)
{
    ReportNotes(workplace.console, result.notes);
    ReportFailures(workplace.console, result.failures);
    for (const auto& path : result.unfinished)
        ReportUnfinished(workplace.console, path,
                         direction == Direction::Up ? Client::Side::Remote : Client::Side::Local,
                         direction == Direction::Up ? "put --continue" : "get --continue");
    if (workplace.totals != nullptr) {
        workplace.totals->files += result.files - result.skippedFiles;
        workplace.totals->bytes += result.bytes;
    } else if (!workplace.choice.isQuiet && !workplace.choice.isJson)
        workplace.console.Say(FormatTotals(result));
    if (result.isCancelled)
        throw Client::CancelledException();
    if (result.isConnectionLost)
        throw Client::ConnectionLostException("the connection was lost and could not be restored");
    return result.IsComplete() ? ExitStatus::Done : ExitStatus::Failed;
}

/// The same, for a transfer whose standard output is free.
ExitStatus ConcludeWithJson(const Client::TransferResult& result, Direction direction,
                            const Workplace& workplace)
{
    if (workplace.choice.isJson) {
        // A new cancellation: the result is wanted after an interruption, too.
        const Client::Cancellation none;
        Output output(none, workplace.kept);
        const auto reader = output.IsTerminal() ? JsonReader::Terminal : JsonReader::Program;
        output.Write(ToJson(result, reader) + "\n");
        output.Flush();
    }
    return Conclude(result, direction, workplace);
}

/// Returns the target of a source: below a target that is a directory, otherwise the target.
class Targets
{
public:
    using Join = std::function<std::string(const std::string&, const std::string&)>;

    Targets(std::string target, bool isDirectory)
        : target(std::move(target))
        , isDirectory(isDirectory)
    {}

    /// Throws OperationFailedException when the sources do not fit the target.
    void Check(const TransferCommand& command, const std::string& shown) const
    {
        if (!isDirectory && command.sources.size() > 1)
            throw Client::OperationFailedException(shown +
                                                   ": Not a directory: several sources need one");
        if (!isDirectory && !command.isRecursive && shown.ends_with('/'))
            throw Client::OperationFailedException(shown + ": No such directory");
    }

    [[nodiscard]] std::string Get(const std::string& source) const
    {
        const auto name = GetBaseName(source);
        if (isDirectory && !name.empty())
            return JoinPath(target, name);
        const auto end = target.find_last_not_of('/');
        return end == std::string::npos ? target : target.substr(0, end + 1);
    }

private:
    const std::string target;
    const bool isDirectory;
};

bool HasStandardStream(const TransferCommand& command)
{
    const auto& sources = command.sources;
    return command.target == standardStream ||
           std::find(sources.begin(), sources.end(), standardStream) != sources.end();
}

/// Throws InvalidArgumentException.
void CheckStandardStream(const TransferCommand& command)
{
    if (command.sources.size() > 1)
        throw Client::InvalidArgumentException("- takes one source and one target");
    if (command.resumes || command.verifies || command.isRecursive)
        throw Client::InvalidArgumentException(
            "- is a stream: it cannot be combined with -r, --continue or --verify");
}

ExitStatus PutInput(const PutCommand& command, const Workplace& workplace)
{
    CheckStandardStream(command);
    if (command.target == standardStream)
        throw Client::InvalidArgumentException("the target of put is a remote path, not -");
    const auto remote = workplace.remote.Resolve(command.target);
    if (workplace.remote.GetFiles().GetKind(remote, &workplace.cancellation) ==
        Client::Kind::Directory)
        throw Client::OperationFailedException(command.target +
                                               ": is a directory: - needs the name of a file");
    const auto read = [&workplace](std::span<unsigned char> buffer) {
        return ReadInput(buffer, workplace.cancellation);
    };
    Client::TransferResult result;
    try {
        TransferView view(command, workplace, isatty(STDIN_FILENO) == 0);
        result = workplace.remote.GetFiles().UploadFrom(read, remote,
                                                        MakePutOptions(command, workplace, view));
    } catch (const Client::ClientException&) {
        const Client::FileObjects objects(workplace.remote.GetConnection());
        if (command.isInPlace || !objects.AreOffered())
            workplace.console.Report(remote +
                                     " (remote): unfinished: it may hold a part of the file");
        throw;
    }
    return ConcludeWithJson(result, Direction::Up, workplace);
}

/// One file to standard output. Throws what writing throws.
Client::TransferResult WriteOut(const std::string& remote, const Workplace& workplace,
                                const Client::TransferOptions& options)
{
    Output output(workplace);
    const auto write = [&output](std::span<const unsigned char> bytes) {
        output.Write(bytes);
    };
    auto result = workplace.remote.GetFiles().DownloadTo(remote, write, options);
    output.Flush();
    return result;
}

/// Of what goes to standard output nothing is kept, so nothing is left unfinished.
Client::TransferResult WithoutUnfinished(Client::TransferResult result)
{
    result.unfinished.clear();
    return result;
}

ExitStatus GetToOutput(const GetCommand& command, const Workplace& workplace)
{
    CheckStandardStream(command);
    if (command.sources.front() == standardStream)
        throw Client::InvalidArgumentException("get takes remote paths, not -");
    if (workplace.choice.isJson)
        throw Client::InvalidArgumentException(
            "--json cannot be combined with a transfer to standard output");
    const auto remote = workplace.remote.Resolve(command.sources.front());
    Client::TransferResult result;
    {
        TransferView view(command, workplace, isatty(STDOUT_FILENO) == 0);
        result = WriteOut(remote, workplace, MakeOptions(command, workplace, view));
    }
    return Conclude(WithoutUnfinished(std::move(result)), Direction::Down, workplace);
}

/// Throws OperationFailedException where the local side cannot say.
bool IsLocalDirectory(const std::string& path)
{
    std::error_code error;
    const auto kind = fs::status(path, error).type();
    if (kind == fs::file_type::none)
        throw Client::OperationFailedException(path + ": " + error.message());
    return kind == fs::file_type::directory;
}

} // namespace

void ReportUnfinished(Console& console, const std::string& path, Client::Side side,
                      const std::string& command)
{
    const auto place = side == Client::Side::Remote
                           ? " (remote): unfinished: it holds a part of the file; "
                           : " (local): unfinished: the part that arrived is kept as " +
                                 Client::GetPartName(path) + "; ";
    console.Report(path + place + command + " carries on");
}

ExitStatus Run(const PutCommand& command, const Workplace& workplace)
{
    if (HasStandardStream(command))
        return PutInput(command, workplace);
    auto& files = workplace.remote.GetFiles();
    const auto target = workplace.remote.Resolve(command.target);
    const auto kind = files.GetKind(target, &workplace.cancellation);
    const Targets targets(target, kind == Client::Kind::Directory);
    targets.Check(command, command.target);
    std::vector<Client::TransferItem> items;
    for (const auto& source : command.sources)
        items.push_back({.local = source, .remote = targets.Get(source)});
    Client::TransferResult result;
    {
        TransferView view(command, workplace);
        result = files.Upload(items, MakePutOptions(command, workplace, view));
    }
    return ConcludeWithJson(result, Direction::Up, workplace);
}

ExitStatus Run(const GetCommand& command, const Workplace& workplace)
{
    if (HasStandardStream(command))
        return GetToOutput(command, workplace);
    const Targets targets(command.target, IsLocalDirectory(command.target));
    targets.Check(command, command.target);
    std::vector<Client::TransferItem> items;
    for (const auto& source : command.sources)
        items.push_back({.local = targets.Get(source), .remote = workplace.remote.Resolve(source)});
    Client::TransferResult result;
    {
        TransferView view(command, workplace);
        result = workplace.remote.GetFiles().Download(items, MakeOptions(command, workplace, view));
    }
    return ConcludeWithJson(result, Direction::Down, workplace);
}

ExitStatus Run(const CatCommand& command, const Workplace& workplace)
{
    auto status = ExitStatus::Done;
    Client::TransferOptions options;
    options.cancellation = &workplace.cancellation;
    auto quiet = workplace;
    quiet.choice = {.isQuiet = true, .isJson = false};
    for (const auto& path : command.paths) {
        auto result =
            WithoutUnfinished(WriteOut(workplace.remote.Resolve(path), workplace, options));
        if (Conclude(result, Direction::Down, quiet) != ExitStatus::Done)
            status = ExitStatus::Failed;
    }
    return status;
}

} // namespace Cli
