#pragma once

#include <filesystem>
#include <string>

namespace Support {

/// A new folder that is removed with everything in it at the end, unless it is kept.
class TemporaryFolder
{
public:
    /// Creates it in the system's temporary folder. Throws std::system_error.
    TemporaryFolder();
    /// Creates it in a given folder. Throws std::system_error.
    explicit TemporaryFolder(const std::filesystem::path& parent);
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;
    ~TemporaryFolder();

    [[nodiscard]] const std::filesystem::path& GetPath() const noexcept { return path; }

    /// Creates a folder in it, and those between, and returns its path.
    std::filesystem::path MakeFolder(const std::string& name) const;

    /// Creates or replaces a file in it and returns its path. Throws std::system_error.
    std::filesystem::path MakeFile(const std::string& name, const std::string& content = {}) const;

    void Keep() noexcept { isKept = true; }

private:
    std::filesystem::path path;
    bool isKept = false;
};

} // namespace Support
