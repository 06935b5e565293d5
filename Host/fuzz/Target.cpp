#include "Target.h"

#include <Support/SystemError.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <system_error>
#include <thread>

namespace Fuzz {

namespace {

constexpr auto longestWait = std::chrono::minutes(1);
constexpr auto pause = std::chrono::milliseconds(20);

/// Waits until the condition holds. Returns false if it does not in time.
template <typename Condition>
bool Await(const Condition& condition)
{
    const auto limit = std::chrono::steady_clock::now() + longestWait;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > limit)
            return false;
        std::this_thread::sleep_for(pause);
    }
    return true;
}

std::size_t CountEntries(const std::filesystem::path& folder)
{
    return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

/// Becomes the host, in a child whose standard output and error are set.
[[noreturn]] void RunHost(const std::vector<char*>& arguments, int output, int log)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (dup2(output, STDOUT_FILENO) >= 0 && dup2(log, STDERR_FILENO) >= 0)
        execv(arguments[0], arguments.data());
    _exit(127);
}

struct PipeDeleter
{
    void operator()(std::FILE* pipe) const noexcept { pclose(pipe); }
};

/// Writes a user file with this one user.
void WriteUserFile(const std::filesystem::path& file, const User& user)
{
    const std::string command =
        std::string(TALVENSOR_HOST) + " passwd " + file.string() + " " + user.name;
    const std::unique_ptr<std::FILE, PipeDeleter> input(popen(command.c_str(), "we"));
    if (!input)
        Support::ThrowSystemError("popen");
    std::fprintf(input.get(), "%s\n", user.password.c_str());
}

} // namespace

Target::Target(const std::filesystem::path& folder, const std::optional<User>& user)
    : kept(folder / "kept")
    , log(folder / "log")
{
    std::filesystem::create_directories(folder / "root" / "folder" / "inner");
    std::ofstream(folder / "root" / "folder" / "file") << "content";
    std::filesystem::create_directory(kept);
    std::ofstream(GetKeptFile()) << "kept";
    std::vector<std::string> arguments{TALVENSOR_HOST,
                                       "--listen",
                                       "opc.tcp://127.0.0.1:0",
                                       "--root",
                                       (folder / "root").string(),
                                       "--read-only",
                                       kept.string(),
                                       "--pki",
                                       (folder / "pki").string(),
                                       "--grace",
                                       "200ms"};
    if (user) {
        const auto file = folder / "users";
        WriteUserFile(file, *user);
        arguments.insert(arguments.end(), {"--users", file.string(), "--trust-any-client"});
    }
    Start(arguments);
    AwaitListening();
}

Target::~Target()
{
    if (GetEnd())
        return;
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
}

void Target::Start(const std::vector<std::string>& arguments)
{
    std::vector<char*> pointers;
    for (const std::string& argument : arguments)
        // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast): the system only reads it
        pointers.push_back(const_cast<char*>(argument.c_str()));
    pointers.push_back(nullptr);
    int ends[2] = {-1, -1};
    if (pipe2(ends, O_CLOEXEC) != 0)
        Support::ThrowSystemError("pipe2");
    output = Support::Descriptor(ends[0]);
    const Support::Descriptor written(ends[1]);
    const Support::Descriptor logged(
        open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600));
    process = fork();
    if (process == 0)
        RunHost(pointers, written.Get(), logged.Get());
    if (process < 0)
        Support::ThrowSystemError("fork");
}

void Target::AwaitListening()
{
    const std::string scheme = "opc.tcp://127.0.0.1:";
    std::string text;
    for (;;) {
        const auto found = text.find(scheme);
        if (found != std::string::npos && text.find('\n', found) != std::string::npos) {
            const char* const digits = text.data() + found + scheme.size();
            std::from_chars(digits, text.data() + text.size(), port);
            return;
        }
        pollfd query{output.Get(), POLLIN, 0};
        char block[512];
        const auto wait = std::chrono::milliseconds(longestWait).count();
        const ssize_t count = poll(&query, 1, static_cast<int>(wait)) > 0
                                  ? read(output.Get(), block, sizeof block)
                                  : 0;
        if (count <= 0)
            throw std::runtime_error("the host does not start, see " + log.string());
        text.append(block, static_cast<std::size_t>(count));
    }
}

std::string Target::GetUrl() const
{
    return "opc.tcp://127.0.0.1:" + std::to_string(port);
}

std::string Target::GetKeptFile() const
{
    return (kept / "file").string();
}

std::optional<std::string> Target::GetEnd()
{
    int status = 0;
    if (!end && waitpid(process, &status, WNOHANG) == process)
        end = WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                                : "signal " + std::to_string(WTERMSIG(status));
    return end;
}

Holdings Target::CountHoldings() const
{
    const auto folder = std::filesystem::path("/proc") / std::to_string(process);
    return {CountEntries(folder / "fd"), CountEntries(folder / "task")};
}

bool Target::ComesBackTo(const Holdings& before) const
{
    return Await([&] {
        const Holdings now = CountHoldings();
        return now.descriptors <= before.descriptors && now.threads <= before.threads;
    });
}

std::string Target::Stop()
{
    kill(process, SIGTERM);
    return Await([this] { return GetEnd().has_value(); }) ? *GetEnd() : "no end within a minute";
}

} // namespace Fuzz
