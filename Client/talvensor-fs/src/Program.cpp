#include "Program.h"

#include "CommandRunner.h"
#include "Grammar.h"
#include "Interruption.h"
#include "Prompt.h"
#include "Shell.h"
#include "TidyEnd.h"
#include "Trust.h"

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
        try {
            return static_cast<int>(Execute());
        } catch (const Client::CancelledException&) {
            return ReportInterruption();
        } catch (const BrokenPipeException&) {
            return static_cast<int>(ExitStatus::BrokenPipe);
        } catch (const Client::RefusedException& error) {
            return Fail(GetReason(error), ExitStatus::Refused);
        } catch (const Client::NoConnectionException& error) {
            return Fail(error.what(), ExitStatus::NoConnection);
        } catch (const Client::ConnectionLostException& error) {
            if (interruption.GetCancellation().IsCancelled()) // which ends the connection
                return ReportInterruption();
            return Fail(error.what(), ExitStatus::NoConnection);
        } catch (const Client::InvalidArgumentException& error) {
            return Fail(error.what(), ExitStatus::Usage);
        } catch (const std::exception& error) {
            return Fail(error.what(), ExitStatus::Failed);
        }
    }

private:
    ExitStatus Execute()
    {
        const auto& cancellation = interruption.GetCancellation();
        const auto options = MakeOptions();
        if (std::holds_alternative<ShellCommand>(invocation.command)) {
            Client::Connection connection(options, &cancellation);
            Remote remote(connection);
            return Shell(remote, console, invocation.choice, interruption).Run();
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
        if (!settings.endpoint)
            throw Client::InvalidArgumentException(
                "no server given: use -e, a profile or $TALVENSOR_ENDPOINT");
        Client::ConnectionOptions options;
        options.url = *settings.endpoint;
        // A password is not to be sent in the open because somebody took the encryption away.
        options.security = settings.security.value_or(settings.user ? Client::Security::Encrypted
                                                                    : Client::Security::Automatic);
        if (settings.timeout)
            options.answerTime = *settings.timeout;
        options.stateFolder = GetStateFolder();
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
        const auto password = prompt->AskWithoutEcho("Password of " + *settings.user + " at " +
                                                         *settings.endpoint + ": ",
                                                     interruption.GetCancellation());
        if (!password)
            throw Client::InvalidArgumentException("no password was given");
        return *password;
    }

    /// The library knows that the server was not trusted; why, is known here.
    [[nodiscard]] std::string GetReason(const Client::RefusedException& error) const
    {
        return trust.GetReason().empty() ? error.what() : trust.GetReason();
    }

    int ReportInterruption()
    {
        console.Report("interrupted");
        return 128 + Interruption::GetSignal();
    }

    int Fail(const std::string& text, ExitStatus status)
    {
        console.Report(text);
        return static_cast<int>(status);
    }

    const Invocation& invocation;
    Console& console;
    Interruption interruption;
    Trust trust;
};

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
        return ProgramRun(std::get<Invocation>(wanted), console).Do();
    } catch (const Client::InvalidArgumentException& error) {
        console.Report(error.what());
        return static_cast<int>(ExitStatus::Usage);
    } catch (const std::exception& error) {
        console.Report(error.what());
        return static_cast<int>(ExitStatus::Failed);
    }
}

} // namespace Cli
