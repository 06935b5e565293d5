#include "Roots.h"

#include "Core/Exception.h"

#include <algorithm>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <system_error>

namespace Host {

namespace {

std::filesystem::path Normalize(const std::filesystem::path& path)
{
    const auto normal = std::filesystem::absolute(path).lexically_normal();
    return normal.has_filename() ? normal : normal.parent_path();
}

bool IsViewOfTheKernel(const std::filesystem::path& folder)
{
    struct statfs status = {};
    return statfs(folder.c_str(), &status) == 0 && status.f_type == PROC_SUPER_MAGIC;
}

std::filesystem::path Resolve(const std::filesystem::path& path)
{
    std::error_code error;
    auto resolved = std::filesystem::weakly_canonical(path, error);
    return error ? path.lexically_normal() : resolved;
}

} // namespace

Root MakeRoot(const std::filesystem::path& path, bool isReadOnly)
{
    const auto refuse = [&path](const std::string& reason) {
        throw Core::InvalidArgumentException("'" + path.string() + "' cannot be a root: " + reason);
    };
    std::error_code error;
    const auto real = std::filesystem::canonical(path, error);
    if (error)
        refuse(error.message());
    if (!std::filesystem::is_directory(real))
        refuse("it is not a folder");
    if (real == real.root_path())
        refuse("it is the whole file system, the host's own keys and files included");
    if (IsViewOfTheKernel(real))
        refuse("it is a view of the kernel, not a folder of files");
    return {.given = Normalize(path), .real = real, .isReadOnly = isReadOnly};
}

void CheckTogether(const std::vector<Root>& roots)
{
    for (const auto& root : roots) {
        const auto contradicts = [&root](const Root& other) {
            return other.real == root.real && other.isReadOnly != root.isReadOnly;
        };
        if (std::any_of(roots.begin(), roots.end(), contradicts))
            throw Core::InvalidArgumentException("the root '" + root.real.string() +
                                                 "' is given both as read-only and as writable");
    }
}

bool IsInside(const std::filesystem::path& path, const std::filesystem::path& folder)
{
    const auto inner = Resolve(path);
    const auto outer = Resolve(folder);
    return std::mismatch(outer.begin(), outer.end(), inner.begin(), inner.end()).first ==
           outer.end();
}

} // namespace Host
