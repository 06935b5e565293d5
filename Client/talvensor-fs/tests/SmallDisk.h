#pragma once

#include "Support/TemporaryFolder.h"

#include <cstddef>
#include <filesystem>
#include <sys/types.h>

namespace CliTest {

/// A folder on a disk of its own with little room, seen by this thread and what it starts. Use it
/// in a thread that ends with it.
class SmallDisk
{
public:
    static constexpr std::size_t size = std::size_t{1} << 20U;

    SmallDisk();
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;
    ~SmallDisk();

    /// Limits the size of the host's files where the system allows no small disk.
    void Limit(pid_t host) const;

    [[nodiscard]] const std::filesystem::path& GetPath() const noexcept { return folder.GetPath(); }

private:
    const Support::TemporaryFolder folder;
    const bool isMounted;
};

} // namespace CliTest
