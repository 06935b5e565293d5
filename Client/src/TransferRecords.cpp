#include "TransferRecords.h"

#include "LocalFiles.h"

#include "Support/PrivateFiles.h"

#include <cerrno>
#include <chrono>
#include <exception>
#include <fcntl.h>
#include <span>
#include <sstream>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace Client {

namespace {

namespace fs = std::filesystem;

/// Nobody carries on after so long; and what is recorded names files.
constexpr std::chrono::hours keptFor{30 * 24};
constexpr std::string_view format = "talvensor-transfer-1";

std::span<const unsigned char> BytesOf(const std::string& text)
{
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

/// Every part is told from the next: names have no NUL.
std::string GetName(const TransferKey& key)
{
    std::string text = key.direction == Direction::Up ? "up" : "down";
    for (const auto* const part : {&key.server, &key.local, &key.remote})
        text += '\0' + *part;
    PrefixDigest digest;
    digest.Add(0, BytesOf(text));
    return digest.Get();
}

std::string ToText(const TransferRecord& record)
{
    std::ostringstream text;
    text << format << ' ' << record.sourceSize << ' ' << record.sourceTime << ' ' << record.length
         << ' ' << record.digest << ' ' << (record.targetSize ? 1 : 0) << ' '
         << record.targetSize.value_or(0) << ' ' << record.targetTime << " end\n";
    return text.str();
}

std::optional<TransferRecord> FromText(const std::string& text)
{
    std::istringstream words(text);
    TransferRecord record;
    std::string start;
    std::string end;
    int hasTarget = 0;
    std::uint64_t targetSize = 0;
    words >> start >> record.sourceSize >> record.sourceTime >> record.length >> record.digest >>
        hasTarget >> targetSize >> record.targetTime >> end;
    if (!words || start != format || end != "end")
        return std::nullopt;
    if (hasTarget != 0)
        record.targetSize = targetSize;
    return record;
}

/// Opens and locks a file. The descriptor is not open when another one holds it, which `isTaken`
/// tells, or when it fails.
Support::Descriptor LockFile(const fs::path& file, bool& isTaken)
{
    constexpr int flags = O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC;
    for (;;) {
        Support::Descriptor descriptor(open(file.c_str(), flags, S_IRUSR | S_IWUSR));
        if (!descriptor.IsOpen())
            return {};
        if (flock(descriptor.Get(), LOCK_EX | LOCK_NB) != 0) {
            isTaken = errno == EWOULDBLOCK;
            return {};
        }
        // The time keeps it from expiring.
        if (futimens(descriptor.Get(), nullptr) != 0)
            return {};
        struct stat own = {};
        struct stat named = {};
        if (fstat(descriptor.Get(), &own) != 0)
            return {};
        if (stat(file.c_str(), &named) == 0 && own.st_dev == named.st_dev &&
            own.st_ino == named.st_ino)
            return descriptor;
        // The one before has removed it meanwhile.
    }
}

} // namespace

TransferLock::TransferLock(fs::path givenFile, Support::Descriptor givenDescriptor) noexcept
    : file(std::move(givenFile))
    , descriptor(std::move(givenDescriptor))
{}

TransferLock::~TransferLock()
{
    if (descriptor.IsOpen())
        unlink(file.c_str());
}

TransferRecords::TransferRecords(const fs::path& stateFolder)
    : folder(stateFolder.empty() ? fs::path() : stateFolder / "transfers")
{}

fs::path TransferRecords::GetFile(const TransferKey& key) const
{
    return folder / GetName(key);
}

std::optional<TransferRecord> TransferRecords::Find(const TransferKey& key) const noexcept
{
    try {
        if (folder.empty() || !fs::exists(GetFile(key)))
            return std::nullopt;
        if (fs::last_write_time(GetFile(key)) + keptFor < fs::file_time_type::clock::now())
            return std::nullopt;
        return FromText(Support::ReadFile(GetFile(key)));
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void TransferRecords::Save(const TransferKey& key, const TransferRecord& record) const noexcept
{
    try {
        if (folder.empty())
            return;
        MakeFolder();
        RemoveExpired();
        Support::WritePrivateFile(GetFile(key), ToText(record));
    } catch (const std::exception&) {
        Remove(key); // the one of an earlier transfer says nothing of this one
    }
}

void TransferRecords::Remove(const TransferKey& key) const noexcept
{
    try {
        std::error_code error;
        if (!folder.empty())
            fs::remove(GetFile(key), error);
    } catch (const std::exception&) {
        // Out of memory: what is found later is compared with what is there.
    }
}

void TransferRecords::MakeFolder() const
{
    Support::MakePrivateFolder(folder.parent_path());
    Support::MakePrivateFolder(folder);
}

Locking TransferRecords::Lock(const TransferKey& key) const noexcept
{
    Locking locking;
    try {
        if (folder.empty())
            return locking;
        MakeFolder();
        fs::path file = GetFile(key);
        file += ".lock";
        if (auto descriptor = LockFile(file, locking.isTaken); descriptor.IsOpen())
            locking.lock.emplace(std::move(file), std::move(descriptor));
    } catch (const std::exception&) { // NOLINT(bugprone-empty-catch): it cannot be carried on
    }
    return locking;
}

std::optional<std::string> TransferRecords::FindClient() const noexcept
{
    try {
        if (folder.empty())
            return std::nullopt;
        MakeFolder();
        const fs::path file = folder.parent_path() / "client-id";
        const Support::Descriptor lock(
            open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)); // of the one that makes it
        if (!lock.IsOpen() || flock(lock.Get(), LOCK_EX) != 0)
            return std::nullopt;
        if (!fs::exists(file))
            Support::WritePrivateFile(file, MakeRandomDigits());
        return Support::ReadPrivateFile(file, Support::GroupMayRead::No);
    } catch (const std::exception&) {
        return std::nullopt;
    }
}

void TransferRecords::RemoveExpired() const
{
    std::error_code error;
    const auto oldest = fs::file_time_type::clock::now() - keptFor;
    for (fs::directory_iterator entry(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error)) {
        std::error_code unknown;
        if (entry->last_write_time(unknown) < oldest && !unknown)
            fs::remove(entry->path(), unknown);
    }
}

} // namespace Client
