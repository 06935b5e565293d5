#pragma once

#include <filesystem>

namespace Demo {

/// A folder of its own in the system's temporary folder, removed with everything in it at the end
/// unless it is to be kept.
class TemporaryFolder
{
public:
    /// Throws std::system_error.
    TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& GetPath() const noexcept { return path; }
    void Keep() noexcept { isKept = true; }

private:
    std::filesystem::path path;
    bool isKept = false;
};

} // namespace Demo
