#include "Checksums.h"

#include "DirectoryReader.h"
#include "Files.h"
#include "Statuses.h"
#include "Trees.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <memory>
#include <openssl/evp.h>
#include <string_view>
#include <unistd.h>

namespace FileObjects {

namespace {

constexpr std::size_t blockSize = 256UL * 1024;

class Sha256
{
public:
    Sha256() { Require(context && EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) == 1); }

    void Update(const void* bytes, std::size_t size)
    {
        Require(EVP_DigestUpdate(context.get(), bytes, size) == 1);
    }

    std::vector<unsigned char> Finish()
    {
        std::vector<unsigned char> bytes(32);
        Require(EVP_DigestFinal_ex(context.get(), bytes.data(), nullptr) == 1);
        return bytes;
    }

private:
    struct Delete
    {
        void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    };

    static void Require(bool holds)
    {
        if (!holds)
            Refuse(Status::unexpectedError, "", "SHA-256 is not available");
    }

    std::unique_ptr<EVP_MD_CTX, Delete> context{EVP_MD_CTX_new()};
};

std::vector<std::string> ListNames(const Descriptor& directory, const std::string& subject)
{
    std::vector<std::string> names;
    DirectoryReader reader(directory, subject);
    for (DirectoryEntry entry; reader.Next(entry);)
        names.emplace_back(entry.name);
    std::ranges::sort(names);
    return names;
}

Checksum ComputeChecksum(const Descriptor& file, std::uint64_t start, std::uint64_t length,
                         const std::string& subject, const Caller& caller)
{
    Sha256 sum;
    Checksum result;
    std::vector<unsigned char> block(blockSize);
    const auto last = static_cast<std::uint64_t>(std::numeric_limits<off_t>::max());
    while (length == 0 || result.length < length) {
        caller.CheckGoesOn();
        const std::uint64_t position = start + result.length;
        if (position < start || position > last)
            break;
        const auto wanted = length == 0 ? blockSize : std::min(length - result.length, blockSize);
        const auto count = pread(file.Get(), block.data(), wanted, static_cast<off_t>(position));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            RefuseWithErrno(subject, errno);
        if (count == 0)
            break;
        sum.Update(block.data(), static_cast<std::size_t>(count));
        result.length += static_cast<std::uint64_t>(count);
    }
    result.bytes = sum.Finish();
    return result;
}

class TreeChecksum
{
public:
    explicit TreeChecksum(const Caller& caller)
        : caller(caller)
    {}

    std::vector<unsigned char> Compute(const Descriptor& directory, const std::string& subject)
    {
        RequireLevel(++level, subject);
        Sha256 sum;
        for (const auto& name : ListNames(directory, subject)) {
            caller.CheckGoesOn();
            AddEntry(sum, directory, name, subject);
        }
        --level;
        return sum.Finish();
    }

private:
    void AddEntry(Sha256& sum, const Descriptor& directory, const std::string& name,
                  const std::string& parent)
    {
        const std::string subject = parent + "/" + name;
        struct stat state
        {};
        if (fstatat(directory.Get(), name.c_str(), &state, AT_SYMLINK_NOFOLLOW) != 0)
            RefuseWithErrno(subject, errno);
        const bool isDirectory = S_ISDIR(state.st_mode);
        if (!isDirectory && !S_ISREG(state.st_mode))
            return;
        const auto entry = OpenEntry(
            directory, name, O_RDONLY | O_NONBLOCK | (isDirectory ? O_DIRECTORY : O_NOCTTY));
        if (!entry.IsOpen())
            RefuseWithErrno(subject, errno);
        sum.Update(isDirectory ? "d" : "f", 1);
        sum.Update(name.c_str(), name.size() + 1);
        const auto own = isDirectory ? Compute(entry, subject)
                                     : ComputeChecksum(entry, 0, 0, subject, caller).bytes;
        sum.Update(own.data(), own.size());
    }

    const Caller& caller;
    std::size_t level = 0; // of the directories that are open
};

} // namespace

Checksum ComputeFileChecksum(const Folders& folders, const Place& place, OpenFiles& openFiles,
                             std::uint64_t start, std::uint64_t length, const Caller& caller)
{
    const std::string subject = folders.Show(place);
    const Descriptor file = folders.OpenFile(place, O_RDONLY);
    openFiles.RequireReadable(ToIdentity(GetState(file, subject)), caller.GetSession(), subject);
    return ComputeChecksum(file, start, length, subject, caller);
}

std::vector<unsigned char> ComputeTreeChecksum(const Folders& folders, const Place& place,
                                               const Caller& caller)
{
    return TreeChecksum(caller).Compute(folders.OpenDirectory(place), folders.Show(place));
}

} // namespace FileObjects
