#pragma once

#include "Process/Roots.h"

#include <string>
#include <vector>

namespace Host {

/// The layers that confine the process.
struct SandboxReport
{
    bool hasMountNamespace = false;
    /// The mount namespace belongs to a user namespace of its own: the host is not root.
    bool hasUserNamespace = false;
    /// The version of the kernel's interface; 0: the kernel has no Landlock.
    int landlockVersion = 0;
    bool hasSystemCallFilter = false;

    /// Returns "mount namespace, Landlock 7 (files, connections, signals), system call filter".
    [[nodiscard]] std::string ToString() const;
};

/// The treatment of kernel file systems in roots, see RefuseKernelFiles.
enum class KernelFiles
{
    Refused,
    Allowed,
};

/// Confines the process to the roots, permanently, and makes the first one its working directory.
///
/// Afterwards the paths of the process lead into a small read-only file system with the folders
/// above the roots, and the roots themselves. They are mounted at their real paths, with all mounts
/// inside them; a root that was given as a symbolic link has that name, too. Read-only roots are
/// mounted read-only. Device nodes, set-user-ID bits and programs have no effect in any of them.
/// Landlock allows the same once more, except making device nodes and sockets; it also refuses
/// connections and signals to others, as far as the kernel can. A filter refuses the system calls
/// that the process does not need any more, see RefuseSystemCalls. A process of root keeps only the
/// capabilities for files and for binding low ports, another one keeps none; it cannot gain any.
///
/// Descriptors that are open already still work, and clients can connect. Open or load before:
/// keys, the user file, the log, modules, models, shared libraries, time zones, /etc/hosts and
/// everything else that resolves names, /proc and /dev.
///
/// REQUIRES: the process has one thread. Throws InvalidStateException if it has more,
/// InvalidArgumentException without roots, for contradicting ones and for refused kernel file
/// systems, and std::system_error if the kernel refuses a step. The process may be confined in part
/// then and should end. Only Landlock and the filter may be missing.
SandboxReport EnterSandbox(const std::vector<Root>& roots,
                           KernelFiles kernelFiles = KernelFiles::Refused);

} // namespace Host
