#include "Reload.h"

#include "Log/Log.h"
#include "Log/LogFile.h"
#include "Process/PathTrust.h"
#include "Users/RejectedCertificates.h"

#include <exception>
#include <memory>
#include <stdexcept>
#include <utility>

namespace Host {

namespace {

constexpr const char* reloadCategory = "Host";

// The tasks of the outer process.
constexpr const char* usersTask = "users";
constexpr const char* trustTask = "trust";
constexpr const char* logTask = "log";
constexpr const char* auditTask = "audit";
constexpr const char* rejectedTask = "rejected"; // with a certificate and an address

std::string Count(std::size_t number, const std::string& thing)
{
    return std::to_string(number) + " " + thing + (number == 1 ? "" : "s");
}

/// Appends the number of files, and their names and contents.
void Append(std::vector<std::string>& texts, const std::vector<TrustFile>& files)
{
    texts.push_back(std::to_string(files.size()));
    for (const auto& file : files) {
        texts.push_back(file.path.string());
        texts.emplace_back(file.content.begin(), file.content.end());
    }
}

/// Takes what `Append` has appended.
std::vector<TrustFile> Take(std::vector<std::string>::const_iterator& text)
{
    std::vector<TrustFile> files(std::stoul(*text++));
    for (auto& file : files) {
        file.path = *text++;
        file.content.assign(text->begin(), text->end());
        ++text;
    }
    return files;
}

OuterResult ReadUsersOutside(const Configuration& configuration, const std::vector<Root>& roots)
{
    const auto& file = *configuration.usersFile;
    PathTrust(roots, configuration.trustedOwner).Check(file, FileUse::ReadSecret);
    return {.texts = {Users::Read(file)}, .descriptor = {}};
}

OuterResult ReadTrustOutside(const Configuration& configuration, const std::vector<Root>& roots)
{
    const auto folder = GetPkiFolder(configuration);
    const PathTrust trust(roots, configuration.trustedOwner);
    for (const auto& file : FindPkiFiles(folder))
        trust.Check(file, FileUse::ReadSecret);
    const auto read = Pki::ReadTrust(folder);
    OuterResult result;
    for (const auto* const files : {&read.trusted, &read.issuers, &read.revoked})
        Append(result.texts, *files);
    return result;
}

/// The arguments come from the host, which a client may have taken over: what is kept, and how
/// much, is decided here.
OuterResult KeepOutside(const Configuration& configuration, const std::vector<Root>& roots,
                        const OuterProcess::Arguments& arguments)
{
    const auto folder = GetRejectedFolder(GetPkiFolder(configuration));
    PathTrust(roots, configuration.trustedOwner).Check(folder, FileUse::ReadSecret);
    const auto& certificate = arguments.at(0);
    RejectedCertificates(folder).Add(
        {reinterpret_cast<const unsigned char*>(certificate.data()), certificate.size()},
        arguments.at(1));
    return {};
}

OuterResult OpenOutside(const std::filesystem::path& file, const Configuration& configuration,
                        const std::vector<Root>& roots)
{
    PathTrust(roots, configuration.trustedOwner).Check(file, FileUse::Append);
    return {.texts = {}, .descriptor = OpenLogFile(file)};
}

OuterResult OpenLogOutside(const Configuration& configuration, const std::vector<Root>& roots)
{
    return OpenOutside(*configuration.logFile, configuration, roots);
}

OuterResult OpenAuditOutside(const Configuration& configuration, const std::vector<Root>& roots)
{
    return OpenOutside(*configuration.auditFile, configuration, roots);
}

} // namespace

std::unique_ptr<OuterProcess> StartOuterProcess(const Configuration& configuration,
                                                const std::vector<Root>& roots)
{
    OuterProcess::Tasks tasks;
    const auto add = [&](const char* name, auto* task) {
        tasks[name] = [configuration, roots, task](const OuterProcess::Arguments&) {
            return task(configuration, roots);
        };
    };
    if (configuration.usersFile)
        add(usersTask, ReadUsersOutside);
    add(trustTask, ReadTrustOutside);
    if (configuration.logFile)
        add(logTask, OpenLogOutside);
    if (configuration.auditFile)
        add(auditTask, OpenAuditOutside);
    tasks[rejectedTask] = [configuration, roots](const OuterProcess::Arguments& arguments) {
        return KeepOutside(configuration, roots, arguments);
    };
    return std::make_unique<OuterProcess>(tasks, configuration.sandbox
                                                     ? OuterProcess::Filter::SystemCalls
                                                     : OuterProcess::Filter::None);
}

void KeepCertificate(PreparedHost& host, const RefusedClient& client, int interruption)
{
    try {
        host.outerProcess->Run(
            rejectedTask, interruption,
            {{client.certificate.begin(), client.certificate.end()}, client.address});
    } catch (const std::exception& error) {
        Log(Core::LogLevel::Error, reloadCategory,
            std::string("Cannot keep the certificate of a refused client: ") + error.what());
    }
}

Reload::Reload(PreparedHost& host, Endpoint& endpoint, ReplaceUsers replaceUsers)
    : host(host)
    , endpoint(endpoint)
    , replaceUsers(std::move(replaceUsers))
{}

void Reload::Run(int interruption)
{
    const auto attempt = [this, interruption](auto step, const std::string& failure) {
        try {
            (this->*step)(interruption);
        } catch (const std::exception& error) {
            Log(Core::LogLevel::Error, reloadCategory, failure + ": " + error.what());
        }
    };
    // The log first: the new file gets the lines about the others.
    if (host.logFile)
        attempt(&Reload::OpenLog, "Cannot open the log file again, the old one stays in use");
    if (host.auditFile)
        attempt(&Reload::OpenAudit, "Cannot open the audit log again, the old one stays in use");
    if (host.configuration.usersFile)
        attempt(&Reload::ReadUsers, "Cannot read the users again, the old ones stay in force");
    attempt(&Reload::ReadTrust,
            "Cannot read the trusted certificates again, the old ones stay in force");
}

void Reload::OpenLog(int interruption)
{
    host.logFile->Replace(host.outerProcess->Run(logTask, interruption).descriptor);
    Log(Core::LogLevel::Notice, reloadCategory, "Opened the log file again");
}

void Reload::OpenAudit(int interruption)
{
    host.auditFile->Replace(host.outerProcess->Run(auditTask, interruption).descriptor);
    Log(Core::LogLevel::Notice, reloadCategory, "Opened the audit log again");
}

void Reload::ReadUsers(int interruption)
{
    const auto result = host.outerProcess->Run(usersTask, interruption);
    const auto users =
        std::make_shared<const Users>(result.texts.at(0), *host.configuration.usersFile);
    endpoint.Post([this, users] { replaceUsers(*users); });
    endpoint.CloseSessionsUnless(
        [users](const std::string& user) { return users->Contains(user); });
    if (users->GetSize() == 0)
        Log(Core::LogLevel::Warning, reloadCategory,
            "Read no users again: '" + host.configuration.usersFile->string() +
                "' has none, so nobody can log in");
    else
        Log(Core::LogLevel::Notice, reloadCategory,
            "Read " + Count(users->GetSize(), "user") + " again");
}

void Reload::ReadTrust(int interruption)
{
    const auto result = host.outerProcess->Run(trustTask, interruption);
    auto text = result.texts.begin();
    Trust trust;
    for (auto* const files : {&trust.trusted, &trust.issuers, &trust.revoked})
        *files = Take(text);
    endpoint.SetTrust(trust);
    Log(Core::LogLevel::Notice, reloadCategory,
        "Read " + Count(trust.trusted.size(), "trusted certificate") + ", " +
            std::to_string(trust.issuers.size()) + " of issuers and " +
            Count(trust.revoked.size(), "revocation list") + " again");
}

} // namespace Host
