#include "Serve.h"

#include "Audit/AuditLog.h"
#include "Endpoint/Endpoint.h"
#include "Endpoint/WorkerThread.h"
#include "Log/Log.h"
#include "Metrics/EndpointMetrics.h"
#include "Metrics/MetricsServer.h"
#include "OpcUa/Certificates.h"
#include "Process/Console.h"
#include "Process/StartThread.h"
#include "Process/SystemCallFilter.h"
#include "Reload.h"
#include "Users/LoginThrottle.h"
#include "Users/Logins.h"
#include "Version.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <future>
#include <iostream>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace Host {
namespace {

/// Decides about logins.
class Doorkeeper
{
public:
    /// Null: anybody may log in.
    explicit Doorkeeper(const Users* users)
    {
        if (users != nullptr)
            logins.emplace(*users, throttle);
    }

    LoginAnswer Decide(const LoginAttempt& attempt)
    {
        if (!attempt.credentials)
            return {}; // the endpoint has checked that anybody may log in
        if (!logins)
            return {.status = UA_STATUSCODE_BADIDENTITYTOKENREJECTED};
        const auto& [user, password] = *attempt.credentials;
        const auto result = attempt.isReturn ? logins->TryReturn(user, password, attempt.address)
                                             : logins->TryLogin(user, password, attempt.address);
        const bool isAccepted = result == LoginResult::Accepted;
        return {.status = isAccepted ? UA_STATUSCODE_GOOD : UA_STATUSCODE_BADUSERACCESSDENIED,
                .pause = std::chrono::ceil<std::chrono::milliseconds>(logins->GetPause())};
    }

    /// REQUIRES: there were users before.
    void Replace(Users users) { logins->Replace(std::move(users)); }

    /// Any thread.
    [[nodiscard]] std::uint64_t GetRefusedCount() const noexcept
    {
        return logins ? logins->GetRefusedCount() : 0;
    }

private:
    LoginThrottle throttle;
    std::optional<Logins> logins; // uses the throttle
};

EndpointSettings MakeSettings(const PreparedHost& host)
{
    const Configuration& configuration = host.configuration;
    EndpointSettings settings;
    for (const auto& address : host.addresses)
        settings.addresses.push_back(address.text);
    settings.port = configuration.listen.port;
    settings.applicationUri = host.pki.GetApplicationUri();
    settings.version = GetVersion();
    settings.certificate = host.pki.GetCertificate();
    settings.key = host.pki.GetKey();
    settings.allowsUnencrypted = host.admission.allowsUnencrypted;
    // If unencrypted connections are allowed, refusing certificates keeps nobody out.
    settings.trustsAnyClient = configuration.trustAnyClient || host.admission.allowsUnencrypted;
    settings.trust = host.pki.GetTrust();
    settings.sessions.anonymousAllowed = host.admission.allowsAnonymous;
    settings.sessions.usersAllowed = host.users != nullptr;
    settings.sessions.maximum = configuration.limits.sessions;
    settings.sessions.grace = configuration.grace;
    if (configuration.sharedNodes)
        settings.sharedNodes = configuration.nodes;
    settings.drain = configuration.drain;
    settings.maximumMessage = configuration.limits.messageSize;
    settings.maximumChunks = configuration.limits.messageChunks;
    settings.maximumSessions = configuration.limits.sessions;
    settings.subscriptionsPerSession = configuration.limits.subscriptionsPerSession;
    settings.ownObjectsPerSession = configuration.limits.fileSystemsPerSession;
    settings.waitingEvents = configuration.limits.queuedEventsPerSession;
    settings.queuedOutput = configuration.limits.queuedOutput;
    settings.queuedOutputPause = configuration.limits.queuedOutputPause;
    settings.isMemoryShort = [&host] {
        return host.memory.Read() > host.memoryLimit;
    };
    settings.readMemory = [&host] {
        return host.memory.Read();
    };
    settings.aliveInterval = host.notifier.GetAliveInterval();
    settings.onAlive = [&host] {
        host.notifier.NotifyAlive();
    };
    return settings;
}

void Announce(const PreparedHost& host, const Endpoint& endpoint)
{
    StartSummary summary;
    for (const std::string& url : endpoint.GetUrls())
        summary.endpoint += (summary.endpoint.empty() ? "" : ", ") + url;
    summary.roots = host.roots;
    summary.sandbox = host.sandbox;
    summary.admission = host.admission;
    summary.trustsAnyClient = host.configuration.trustAnyClient;
    summary.users = host.users == nullptr ? 0 : host.users->GetSize();
    summary.trustedFolder = host.pki.GetTrustedFolder().string();
    summary.trustedClients = host.pki.GetTrust().trusted.size();
    summary.fingerprint = OpcUa::MakeFingerprint(host.pki.GetCertificate());
    summary.isRoot = IsRoot();
    std::cout << Describe(summary) << std::flush;
    Log(Core::LogLevel::Notice, "Host",
        "The certificate of this host has the fingerprint " + summary.fingerprint);
}

/// Returns "Serving 2 roots at opc.tcp://...".
std::string DescribeService(const PreparedHost& host, const Endpoint& endpoint)
{
    const auto roots = host.roots.size();
    std::string text = "Serving " + std::to_string(roots) + (roots == 1 ? " root at" : " roots at");
    for (const std::string& url : endpoint.GetUrls())
        text += " " + url;
    return text;
}

void AnswerReload(const PreparedHost& host, Endpoint& endpoint, Reload& reload,
                  const Signals& signals)
{
    host.notifier.NotifyReloading();
    reload.Run(signals.GetDescriptor());
    // Behind everything that takes effect on the thread that serves.
    endpoint.Post([&host, &endpoint] {
        Log(Core::LogLevel::Notice, "Host", "Reloaded");
        host.notifier.NotifyReady(DescribeService(host, endpoint));
    });
}

/// Reloads at each signal to do so, and has the certificates of refused clients kept, until the
/// first signal to stop.
void WorkOutside(PreparedHost& host, Endpoint& endpoint, Reload& reload, RefusedClients& refused,
                 const Signals& signals)
{
    for (;;) {
        const auto request = signals.Wait(refused.GetDescriptor());
        if (request == Signals::Request::Stop)
            return;
        if (request == Signals::Request::Reload) {
            AnswerReload(host, endpoint, reload, signals);
            continue;
        }
        for (const auto& client : refused.TakeAll())
            KeepCertificate(host, client, signals.GetDescriptor());
    }
}

/// Starts a thread that answers signals: it stops the endpoint on the first one to stop. REQUIRES:
/// this signal comes before the thread is joined.
std::thread AnswerSignals(PreparedHost& host, Endpoint& endpoint, Reload& reload,
                          RefusedClients& refused, const Signals& signals)
{
    return StartThread("to wait for signals", [&] {
        WorkOutside(host, endpoint, reload, refused, signals);
        host.notifier.NotifyStopping();
        endpoint.Stop();
    });
}

/// Returns nothing if the thread that serves does not answer.
std::optional<EndpointMetrics> ReadMetrics(Endpoint& endpoint)
{
    constexpr std::chrono::seconds limit{2};
    const auto promise = std::make_shared<std::promise<EndpointMetrics>>();
    auto future = promise->get_future();
    endpoint.ReadMetrics(
        [promise](const EndpointMetrics& metrics) { promise->set_value(metrics); });
    if (future.wait_for(limit) != std::future_status::ready)
        return std::nullopt;
    return future.get();
}

std::unique_ptr<MetricsServer> ServeMetrics(PreparedHost& host, Endpoint& endpoint,
                                            const Doorkeeper& doorkeeper, const AuditLog& audit)
{
    if (!host.metrics.socket.IsOpen())
        return nullptr;
    Log(Core::LogLevel::Information, "Host", "Serving metrics on " + host.metrics.address);
    return std::make_unique<MetricsServer>(
        std::move(host.metrics), [&]() -> std::optional<std::string> {
            const auto metrics = ReadMetrics(endpoint);
            if (!metrics)
                return std::nullopt;
            return FormatMetrics(*metrics, {.refusedLogins = doorkeeper.GetRefusedCount(),
                                            .lostAuditLines = audit.GetLostCount(),
                                            .memory = host.memory.Read(),
                                            .memoryLimit = host.memoryLimit});
        });
}

/// Logs each root whose disk does not answer within the limit. What looks there never ends then.
void LogSilentRoots(const std::vector<Root>& roots, std::chrono::milliseconds limit)
{
    // Not destroyed: that would wait.
    auto& looks = *new std::vector<std::unique_ptr<WorkerThread>>();
    const auto end = std::chrono::steady_clock::now() + limit;
    for (const auto& root : roots) {
        auto& look = *looks.emplace_back(std::make_unique<WorkerThread>());
        look.Start("to look at a root");
        look.Post([path = root.real] {
            struct statx state = {};
            statx(AT_FDCWD, path.c_str(), AT_STATX_FORCE_SYNC, STATX_BASIC_STATS, &state);
        });
    }
    for (std::size_t i = 0; i < roots.size(); ++i) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            end - std::chrono::steady_clock::now());
        if (!looks[i]->WaitIdle(std::max(left, std::chrono::milliseconds(0))))
            Log(Core::LogLevel::Error, "Host",
                "The root '" + roots[i].real.string() +
                    "' does not answer; if files are open there, the system keeps this process "
                    "until it does, or is unmounted by force");
    }
}

/// Ends the process while something in it does not.
[[noreturn]] void Leave(const PreparedHost& host, AuditLog& audit)
{
    audit.Flush(std::chrono::seconds(2));
    try {
        LogSilentRoots(host.roots, std::chrono::seconds(1));
    } catch (const std::system_error& error) {
        Log(Core::LogLevel::Error, "Host", error.what());
    }
    Log(Core::LogLevel::Error, "Host", "Stopped with unfinished work");
    std::_Exit(static_cast<int>(ExitStatus::NotDrained));
}

} // namespace

ExitStatus Serve(PreparedHost& host, const Signals& signals)
{
    Doorkeeper doorkeeper(host.users.get());
    AuditLog audit(host.auditFile, host.configuration.auditForm);
    auto settings = MakeSettings(host);
    settings.audit = [&audit](AuditRecord record) {
        audit.Write(std::move(record));
    };
    RefusedClients refused;
    settings.onRefused = [&refused](RefusedClient client) {
        refused.Add(std::move(client));
    };
    Endpoint endpoint(
        *host.runtime, std::move(settings),
        [&doorkeeper](const LoginAttempt& attempt) { return doorkeeper.Decide(attempt); });
    const auto metrics = ServeMetrics(host, endpoint, doorkeeper, audit);
    if (host.sandbox.hasSystemCallFilter)
        RefuseNewSockets();
    Reload reload(host, endpoint,
                  [&doorkeeper](Users users) { doorkeeper.Replace(std::move(users)); });
    std::thread watcher = AnswerSignals(host, endpoint, reload, refused, signals);
    Announce(host, endpoint);
    host.notifier.NotifyReady(DescribeService(host, endpoint));
    const bool drained = endpoint.Run();
    watcher.join();
    LogLeftOut();
    if (!drained)
        Leave(host, audit);
    return ExitStatus::Stopped;
}

ExitStatus TryServing(PreparedHost& host)
{
    Doorkeeper doorkeeper(host.users.get());
    Endpoint endpoint(
        *host.runtime, MakeSettings(host),
        [&doorkeeper](const LoginAttempt& attempt) { return doorkeeper.Decide(attempt); });
    endpoint.Stop();
    return endpoint.Run() ? ExitStatus::Stopped : ExitStatus::NotDrained;
}

} // namespace Host
