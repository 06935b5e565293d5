#include "Shell/LocalProgram.h"

#include "Client/Exceptions.h"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>

namespace Cli {

namespace {

constexpr std::array typedSignals = {SIGINT, SIGQUIT};

/// Has this process ignore what is typed to interrupt another one.
class DeafTime
{
public:
    DeafTime()
    {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        for (std::size_t i = 0; i < typedSignals.size(); ++i)
            sigaction(typedSignals.at(i), &ignore, &before.at(i));
    }
    DeafTime(const DeafTime&) = delete;
    DeafTime& operator=(const DeafTime&) = delete;
    ~DeafTime()
    {
        for (std::size_t i = 0; i < typedSignals.size(); ++i)
            sigaction(typedSignals.at(i), &before.at(i), nullptr);
    }

private:
    std::array<struct sigaction, typedSignals.size()> before{};
};

/// The signals are for the program as they are for one that the user's shell starts.
class Attributes
{
public:
    Attributes()
    {
        posix_spawnattr_init(&attributes);
        sigset_t usual;
        sigemptyset(&usual);
        for (const int number : {SIGINT, SIGQUIT, SIGPIPE})
            sigaddset(&usual, number);
        posix_spawnattr_setsigdefault(&attributes, &usual);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
    }
    Attributes(const Attributes&) = delete;
    Attributes& operator=(const Attributes&) = delete;
    ~Attributes() { posix_spawnattr_destroy(&attributes); }

    [[nodiscard]] const posix_spawnattr_t* Get() const noexcept { return &attributes; }

private:
    posix_spawnattr_t attributes{};
};

/// Leaves the program the standard streams, and not the connection.
class Streams
{
public:
    Streams()
    {
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    }
    Streams(const Streams&) = delete;
    Streams& operator=(const Streams&) = delete;
    ~Streams() { posix_spawn_file_actions_destroy(&actions); }

    [[nodiscard]] const posix_spawn_file_actions_t* Get() const noexcept { return &actions; }

private:
    posix_spawn_file_actions_t actions{};
};

} // namespace

int RunLocalProgram(const std::vector<std::string>& arguments)
{
    auto texts = arguments;
    std::vector<char*> pointers;
    for (auto& text : texts)
        pointers.push_back(text.data());
    pointers.push_back(nullptr);
    const Attributes attributes;
    const Streams streams;
    const DeafTime deaf;
    pid_t child = -1;
    if (const int error = posix_spawnp(&child, pointers.front(), streams.Get(), attributes.Get(),
                                       pointers.data(), environ))
        throw Client::OperationFailedException(arguments.front() + ": " +
                                               std::generic_category().message(error));
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int RunLocalLine(const std::string& line)
{
    if (line.find_first_not_of(" \t\r\n") != std::string::npos)
        return RunLocalProgram({"/bin/sh", "-c", line});
    const char* const shell = std::getenv("SHELL"); // NOLINT(concurrency-mt-unsafe)
    return RunLocalProgram({shell == nullptr || *shell == '\0' ? "/bin/sh" : shell});
}

} // namespace Cli
