// Sends a real host for a while what no client should, and checks that it has lost nothing.

#include "Field.h"
#include "Hostile.h"
#include "LibraryClient.h"
#include "Target.h"

#include <OpcUa/UaException.h>
#include <Support/TemporaryFolder.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include <CLI/CLI.hpp>

using namespace Fuzz;

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t frameClients = 8;
constexpr std::size_t requestClients = 2;
constexpr std::size_t stepsBetweenChecks = 200;
constexpr int checksAfterwards = 200;
const User theUser{"ann", "a password"};

struct Options
{
    std::uint64_t seed = 0;
    unsigned seconds = 300;
    bool hasUsers = false;
};

void AddTexts(Pool& pool)
{
    for (const char* text : {"a",
                             "b",
                             "a/b",
                             "..",
                             "../root",
                             ".",
                             "",
                             "/",
                             "*",
                             "nobody/here",
                             "link",
                             "folder",
                             "folder/file",
                             "folder/inner",
                             "file",
                             "inner",
                             "/proc/self/mem",
                             "/dev/zero",
                             "Objects",
                             "Server",
                             "FileSystems",
                             "None",
                             "opc.tcp://localhost",
                             "http://opcfoundation.org/UA/SecurityPolicy#None",
                             "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256",
                             "0:2",
                             "1:0",
                             "ann",
                             "data/file",
                             "root/folder",
                             "root/folder/file",
                             "%n%s"})
        pool.AddText(text);
    pool.AddText(std::string("with\0zero", 9));
    pool.AddText("\xff\xfe");
    pool.AddText(std::string(300, 'n'));
}

void Require(bool holds, const std::string& what)
{
    if (!holds)
        throw std::runtime_error(what);
}

std::size_t CountLines(const std::filesystem::path& file, const std::string& text)
{
    std::ifstream input(file);
    std::size_t count = 0;
    for (std::string line; std::getline(input, line);)
        count += line.find(text) != std::string::npos ? 1U : 0U;
    return count;
}

void Attack(Field& field, Target& target, LibraryClient& good, unsigned seconds)
{
    std::vector<std::unique_ptr<Hostile>> clients;
    for (std::size_t i = 0; i < frameClients; ++i)
        clients.push_back(std::make_unique<HostileFrames>(field, i));
    for (std::size_t i = 0; i < requestClients; ++i)
        clients.push_back(std::make_unique<HostileRequests>(field));
    const auto end = Clock::now() + std::chrono::seconds(seconds);
    for (std::size_t step = 1; Clock::now() < end; ++step) {
        try {
            field.random.Pick(clients)->Step();
        } catch (const OpcUa::UaException&) {
            // The host refused an encrypted client; the others go on.
        }
        if (step % stepsBetweenChecks == 0)
            good.Check();
        Require(!target.GetEnd(), "the host has ended");
    }
}

void Run(Field& field, Target& target, LibraryClient& good, const Options& options)
{
    good.Explore(field.pool);
    AddTexts(field.pool);
    good.OpenFile(target.GetKeptFile());
    const Holdings before = target.CountHoldings();
    std::cout << "The host has " << field.pool.CountNodes() << " nodes" << std::endl;
    Attack(field, target, good, options.seconds);
    for (int i = 0; i < checksAfterwards; ++i)
        good.Check();
    Require(target.ComesBackTo(before), "the host keeps descriptors or threads");
}

void RunInFolder(const std::filesystem::path& folder, const Options& options)
{
    const auto user = options.hasUsers ? std::optional<User>(theUser) : std::nullopt;
    Target target(folder, user);
    // A password needs encryption.
    auto good = std::make_unique<LibraryClient>(target.GetUrl(), options.hasUsers, user);
    Field field(options.seed, target.GetUrl(), target.GetPort(), user,
                good->FindNamespace("urn:Talvensor:FileSystem"));
    try {
        Run(field, target, *good, options);
    } catch (...) {
        field.journal.Write(folder / "frames");
        std::cout << field.figures;
        const auto end = target.GetEnd();
        std::cout << (end ? "The host ended with " + *end : std::string("The host runs")) << "\n";
        throw;
    }
    good.reset();
    const std::string end = target.Stop();
    std::cout << field.figures;
    Require(end == "status 0", "the host ended with " + end);
    Require(CountLines(target.GetLog(), "runtime error") == 0, "undefined behaviour was logged");
}

int RunFuzzer(const Options& options)
{
    std::cout << "Seed " << options.seed << ", " << options.seconds << " s" << std::endl;
    Support::TemporaryFolder folder;
    try {
        RunInFolder(folder.GetPath(), options);
    } catch (const std::exception& error) {
        folder.Keep();
        std::cerr << "HostFuzzer: " << error.what()
                  << "; the host's log and the last frames are in " << folder.GetPath().string()
                  << "\n";
        return EXIT_FAILURE;
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    CLI::App app("Sends a host what no client should", "HostFuzzer");
    Options options;
    options.seed = std::random_device()();
    app.add_option("seconds", options.seconds, "how long (300)");
    app.add_flag("--with-users", options.hasUsers,
                 "let the host know users: only encrypted clients log in");
    app.add_option("--seed", options.seed, "repeats what the run with this seed did");
    CLI11_PARSE(app, argc, argv);
    try {
        return RunFuzzer(options);
    } catch (const std::exception& error) {
        std::cerr << "HostFuzzer: " << error.what() << "\n";
        return EXIT_FAILURE;
    }
}
