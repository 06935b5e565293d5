#include "SampleTree.h"

#include "FileSystemClient.h"
#include "Text.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <random>
#include <string>
#include <system_error>

namespace Demo {

namespace {

namespace fs = std::filesystem;

void Require(bool succeeded, const std::string& what, const fs::path& path)
{
    if (!succeeded)
        throw std::system_error(errno, std::generic_category(), what + ' ' + Quote(path));
}

/// Returns the same bytes for the same size, and other ones for another size.
std::string MakeContent(std::size_t size)
{
    std::mt19937 random(static_cast<std::mt19937::result_type>(size));
    std::string content(size, '\0');
    for (auto& byte : content)
        byte = static_cast<char>(random());
    return content;
}

void MakeFile(const fs::path& path, std::size_t size)
{
    std::ofstream file(path, std::ios::binary);
    const auto content = MakeContent(size);
    file.write(content.data(), static_cast<std::streamsize>(content.size()));
    file.close();
    Require(file.good(), "Cannot write", path);
}

void SetTime(const fs::path& path, std::time_t seconds)
{
    const std::array<timespec, 2> times{timespec{seconds, 0}, timespec{seconds, 0}};
    Require(::utimensat(AT_FDCWD, path.c_str(), times.data(), 0) == 0, "Cannot set the time of",
            path);
}

void MakeSizes(const fs::path& folder)
{
    fs::create_directory(folder);
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, blockSize - 1, blockSize,
                                   blockSize + 1, 2 * blockSize, 50 * blockSize + 17})
        MakeFile(folder / (std::to_string(size) + " bytes"), size);
}

void MakeNames(const fs::path& folder)
{
    fs::create_directory(folder);
    std::size_t size = 100;
    for (const auto& name :
         {std::string("two words"), std::string(" blanks around "), std::string("line\nbreak"),
          std::string("tab\tand\x1B[31mescape"), std::string("back\\slash"), std::string("'\"`$*?"),
          std::string("-rf"), std::string("..."), std::string(".hidden"),
          std::string("Gr\xC3\xBC\xC3\x9F"), std::string("not UTF-8 \xFF\xFE\xC3"),
          std::string(255, 'n'), std::string(255, '\xE9')})
        MakeFile(folder / name, size++);
    fs::create_directory(folder / "a directory\nof two lines");
    MakeFile(folder / "a directory\nof two lines" / "file", size);
}

void MakeDeepFolders(const fs::path& folder)
{
    constexpr int depth = 40;
    auto deepest = folder;
    for (int level = 1; level <= depth; ++level)
        deepest /= "level " + std::to_string(level);
    fs::create_directories(deepest);
    MakeFile(deepest / "at the bottom", 1000);
    fs::create_directory(folder / "empty");
}

void MakeLinks(const fs::path& folder)
{
    fs::create_directories(folder / "directory");
    MakeFile(folder / "file", 2000);
    MakeFile(folder / "directory" / "inside", 2001);
    fs::create_symlink("file", folder / "to a file");
    fs::create_directory_symlink("directory", folder / "to a directory");
    fs::create_directory_symlink("..", folder / "directory" / "to its parent");
    fs::create_symlink("nothing", folder / "to nothing");
    fs::create_symlink("to itself", folder / "to itself");
    fs::create_hard_link(folder / "file", folder / "second name of file");
    Require(::mkfifo((folder / "pipe").c_str(), 0600) == 0, "Cannot make the pipe",
            folder / "pipe");
}

void MakePermissions(const fs::path& folder)
{
    using fs::perms;
    constexpr auto everyoneReads = perms::owner_read | perms::group_read | perms::others_read;
    constexpr auto everyoneExecutes = perms::owner_exec | perms::group_exec | perms::others_exec;
    fs::create_directory(folder);
    for (const auto* name : {"executable", "read-only", "both", "both, in blocks"})
        MakeFile(folder / name,
                 std::string(name).find("blocks") == std::string::npos ? 3000 : 2 * blockSize);
    fs::permissions(folder / "executable", everyoneReads | everyoneExecutes | perms::owner_write);
    fs::permissions(folder / "read-only", everyoneReads);
    fs::permissions(folder / "both", everyoneReads | everyoneExecutes);
    fs::permissions(folder / "both, in blocks", everyoneReads | everyoneExecutes);
}

void MakeTimes(const fs::path& folder)
{
    fs::create_directory(folder);
    for (const std::time_t seconds : {std::time_t{-86400}, std::time_t{-2}, std::time_t{0},
                                      std::time_t{1000000000}, std::time_t{4102444800}}) {
        const auto file = folder / (std::to_string(seconds) + " seconds");
        MakeFile(file, 10);
        SetTime(file, seconds);
    }
    SetTime(folder, 1234567890);
}

} // namespace

void MakeSampleTree(const fs::path& root)
{
    fs::create_directory(root);
    MakeSizes(root / "sizes");
    MakeNames(root / "names");
    MakeDeepFolders(root / "deep folders");
    MakeLinks(root / "links");
    MakePermissions(root / "permissions");
    MakeTimes(root / "times");
}

} // namespace Demo
