#include "SourceTree.h"

#include "Text.h"

#include <algorithm>
#include <cerrno>
#include <optional>
#include <system_error>
#include <utility>

namespace Demo {

namespace {

namespace fs = std::filesystem;

class SourceTreeReader
{
public:
    SourceTreeReader(fs::path root, const fs::path& workspace, Report& report)
        : tree{std::move(root), {}}
        , workspace(FileStatus::Get(workspace))
        , report(report)
    {}

    SourceTree Read()
    {
        ReadDirectory({});
        std::ranges::sort(tree.entries, {}, &SourceEntry::path);
        return std::move(tree);
    }

private:
    void ReadDirectory(const fs::path& relative)
    {
        std::error_code error;
        const auto directory = relative.empty() ? tree.root : tree.root / relative;
        for (fs::directory_iterator entry(directory, error); !error && entry != fs::end(entry);
             entry.increment(error))
            ReadEntry(relative / entry->path().filename());
        if (error)
            report.Fail("cannot read directory " + Quote(directory) + ": " + error.message());
    }

    void ReadEntry(const fs::path& relative)
    {
        const auto path = tree.root / relative;
        const auto own = FileStatus::GetOfLink(path);
        const auto status = FileStatus::Get(path);
        if (!own || (!status && !own->IsLink()))
            report.Fail("cannot look at " + Quote(path) + ": " + LastError());
        else if (!status)
            report.Skip("link " + Quote(path) + " leads nowhere: " + LastError());
        else
            Add({relative, *status, own->IsLink()});
    }

    void Add(SourceEntry entry)
    {
        if (workspace && entry.status.IsSameFile(*workspace))
            return;
        if (!entry.status.IsDirectory() && !entry.status.IsRegular()) {
            report.Skip(Quote(tree.root / entry.path) + " is neither a file nor a directory");
            return;
        }
        const bool descend = entry.status.IsDirectory() && !entry.isLink;
        const auto path = entry.path;
        tree.entries.push_back(std::move(entry));
        if (descend)
            ReadDirectory(path);
    }

    static std::string LastError() { return std::generic_category().message(errno); }

    SourceTree tree;
    const std::optional<FileStatus> workspace;
    Report& report;
};

} // namespace

SourceTree ReadSourceTree(const fs::path& root, const fs::path& workspace, Report& report)
{
    return SourceTreeReader(root, workspace, report).Read();
}

} // namespace Demo
