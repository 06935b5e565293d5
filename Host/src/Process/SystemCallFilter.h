#pragma once

namespace Host {

/// Refuses, permanently and for all threads of the process, system calls that a serving host never
/// needs: running programs, making processes, tracing, mounting and namespaces, kernel modules and
/// facilities of the kernel (BPF, keys, io_uring, performance counters, userfaultfd), opening files
/// without a path, setting clocks and names, connecting. They fail with EPERM. Returns false if the
/// kernel has no such filters. REQUIRES: the process cannot gain privileges. Throws
/// std::system_error.
bool RefuseSystemCalls();

/// Refuses to make or bind sockets: once the host listens, it needs no new ones. Otherwise as
/// above.
bool RefuseNewSockets();

} // namespace Host
