#pragma once

#include "Tasks.h"

#include <cerrno>
#include <cstddef>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace FileSystemTests {

/// Returns the number of this process's descriptors that are open on a path, links followed.
inline std::size_t CountDescriptors(const std::string& path)
{
    std::size_t count = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(entry.path(), error) == path)
            ++count;
    return count;
}

/// A named pipe.
class Fifo
{
public:
    explicit Fifo(std::string where)
        : path(std::move(where))
    {
        if (::mkfifo(path.c_str(), 0600) != 0)
            throw std::system_error(errno, std::generic_category(), "mkfifo " + path);
    }

    [[nodiscard]] const std::string& GetPath() const noexcept { return path; }

    /// Lets `byteCount` bytes through. REQUIRES: the pipe's other end is open.
    void Write(std::size_t byteCount) const
    {
        const int descriptor = Open(O_WRONLY);
        const std::string bytes(byteCount, 'x');
        if (::write(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(byteCount))
            throw std::system_error(errno, std::generic_category(), "write " + path);
        ::close(descriptor);
    }

    /// Waits for a writer, calls `opened`, and reads until every writer has left.
    template <typename Function>
    void Drain(Function&& opened) const
    {
        const int descriptor = Open(O_RDONLY);
        std::forward<Function>(opened)();
        std::string buffer(4096, '\0');
        while (::read(descriptor, buffer.data(), buffer.size()) > 0)
            continue;
        ::close(descriptor);
    }

private:
    [[nodiscard]] int Open(int mode) const
    {
        const int descriptor = ::open(path.c_str(), mode | O_CLOEXEC);
        if (descriptor < 0)
            throw std::system_error(errno, std::generic_category(), "open " + path);
        return descriptor;
    }

    std::string path;
};

} // namespace FileSystemTests
