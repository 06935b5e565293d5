#pragma once

namespace Host {

/// Refuses all threads of the process, for good, system calls that a host that serves never needs:
/// running programs and making processes, looking into other processes, mounting and namespaces,
/// kernel modules and the kernel's own facilities (BPF, keys, io_uring, performance counters,
/// userfaultfd), opening files without a path, setting clocks and names, connecting. They fail with
/// EPERM. Returns false where the kernel has no such filters. REQUIRES: no new privileges can be
/// gained. Throws SystemException.
bool RefuseSystemCalls();

/// Refuses all threads of the process to make or bind sockets: once the host listens, connections
/// come from clients alone. Otherwise as above.
bool RefuseNewSockets();

} // namespace Host
