#include "Operations.h"
#include "Support/SystemError.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Bench {

namespace {

constexpr std::size_t batch = 2'000;
constexpr std::size_t size = 4096;
constexpr long time = 1'700'000'000;
constexpr unsigned char executable = 0x04;

std::vector<std::string> MakePaths(const std::filesystem::path& folder)
{
    std::vector<std::string> paths;
    for (std::size_t i = 0; i < batch; ++i)
        paths.push_back((folder / ("file " + std::to_string(i))).string());
    return paths;
}

void RemoveFiles(const std::vector<std::string>& paths)
{
    for (const auto& path : paths)
        ::unlink(path.c_str()); // some are not there when fewer were uploaded
}

void Require(bool success, const std::string& path)
{
    if (!success)
        Support::ThrowSystemError(path);
}

/// Makes the system calls of an upload.
void UploadByHand(const std::string& path, const Bytes& content)
{
    struct stat status = {};
    const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    Require(file >= 0, path);
    Require(::fstat(file, &status) == 0, path);
    Require(::write(file, content.data(), size) == static_cast<ssize_t>(size), path);
    Require(::close(file) == 0, path);

    Require(::stat(path.c_str(), &status) == 0, path); // is it there?
    const struct timespec times[] = {{0, UTIME_OMIT}, {time, 0}};
    Require(::utimensat(AT_FDCWD, path.c_str(), times, 0) == 0, path);

    Require(::stat(path.c_str(), &status) == 0, path);
    Require(::chmod(path.c_str(), status.st_mode | 0111U) == 0, path);
}

} // namespace

Operations MakeUploadOperations(Host& host, const std::filesystem::path& folder)
{
    const auto content = MakeContent(size);
    const auto paths = std::make_shared<const std::vector<std::string>>(MakePaths(folder));
    std::vector<Values> calls;
    for (const auto& path : *paths)
        calls.push_back({path, Core::Value(content, true), Core::DateTime::FromUnixEpochTime(time),
                         executable});

    Operation upload{.name = "upload-4k", .batch = batch, .bytes = size, .run = {}};
    upload.run = [&host, calls = std::make_shared<const std::vector<Values>>(std::move(calls))](
                     std::size_t count) {
        host.GetEvents().Expect(count);
        for (std::size_t i = 0; i < count; ++i)
            host.Call("UploadFile", (*calls)[i]);
        host.GetEvents().Wait();
    };
    upload.tidy = [paths] {
        RemoveFiles(*paths);
    };

    Operation reference{.name = "upload-4k/reference", .batch = batch, .bytes = size, .run = {}};
    reference.run = [paths, content](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            UploadByHand((*paths)[i], content);
    };
    reference.tidy = upload.tidy;
    return {upload, reference};
}

} // namespace Bench
