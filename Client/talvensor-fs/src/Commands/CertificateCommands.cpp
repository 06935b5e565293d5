#include "Commands/CertificateCommands.h"

#include "Client/Certificates.h"
#include "Connection/ConnectionSettings.h"
#include "Output/Json.h"
#include "Output/Text.h"

#include <fmt/format.h>

namespace Cli {

namespace {

std::string Format(const Client::OwnCertificate& own)
{
    return fmt::format("fingerprint     {}\n"
                       "file            {}\n"
                       "subject         {}\n"
                       "valid           {}\n"
                       "\n"
                       "If a server refuses it, trust it there with:\n"
                       "\n"
                       "    talvensor-host trust {}\n",
                       own.fingerprint, EscapeText(own.file.string()), EscapeText(own.subject),
                       own.validity, own.fingerprint);
}

ExitStatus Forget(const std::vector<std::string>& servers, OutputChoice choice, Console& console,
                  Output& output)
{
    auto status = ExitStatus::Done;
    for (const auto& server : servers) {
        const auto count = Client::ForgetServers(GetStateFolder(), server);
        if (choice.isJson)
            output.Write(ToJson(server, count, GetReader(output)) + "\n");
        if (count == 0) {
            console.Report(server + ": is not a known server");
            status = ExitStatus::Failed;
        }
    }
    output.Flush();
    return status;
}

} // namespace

ExitStatus ShowCertificate(const CertificateCommand&, OutputChoice choice,
                           const Client::Cancellation& cancellation)
{
    const auto own = Client::GetOwnCertificate(GetStateFolder());
    Output output(cancellation, nullptr);
    output.Write(choice.isJson ? ToJson(own, GetReader(output)) + "\n" : Format(own));
    output.Flush();
    return ExitStatus::Done;
}

ExitStatus ShowKnownServers(const KnownCommand& command, OutputChoice choice, Console& console,
                            const Client::Cancellation& cancellation)
{
    Output output(cancellation, nullptr);
    if (!command.forgotten.empty())
        return Forget(command.forgotten, choice, console, output);
    for (const auto& known : Client::GetKnownServers(GetStateFolder()))
        output.Write(choice.isJson
                         ? ToJson(known, GetReader(output)) + "\n"
                         : EscapeText(known.server) + "  " + EscapeText(known.fingerprint) + "\n");
    output.Flush();
    return ExitStatus::Done;
}

} // namespace Cli
