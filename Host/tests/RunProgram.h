#pragma once

#include <cerrno>
#include <cstddef>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace Host {

struct ProgramResult
{
    int status = -1; ///< of its exit; -1 when a signal ended it
    std::string output;
};

/// Runs a program to its end. Its standard output is returned, the error output shown.
inline ProgramResult RunProgram(std::vector<std::string> arguments)
{
    std::vector<char*> pointers;
    for (auto& argument : arguments)
        pointers.push_back(argument.data());
    pointers.push_back(nullptr);

    int ends[2] = {};
    if (pipe(ends) != 0)
        throw std::system_error(errno, std::generic_category(), "pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    posix_spawn_file_actions_addclose(&actions, ends[1]);
    pid_t child = 0;
    const int error = posix_spawn(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);

    ProgramResult result;
    char block[4096];
    for (ssize_t count = 0; (count = read(ends[0], block, sizeof(block))) > 0;)
        result.output.append(block, static_cast<std::size_t>(count));
    close(ends[0]);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), arguments[0]);
    int status = 0;
    waitpid(child, &status, 0);
    if (WIFEXITED(status))
        result.status = WEXITSTATUS(status);
    return result;
}

} // namespace Host
