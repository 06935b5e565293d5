#pragma once

#include "FileSystemClient.h"
#include "Report.h"
#include "SourceTree.h"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Demo {

/// Mirrors a tree through the methods of a file system and compares. Reports a failure and goes on
/// with the next entry; NoAnswerException and exceptions of the host end it.
class Mirror
{
public:
    Mirror(FileSystemClient& fileSystem, const SourceTree& source, std::filesystem::path target,
           Report& report);

    /// Compares listings of the source's directories with what the demo has read itself.
    void ListSource();
    void CreateDirectories();
    void CopyFiles();
    /// Sets the times of directories last, deepest first: filling one changes its time.
    void SetDirectoryTimes();
    /// Compares a recursive listing of the mirror with the source: names, kinds and times.
    void ListMirror();
    /// Reads every file back and compares it with the source.
    void CompareFiles();
    /// Tests the existence of every entry.
    void AskExistence();
    /// Deletes half of the entries, whole directories where they fit, and checks what is left.
    void DeleteHalf();

private:
    using ListedEntries = std::map<std::string, ListedEntry>;

    void Try(const std::filesystem::path& path, const std::function<void()>& operation);

    void ListSourceDirectory(const std::filesystem::path& path, const std::set<std::string>& names);

    void CopyFile(const SourceEntry& entry);
    void CopyContent(unsigned int from, const std::filesystem::path& to, const SourceEntry& entry);
    void CopyInBlocks(unsigned int from, const Bytes& first, Bytes second,
                      const std::filesystem::path& to, const SourceEntry& entry);

    void CompareFile(const SourceEntry& entry);
    void CompareContent(unsigned int handle, const SourceEntry& entry);
    void CompareStatus(const SourceEntry& entry);

    [[nodiscard]] Listing ListWhole(bool& isComplete);
    void CompareListing(bool withTimes);
    void CompareListedEntry(const SourceEntry& entry, const ListedEntries& listed, bool isComplete,
                            bool withTimes);

    /// Removes half of the entries from `remaining` and returns the paths to delete for that.
    [[nodiscard]] std::vector<std::filesystem::path> TakeHalf();
    [[nodiscard]] std::filesystem::path InSource(const SourceEntry& entry) const;
    [[nodiscard]] std::filesystem::path InMirror(const SourceEntry& entry) const;

    FileSystemClient& fileSystem;
    const SourceTree& source;
    const std::filesystem::path target;
    Report& report;
    std::vector<SourceEntry> remaining; // what the mirror has to hold
};

} // namespace Demo
