#include "Fixture.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <map>
#include <sys/stat.h>

namespace ClientTest {

namespace fs = std::filesystem;

std::string MakeContent(std::size_t size)
{
    std::string content(size, '\0');
    std::uint64_t state = size + 1;
    for (std::size_t i = 0; i < size; i += sizeof state) { // by words: sizes are large
        state = state * 6364136223846793005U + 1442695040888963407U;
        const std::uint64_t word = state ^ state >> 32U; // the lower half alone repeats soon
        std::memcpy(&content[i], &word, std::min(sizeof word, size - i));
    }
    return content;
}

void WriteFile(const fs::path& file, const std::string& content)
{
    std::ofstream stream(file, std::ios::binary);
    stream << content;
    if (!stream.flush())
        throw std::runtime_error("cannot write " + file.string());
}

std::string ReadFile(const fs::path& file)
{
    std::ifstream stream(file, std::ios::binary);
    if (!stream)
        throw std::runtime_error("cannot read " + file.string());
    std::string content(fs::file_size(file), '\0');
    stream.read(content.data(), static_cast<std::streamsize>(content.size()));
    return content;
}

void MakeFile(const fs::path& file, std::size_t size)
{
    fs::create_directories(file.parent_path());
    WriteFile(file, MakeContent(size));
    const std::array<timespec, 2> times{timespec{oldTime, 0}, timespec{oldTime, 0}};
    utimensat(AT_FDCWD, file.c_str(), times.data(), 0);
}

long GetSeconds(const fs::path& file)
{
    struct stat status = {};
    stat(file.c_str(), &status);
    return status.st_mtim.tv_sec;
}

namespace {

std::map<std::string, std::pair<std::string, long>> ReadTree(const fs::path& tree)
{
    std::map<std::string, std::pair<std::string, long>> entries;
    for (const auto& entry : fs::recursive_directory_iterator(tree))
        entries[entry.path().lexically_relative(tree).string()] =
            entry.is_directory()
                ? std::pair<std::string, long>("directory", GetSeconds(entry.path()))
                : std::pair<std::string, long>("file " + ReadFile(entry.path()),
                                               GetSeconds(entry.path()));
    return entries;
}

} // namespace

void ExpectSameTrees(const fs::path& left, const fs::path& right)
{
    EXPECT_TRUE(ReadTree(left) == ReadTree(right)) << left << " and " << right << " differ";
}

std::string Describe(const Client::TransferResult& result)
{
    std::string text = std::to_string(result.files) + " files";
    for (std::size_t i = 0; i < std::min<std::size_t>(result.failures.size(), 10); ++i)
        text += "\n" + result.failures[i].path + ": " + GetName(result.failures[i].step) + ": " +
                result.failures[i].cause;
    return text;
}

Client::Refusal GetRefusal(const std::function<void()>& connect)
{
    try {
        connect();
    } catch (const Client::RefusedException& refused) {
        return refused.GetRefusal();
    }
    ADD_FAILURE() << "was not refused";
    return Client::Refusal::Other;
}

} // namespace ClientTest
