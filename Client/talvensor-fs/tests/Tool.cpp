#include "Tool.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace CliTest {

namespace {

namespace fs = std::filesystem;

constexpr int longestWait = 60'000; // ms

/// Returns the arguments of execve; they live as long as the texts.
struct Pointers
{
    explicit Pointers(std::vector<std::string> given)
        : texts(std::move(given))
    {
        for (auto& text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);
    }
    std::vector<std::string> texts;
    std::vector<char*> pointers;
};

Pointers MakeArguments(const std::string& program, const std::vector<std::string>& arguments)
{
    std::vector<std::string> all{program};
    all.insert(all.end(), arguments.begin(), arguments.end());
    return Pointers(std::move(all));
}

Pointers MakeEnvironment(const Environment& environment)
{
    std::vector<std::string> all;
    for (const auto& [name, value] : environment)
        all.push_back(name + "=" + value);
    return Pointers(std::move(all));
}

int GetStatus(int waited)
{
    return WIFEXITED(waited) ? WEXITSTATUS(waited) : 1'000 + WTERMSIG(waited);
}

/// The child's end of things: a program without a terminal, with files as its streams.
[[noreturn]] void Become(const Pointers& arguments, const Pointers& environment,
                         const fs::path& streams, const fs::path& folder)
{
    setsid();
    const int input = open((streams / "in").c_str(), O_RDONLY);
    const int output = open((streams / "out").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const int error = open((streams / "err").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (chdir(folder.c_str()) == 0 && dup2(input, 0) == 0 && dup2(output, 1) == 1 &&
        dup2(error, 2) == 2)
        execve(arguments.pointers[0], arguments.pointers.data(), environment.pointers.data());
    _exit(99);
}

Result RunProgram(const Pointers& arguments, const Pointers& environment, const fs::path& folder,
                  const std::string& input)
{
    const ClientTest::TemporaryFolder streams;
    WriteFile(streams.GetPath() / "in", input);
    const auto child = fork();
    if (child == 0)
        Become(arguments, environment, streams.GetPath(), folder);
    int waited = 0;
    while (waitpid(child, &waited, 0) < 0 && errno == EINTR) {
    }
    return {.status = GetStatus(waited),
            .output = ReadFile(streams.GetPath() / "out"),
            .error = ReadFile(streams.GetPath() / "err")};
}

fs::path MakeFolder(const fs::path& folder)
{
    fs::create_directories(folder);
    return folder;
}

/// Makes the host's root, which the host's user can reach and write.
fs::path MakeRoot(const fs::path& folder, const ClientTest::HostStart& start)
{
    auto root = MakeFolder(folder / "root");
    if (start.user) {
        fs::permissions(folder, fs::perms::others_exec, fs::perm_options::add);
        EXPECT_EQ(chown(root.c_str(), *start.user, *start.user), 0);
    }
    return root;
}

} // namespace

Desk::Desk(std::vector<std::string> hostFlags, ClientTest::HostStart start)
    : host(MakeRoot(folder.GetPath(), start), std::move(hostFlags), 0, start)
    , environment({{"HOME", MakeFolder(folder.GetPath() / "home").string()},
                   {"PATH", "/usr/bin:/bin"},
                   {"TERM", "xterm"},
                   {"TZ", "UTC"},
                   {"LC_ALL", "C.UTF-8"},
                   {"TALVENSOR_ENDPOINT", host.GetUrl()}})
{
    MakeFolder(folder.GetPath() / "local");
    key.GiveTo(GetState());
}

Desk::~Desk()
{
    key.TakeFrom(GetState());
}

Result Desk::Run(const std::vector<std::string>& arguments, const std::string& input) const
{
    return RunOther(TALVENSOR_CLI, arguments, input);
}

Result Desk::RunOther(const std::string& program, const std::vector<std::string>& arguments,
                      const std::string& input) const
{
    return RunProgram(MakeArguments(program, arguments), MakeEnvironment(environment), GetLocal(""),
                      input);
}

fs::path Desk::GetLocal(const std::string& name) const
{
    return folder.GetPath() / "local" / name;
}

fs::path Desk::GetRemote(const std::string& name) const
{
    return folder.GetPath() / "root" / name;
}

fs::path Desk::GetHome() const
{
    return folder.GetPath() / "home";
}

fs::path Desk::GetState() const
{
    return GetHome() / ".local/state/talvensor/client";
}

fs::path Desk::MakeUserFile(const fs::path& folder)
{
    auto file = folder / "users";
    const auto result = RunProgram(MakeArguments(TALVENSOR_HOST, {"passwd", file, userName}),
                                   MakeEnvironment({}), folder, std::string(password) + "\n");
    if (result.status != 0)
        throw std::runtime_error("no user file: " + result.error);
    return file;
}

void WriteFile(const fs::path& file, const std::string& content)
{
    std::ofstream(file, std::ios::binary) << content;
}

std::string ReadFile(const fs::path& file)
{
    std::ostringstream content;
    content << std::ifstream(file, std::ios::binary).rdbuf();
    return content.str();
}

void MakeSparseFile(const fs::path& file, std::uintmax_t size)
{
    WriteFile(file, "");
    fs::resize_file(file, size);
}

void MakeMarkedFile(const fs::path& file, std::uintmax_t size)
{
    constexpr std::uintmax_t distance = 50'000; // some in every block, at different places
    MakeSparseFile(file, size);
    std::fstream stream(file, std::ios::binary | std::ios::in | std::ios::out);
    for (std::uintmax_t position = 0; position < size; position += distance) {
        const auto mark = std::to_string(position);
        stream.seekp(static_cast<std::streamoff>(position));
        stream.write(mark.data(), static_cast<std::streamsize>(
                                      std::min<std::uintmax_t>(mark.size(), size - position)));
    }
}

bool AreSame(const fs::path& left, const fs::path& right)
{
    std::array<std::ifstream, 2> streams{std::ifstream(left, std::ios::binary),
                                         std::ifstream(right, std::ios::binary)};
    std::array<std::vector<char>, 2> blocks;
    do {
        for (std::size_t i = 0; i < streams.size(); ++i) {
            blocks.at(i).resize(std::size_t{1} << 20U);
            streams.at(i).read(blocks.at(i).data(),
                               static_cast<std::streamsize>(blocks.at(i).size()));
            blocks.at(i).resize(static_cast<std::size_t>(streams.at(i).gcount()));
        }
        if (blocks[0] != blocks[1])
            return false;
    } while (!blocks[0].empty());
    return fs::exists(left) && fs::exists(right);
}

Terminal::Terminal(const Desk& desk, const std::vector<std::string>& arguments,
                   unsigned short columns)
{
    const auto argumentPointers = MakeArguments(TALVENSOR_CLI, arguments);
    const auto environmentPointers = MakeEnvironment(desk.environment);
    const auto local = desk.GetLocal("");
    winsize size = {};
    size.ws_row = 24;
    size.ws_col = columns;
    process = forkpty(&descriptor, nullptr, nullptr, &size);
    if (process < 0)
        throw std::system_error(errno, std::generic_category(), "forkpty");
    if (process == 0) {
        if (chdir(local.c_str()) == 0)
            execve(argumentPointers.pointers[0], argumentPointers.pointers.data(),
                   environmentPointers.pointers.data());
        _exit(99);
    }
}

Terminal::~Terminal()
{
    close(descriptor);
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
}

void Terminal::Type(const std::string& text) const
{
    ASSERT_EQ(write(descriptor, text.data(), text.size()), static_cast<ssize_t>(text.size()));
}

int Terminal::TypeUntilEnd(const std::string& text)
{
    constexpr int pause = 20; // ms, in which it may do something about it
    pollfd waiting = {.fd = descriptor, .events = POLLIN, .revents = 0};
    while (write(descriptor, text.data(), text.size()) > 0)
        while (poll(&waiting, 1, pause) == 1)
            if (!ReadMore())
                return WaitForEnd();
    return WaitForEnd();
}

bool Terminal::ReadMore()
{
    pollfd waiting = {.fd = descriptor, .events = POLLIN, .revents = 0};
    if (poll(&waiting, 1, longestWait) != 1)
        return false;
    std::array<char, 4096> block{};
    const auto count = read(descriptor, block.data(), block.size());
    if (count <= 0)
        return false;
    seen.append(block.data(), static_cast<std::size_t>(count));
    return true;
}

bool Terminal::WaitFor(const std::string& text)
{
    for (;;) {
        const auto found = seen.find(text, waitedFor);
        if (found != std::string::npos) {
            waitedFor = found + text.size();
            return true;
        }
        if (!ReadMore())
            return false;
    }
}

int Terminal::WaitForEnd()
{
    while (ReadMore()) {
    }
    int waited = 0;
    EXPECT_EQ(waitpid(process, &waited, 0), process);
    process = -1;
    return GetStatus(waited);
}

bool Terminal::IsEchoing() const
{
    termios settings = {};
    EXPECT_EQ(tcgetattr(descriptor, &settings), 0);
    return (settings.c_lflag & static_cast<tcflag_t>(ECHO)) != 0;
}

} // namespace CliTest
