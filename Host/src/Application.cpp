#include "Application.h"

#include "Configuration/CommandLine.h"
#include "Core/Embedding/LogControl.h"
#include "Log/Journal.h"
#include "Log/Log.h"
#include "Log/LogFile.h"
#include "Reload.h"
#include "Support/Memory.h"
#include "Users/PasswordPrompt.h"
#include "Users/TrustCommands.h"

#include <iostream>
#include <variant>

namespace Host {

namespace {

constexpr const char* programCategory = "Host";

std::vector<Root> MakeRoots(const Configuration& configuration)
{
    std::vector<Root> roots;
    for (const auto& path : configuration.roots)
        roots.push_back(MakeRoot(path, false));
    for (const auto& path : configuration.readOnlyRoots)
        roots.push_back(MakeRoot(path, true));
    return roots;
}

std::unique_ptr<Users> ReadUsers(const Configuration& configuration)
{
    return configuration.usersFile ? std::make_unique<Users>(*configuration.usersFile) : nullptr;
}

/// Reads keys and certificates, and makes them for serving. Checks the files again afterwards: in a
/// folder to which others can add files, they could have been faster.
Pki ReadPki(const Configuration& configuration, Preparation preparation)
{
    Pki pki(GetPkiFolder(configuration), configuration.listen.host,
            preparation == Preparation::ToServe ? Pki::WhenMissing::Make : Pki::WhenMissing::Leave);
    if (auto problems = FindProblems(configuration); !problems.empty())
        throw ConfigurationException(std::move(problems));
    return pki;
}

/// Returns the log file, null if there is none.
std::shared_ptr<LogFile> StartLog(const Configuration& configuration)
{
    using Core::Embedding::LogControl;
    LogControl::SetLevel(configuration.logLevel);
    for (const auto& [name, level] : configuration.categoryLevels)
        LogControl::SetLevel(name, level);
    std::shared_ptr<LogFile> file;
    if (configuration.logFile)
        file = std::make_shared<LogFile>(OpenLogFile(*configuration.logFile));
    if (file)
        LogControl::AddSink(file);
    else
        LogControl::AddSink(LogsToJournal() ? MakeJournalSink()
                                            : Core::Embedding::MakeConsoleLogSink());
    if (IsRoot())
        Log(Core::LogLevel::Warning, programCategory,
            "The host runs as root; a user with access to the roots is enough");
    return file;
}

/// Returns null if there is no file for audit lines alone.
std::shared_ptr<AppendedFile> PrepareAudit(const Configuration& configuration,
                                           Preparation preparation)
{
    if (configuration.auditFile && preparation == Preparation::ToServe)
        return std::make_shared<AppendedFile>(*configuration.auditFile,
                                              OpenLogFile(*configuration.auditFile));
    if (configuration.auditFile)
        CheckLogFile(*configuration.auditFile);
    return nullptr;
}

std::shared_ptr<LogFile> PrepareLog(const Configuration& configuration, Preparation preparation)
{
    if (preparation == Preparation::ToServe)
        return StartLog(configuration);
    if (configuration.logFile)
        CheckLogFile(*configuration.logFile);
    return nullptr;
}

/// A host whose environment names a manager that is not there still serves: the variables may be
/// those of the service that started a shell or a container.
ServiceNotifier ConnectToServiceManager()
{
    try {
        return ServiceNotifier::Connect();
    } catch (const std::exception& error) {
        Log(Core::LogLevel::Warning, programCategory, error.what());
        return {};
    }
}

std::unique_ptr<Core::Embedding::Runtime> LoadModules(const Configuration& configuration)
{
    auto runtime = std::make_unique<Core::Embedding::Runtime>();
    for (const auto& model : FindModels(configuration))
        runtime->LoadInformationModel(model);
    for (const auto& module : FindModules(configuration))
        runtime->LoadModule(module);
    return runtime;
}

SandboxReport Confine(const Configuration& configuration, const std::vector<Root>& roots)
{
    if (!configuration.sandbox) {
        Log(Core::LogLevel::Warning, programCategory,
            "There is no sandbox: clients may reach everything that the host's user may reach");
        std::filesystem::current_path(roots.front().real);
        return {};
    }
    try {
        auto report = EnterSandbox(roots, configuration.allowKernelFiles ? KernelFiles::Allowed
                                                                         : KernelFiles::Refused);
        Log(Core::LogLevel::Information, programCategory, "Confined by: " + report.ToString());
        return report;
    } catch (const std::exception& error) {
        throw SandboxRefusedException(std::string(error.what()) +
                                      "; with --no-sandbox, clients may reach everything that the "
                                      "host's user may reach");
    }
}

/// Runs a command of the command line.
class CommandRunner
{
public:
    CommandRunner(const ServeOperation& serve, const TryOperation& tryServing)
        : serve(serve)
        , tryServing(tryServing)
    {}

    ExitStatus operator()(const ServeCommand& command) const
    {
        const Signals signals;
        auto host = PrepareHost(command.configuration);
        return serve(host, signals);
    }

    ExitStatus operator()(const CheckCommand& command) const
    {
        auto host = PrepareHost(command.configuration, Preparation::ToCheck);
        const auto status = tryServing(host);
        if (status == ExitStatus::Stopped)
            std::cout << "The configuration is valid.\n";
        return status;
    }

    ExitStatus operator()(const PasswordCommand& command) const
    {
        CheckUserName(command.user);
        SetPassword(command.usersFile, command.user, AskForNewPassword(command.user));
        return ExitStatus::Stopped;
    }

    ExitStatus operator()(const RejectedCommand& command) const
    {
        std::cout << ListRejected(command.pkiFolder);
        return ExitStatus::Stopped;
    }

    ExitStatus operator()(const FingerprintCommand& command) const
    {
        std::cout << DescribeOwnCertificate(command.pkiFolder);
        return ExitStatus::Stopped;
    }

    ExitStatus operator()(const TrustCommand& command) const
    {
        std::cout << TrustRejected(command.pkiFolder, command.fingerprint);
        return ExitStatus::Stopped;
    }

    ExitStatus operator()(const ShowCommand& command) const
    {
        std::cout << command.text;
        return ExitStatus::Stopped;
    }

private:
    const ServeOperation& serve;
    const TryOperation& tryServing;
};

ExitStatus Fail(const std::string& text, ExitStatus status)
{
    const auto line = "talvensor-host: " + text;
    std::cerr << (LogsToJournal() ? MarkForJournal(Core::LogLevel::Error, line) : line + "\n");
    return status;
}

ExitStatus Fail(const ConfigurationException& error)
{
    for (const auto& problem : error.GetProblems())
        Fail(problem.ToString(), ExitStatus::WrongConfiguration);
    return ExitStatus::WrongConfiguration;
}

} // namespace

PreparedHost PrepareHost(Configuration configuration, Preparation preparation)
{
    IgnoreFatalSignals();
    DisableCoreFiles();
    Support::KeepFreedMemory();
    const auto descriptors = RaiseDescriptorLimit(configuration.limits.reservedDescriptors);
    auto roots = MakeRoots(configuration);
    auto outerProcess =
        preparation == Preparation::ToServe ? StartOuterProcess(configuration, roots) : nullptr;
    AskForShortSlices(); // the outer process has time
    auto addresses = ResolveListenUrl(configuration.listen);
    // NOLINTNEXTLINE(clang-analyzer-cplusplus.NewDeleteLeaks): a false alarm
    auto users = ReadUsers(configuration);
    auto pki = ReadPki(configuration, preparation);
    const auto admission = DecideAdmission(addresses, users != nullptr);
    auto logFile = PrepareLog(configuration, preparation);
    auto notifier = ConnectToServiceManager();
    auto auditFile = PrepareAudit(configuration, preparation);
    auto metrics = configuration.metrics && preparation == Preparation::ToServe
                       ? Listen(*configuration.metrics)
                       : MetricsListener();
    MemoryGauge memory;
    const auto memoryLimit = configuration.limits.memory.value_or(GetMachineMemory() / 2);
    auto runtime = LoadModules(configuration);
    runtime->SetFolders(NameRoots(roots));
    const auto sandbox = Confine(configuration, roots);
    RefuseInspection();
    RequireListening(addresses, configuration.listen.port);
    return {.configuration = std::move(configuration),
            .roots = std::move(roots),
            .addresses = std::move(addresses),
            .users = std::move(users),
            .pki = std::move(pki),
            .admission = admission,
            .metrics = std::move(metrics),
            .auditFile = std::move(auditFile),
            .descriptors = descriptors,
            .memory = std::move(memory),
            .memoryLimit = memoryLimit,
            .runtime = std::move(runtime),
            .sandbox = sandbox,
            .notifier = std::move(notifier),
            .outerProcess = std::move(outerProcess),
            .logFile = std::move(logFile)};
}

ExitStatus RunApplication(int argumentCount, const char* const* arguments,
                          const ServeOperation& serve, const TryOperation& tryServing)
{
    try {
        return std::visit(CommandRunner(serve, tryServing),
                          ParseCommandLine(argumentCount, arguments));
    } catch (const ConfigurationException& error) {
        return Fail(error);
    } catch (const OpenDoorsException& error) {
        return Fail(error.GetMessage(), ExitStatus::DoorsOpen);
    } catch (const SandboxRefusedException& error) {
        return Fail(error.GetMessage(), ExitStatus::SandboxRefused);
    } catch (const std::exception& error) {
        return Fail(error.what(), ExitStatus::Failed);
    }
}

} // namespace Host
