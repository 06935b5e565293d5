// Measures transfers of one session, or of many at once, without connecting.

#include "Report.h"
#include "Samples.h"

#include "Client/Connection.h"
#include "Client/FileSystem.h"
#include "Support/Memory.h"

#include <algorithm>
#include <barrier>
#include <cstddef>
#include <exception>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

using Bench::Clock;

namespace {

struct Options
{
    std::string url;
    bool isEncrypted = false;
    bool isUpload = false;
    std::string state;
    std::string source;
    std::string target; ///< followed by the session's number, counted from 0
    std::size_t sessions = 1;
};

class Transfer
{
public:
    Transfer(const Options& options, std::size_t number)
        : options(options)
        , target(options.target + std::to_string(number))
        , connection(MakeConnection(options))
        , files(connection)
    {}

    /// Throws if the transfer is not complete.
    void Run()
    {
        const std::vector<Client::TransferItem> items{
            options.isUpload ? Client::TransferItem{options.source, target}
                             : Client::TransferItem{target, options.source}};
        const auto result = options.isUpload ? files.Upload(items) : files.Download(items);
        if (!result.failures.empty())
            throw std::runtime_error(result.failures.front().path + ": " +
                                     result.failures.front().cause);
        if (!result.IsComplete())
            throw std::runtime_error(target + " is not complete");
        finished = Clock::now();
    }

    [[nodiscard]] Clock::time_point GetEnd() const noexcept { return finished; }

private:
    static Client::ConnectionOptions MakeConnection(const Options& options)
    {
        Client::ConnectionOptions made;
        made.url = options.url;
        made.security = options.isEncrypted ? Client::Security::Encrypted : Client::Security::Plain;
        made.stateFolder = options.state;
        made.trustServer = [](const Client::ServerCertificate&) {
            return true;
        };
        made.connectTime = std::chrono::minutes(1); // many at once
        return made;
    }

    const Options& options;
    const std::string target;
    Client::Connection connection;
    Client::FileSystem files;
    Clock::time_point finished;
};

/// Runs all of them at once, each on a thread, and prints the time.
void Measure(const Options& options)
{
    std::vector<std::unique_ptr<Transfer>> transfers;
    for (std::size_t i = 0; i < options.sessions; ++i)
        transfers.push_back(std::make_unique<Transfer>(options, i));
    std::vector<std::exception_ptr> failures(options.sessions);
    std::barrier start(static_cast<std::ptrdiff_t>(options.sessions) + 1);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < options.sessions; ++i)
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            try {
                transfers[i]->Run();
            } catch (...) {
                failures[i] = std::current_exception();
            }
        });
    start.arrive_and_wait();
    const auto begin = Clock::now();
    for (auto& thread : threads)
        thread.join();
    for (const auto& failure : failures)
        if (failure)
            std::rethrow_exception(failure);

    std::vector<double> seconds;
    seconds.reserve(options.sessions);
    for (const auto& transfer : transfers)
        seconds.push_back(std::chrono::duration<double>(transfer->GetEnd() - begin).count());
    const auto [fastest, slowest] = std::minmax_element(seconds.begin(), seconds.end());
    std::cout << nlohmann::json{{"fastest", *fastest}, {"slowest", *slowest}} << "\n";
}

} // namespace

int main(int argc, char** argv)
try {
    Support::KeepFreedMemory(); // as talvensor-fs does
    CLI::App app("measures transfers to and from a talvensor-host", "TransfersBench");
    Options options;
    app.add_option("--url", options.url)->required();
    app.add_flag("--encrypted", options.isEncrypted);
    app.add_flag("--upload", options.isUpload);
    app.add_option("--state", options.state, "the client's key and known servers")->required();
    app.add_option("--sessions", options.sessions);
    app.add_option("--source", options.source, "here to upload, there to download")->required();
    app.add_option("--target", options.target, "followed by a session's number")->required();
    app.callback([&] { Measure(options); });
    return Bench::RunProgram(app, argc, argv);
} catch (const std::exception& error) {
    std::cerr << argv[0] << ": " << error.what() << "\n";
    return 1;
}
