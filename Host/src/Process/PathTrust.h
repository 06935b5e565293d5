#pragma once

#include "Process/Mounts.h"
#include "Process/Roots.h"

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace Host {

/// How the host uses a file that it names itself, unlike those that clients name.
enum class FileUse
{
    Read,       ///< configuration, module or model: nobody else may change it
    ReadSecret, ///< user file or key: clients may not even read it
    Append,     ///< the log: it may lie in a folder of others, but not by way of their links
    Run,        ///< the program itself, which runs already
};

/// Decides if a file can be replaced by somebody who could then rule the host.
///
/// A path is followed as it is given: every folder and link on the way, and on the way to the
/// targets of links. Each has to belong to root, the host's user or the further owner, and others
/// may not write to it, unless it is a folder in which they can only add (sticky, as /tmp). A group
/// may write that holds its owner alone. None of it may lie inside a root to which clients write,
/// whatever mount leads there.
class PathTrust
{
public:
    /// `furtherOwner` is trusted like root. Throws SystemException when the mounts cannot be read.
    PathTrust(const std::vector<Root>& roots, std::optional<uid_t> furtherOwner);

    /// Throws InvalidArgumentException naming the component that is not to be trusted. A path ends
    /// where nothing exists, or nothing can be looked at: it is made, or refused, by whoever uses
    /// it.
    void Check(const std::filesystem::path& path, FileUse use) const;

private:
    class Walk;

    /// A folder that clients reach, by all the mounts inside its root.
    struct Reachable
    {
        Root root;
        FilePlace place;
    };

    [[nodiscard]] bool IsTrustedOwner(uid_t user) const;
    [[nodiscard]] const Root* FindRootAround(const std::filesystem::path& path, FileUse use) const;

    // Constant once made:
    std::optional<uid_t> furtherOwner;
    std::vector<Mount> mounts;
    std::vector<Root> roots;
    std::vector<Reachable> reachable;
};

} // namespace Host
