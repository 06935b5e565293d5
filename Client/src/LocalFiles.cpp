#include "LocalFiles.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <ios>
#include <optional>
#include <random>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace Client {

namespace {

constexpr mode_t fileMode = 0666; // as far as the umask allows
constexpr mode_t directoryMode = 0777;
constexpr mode_t modeMask = 0777;
constexpr mode_t usableForItsOwner = S_IRUSR | S_IWUSR;
constexpr std::size_t longestName = 255;
constexpr std::size_t keptOfLongName = 200;
constexpr std::string_view partEnd = ".talvensor-part";
constexpr std::string_view asideMark = "-0-"; // no part has the number 0
constexpr std::size_t randomDigits = 16;

std::string ToDigits(std::uint64_t number)
{
    std::array<char, 32> digits{};
    std::snprintf(digits.data(), digits.size(), "%016llx", static_cast<unsigned long long>(number));
    return digits.data();
}

/// Returns "-" and sixteen digits, by FNV-1a: only to tell texts apart.
std::string Hash(const std::string& text)
{
    std::uint64_t hash = 0xCBF29CE484222325U;
    for (const char letter : text)
        hash = (hash ^ static_cast<unsigned char>(letter)) * 0x100000001B3U;
    return "-" + ToDigits(hash);
}

/// Returns the mode that a directory is made with. Its owner may do everything in it, or no later
/// transfer could.
mode_t ToNewMode(const std::optional<std::uint32_t>& mode) noexcept
{
    return mode ? (*mode & modeMask) | S_IRWXU : directoryMode;
}

/// Long names that begin alike are told apart.
std::string MakePartLeaf(const std::string& leaf, const std::string& number)
{
    const std::string end = std::string(partEnd) + number;
    if (leaf.size() + end.size() < longestName)
        return "." + leaf + end;
    return "." + leaf.substr(0, keptOfLongName) + Hash(leaf) + end;
}

} // namespace

Failure MakeLocalFailure(const std::string& path, Step step, FailureKind kind, std::string cause)
{
    Failure failure;
    failure.side = Side::Local;
    failure.path = path;
    failure.step = step;
    failure.kind = kind;
    failure.cause = std::move(cause);
    return failure;
}

std::string GetPartLeaf(const std::string& leaf, unsigned int number)
{
    return MakePartLeaf(leaf, number == 1 ? "" : "-" + std::to_string(number));
}

std::string GetLeaf(const std::string& path)
{
    return path.substr(path.rfind('/') + 1);
}

std::string Normalize(std::string_view path)
{
    std::string normal;
    normal.reserve(path.size());
    const bool isAbsolute = path.starts_with('/');
    while (!path.empty()) {
        const auto name = path.substr(0, path.find('/'));
        path.remove_prefix(std::min(name.size() + 1, path.size()));
        if (name.empty() || name == ".")
            continue;
        if (isAbsolute || !normal.empty())
            normal += '/';
        normal += name;
    }
    if (normal.empty())
        normal = isAbsolute ? "/" : ".";
    return normal;
}

std::string NormalizeLocal(const std::string& path)
{
    std::error_code error; // the current directory may be gone
    const auto absolute = std::filesystem::absolute(path, error);
    return Normalize(error ? path : absolute.native());
}

std::string GetDirectory(const std::string& path)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string GetPartName(const std::string& local)
{
    return local.substr(0, local.rfind('/') + 1) + GetPartLeaf(GetLeaf(local));
}

std::string GetRemotePartName(const std::string& remote, const std::string& local,
                              const std::string& client)
{
    return remote.substr(0, remote.rfind('/') + 1) +
           MakePartLeaf(GetLeaf(remote), Hash(client + NormalizeLocal(local)));
}

std::string MakeRemotePartName(const std::string& remote)
{
    return remote.substr(0, remote.rfind('/') + 1) +
           MakePartLeaf(GetLeaf(remote), "-" + MakeRandomDigits());
}

std::string MakeRandomDigits()
{
    std::random_device random;
    return ToDigits(std::uniform_int_distribution<std::uint64_t>()(random));
}

bool IsHostPartName(std::string_view name)
{
    constexpr std::string_view begin = ".talvensor-";
    constexpr std::string_view last = ".part";
    constexpr std::size_t digits = 32;
    return name.size() == begin.size() + digits + last.size() && name.starts_with(begin) &&
           name.ends_with(last) &&
           name.substr(begin.size(), digits).find_first_not_of("0123456789abcdef") ==
               std::string_view::npos;
}

bool IsPartName(std::string_view name)
{
    if (IsHostPartName(name))
        return true;
    const auto end = name.rfind(partEnd);
    return name.starts_with('.') && end != std::string_view::npos && end > 1 &&
           name.find_first_not_of("-0123456789abcdef", end + partEnd.size()) ==
               std::string_view::npos;
}

std::string MakeAsideName(const std::string& path)
{
    const auto begin = path.rfind('/') + 1; // 0 where there is none
    return path.substr(0, begin) + "." + path.substr(begin, keptOfLongName) + std::string(partEnd) +
           std::string(asideMark) + MakeRandomDigits();
}

bool IsAsideName(std::string_view name)
{
    const auto mark = name.rfind(asideMark);
    return IsPartName(name) && mark != std::string_view::npos &&
           name.substr(0, mark).ends_with(partEnd) &&
           name.size() == mark + asideMark.size() + randomDigits;
}

std::size_t ReadAt(int file, const std::string& name, std::span<unsigned char> buffer,
                   std::uint64_t position)
{
    std::size_t done = 0;
    while (done < buffer.size()) {
        const auto count = pread(file, buffer.data() + done, buffer.size() - done,
                                 static_cast<off_t>(position + done));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            FailLocally(name, Step::Read);
        if (count == 0)
            break;
        done += static_cast<std::size_t>(count);
    }
    return done;
}

void WriteAt(int file, const std::string& name, std::span<const unsigned char> bytes,
             std::uint64_t position)
{
    while (!bytes.empty()) {
        const auto count = pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            FailLocally(name, Step::Write);
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        position += static_cast<std::uint64_t>(count);
    }
}

LocalTree::LocalTree(std::string givenRoot, Mode mode)
    : root(std::move(givenRoot))
{
    while (root.size() > 1 && root.ends_with('/'))
        root.pop_back();
    struct stat status = {};
    if (mkdir(root.c_str(), ToNewMode(mode)) != 0) {
        if (errno != EEXIST)
            FailLocally(root, Step::CreateDirectory);
        if (stat(root.c_str(), &status) == 0)
            rootModeBefore = status.st_mode & modeMask;
    }
    rootDescriptor = Support::Descriptor(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!rootDescriptor.IsOpen())
        FailLocally(root, Step::Open);
}

/// Name by name, so that no link is followed. Those above are there as a rule.
Support::Descriptor LocalTree::OpenDirectory(const std::string& relative, Mode mode)
{
    constexpr int flags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
    Support::Descriptor current(
        openat(rootDescriptor.Get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    std::string_view rest = relative;
    while (!rest.empty()) {
        const std::string name(rest.substr(0, rest.find('/')));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        Support::Descriptor next(openat(current.Get(), name.c_str(), flags));
        const mode_t newMode = rest.empty() ? ToNewMode(mode) : directoryMode;
        if (!next.IsOpen() && errno == ENOENT &&
            (mkdirat(current.Get(), name.c_str(), newMode) == 0 || errno == EEXIST))
            next = Support::Descriptor(openat(current.Get(), name.c_str(), flags));
        if (!next.IsOpen())
            FailLocally(GetName(relative), Step::CreateDirectory);
        current = std::move(next);
    }
    if (!current.IsOpen())
        FailLocally(GetName(relative), Step::Open);
    return current;
}

int LocalTree::OpenParent(const std::string& relative)
{
    const auto slash = relative.rfind('/');
    const std::string directory = slash == std::string::npos ? "" : relative.substr(0, slash);
    if (!opened.IsOpen() || directory != openedPath) {
        opened = OpenDirectory(directory);
        openedPath = directory;
    }
    return opened.Get();
}

LocalTree::Mode LocalTree::MakeDirectory(const std::string& relative, Mode mode)
{
    Mode before;
    struct stat status = {};
    if (fstatat(OpenParent(relative), GetLeaf(relative).c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0)
        before = status.st_mode & modeMask;
    opened = OpenDirectory(relative, mode);
    openedPath = relative;
    return before;
}

void LocalTree::SetTime(const std::string& relative, FileTime time)
{
    const Support::Descriptor directory = OpenDirectory(relative);
    const std::array<timespec, 2> times{
        timespec{0, UTIME_OMIT}, timespec{static_cast<time_t>(time.time_since_epoch().count()), 0}};
    if (futimens(directory.Get(), times.data()) != 0)
        FailLocally(GetName(relative), Step::SetTime);
}

PartFile::PartFile(int directory, std::string givenLeaf, std::string givenPart,
                   std::string givenName, bool keepsContent, std::optional<std::uint32_t> mode)
    : directory(directory)
    , leaf(std::move(givenLeaf))
    , part(std::move(givenPart))
    , shownName(std::move(givenName))
    , mode(mode)
    , descriptor(openat(directory, part.c_str(),
                        O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
                        mode.value_or(fileMode) | usableForItsOwner))
{
    if (!descriptor.IsOpen())
        FailLocally(shownName, Step::Open);
    Lock();
    SetMode();
    if (!keepsContent && GetSize() > 0)
        Truncate(0);
}

/// Two transfers that write one file at the same time would mix its content.
void PartFile::Lock() const
{
    // File systems that cannot lock go without.
    if (flock(descriptor.Get(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw FileFailed(MakeLocalFailure(shownName, Step::Open, FailureKind::Skipped,
                                          "another transfer is writing it"));
}

/// Network file systems and quotas tell of some failures not until a descriptor is closed. The
/// lock stays.
void PartFile::RequireWritten() const
{
    const int copy = fcntl(descriptor.Get(), F_DUPFD_CLOEXEC, 0);
    if (copy < 0 || (close(copy) != 0 && errno != EINTR))
        FailLocally(shownName, Step::Write);
}

/// The part's name may belong to another file by now.
void PartFile::RequireInPlace() const
{
    struct stat own = {};
    struct stat named = {};
    if (fstat(descriptor.Get(), &own) != 0 ||
        fstatat(directory, part.c_str(), &named, AT_SYMLINK_NOFOLLOW) != 0)
        FailLocally(shownName, Step::Rename);
    if (own.st_dev != named.st_dev || own.st_ino != named.st_ino)
        throw FileFailed(MakeLocalFailure(shownName, Step::Rename, FailureKind::LocalSystem,
                                          "its part, " + part + ", was replaced meanwhile"));
}

std::uint64_t PartFile::GetSize() const
{
    struct stat status = {};
    if (fstat(descriptor.Get(), &status) != 0)
        FailLocally(shownName, Step::Open);
    return static_cast<std::uint64_t>(status.st_size);
}

void PartFile::Truncate(std::uint64_t size)
{
    if (ftruncate(descriptor.Get(), static_cast<off_t>(size)) != 0)
        FailLocally(shownName, Step::Write);
}

bool PartFile::DropIfEmpty() noexcept
{
    struct stat status = {};
    return fstat(descriptor.Get(), &status) == 0 && status.st_size == 0 &&
           unlinkat(directory, part.c_str(), 0) == 0;
}

/// One that was there may have another one, and the umask takes from that of a new one.
void PartFile::SetMode()
{
    if (mode && fchmod(descriptor.Get(), *mode | usableForItsOwner) != 0)
        FailLocally(shownName, Step::SetPermissions);
}

void PartFile::Finish(std::optional<FileTime> time)
{
    if (mode && fchmod(descriptor.Get(), *mode) != 0)
        FailLocally(shownName, Step::SetPermissions);
    if (time) {
        const std::array<timespec, 2> times{
            timespec{0, UTIME_OMIT},
            timespec{static_cast<time_t>(time->time_since_epoch().count()), 0}};
        if (futimens(descriptor.Get(), times.data()) != 0)
            FailLocally(shownName, Step::SetTime);
    }
    RequireWritten();
    RequireInPlace();
    if (renameat(directory, part.c_str(), directory, leaf.c_str()) != 0)
        FailLocally(shownName, Step::Rename);
}

std::uint32_t GetUmask()
{
    // umask(2) tells it only by changing it, which files made by other threads would notice.
    std::ifstream status("/proc/self/status");
    std::string word;
    while (status >> word)
        if (std::uint32_t mask = 0; word == "Umask:" && status >> std::oct >> mask)
            return mask;
    return 022;
}

std::optional<FileTime> FindLocalTime(int directory, const std::string& leaf)
{
    struct stat status = {};
    if (fstatat(directory, leaf.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0 ||
        !S_ISREG(status.st_mode))
        return std::nullopt;
    return FileTime(std::chrono::seconds(status.st_mtim.tv_sec));
}

} // namespace Client
