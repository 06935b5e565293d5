#include "Operations.h"
#include "Support/SystemError.h"

#include <cstdio>
#include <fstream>
#include <stdexcept>

namespace Bench {

namespace {

constexpr std::size_t batch = 1'000;
constexpr unsigned int length = 61440;

/// Throws unless a block has its full size.
void Check(std::size_t size)
{
    if (size != length)
        throw std::runtime_error("a block was not read");
}

class OpenFile
{
public:
    explicit OpenFile(const std::string& path)
        : file(std::fopen(path.c_str(), "rb"))
    {
        if (file == nullptr)
            Support::ThrowSystemError(path);
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile() { static_cast<void>(std::fclose(file)); }

    void Rewind() { std::rewind(file); }

    [[nodiscard]] Bytes Read()
    {
        Bytes bytes(length);
        bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
        return bytes;
    }

private:
    FILE* file;
};

unsigned int Open(Host& host, const std::string& path)
{
    constexpr unsigned int readMode = 1;
    const auto handle = host.Call("Open", {path, readMode}).at(0).Get<unsigned int>();
    host.GetEvents().Expect(1);
    host.Call("Exists", {path}); // is answered when the file is open
    host.GetEvents().Wait();
    return handle;
}

} // namespace

Operations MakeReadOperations(Host& host, const std::filesystem::path& folder)
{
    const auto path = (folder / "read").string();
    const auto content = MakeContent(batch * length);
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(content.data()),
               static_cast<std::streamsize>(content.size()));

    const unsigned int handle = Open(host, path);
    Operation read{.name = "read", .batch = batch, .bytes = length, .run = {}};
    read.prepare = [&host, handle] {
        host.Call("SetPosition", {handle, 0UL});
    };
    read.run = [&host, inputs = Values{handle, length}](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            Check(host.Call("Read", inputs).at(0).GetByteString().size());
    };

    const auto file = std::make_shared<OpenFile>(path);
    Operation reference{.name = "read/reference", .batch = batch, .bytes = length, .run = {}};
    reference.prepare = [file] {
        file->Rewind();
    };
    reference.run = [file](std::size_t count) {
        for (std::size_t i = 0; i < count; ++i)
            Check(file->Read().size());
    };
    return {read, reference};
}

} // namespace Bench
