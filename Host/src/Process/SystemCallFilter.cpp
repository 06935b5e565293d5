#include "Process/SystemCallFilter.h"

#include "Support/SystemError.h"

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sched.h>
#include <span>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace Host {

namespace {

#if defined(__x86_64__)

constexpr std::uint32_t architecture = AUDIT_ARCH_X86_64;
/// Processes, and the machine: calls that other processors do not have.
constexpr std::array refusedOfProcessor = {SYS_fork, SYS_vfork, SYS_iopl, SYS_ioperm,
                                           SYS_modify_ldt};

#elif defined(__aarch64__)

constexpr std::uint32_t architecture = AUDIT_ARCH_AARCH64;
constexpr std::array<int, 0> refusedOfProcessor = {};

#else
#error "no system calls of this processor are listed here"
#endif

constexpr std::array refused = {
    // Programs and processes.
    SYS_execve, SYS_execveat,
    // Other processes.
    SYS_ptrace, SYS_process_vm_readv, SYS_process_vm_writev, SYS_process_madvise, SYS_kcmp,
    SYS_pidfd_open, SYS_pidfd_getfd, SYS_pidfd_send_signal,
    // Mounts, roots and namespaces.
    SYS_mount, SYS_umount2, SYS_pivot_root, SYS_chroot, SYS_fsopen, SYS_fsconfig, SYS_fsmount,
    SYS_fspick, SYS_open_tree, SYS_move_mount, SYS_mount_setattr, SYS_unshare, SYS_setns,
    // Files without a path, and watching all of them.
    SYS_open_by_handle_at, SYS_name_to_handle_at, SYS_fanotify_init,
    // Services of the kernel for other programs.
    SYS_bpf, SYS_perf_event_open, SYS_userfaultfd, SYS_io_uring_setup, SYS_io_uring_enter,
    SYS_io_uring_register, SYS_add_key, SYS_request_key, SYS_keyctl, SYS_lookup_dcookie,
    // The machine.
    SYS_init_module, SYS_finit_module, SYS_delete_module, SYS_kexec_load, SYS_kexec_file_load,
    SYS_reboot, SYS_swapon, SYS_swapoff, SYS_acct, SYS_quotactl, SYS_quotactl_fd, SYS_syslog,
    SYS_settimeofday, SYS_clock_settime, SYS_clock_adjtime, SYS_adjtimex, SYS_sethostname,
    SYS_setdomainname, SYS_personality, SYS_vhangup,
    // A host accepts connections and makes none.
    SYS_connect};

constexpr std::array refusedOnceListening = {SYS_socket, SYS_bind, SYS_listen};

using Program = std::vector<sock_filter>;

sock_filter Load(std::size_t offset)
{
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}

sock_filter Return(std::uint32_t action)
{
    return BPF_STMT(BPF_RET | BPF_K, action);
}

/// Skips `count` instructions unless the loaded value is `value`.
sock_filter SkipUnlessEqual(std::uint32_t value, std::uint8_t count)
{
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, count);
}

constexpr std::uint32_t fails = SECCOMP_RET_ERRNO | EPERM;

/// Ends calls with the numbers of another architecture, which the list does not cover, and refuses
/// those of x32, a variant of x86-64 with numbers of its own.
Program MakeBeginning()
{
    constexpr std::uint32_t firstOfX32 = 0x40000000;
    return {
        Load(offsetof(seccomp_data, arch)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, architecture, 1, 0),
        Return(SECCOMP_RET_KILL_PROCESS),
        Load(offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JGE | BPF_K, firstOfX32, 0, 1),
        Return(fails),
    };
}

void Refuse(Program& program, std::span<const int> calls)
{
    for (const auto call : calls) {
        program.push_back(SkipUnlessEqual(static_cast<std::uint32_t>(call), 1));
        program.push_back(Return(fails));
    }
}

/// Allows making threads, but no processes and namespaces. A filter cannot read the flags of
/// clone3; if it fails with ENOSYS, the C library uses clone.
void AllowThreads(Program& program)
{
    constexpr std::uint32_t namespaces = CLONE_NEWNS | CLONE_NEWCGROUP | CLONE_NEWUTS |
                                         CLONE_NEWIPC | CLONE_NEWUSER | CLONE_NEWPID | CLONE_NEWNET;
    program.insert(program.end(),
                   {
                       SkipUnlessEqual(SYS_clone3, 1),
                       Return(SECCOMP_RET_ERRNO | ENOSYS),
                       SkipUnlessEqual(SYS_clone, 4),
                       Load(offsetof(seccomp_data, args)), // the low half, first
                       BPF_STMT(BPF_ALU | BPF_AND | BPF_K, CLONE_THREAD | namespaces),
                       BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, CLONE_THREAD, 1, 0),
                       Return(fails),
                   });
}

bool Install(Program program)
{
    program.push_back(Return(SECCOMP_RET_ALLOW));
    sock_fprog text = {};
    text.len = static_cast<unsigned short>(program.size());
    text.filter = program.data();
    constexpr auto flags = SECCOMP_FILTER_FLAG_TSYNC | SECCOMP_FILTER_FLAG_TSYNC_ESRCH;
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, flags, &text) == 0)
        return true;
    if (errno == ENOSYS || errno == EINVAL)
        return false;
    Support::ThrowSystemError("cannot filter the process's system calls");
}

} // namespace

bool RefuseSystemCalls()
{
    auto program = MakeBeginning();
    Refuse(program, refused);
    Refuse(program, refusedOfProcessor);
    AllowThreads(program);
    return Install(std::move(program));
}

bool RefuseNewSockets()
{
    auto program = MakeBeginning();
    Refuse(program, refusedOnceListening);
    return Install(std::move(program));
}

} // namespace Host
