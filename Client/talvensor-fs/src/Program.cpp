#include "Program.h"

#include "Commands/CertificateCommands.h"
#include "Commands/CommandRunner.h"
#include "Connection/Trust.h"
#include "Ending.h"
#include "Fleet/Fleet.h"
#include "Grammar/Grammar.h"
#include "Interruption.h"
#include "Shell/Prompt.h"
#include "Shell/Shell.h"
#include "TidyEnd.h"

#include <array>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <variant>

namespace Cli {

namespace {

/// Characters are those of the user's locale, or of UTF-8 where it has but ASCII.
void ChooseLocale()
{
    // There is one thread yet.
    std::setlocale(LC_CTYPE, ""); // NOLINT(concurrency-mt-unsafe)
    if (MB_CUR_MAX == 1)
        std::setlocale(LC_CTYPE, "C.UTF-8"); // NOLINT(concurrency-mt-unsafe)
}

/// Closes a connection when it goes, which `EndBy` may bound meanwhile.
struct Closing
{
    Client::Connection& connection;
    ~Closing() { connection.Close(); }
};

/// One run for a server.
class ProgramRun
{
public:
    ProgramRun(const Invocation& invocation, Console& console)
        : invocation(invocation)
        , console(console)
        , trust(invocation.trust, console, interruption.GetCancellation())
    {}

    int Do()
    {
        const auto ending =
            RunToEnd([this] { return Execute(); }, trust,
                     [this] { return interruption.GetCancellation().IsCancelled(); });
        if (!ending.reason.empty())
            console.Report(ending.reason);
        return ending.isInterrupted ? 128 + Interruption::GetSignal()
                                    : static_cast<int>(ending.status);
    }

private:
    ExitStatus Execute()
    {
        const auto& cancellation = interruption.GetCancellation();
        if (const auto* const own = std::get_if<CertificateCommand>(&invocation.command))
            return ShowCertificate(*own, invocation.choice, cancellation);
        if (const auto* const known = std::get_if<KnownCommand>(&invocation.command))
            return ShowKnownServers(*known, invocation.choice, console, cancellation);
        const auto options = MakeOptions();
        if (const auto* const shell = std::get_if<ShellCommand>(&invocation.command)) {
            Client::Connection connection(options, &cancellation);
            Remote remote(connection);
            return Shell(remote, console, invocation.choice, interruption, options.url).Run(*shell);
        }
        Client::Connection connection(options, &cancellation);
        const TidyEnd tidyEnd(cancellation, console,
                              [&] { connection.EndBy(cancellation.GetTidyDeadline()); });
        const Closing closing{connection}; // while the end is watched over
        Remote remote(connection);
        return RunCommand(invocation.command, {.remote = remote,
                                               .console = console,
                                               .choice = invocation.choice,
                                               .cancellation = cancellation});
    }

    Client::ConnectionOptions MakeOptions()
    {
        const auto settings = CollectSettings();
        auto options = MakeConnectionOptions(settings);
        options.trustServer = [this](const Client::ServerCertificate& certificate) {
            return trust.Decide(certificate);
        };
        if (!invocation.choice.isQuiet)
            options.report = [this](const std::string& text) {
                console.Report(text);
            };
        if (settings.user)
            options.login =
                Client::Login{.user = *settings.user, .password = FindPassword(settings)};
        return options;
    }

    [[nodiscard]] ConnectionSettings CollectSettings() const
    {
        auto settings = invocation.connection;
        if (invocation.profile)
            settings = Combine(settings, ReadProfile(GetProfileFile(), *invocation.profile));
        return Combine(settings, ReadEnvironment());
    }

    [[nodiscard]] std::string FindPassword(const ConnectionSettings& settings) const
    {
        if (settings.passwordFile)
            return ReadPasswordFile(*settings.passwordFile);
        if (const char* const password =
                std::getenv("TALVENSOR_PASSWORD")) // NOLINT(concurrency-mt-unsafe)
            return password;
        const auto prompt = Prompt::Open();
        if (!prompt)
            throw Client::InvalidArgumentException(
                "no terminal to ask for the password of " + *settings.user +
                ": use --password-file FILE or $TALVENSOR_PASSWORD");
        const auto password = prompt->AskWithoutEcho(
            "Users are those of talvensor-host, not of its machine; 'talvensor-host passwd' there "
            "sets\ntheir passwords.\nPassword of " +
                *settings.user + " at " + *settings.endpoint + ": ",
            interruption.GetCancellation());
        if (!password)
            throw Client::InvalidArgumentException("no password was given");
        return *password;
    }

    const Invocation& invocation;
    Console& console;
    Interruption interruption;
    Trust trust;
};

std::string ReadWholeInput(const Client::Cancellation& cancellation)
{
    std::string text;
    std::array<unsigned char, 4096> block{};
    while (const auto count = ReadInput(block, cancellation))
        text.append(reinterpret_cast<const char*>(block.data()), count);
    return text;
}

/// Throws InvalidArgumentException before anything is done on a host.
int RunForMany(const Invocation& invocation, Console& console)
{
    const Interruption interruption;
    const auto& cancellation = interruption.GetCancellation();
    CheckForManyHosts(invocation.command);
    try {
        const auto hosts = FindHosts(invocation.hosts->list, GetProfileFile(),
                                     [&] { return ReadWholeInput(cancellation); });
        return RunOnManyHosts(hosts, invocation.hosts->atOnce,
                              {.command = invocation.command,
                               .choice = invocation.choice,
                               .connection = invocation.connection,
                               .trust = invocation.trust},
                              console, interruption);
    } catch (const Client::CancelledException&) {
        return 128 + Interruption::GetSignal();
    }
}

} // namespace

int RunProgram(const std::vector<std::string>& arguments)
{
    ChooseLocale();
    std::signal(SIGPIPE, SIG_IGN);
    Console console;
    try {
        const auto wanted = ParseArguments(arguments);
        if (const auto* const show = std::get_if<ShowText>(&wanted))
            return std::fputs(show->text.c_str(), stdout) >= 0 && std::fflush(stdout) == 0 ? 0 : 1;
        const auto& invocation = std::get<Invocation>(wanted);
        return invocation.hosts ? RunForMany(invocation, console)
                                : ProgramRun(invocation, console).Do();
    } catch (const Client::InvalidArgumentException& error) {
        console.Report(error.what());
        return static_cast<int>(ExitStatus::Usage);
    } catch (const std::exception& error) {
        console.Report(error.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}

} // namespace Cli
