#pragma once

#include "Client/FileSystem.h"
#include "Support/Descriptor.h"
#include "Tally.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace Client {

[[nodiscard]] Failure MakeLocalFailure(const std::string& path, Step step, FailureKind kind,
                                       std::string cause);

/// Reads as much as fits from a position; less at the end of the file. Throws FileFailed.
std::size_t ReadAt(int file, const std::string& name, std::span<unsigned char> buffer,
                   std::uint64_t position);
/// Throws FileFailed.
void WriteAt(int file, const std::string& name, std::span<const unsigned char> bytes,
             std::uint64_t position);

/// The directory that a download goes into. Every operation stays below it: links are not followed.
class LocalTree
{
public:
    using Mode = std::optional<std::uint32_t>;

    /// Made when it is missing: with the mode and all permissions for its owner, as far as the
    /// umask allows. Throws FileFailed.
    explicit LocalTree(std::string root, Mode mode = {});

    /// Makes a directory and those above it, that one as the root is. Returns the mode of one that
    /// was there. REQUIRES: the path is safe.
    Mode MakeDirectory(const std::string& relative, Mode mode = {});
    /// Returns the mode of the root if that was there.
    [[nodiscard]] Mode GetRootModeBefore() const noexcept { return rootModeBefore; }
    void SetTime(const std::string& relative, FileTime time);

    /// The directory of a path below the root, which is kept until the next call. Throws
    /// FileFailed.
    int OpenParent(const std::string& relative);

    [[nodiscard]] std::string GetName(const std::string& relative) const
    {
        return relative.empty() ? root : root + "/" + relative;
    }

private:
    Support::Descriptor OpenDirectory(const std::string& relative, Mode mode = {});

    std::string root;
    Mode rootModeBefore;
    Support::Descriptor rootDescriptor;
    std::string openedPath;
    Support::Descriptor opened;
};

/// Returns the name of a download until it is whole. Number 1 is the usual one; the others are for
/// the case that another file has that name.
[[nodiscard]] std::string GetPartLeaf(const std::string& leaf, unsigned int number = 1);

/// Returns the name that an upload of a local file has until it is whole, the same for the same
/// source of the same client: so it can be carried on. REQUIRES: no other transfer writes it.
[[nodiscard]] std::string GetRemotePartName(const std::string& remote, const std::string& local,
                                            const std::string& client);
/// Returns a name of that form that no other transfer has.
[[nodiscard]] std::string MakeRemotePartName(const std::string& remote);
/// Returns true for the name that the host's file objects give a copy until it is whole.
[[nodiscard]] bool IsHostPartName(std::string_view name);
/// Returns sixteen random digits.
[[nodiscard]] std::string MakeRandomDigits();

/// A download that has another name until it is whole. Locked against other transfers meanwhile.
class PartFile
{
public:
    /// `directory` has to stay open. Opens or makes the part: with the mode, if there is one, and
    /// with reading and writing for its owner until it is whole. Throws FileFailed.
    PartFile(int directory, std::string leaf, std::string part, std::string shownName,
             bool keepsContent, std::optional<std::uint32_t> mode = {});

    [[nodiscard]] int GetDescriptor() const noexcept { return descriptor.Get(); }
    [[nodiscard]] std::uint64_t GetSize() const;
    void Truncate(std::uint64_t size);
    /// Deletes the part if nothing came, since there is nothing to carry on. Returns true then.
    bool DropIfEmpty() noexcept;
    /// Gives it its time, its mode and its name. Throws FileFailed, also when not all could be
    /// written.
    void Finish(std::optional<FileTime> time);

private:
    void Lock() const;
    void SetMode();
    void RequireWritten() const;
    void RequireInPlace() const;

    int directory;
    std::string leaf;
    std::string part;
    std::string shownName;
    std::optional<std::uint32_t> mode; // as it is to be in the end
    Support::Descriptor descriptor;
};

/// Returns the last name of a path.
[[nodiscard]] std::string GetLeaf(const std::string& path);
/// Returns the path without parts that change nothing: "a//./b/" becomes "a/b".
[[nodiscard]] std::string Normalize(std::string_view path);
/// Likewise, of a local file, from the root on: equal for paths that name the same place.
[[nodiscard]] std::string NormalizeLocal(const std::string& path);
/// Returns the path before the last name; "." when there is nothing.
[[nodiscard]] std::string GetDirectory(const std::string& path);

/// Returns the permissions that the process's umask takes from new files; the usual ones where the
/// system does not tell.
[[nodiscard]] std::uint32_t GetUmask();

/// Returns the time of a local file, when there is one.
[[nodiscard]] std::optional<FileTime> FindLocalTime(int directory, const std::string& leaf);

} // namespace Client
