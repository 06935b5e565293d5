// A file system that answers slowly: SlowDisk FOLDER MILLISECONDS mounts itself on the folder and
// prints "ready". It has a file "file" with the content "content", and a directory "directory" with
// a hundred empty files. Each answer takes the time. It ends with a signal; the mount stays, dead,
// until somebody unmounts it. Needs root.

#include <fcntl.h>
#include <linux/fuse.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace {

constexpr std::uint64_t rootNode = FUSE_ROOT_ID;
constexpr std::uint64_t fileNode = 2;
constexpr std::uint64_t directoryNode = 3;
constexpr std::uint64_t firstInDirectory = 100;
constexpr std::uint64_t inDirectory = 100;
constexpr std::string_view content = "content";

struct Entry
{
    std::uint64_t node = 0;
    std::string name;
};

bool IsDirectory(std::uint64_t node)
{
    return node == rootNode || node == directoryNode;
}

std::vector<Entry> GetEntries(std::uint64_t directory)
{
    if (directory == rootNode)
        return {{fileNode, "file"}, {directoryNode, "directory"}};
    std::vector<Entry> entries;
    for (std::uint64_t i = 0; directory == directoryNode && i < inDirectory; ++i)
        entries.push_back({firstInDirectory + i, "file " + std::to_string(i)});
    return entries;
}

fuse_attr GetAttributes(std::uint64_t node)
{
    fuse_attr attributes{};
    attributes.ino = node;
    attributes.mode = IsDirectory(node) ? S_IFDIR | 0755U : S_IFREG | 0644U;
    attributes.nlink = 1;
    attributes.size = node == fileNode ? content.size() : 0;
    return attributes;
}

/// Answers the kernel, as it may ask again and again: nothing is kept.
class Disk
{
public:
    Disk(int device, std::chrono::milliseconds delay)
        : device(device)
        , delay(delay)
    {}

    void Serve()
    {
        alignas(8) std::array<char, 256 * 1024> buffer{};
        for (ssize_t size = 0; (size = read(device, buffer.data(), buffer.size())) > 0;) {
            const auto& header = *reinterpret_cast<const fuse_in_header*>(buffer.data());
            if (header.opcode == FUSE_FORGET || header.opcode == FUSE_BATCH_FORGET)
                continue;
            std::this_thread::sleep_for(delay);
            Answer(header, buffer.data() + sizeof(header));
        }
    }

private:
    void Answer(const fuse_in_header& header, const char* input)
    {
        switch (header.opcode) {
        case FUSE_INIT: {
            fuse_init_out out{};
            out.major = FUSE_KERNEL_VERSION;
            out.minor = FUSE_KERNEL_MINOR_VERSION;
            out.max_write = 65'536;
            return Send(header, 0, &out, sizeof(out));
        }
        case FUSE_LOOKUP:
            return AnswerLookUp(header, input);
        case FUSE_GETATTR: {
            fuse_attr_out out{};
            out.attr = GetAttributes(header.nodeid);
            return Send(header, 0, &out, sizeof(out));
        }
        case FUSE_OPEN:
        case FUSE_OPENDIR: {
            const fuse_open_out out{};
            return Send(header, 0, &out, sizeof(out));
        }
        case FUSE_READ: {
            const auto& in = *reinterpret_cast<const fuse_read_in*>(input);
            const auto part = content.substr(std::min<std::uint64_t>(in.offset, content.size()));
            return Send(header, 0, part.data(), part.size());
        }
        case FUSE_READDIR:
            return AnswerReadDirectory(header, *reinterpret_cast<const fuse_read_in*>(input));
        case FUSE_STATFS: {
            const fuse_statfs_out out{};
            return Send(header, 0, &out, sizeof(out));
        }
        case FUSE_RELEASE:
        case FUSE_RELEASEDIR:
        case FUSE_ACCESS:
            return Send(header, 0, nullptr, 0);
        default:
            return Send(header, -ENOSYS, nullptr, 0);
        }
    }

    void AnswerLookUp(const fuse_in_header& header, const char* name)
    {
        for (const auto& entry : GetEntries(header.nodeid))
            if (entry.name == name) {
                fuse_entry_out out{};
                out.nodeid = entry.node;
                out.attr = GetAttributes(entry.node);
                return Send(header, 0, &out, sizeof(out));
            }
        Send(header, -ENOENT, nullptr, 0);
    }

    void AnswerReadDirectory(const fuse_in_header& header, const fuse_read_in& in)
    {
        const auto entries = GetEntries(header.nodeid);
        std::string out;
        for (auto i = in.offset; i < entries.size(); ++i) {
            fuse_dirent entry{};
            entry.ino = entries[i].node;
            entry.off = i + 1;
            entry.namelen = static_cast<std::uint32_t>(entries[i].name.size());
            entry.type = IsDirectory(entry.ino) ? S_IFDIR >> 12U : S_IFREG >> 12U;
            const auto size = FUSE_DIRENT_ALIGN(FUSE_NAME_OFFSET + entry.namelen);
            if (out.size() + size > in.size)
                break;
            std::string record(size, '\0');
            std::memcpy(record.data(), &entry, FUSE_NAME_OFFSET);
            entries[i].name.copy(record.data() + FUSE_NAME_OFFSET, entry.namelen);
            out += record;
        }
        Send(header, 0, out.data(), out.size());
    }

    void Send(const fuse_in_header& header, int error, const void* data, std::size_t size)
    {
        fuse_out_header out{};
        out.len = static_cast<std::uint32_t>(sizeof(out) + size);
        out.error = error;
        out.unique = header.unique;
        std::string message(out.len, '\0');
        std::memcpy(message.data(), &out, sizeof(out));
        if (size > 0)
            std::memcpy(message.data() + sizeof(out), data, size);
        // A request that was interrupted takes no answer.
        static_cast<void>(!write(device, message.data(), message.size()));
    }

    const int device;
    const std::chrono::milliseconds delay;
};

} // namespace

int main(int count, char** arguments)
{
    if (count != 3)
        return 2;
    const int device = open("/dev/fuse", O_RDWR | O_CLOEXEC);
    const std::string options =
        "fd=" + std::to_string(device) + ",rootmode=40000,user_id=0,group_id=0,allow_other";
    if (device < 0 || mount("SlowDisk", arguments[1], "fuse.SlowDisk", MS_NOSUID | MS_NODEV,
                            options.c_str()) != 0) {
        std::perror("cannot mount");
        return 1;
    }
    std::puts("ready");
    std::fflush(stdout);
    Disk(device, std::chrono::milliseconds(std::stoi(arguments[2]))).Serve();
    return 0;
}
