// Measures how long calls to a running host take, alone and under load.

#include "Loopback.h"
#include "Report.h"
#include "Samples.h"
#include "SocketBytes.h"
#include "UaClient.h"

#include <poll.h>

#include <cstdlib>
#include <exception>
#include <iostream>
#include <list>
#include <memory>
#include <stdexcept>
#include <string>

using Bench::Clock;
using Bench::MakeVariant;
using Bench::Method;
using Bench::Samples;
using Bench::UaClient;
using OpcUa::Ua;
using OpcUa::ViewOf;

namespace {

constexpr std::uint32_t blockSize = 61'440;
constexpr std::int32_t readMode = 1;

struct Options
{
    std::string url;
    std::string path;
    std::string user;
    std::string password;
    std::size_t count = 1000;
    std::size_t inFlight = 1;
};

/// A session that has opened a file on a file system of its own.
struct OpenFile
{
    explicit OpenFile(const Options& options)
        : owned(options.user.empty()
                    ? std::make_unique<UaClient>(options.url)
                    : std::make_unique<UaClient>(options.url, options.user, options.password))
        , client(*owned)
        , files(client.CreateFiles())
        , handle(Open(options.path))
    {
        AwaitOpening();
    }

    const std::unique_ptr<UaClient> owned;
    UaClient& client;
    const Ua<UA_NodeId> files;
    const std::uint32_t handle;

private:
    std::uint32_t Open(const std::string& path)
    {
        const UA_String name = ViewOf(path);
        return client.CallForNumber(*files, Method::Open,
                                    {MakeVariant(name), MakeVariant(readMode)});
    }

    /// Waits for everything before: the event of this request comes after it.
    void AwaitOpening()
    {
        bool isHeard = false;
        client.Subscribe(*files, [&](UA_DateTime) { isHeard = true; });
        const UA_String name = ViewOf("/");
        client.Post(*files, Method::Exists, {MakeVariant(name)}, [](const UA_CallMethodResult&) {});
        client.Run([&] { return isHeard; });
    }
};

struct Calls
{
    Samples roundTrips; ///< from the sending of a call to its answer
    double perSecond = 0;
};

/// Reads the position of a file `count` times.
Calls MeasureCalls(OpenFile& file, std::size_t count, std::size_t inFlight)
{
    Calls calls;
    calls.roundTrips.Reserve(count);
    std::size_t sent = 0;
    std::size_t answered = 0;
    bool hasFailed = false;
    const auto send = [&] {
        ++sent;
        file.client.Post(*file.files, Method::GetPosition, {MakeVariant(file.handle)},
                         [&, begin = Clock::now()](const UA_CallMethodResult& result) {
                             calls.roundTrips.Add(Bench::MicrosecondsSince(begin));
                             hasFailed = hasFailed || result.outputArgumentsSize != 1;
                             ++answered;
                         });
    };
    const auto start = Clock::now();
    while (answered < count) {
        while (sent < count && sent - answered < inFlight)
            send();
        file.client.Run([&, before = answered] { return answered > before; });
    }
    calls.perSecond = static_cast<double>(count) * 1e6 / Bench::MicrosecondsSince(start);
    if (hasFailed)
        throw std::runtime_error("GetPosition of an open file has no output");
    return calls;
}

/// Measures calls, and plain requests and answers of the same size over loopback.
void RunCalls(const Options& options)
{
    OpenFile file(options);
    MeasureCalls(file, options.count / 10 + 1, options.inFlight);
    const auto port = Bench::GetPort(options.url.c_str());
    const auto before = Bench::CountSocketBytes(port);
    const Calls calls = MeasureCalls(file, options.count, options.inFlight);
    const auto after = Bench::CountSocketBytes(port);
    const std::size_t request = (after.sent - before.sent) / options.count;
    const std::size_t answer = (after.received - before.received) / options.count;
    const auto loopback = Bench::MeasureLoopback(request, answer, options.count, options.inFlight);
    std::cout << nlohmann::json{{"roundTrip", calls.roundTrips.Summarise()},
                                {"perSecond", calls.perSecond},
                                {"requestBytes", request},
                                {"answerBytes", answer},
                                {"loopback", loopback.roundTrips.Summarise()},
                                {"loopbackPerSecond", loopback.perSecond}}
              << "\n";
}

/// Measures the round trips of calls only.
void RunProbe(const Options& options)
{
    OpenFile file(options);
    MeasureCalls(file, options.count / 10 + 1, 1);
    std::cout << nlohmann::json{{"roundTrip",
                                 MeasureCalls(file, options.count, 1).roundTrips.Summarise()}}
              << "\n";
}

/// Reads a file without end, with many requests in flight.
[[noreturn]] void RunReader(const Options& options)
{
    OpenFile file(options);
    std::size_t asked = 0;
    std::size_t answered = 0;
    for (bool isAnnounced = false;;) {
        for (; asked - answered < options.inFlight; ++asked)
            file.client.Post(*file.files, Method::Read,
                             {MakeVariant(file.handle), MakeVariant(blockSize)},
                             [&](const UA_CallMethodResult&) { ++answered; });
        file.client.Run([&, before = answered] { return answered > before; });
        if (!isAnnounced && answered > options.inFlight) {
            std::cout << "reading" << std::endl;
            isAnnounced = true;
        }
    }
}

/// Reads from a pipe with many clients at once until standard input ends. The reads never finish.
void RunBlocked(const Options& options)
{
    std::list<OpenFile> clients;
    while (clients.size() < options.count) {
        OpenFile& file = clients.emplace_back(options);
        file.client.Post(*file.files, Method::Read,
                         {MakeVariant(file.handle), MakeVariant(blockSize)},
                         [](const UA_CallMethodResult&) {});
    }
    std::cout << "blocked" << std::endl;
    pollfd input{0, POLLIN, 0};
    poll(&input, 1, -1);
    std::_Exit(0); // to log out would take an answer
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("measures calls to a talvensor-host", "CallsBench");
    Options options;
    const auto add = [&](const char* name, const char* text, void (*run)(const Options&)) {
        auto* const command = app.add_subcommand(name, text);
        command->add_option("--url", options.url)->required();
        command->add_option("--path", options.path, "the file that is opened")->required();
        command->add_option("--user", options.user, "logs in, encrypted");
        command->add_option("--password", options.password);
        command->add_option("--count", options.count, "calls, or clients");
        command->add_option("--in-flight", options.inFlight, "calls without an answer at a time");
        command->callback([&options, run] { run(options); });
    };
    add("calls", "calls, and loopback beside them", RunCalls);
    add("probe", "round trips of calls", RunProbe);
    add("reader", "reads the file for ever", [](const Options& given) { RunReader(given); });
    add("blocked", "reads from a pipe until standard input ends", RunBlocked);
    app.require_subcommand(1);
    return Bench::RunProgram(app, argc, argv);
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << "\n";
    return 1;
}
