#include "Fleet/HostRun.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <type_traits>

namespace Cli {

namespace {

namespace fs = std::filesystem;

bool HasStream(const std::vector<std::string>& paths)
{
    return std::find(paths.begin(), paths.end(), standardStream) != paths.end();
}

[[noreturn]] void RefuseForMany(const std::string& what)
{
    throw Client::InvalidArgumentException("--on: " + what);
}

template <typename CommandType>
void CheckOne(const CommandType& command)
{
    if constexpr (std::is_same_v<CommandType, ShellCommand>)
        RefuseForMany("the shell is for one host");
    if constexpr (std::is_same_v<CommandType, CertificateCommand> ||
                  std::is_same_v<CommandType, KnownCommand>)
        RefuseForMany("certificate and known need no host");
    if constexpr (std::is_same_v<CommandType, WatchCommand>)
        RefuseForMany("watch is for one host");
    if constexpr (std::is_same_v<CommandType, PutCommand>)
        if (HasStream(command.sources))
            RefuseForMany("standard input (-) can be sent to one host only");
    if constexpr (std::is_same_v<CommandType, GetCommand>)
        if (command.target == standardStream)
            RefuseForMany("standard output (-) takes the file of one host only");
}

/// Makes the directory of a host below the local target. Throws OperationFailedException.
std::string MakeHostDirectory(const std::string& target, const std::string& name)
{
    if (!Client::IsSafeRelativePath(name) || name.find('/') != std::string::npos)
        throw Client::OperationFailedException("'" + name + "' cannot be the name of a directory");
    auto directory = JoinPath(target, name);
    std::error_code error;
    fs::create_directories(directory, error);
    if (error)
        throw Client::OperationFailedException(directory +
                                               ": cannot create directory: " + error.message());
    return directory;
}

/// Returns the command as one host gets it: what is fetched goes into a directory of its own.
Command ForHost(const Command& command, const std::string& name)
{
    auto own = command;
    if (auto* const get = std::get_if<GetCommand>(&own))
        get->target = MakeHostDirectory(get->target, name);
    if (auto* const sync = std::get_if<SyncCommand>(&own); sync != nullptr && !sync->isUpload)
        sync->target = MakeHostDirectory(sync->target, name);
    return own;
}

/// A command that runs on one host.
class HostRun
{
public:
    HostRun(const NamedHost& host, const SharedCommand& shared, OpenConnections& connections)
        : host(host)
        , shared(shared)
        , connections(connections)
        , console([this](const std::string& line) { AddMessage(line); })
        , trust({.fingerprint = shared.trust.fingerprint,
                 .acceptsNew = shared.trust.acceptsNew,
                 .mayAsk = false},
                console, connections.GetCancellation())
    {}

    HostResult Run()
    {
        const auto begin = std::chrono::steady_clock::now();
        result.name = host.name;
        result.isBegun = true;
        result.ending = RunToEnd([this] { return Execute(); }, trust,
                                 [this] { return connections.GetCancellation().IsCancelled(); });
        result.output = std::move(kept.text);
        result.messages = TakeMessages();
        result.time = std::chrono::steady_clock::now() - begin;
        if (!result.IsGood())
            result.reason = FindReason();
        return std::move(result);
    }

private:
    ExitStatus Execute()
    {
        const auto& cancellation = connections.GetCancellation();
        Client::Connection connection(MakeOptions(), &cancellation);
        const OpenConnections::Entry entry(connections, connection);
        Remote remote(connection);
        firstOfCommand = CountMessages();
        return RunCommand(ForHost(shared.command, host.name), {.remote = remote,
                                                               .console = console,
                                                               .choice = shared.choice,
                                                               .cancellation = cancellation,
                                                               .kept = &kept,
                                                               .totals = &result.totals});
    }

    Client::ConnectionOptions MakeOptions()
    {
        const auto settings = Combine(Combine(shared.connection, host.settings), ReadEnvironment());
        auto options = MakeConnectionOptions(settings);
        options.trustServer = [this](const Client::ServerCertificate& certificate) {
            return trust.Decide(certificate);
        };
        if (!shared.choice.isQuiet)
            options.report = [this](const std::string& text) {
                console.Report(text);
            };
        if (settings.user && !settings.passwordFile)
            throw Client::InvalidArgumentException(
                "no password file for " + *settings.user +
                ": --on takes passwords from --password-file or the profile's password-file");
        if (settings.user)
            options.login = Client::Login{.user = *settings.user,
                                          .password = ReadPasswordFile(*settings.passwordFile)};
        return options;
    }

    void AddMessage(const std::string& line) EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        messages.push_back(line);
    }

    [[nodiscard]] std::size_t CountMessages() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return messages.size();
    }

    [[nodiscard]] std::vector<std::string> TakeMessages() EXCLUDES(mutex)
    {
        const Support::Lock lock(mutex);
        return std::move(messages);
    }

    [[nodiscard]] std::string FindReason() const
    {
        if (!result.ending.reason.empty() || result.messages.size() <= firstOfCommand)
            return result.ending.reason;
        return result.messages[firstOfCommand];
    }

    const NamedHost& host;
    const SharedCommand& shared;
    OpenConnections& connections;
    HostResult result;
    Support::Mutex mutex;
    std::vector<std::string> messages GUARDED_BY(mutex); // the connection's threads report, too
    KeptOutput kept;
    std::size_t firstOfCommand = 0; // those before are of the connection
    Console console;
    Trust trust;
};

} // namespace

OpenConnections::Entry::Entry(OpenConnections& all, Client::Connection& connection)
    : all(all)
    , connection(connection)
{
    const Support::Lock lock(all.mutex);
    all.connections.push_back(&connection);
    if (all.cancellation.IsCancelled())
        connection.EndBy(all.cancellation.GetTidyDeadline());
}

OpenConnections::Entry::~Entry()
{
    connection.Close();
    const Support::Lock lock(all.mutex);
    std::erase(all.connections, &connection);
}

void OpenConnections::End()
{
    const Support::Lock lock(mutex);
    cancellation.Cancel();
    for (auto* const connection : connections)
        connection->EndBy(cancellation.GetTidyDeadline());
}

void CheckForManyHosts(const Command& command)
{
    std::visit([](const auto& one) { CheckOne(one); }, command);
}

HostResult RunOnHost(const NamedHost& host, const SharedCommand& shared,
                     OpenConnections& connections)
{
    return HostRun(host, shared, connections).Run();
}

} // namespace Cli
