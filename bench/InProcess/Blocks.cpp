#include "Operations.h"
#include "Support/SystemError.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>

namespace Bench {

namespace {

constexpr std::size_t fileSize = std::size_t{1} << 30U;

/// After so many bytes a client asks if they have been written; before it goes on, it waits for the
/// answer to the previous question. So twice as many bytes may be in the queue.
constexpr std::size_t burstSize = std::size_t{4} << 20U;

/// Uploads blocks as clients do: pipelined, with a limit on the bytes in the queue.
class Uploader
{
public:
    Uploader(Host& host, std::string path, std::size_t blockSize)
        : host(host)
        , path(std::move(path))
        , burstLength(std::max<std::size_t>(burstSize / blockSize, 1))
        , content(MakeContent(blockSize), true)
    {}

    void Upload(std::size_t count)
    {
        const auto handle = host.Call("OpenWrite", {path, content}).at(0);
        const Values block{handle, content};
        for (std::size_t i = 1; i + 1 < count; ++i) {
            host.Call("Write", block);
            if (i % burstLength == 0)
                AskHowFar();
        }
        host.GetEvents().Expect(1);
        host.Call("WriteClose", {handle, content, Core::DateTime(), permissions});
        host.GetEvents().Wait();
    }

private:
    static constexpr unsigned char permissions = 0;

    void AskHowFar()
    {
        host.GetEvents().Expect(1);
        host.Call("Exists", question);
        host.GetEvents().Wait(1);
    }

    Host& host;
    const std::string path;
    const std::size_t burstLength;
    const Core::Value content;
    const Values question{"/"};
};

void WriteByHand(const std::string& path, const Bytes& block, std::size_t count)
{
    FILE* const file = std::fopen(path.c_str(), "wb");
    if (file == nullptr)
        Support::ThrowSystemError(path);
    bool isWhole = true;
    for (std::size_t i = 0; i < count; ++i)
        isWhole = std::fwrite(block.data(), 1, block.size(), file) == block.size() && isWhole;
    if (std::fclose(file) != 0 || !isWhole)
        Support::ThrowSystemError(path);
}

/// Throws unless the file has the size of `count` blocks.
void CheckFile(const std::string& path, std::size_t size)
{
    if (std::filesystem::file_size(path) != size)
        throw std::runtime_error(path + " is not whole");
    std::filesystem::remove(path);
}

Operations MakeOperations(Host& host, const std::string& name, const std::string& path,
                          std::size_t blockSize)
{
    const std::size_t batch = (fileSize + blockSize - 1) / blockSize;
    const auto check = [path, size = batch * blockSize] {
        CheckFile(path, size);
    };
    const auto uploader = std::make_shared<Uploader>(host, path, blockSize);
    const auto block = MakeContent(blockSize);
    return {{.name = name,
             .batch = batch,
             .bytes = blockSize,
             .run = [uploader](std::size_t count) { uploader->Upload(count); },
             .tidy = check},
            {.name = name + "/reference",
             .batch = batch,
             .bytes = blockSize,
             .run = [path, block](std::size_t count) { WriteByHand(path, block, count); },
             .tidy = check}};
}

} // namespace

Operations MakeBlocksOperations(Host& host, const std::filesystem::path& folder)
{
    constexpr std::size_t kibibyte = 1024;
    const auto path = (folder / "blocks").string();
    auto operations = MakeOperations(host, "blocks-60k", path, 60 * kibibyte);
    for (auto& operation : MakeOperations(host, "blocks-1m", path, 1024 * kibibyte))
        operations.push_back(std::move(operation));
    return operations;
}

} // namespace Bench
