// Measures events from where they are raised to a client's callback. The host is in this process,
// the client is connected to it over loopback; the reference is loopback itself.

#include "Loopback.h"
#include "Report.h"
#include "Samples.h"
#include "SocketBytes.h"
#include "UaClient.h"

#include "Endpoint/Endpoint.h"
#include "Users/Pki.h"

#include <Core/Embedding/Runtime.h>
#include <Core/NamespaceMap.h>

#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>

using Bench::Clock;
using Bench::Samples;
using Bench::UaClient;

namespace {

constexpr const char* sharedNode = "FileSystem";
constexpr const char* address = "127.0.0.1";
constexpr double ticksPerMicrosecond = UA_DATETIME_USEC;

struct Options
{
    std::string module;
    std::string model;
    std::string folder;
    std::size_t count = 1000;
};

/// The host's endpoint in this process.
class EmbeddedHost
{
public:
    explicit EmbeddedHost(const Options& options)
        : pki(std::filesystem::path(options.folder) / "pki", address)
    {
        runtime.LoadInformationModel(options.model);
        runtime.LoadModule(options.module);
        endpoint.emplace(runtime, MakeSettings(),
                         [](const Host::LoginAttempt&) { return Host::LoginAnswer{}; });
        session = runtime.OpenSession("bench");
        files = Core::NodeId(Core::NamespaceMap::GetNamespaceIndex("urn:Talvensor:Host"),
                             std::string(sharedNode));
        loop = std::thread([this] { endpoint->Run(); });
    }
    EmbeddedHost(const EmbeddedHost&) = delete;
    EmbeddedHost& operator=(const EmbeddedHost&) = delete;
    ~EmbeddedHost()
    {
        endpoint->Stop();
        loop.join();
        session->Close();
    }

    [[nodiscard]] std::string GetUrl() const { return endpoint->GetUrls().front(); }

    /// Makes the module raise an event, on a thread of its own.
    void Raise()
    {
        if (!runtime.Call(session, files, "Exists", {"/"}).taken)
            throw std::runtime_error("the file system refuses a call");
    }

private:
    [[nodiscard]] Host::EndpointSettings MakeSettings() const
    {
        Host::EndpointSettings settings;
        settings.addresses = {address};
        settings.port = 0;
        settings.applicationUri = pki.GetApplicationUri();
        settings.version = "bench";
        settings.certificate = pki.GetCertificate();
        settings.key = pki.GetKey();
        settings.allowsUnencrypted = true;
        settings.trustsAnyClient = true;
        settings.sessions.anonymousAllowed = true;
        settings.sharedNodes = {sharedNode};
        settings.isMemoryShort = [] {
            return false;
        };
        return settings;
    }

    const Host::Pki pki;
    Core::Embedding::Runtime runtime;
    std::optional<Host::Endpoint> endpoint; // of the runtime
    std::shared_ptr<Core::Embedding::Session> session;
    Core::NodeId files;
    std::thread loop;
};

/// Receives the events of the shared node.
class Listener
{
public:
    explicit Listener(EmbeddedHost& host)
        : client(host.GetUrl())
    {
        client.Subscribe(client.GetSharedFiles(sharedNode), [this](UA_DateTime raised) {
            // Core sets the time of an event when it is raised.
            latency = static_cast<double>(UA_DateTime_now() - raised) / ticksPerMicrosecond;
            ++heard;
        });
    }

    /// Waits until `count` events have come in all.
    void Await(std::size_t count)
    {
        client.Run([&] { return heard >= count; });
    }
    [[nodiscard]] std::size_t GetCount() const noexcept { return heard; }
    [[nodiscard]] double GetLatency() const noexcept { return latency; }

private:
    UaClient client;
    std::size_t heard = 0;
    double latency = 0;
};

/// Measures one event at a time.
Samples MeasureLatency(EmbeddedHost& host, Listener& listener, std::size_t count)
{
    Samples samples;
    samples.Reserve(count);
    for (std::size_t i = 0; i < count; ++i) {
        const std::size_t before = listener.GetCount();
        host.Raise();
        listener.Await(before + 1);
        samples.Add(listener.GetLatency());
    }
    return samples;
}

/// Measures events that are raised as fast as possible.
double MeasureRate(EmbeddedHost& host, Listener& listener, std::size_t count)
{
    const auto start = Clock::now();
    const std::size_t before = listener.GetCount();
    std::thread raising([&] {
        for (std::size_t i = 0; i < count; ++i)
            host.Raise();
    });
    listener.Await(before + count);
    raising.join();
    return static_cast<double>(count) * 1e6 / Bench::MicrosecondsSince(start);
}

void Measure(const Options& options)
{
    EmbeddedHost host(options);
    Listener listener(host);
    MeasureLatency(host, listener, options.count / 10 + 1);
    const auto port = Bench::GetPort(host.GetUrl().c_str());
    const auto before = Bench::CountSocketBytes(port);
    const Samples latency = MeasureLatency(host, listener, options.count);
    const auto after = Bench::CountSocketBytes(port);
    const std::size_t request = (after.sent - before.sent) / options.count;
    const std::size_t answer = (after.received - before.received) / options.count;
    const auto loopback = Bench::MeasureLoopback(request, answer, options.count, 1);
    std::cout << nlohmann::json{{"latency", latency.Summarise()},
                                {"loopback", loopback.roundTrips.Summarise()},
                                {"requestBytes", request},
                                {"answerBytes", answer},
                                {"perSecond", MeasureRate(host, listener, options.count * 10)}}
              << "\n";
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("measures events of an embedded host", "EventsBench");
    Options options;
    app.add_option("--module", options.module)->required();
    app.add_option("--model", options.model)->required();
    app.add_option("--folder", options.folder, "for key and certificate")->required();
    app.add_option("--count", options.count, "events one by one; ten times as many in a stream");
    app.callback([&] { Measure(options); });
    return Bench::RunProgram(app, argc, argv);
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << "\n";
    return 1;
}
