#include "Operations.h"
#include "Support/SystemError.h"

#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>

namespace Bench {

namespace {

/// The number of entries that fit into one listing: folders with files in each.
constexpr std::size_t folderCount = 240;
constexpr std::size_t filesPerFolder = 255;

void MakeTree(const std::filesystem::path& root)
{
    for (std::size_t i = 0; i < folderCount; ++i) {
        const auto folder = root / ("folder " + std::to_string(i));
        std::filesystem::create_directories(folder);
        for (std::size_t j = 0; j < filesPerFolder; ++j)
            std::ofstream(folder / ("some file " + std::to_string(j) + ".dat"));
    }
}

/// Runs `find` and drops its output.
void Find(const std::string& root)
{
    const char* const arguments[] = {"find",    root.c_str(),   "-mindepth", "1",
                                     "-printf", "%P %T@ %y\\n", nullptr};
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t process = -1;
    const int error = ::posix_spawnp(&process, arguments[0], &actions, nullptr,
                                     const_cast<char* const*>(arguments), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), "find");
    int status = 0;
    while (::waitpid(process, &status, 0) < 0)
        if (errno != EINTR)
            Support::ThrowSystemError("find");
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        throw std::runtime_error("find failed");
}

} // namespace

Operations MakeListOperations(Host& host, const std::filesystem::path& folder)
{
    const auto root = (folder / "tree").string();
    MakeTree(root);

    Operation list{.name = "list", .run = {}};
    list.run = [&host, inputs = Values{root, true}](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i) {
            host.GetEvents().Expect(1);
            host.Call("List", inputs);
            host.GetEvents().Wait();
        }
    };

    Operation reference{.name = "list/reference", .run = {}};
    reference.run = [root](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            Find(root);
    };
    return {list, reference};
}

} // namespace Bench
