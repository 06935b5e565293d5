#include "HostProcess.h"

#include <array>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace ClientTest {

namespace {

constexpr int startLimit = 60'000; // ms

/// Both ends of a pipe; the second is for the child.
struct Pipe
{
    Pipe()
    {
        if (pipe2(ends, O_CLOEXEC) != 0)
            throw std::system_error(errno, std::generic_category(), "pipe2");
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;
    ~Pipe()
    {
        close(ends[0]);
        CloseChildEnd();
    }
    void CloseChildEnd()
    {
        if (ends[1] >= 0)
            close(std::exchange(ends[1], -1));
    }

    int ends[2] = {-1, -1};
};

/// Reads until the text is there with a whole line behind it. Throws when it does not come.
std::string ReadUntil(int descriptor, const std::string& text)
{
    std::string output;
    for (;;) {
        const auto found = output.find(text);
        if (found != std::string::npos && output.find('\n', found) != std::string::npos)
            return output;
        pollfd query{descriptor, POLLIN, 0};
        char block[512];
        if (poll(&query, 1, startLimit) <= 0)
            throw std::runtime_error("the host does not start: " + output);
        const auto count = read(descriptor, block, sizeof block);
        if (count <= 0)
            throw std::runtime_error("the host ended: " + output);
        output.append(block, static_cast<std::size_t>(count));
    }
}

void Reap(pid_t process)
{
    while (waitpid(process, nullptr, 0) < 0 && errno == EINTR) {
    }
}

/// In a child that holds nothing else of its parent. Only what is safe behind a fork with threads.
[[noreturn]] void KillAfterParent(int process, int parent)
{
    setsid(); // what ends the parent's group should leave this to its work
    std::array<pollfd, 2> queries{pollfd{process, POLLIN, 0}, pollfd{parent, POLLIN, 0}};
    while (poll(queries.data(), queries.size(), -1) < 0) {
    }
    if (queries[0].revents == 0)
        syscall(SYS_pidfd_send_signal, process, SIGKILL, nullptr, 0);
    _exit(0);
}

} // namespace

Leash::Leash(pid_t process)
{
    Pipe pipe;
    const int target = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    if (target < 0)
        throw std::system_error(errno, std::generic_category(), "pidfd_open");
    watcher = fork();
    if (watcher == 0) {
        // Other ends of such pipes, and of connections, must not stay open here.
        constexpr int parent = 0;
        constexpr int child = 1;
        if (dup2(pipe.ends[0], parent) == parent && dup2(target, child) == child &&
            close_range(child + 1, ~0U, 0) == 0)
            KillAfterParent(child, parent);
        _exit(1);
    }
    close(target);
    if (watcher < 0)
        throw std::system_error(errno, std::generic_category(), "fork");
    ours = std::exchange(pipe.ends[1], -1);
}

Leash::~Leash()
{
    kill(watcher, SIGKILL);
    Reap(watcher);
    close(ours);
}

std::vector<std::string> GetObjectArguments()
{
    return {"--module", TALVENSOR_OBJECTS_MODULE, "--model", TALVENSOR_OBJECTS_MODEL};
}

HostStart StartUnprivileged()
{
    HostStart start;
    if (geteuid() == 0) {
        start.launcher = {"setpriv", "--reuid=65534", "--regid=65534", "--clear-groups"};
        start.user = 65534;
    }
    return start;
}

HostProcess::HostProcess(std::filesystem::path givenRoot, std::vector<std::string> more,
                         std::uint16_t port, HostStart givenStart)
    : root(std::move(givenRoot))
    , more(std::move(more))
    , port(port)
    , start(std::move(givenStart))
{
    if (start.pki.empty())
        start.pki = state.GetPath() / "pki";
    if (start.user && chown(state.GetPath().c_str(), *start.user, *start.user) != 0)
        throw std::system_error(errno, std::generic_category(),
                                "chown " + state.GetPath().string());
    if (!start.user)
        key.GiveTo(start.pki);
    Start();
    if (!start.user)
        key.TakeFrom(start.pki);
}

HostProcess::~HostProcess()
{
    Stop(SIGTERM);
}

/// The one who owns the checkout need not be the one who runs the tests.
static std::string GetOwner(const char* file)
{
    struct stat status = {};
    stat(file, &status);
    return std::to_string(status.st_uid);
}

void HostProcess::Start()
{
    std::vector<std::string> arguments = start.launcher;
    for (const std::string& argument :
         {std::string(TALVENSOR_HOST), std::string("--listen"),
          "opc.tcp://" + start.address + ":" + std::to_string(port), std::string("--root"),
          root.string(), std::string("--module"), std::string(TALVENSOR_MODULE),
          std::string("--model"), std::string(TALVENSOR_MODEL), std::string("--pki"),
          start.pki.string(), std::string("--trust-owner"), GetOwner(TALVENSOR_MODEL),
          std::string("--log-level"), std::string("off")})
        arguments.push_back(argument);
    arguments.insert(arguments.end(), more.begin(), more.end());
    std::vector<char*> pointers;
    for (auto& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);
    Pipe output;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output.ends[1], STDOUT_FILENO);
    const int error =
        posix_spawnp(&process, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), arguments[0]);
    output.CloseChildEnd();
    leash.emplace(process);
    const std::string scheme = "opc.tcp://";
    const std::string text = ReadUntil(output.ends[0], scheme);
    const auto end = text.find('\n', text.find(scheme));
    const char* const digits = text.data() + text.rfind(':', end) + 1;
    std::from_chars(digits, text.data() + end, port);
}

void HostProcess::Stop(int signal)
{
    if (process < 0)
        return;
    kill(process, signal);
    Reap(process);
    leash.reset();
    process = -1;
}

void HostProcess::Kill()
{
    Stop(SIGKILL);
}

void HostProcess::Restart()
{
    Stop(SIGKILL);
    Start();
}

std::string HostProcess::GetUrl(const std::string& machine) const
{
    return "opc.tcp://" + machine + ":" + std::to_string(port);
}

} // namespace ClientTest
