#include "PrivateFiles.h"

#include "Client/Exceptions.h"
#include "Support/Descriptor.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace Client {

void FailWithSystemError(const std::string& what)
{
    throw ClientException(what + ": " + std::strerror(errno)); // NOLINT(concurrency-mt-unsafe)
}

void MakePrivateFolder(const std::filesystem::path& folder)
{
    if (folder.empty())
        throw InvalidArgumentException("no folder for keys and known servers was given");
    std::error_code error;
    if (folder.has_parent_path())
        std::filesystem::create_directories(folder.parent_path(), error);
    if (mkdir(folder.c_str(), S_IRWXU) != 0 && errno != EEXIST)
        FailWithSystemError("the folder '" + folder.string() + "' cannot be made");
}

std::string ReadWhole(const std::filesystem::path& file)
{
    const Support::Descriptor descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC));
    if (!descriptor.IsOpen())
        FailWithSystemError("'" + file.string() + "' cannot be read");
    std::string content;
    std::array<char, 4096> block{};
    for (;;) {
        const auto count = read(descriptor.Get(), block.data(), block.size());
        if (count == 0)
            return content;
        if (count < 0 && errno != EINTR)
            FailWithSystemError("'" + file.string() + "' cannot be read");
        if (count > 0)
            content.append(block.data(), static_cast<std::size_t>(count));
    }
}

void ReplaceFile(const std::filesystem::path& file, std::string_view content)
{
    std::string name = file.string() + ".XXXXXX";
    const Support::Descriptor descriptor(mkostemp(name.data(), O_CLOEXEC));
    if (!descriptor.IsOpen())
        FailWithSystemError("'" + file.string() + "' cannot be written");
    while (!content.empty()) {
        const auto count = write(descriptor.Get(), content.data(), content.size());
        if (count < 0 && errno != EINTR) {
            unlink(name.c_str());
            FailWithSystemError("'" + file.string() + "' cannot be written");
        }
        if (count > 0)
            content.remove_prefix(static_cast<std::size_t>(count));
    }
    if (fsync(descriptor.Get()) != 0 || rename(name.c_str(), file.c_str()) != 0) {
        unlink(name.c_str());
        FailWithSystemError("'" + file.string() + "' cannot be written");
    }
}

} // namespace Client
