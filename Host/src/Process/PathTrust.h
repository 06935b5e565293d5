#pragma once

#include "Process/Mounts.h"
#include "Process/Roots.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Host {

/// The use of a file that the operator names, unlike those that clients name.
enum class FileUse
{
    Read,       ///< configuration, module or model: others must not change it
    ReadSecret, ///< user file or key: clients must not even read it
    Append,     ///< the log: may lie in a folder of others, but not behind their links
    Run,        ///< the program itself, which runs already
};

/// Finds out whether others could replace a file and so take control of the host.
///
/// Checks every folder and link of a path, and of the targets of links. Each must belong to root,
/// the host's user or the further owner, and others must not be able to write to it. Allowed are
/// sticky folders such as /tmp, and writing by a group whose only member is the owner. None of them
/// may lie inside a root that clients can change, also if another mount leads there.
class PathTrust
{
public:
    /// `furtherOwner` is trusted like root. Throws std::system_error if the mounts cannot be read.
    PathTrust(const std::vector<Root>& roots, std::optional<uid_t> furtherOwner);

    /// Throws InvalidArgumentException with the component that cannot be trusted. The check ends at
    /// a component that does not exist or cannot be read: using the path fails then, or creates it.
    void Check(const std::filesystem::path& path, FileUse use) const;

private:
    class Walk;

    /// A folder that clients can reach: a root, or a mount inside it.
    struct Reachable
    {
        Root root;
        FilePlace place;
    };

    [[nodiscard]] bool IsTrustedOwner(uid_t user) const;
    [[nodiscard]] const Root* FindRootAround(const std::filesystem::path& path, FileUse use) const;

    // Constant after the constructor:
    std::optional<uid_t> furtherOwner;
    std::vector<Mount> mounts;
    std::vector<Root> roots;
    std::vector<Reachable> reachable;
};

} // namespace Host
