#pragma once

#include "Process/Roots.h"

#include <string>
#include <vector>

namespace Host {

/// Which layers confine the process.
struct SandboxReport
{
    bool hasMountNamespace = false;
    /// The mount namespace belongs to a user namespace of its own: the host is not root.
    bool hasUserNamespace = false;
    /// The version of the kernel's interface; 0 without Landlock.
    int landlockVersion = 0;
    bool hasSystemCallFilter = false;

    /// "mount namespace, Landlock 7 (files, connections, signals), system call filter".
    [[nodiscard]] std::string ToString() const;
};

/// How to treat views of the kernel in roots, see RefuseKernelFiles.
enum class KernelFiles
{
    Refused,
    Allowed,
};

/// Confines the process to the roots, for good, and makes the first one its working directory.
///
/// Afterwards there is, for everything that the process does with a path, only a small read-only
/// file system of its own with the folders that lead to the roots, and the roots themselves,
/// mounted at their real paths with all that is mounted inside them at this moment; a root that was
/// given by way of a symbolic link is there under that name too. Read-only roots are mounted
/// read-only. Device nodes, set-user-ID bits and programs are of no effect in any of them. Landlock
/// grants the same once more, but nothing that makes device nodes or sockets, and keeps the process
/// from connecting to others and from sending signals to them, as far as the kernel knows how. A
/// filter refuses the system calls that the process needs no more, see RefuseSystemCalls. Where the
/// process was root it keeps only the capabilities of dealing with files (and of binding low
/// ports), otherwise none; it can gain none.
///
/// Stay reachable: descriptors that are open already, and those who connect. Not reachable
/// and to be opened or loaded before: keys, the user file, the log, modules, models, shared
/// libraries, time zones, everything that resolves names (/etc/hosts), /proc and /dev.
///
/// REQUIRES: the process has one thread. Throws InvalidStateException when it has more,
/// InvalidArgumentException without roots, for contradicting ones and for those with refused kernel
/// files, SystemException saying what the kernel refused; the process may then be confined in part
/// and should end. Only Landlock and the filter may be missing.
SandboxReport EnterSandbox(const std::vector<Root>& roots,
                           KernelFiles kernelFiles = KernelFiles::Refused);

} // namespace Host
