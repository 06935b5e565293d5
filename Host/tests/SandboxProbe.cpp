// Enters the sandbox, or not, and then tries to reach what it should not. Says on standard output,
// line by line, what was done: "LAYERS text", "REFUSED reason", and "DONE attempt" for everything
// that succeeded. The same attempts run without a sandbox show that they can succeed at all.
//
// usage: SandboxProbe MODE [--uid N] [--root DIR] [--read-only DIR] [--outside DIR]
//                     [--kernel-files allowed] [--ways-out all] [--threads N] [--listen N]
//                     [--refuse-sockets N] [--create FILE] [--read FILE] [--touch PATH] [--list
//                     DIR] [--exists PATH]
// MODE: free, sandbox or landlock. With --outside all attempts are made on that folder, which holds
// "secret", "folder/inner" and "link", and on the first read-only root, which holds the same.

#include "Core/Exception.h"
#include "Process/Landlock.h"
#include "Process/Sandbox.h"
#include "Process/SystemCallFilter.h"

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <iostream>
#include <linux/bpf.h>
#include <linux/io_uring.h>
#include <linux/perf_event.h>
#include <memory>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <sys/xattr.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <utime.h>
#include <vector>

namespace Host {
namespace {

using Path = std::filesystem::path;

/// An attempt on a folder with known content; returns true if it succeeds.
struct Attempt
{
    const char* name;
    bool (*run)(const std::string& folder);
};

bool OpenStream(const std::string& path, const char* mode)
{
    std::FILE* const stream = std::fopen(path.c_str(), mode);
    return stream != nullptr && std::fclose(stream) == 0;
}

bool OpenDescriptor(const std::string& path, int flags)
{
    const int descriptor = open(path.c_str(), flags | O_CLOEXEC, S_IRUSR | S_IWUSR);
    return descriptor >= 0 && close(descriptor) == 0;
}

bool ListFolder(const std::string& path)
{
    DIR* const folder = opendir(path.c_str());
    return folder != nullptr && closedir(folder) == 0;
}

bool Touch(const std::string& path)
{
    return utimensat(AT_FDCWD, path.c_str(), nullptr, 0) == 0;
}

bool RemoveTree(const std::string& path)
{
    std::error_code error;
    return std::filesystem::remove_all(path, error) > 0 && !error;
}

bool CopyFile(const std::string& from, const std::string& to)
{
    std::error_code error;
    return std::filesystem::copy_file(from, to, error) && !error;
}

bool Watch(const std::string& path)
{
    const int watcher = inotify_init1(IN_CLOEXEC);
    const bool isWatching = inotify_add_watch(watcher, path.c_str(), IN_ALL_EVENTS) >= 0;
    close(watcher);
    return isWatching;
}

/// Finding out about a folder.
const std::vector<Attempt> looks = {
    {"open to read",
     [](const std::string& at) {
         return OpenStream(at + "/secret", "rb");
     }},
    {"open without access",
     [](const std::string& at) {
         return OpenDescriptor(at + "/secret", O_PATH);
     }},
    {"open the folder",
     [](const std::string& at) {
         return OpenDescriptor(at, O_DIRECTORY);
     }},
    {"list",
     [](const std::string& at) {
         return ListFolder(at);
     }},
    {"list below",
     [](const std::string& at) {
         return ListFolder(at + "/folder");
     }},
    {"stat",
     [](const std::string& at) {
         struct stat status = {};
         return stat((at + "/secret").c_str(), &status) == 0;
     }},
    {"lstat",
     [](const std::string& at) {
         struct stat status = {};
         return lstat((at + "/link").c_str(), &status) == 0;
     }},
    {"test for existence",
     [](const std::string& at) {
         return access((at + "/secret").c_str(), F_OK) == 0;
     }},
    {"read a link",
     [](const std::string& at) {
         char target[4096];
         return readlink((at + "/link").c_str(), target, sizeof(target)) > 0;
     }},
    {"resolve",
     [](const std::string& at) {
         std::error_code error;
         return !std::filesystem::canonical(at + "/secret", error).empty();
     }},
    {"ask for the file system",
     [](const std::string& at) {
         struct statvfs status = {};
         return statvfs((at + "/secret").c_str(), &status) == 0;
     }},
    {"change into",
     [](const std::string& at) {
         const auto before = std::filesystem::current_path();
         const bool isThere = chdir(at.c_str()) == 0;
         return isThere && chdir(before.c_str()) == 0;
     }},
    {"watch",
     [](const std::string& at) {
         return Watch(at);
     }},
};

/// Changing a folder.
const std::vector<Attempt> changes = {
    {"open to write",
     [](const std::string& at) {
         return OpenStream(at + "/secret", "wb");
     }},
    {"open to append",
     [](const std::string& at) {
         return OpenStream(at + "/secret", "ab");
     }},
    {"open to update",
     [](const std::string& at) {
         return OpenStream(at + "/secret", "r+b");
     }},
    {"create",
     [](const std::string& at) {
         return OpenStream(at + "/new", "wb");
     }},
    {"create exclusively",
     [](const std::string& at) {
         return OpenDescriptor(at + "/new", O_WRONLY | O_CREAT | O_EXCL);
     }},
    {"create without a name",
     [](const std::string& at) {
         return OpenDescriptor(at, O_WRONLY | O_TMPFILE);
     }},
    {"truncate",
     [](const std::string& at) {
         return truncate((at + "/secret").c_str(), 0) == 0;
     }},
    {"set the time",
     [](const std::string& at) {
         const utimbuf times = {.actime = 1'000, .modtime = 1'000};
         return utime((at + "/secret").c_str(), &times) == 0;
     }},
    {"set the time of the folder",
     [](const std::string& at) {
         return utimensat(AT_FDCWD, at.c_str(), nullptr, 0) == 0;
     }},
    {"set permissions",
     [](const std::string& at) {
         return chmod((at + "/secret").c_str(), S_IRWXU) == 0;
     }},
    {"set permissions of the folder",
     [](const std::string& at) {
         return chmod(at.c_str(), S_IRWXU) == 0;
     }},
    {"set the owner",
     [](const std::string& at) {
         return chown((at + "/secret").c_str(), geteuid(), getegid()) == 0;
     }},
    {"set an attribute",
     [](const std::string& at) {
         return setxattr((at + "/secret").c_str(), "user.test", "x", 1, 0) == 0;
     }},
    {"make a folder",
     [](const std::string& at) {
         return mkdir((at + "/new").c_str(), S_IRWXU) == 0;
     }},
    {"make a pipe",
     [](const std::string& at) {
         return mkfifo((at + "/new").c_str(), S_IRWXU) == 0;
     }},
    {"make a link",
     [](const std::string& at) {
         return symlink("secret", (at + "/new").c_str()) == 0;
     }},
    {"make a hard link",
     [](const std::string& at) {
         return link((at + "/secret").c_str(), (at + "/new").c_str()) == 0;
     }},
    {"rename",
     [](const std::string& at) {
         return std::rename((at + "/secret").c_str(), (at + "/new").c_str()) == 0;
     }},
    {"copy",
     [](const std::string& at) {
         return CopyFile(at + "/secret", at + "/new");
     }},
    {"remove a file",
     [](const std::string& at) {
         return unlink((at + "/secret").c_str()) == 0;
     }},
    {"remove an empty folder",
     [](const std::string& at) {
         return rmdir((at + "/empty").c_str()) == 0;
     }},
    {"remove a tree",
     [](const std::string& at) {
         return RemoveTree(at + "/folder");
     }},
};

/// Getting something from a folder into the root, which is the working directory, or back.
const std::vector<Attempt> moves = {
    {"move in",
     [](const std::string& at) {
         return std::rename((at + "/secret").c_str(), "stolen") == 0;
     }},
    {"link in",
     [](const std::string& at) {
         return link((at + "/secret").c_str(), "stolen") == 0;
     }},
    {"copy in",
     [](const std::string& at) {
         return CopyFile(at + "/secret", "stolen");
     }},
    {"move out",
     [](const std::string& at) {
         return std::rename("inside", (at + "/new").c_str()) == 0;
     }},
    {"link out",
     [](const std::string& at) {
         return link("inside", (at + "/new").c_str()) == 0;
     }},
    {"copy out",
     [](const std::string& at) {
         return CopyFile("inside", at + "/new");
     }},
};

/// Undoing the sandbox, which only something like a takeover of the process would try.
const std::vector<Attempt> escapes = {
    {"remount",
     [](const std::string& at) {
         return mount(nullptr, at.c_str(), nullptr, MS_REMOUNT | MS_BIND, nullptr) == 0;
     }},
    {"unmount",
     [](const std::string& at) {
         return umount2(at.c_str(), MNT_DETACH) == 0;
     }},
    {"mount proc",
     [](const std::string&) {
         return mount("proc", ".", "proc", 0, nullptr) == 0;
     }},
    {"mount on top",
     [](const std::string&) {
         return mount("none", ".", "tmpfs", 0, nullptr) == 0;
     }},
    {"change the root",
     [](const std::string&) {
         return chroot(".") == 0;
     }},
    {"make a device",
     [](const std::string&) {
         return mknod("device", S_IFCHR | S_IRWXU, makedev(1, 3)) == 0;
     }},
    {"use a device",
     [](const std::string&) {
         return OpenStream("existing-device", "rb");
     }},
    {"run a program",
     [](const std::string&) {
         return access("program", X_OK) == 0;
     }},
    {"change the sandbox's own folders",
     [](const std::string&) {
         return mkdir("/new", S_IRWXU) == 0;
     }},
    {"set the time of the sandbox's own folders",
     [](const std::string&) {
         return Touch("/");
     }},
    {"set permissions of the sandbox's own folders",
     [](const std::string&) {
         return chmod("/", S_IRWXU) == 0;
     }},
    {"list the sandbox's own folders",
     [](const std::string&) {
         return ListFolder("/");
     }},
};

/// A process that does nothing, and ends with its parent, which cannot end it by a signal from
/// inside a sandbox.
pid_t StartIdler()
{
    int ends[2] = {};
    if (pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    const auto process = fork();
    if (process == 0) {
        close(ends[1]);
        close(STDOUT_FILENO); // the parent reads until everybody has closed it
        char none = 0;
        std::_Exit(static_cast<int>(read(ends[0], &none, 1)));
    }
    close(ends[0]);
    return process;
}

/// Makes targets for the attempts before the sandbox is entered.
struct Neighbours
{
    Neighbours()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        bind(tcp, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
        listen(tcp, 1);
        socklen_t size = sizeof(tcpAddress);
        getsockname(tcp, reinterpret_cast<sockaddr*>(&tcpAddress), &size);
        // The system chooses an abstract name for a socket that is bound to none.
        const sa_family_t family = AF_UNIX;
        bind(abstract, reinterpret_cast<const sockaddr*>(&family), sizeof(family));
        listen(abstract, 1);
        abstractSize = sizeof(abstractAddress);
        getsockname(abstract, reinterpret_cast<sockaddr*>(&abstractAddress), &abstractSize);
    }

    int tcp = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int abstract = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in tcpAddress = {};
    sockaddr_un abstractAddress = {};
    socklen_t abstractSize = 0;
    pid_t idler = StartIdler();
    char secret[8] = "secret";
};

/// Tries in a child, so that it does not last; the child's status is the result.
template <typename Operation>
bool TryInAChild(Operation operation)
{
    const auto child = fork();
    if (child < 0)
        return operation(); // no child can be made
    if (child == 0)
        std::_Exit(operation() ? 0 : 1);
    int status = 1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

bool ConnectTo(int family, const void* address, socklen_t size)
{
    const int client = socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool isConnected = connect(client, static_cast<const sockaddr*>(address), size) == 0;
    close(client);
    return isConnected;
}

bool MakesDescriptor(long descriptor)
{
    return descriptor >= 0 && close(static_cast<int>(descriptor)) == 0;
}

/// Fork is tried as a call of its own and as a flag of clone.
bool MakeProcess()
{
    const auto tryIt = [](long call) {
        const auto child =
            call == SYS_fork ? syscall(SYS_fork) : syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0);
        if (child == 0)
            std::_Exit(0);
        if (child > 0)
            waitpid(static_cast<pid_t>(child), nullptr, 0);
        return child > 0;
    };
    const bool byFork = tryIt(SYS_fork);
    return tryIt(SYS_clone) || byFork;
}

bool ReadMemoryOf(pid_t process, const char* address)
{
    char copy[8];
    const iovec here = {copy, sizeof(copy)};
    const iovec there = {const_cast<char*>(address), sizeof(copy)};
    return process_vm_readv(process, &here, 1, &there, 1, 0) > 0;
}

bool LoadProgram()
{
    bpf_insn text[2] = {};
    text[0].code = BPF_ALU64 | BPF_MOV | BPF_K;
    text[1].code = BPF_JMP | BPF_EXIT;
    bpf_attr attributes = {};
    attributes.prog_type = BPF_PROG_TYPE_SOCKET_FILTER;
    attributes.insns = reinterpret_cast<std::uintptr_t>(text);
    attributes.insn_cnt = 2;
    attributes.license = reinterpret_cast<std::uintptr_t>("GPL");
    return MakesDescriptor(syscall(SYS_bpf, BPF_PROG_LOAD, &attributes, sizeof(attributes)));
}

bool CountEvents()
{
    perf_event_attr attributes = {};
    attributes.type = PERF_TYPE_SOFTWARE;
    attributes.size = sizeof(attributes);
    attributes.config = PERF_COUNT_SW_CPU_CLOCK;
    return MakesDescriptor(syscall(SYS_perf_event_open, &attributes, 0, -1, -1, 0));
}

bool OpenWithoutPath()
{
    alignas(file_handle) unsigned char room[sizeof(file_handle) + MAX_HANDLE_SZ] = {};
    auto* const handle = reinterpret_cast<file_handle*>(room);
    handle->handle_bytes = MAX_HANDLE_SZ;
    int mount = 0;
    if (name_to_handle_at(AT_FDCWD, ".", handle, &mount, 0) != 0)
        return false;
    const int folder = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const bool isOpen = MakesDescriptor(open_by_handle_at(folder, handle, O_RDONLY));
    close(folder);
    return isOpen;
}

bool UseRing()
{
    io_uring_params parameters = {};
    return MakesDescriptor(syscall(SYS_io_uring_setup, 1, &parameters));
}

struct WayOut
{
    const char* name;
    bool (*run)(const Neighbours& neighbours);
};

const std::vector<WayOut> waysOut = {
    {"run a program",
     [](const Neighbours&) {
         return TryInAChild([] {
             // In a sandbox without programs, the number of the error tells.
             const char* const arguments[] = {"/bin/true", nullptr};
             execve("/bin/true", const_cast<char**>(arguments), nullptr);
             return errno != EPERM;
         });
     }},
    {"make a process",
     [](const Neighbours&) {
         return MakeProcess();
     }},
    {"trace a process",
     [](const Neighbours& neighbours) {
         const auto child = neighbours.idler;
         return ptrace(PTRACE_SEIZE, child, nullptr, nullptr) == 0;
     }},
    {"read another's memory",
     [](const Neighbours& neighbours) {
         return ReadMemoryOf(neighbours.idler, neighbours.secret);
     }},
    {"make a namespace",
     [](const Neighbours&) {
         return TryInAChild([] { return unshare(CLONE_NEWNET) == 0; });
     }},
    {"make a namespace by clone",
     [](const Neighbours&) {
         const auto child = syscall(SYS_clone, CLONE_NEWNET | SIGCHLD, 0, 0, 0, 0);
         if (child == 0)
             std::_Exit(0);
         if (child > 0)
             waitpid(static_cast<pid_t>(child), nullptr, 0);
         return child > 0;
     }},
    {"open a mount",
     [](const Neighbours&) {
         return MakesDescriptor(fsopen("tmpfs", FSOPEN_CLOEXEC));
     }},
    {"open without a path",
     [](const Neighbours&) {
         return OpenWithoutPath();
     }},
    {"load a program into the kernel",
     [](const Neighbours&) {
         return LoadProgram();
     }},
    {"count what others do",
     [](const Neighbours&) {
         return CountEvents();
     }},
    {"watch its own faults",
     [](const Neighbours&) {
         return MakesDescriptor(syscall(SYS_userfaultfd, O_CLOEXEC));
     }},
    {"use a ring of requests",
     [](const Neighbours&) {
         return UseRing();
     }},
    {"use the kernel's keys",
     [](const Neighbours&) {
         return syscall(SYS_keyctl, 0 /* KEYCTL_GET_KEYRING_ID */, -3, 1) >= 0;
     }},
    {"connect by TCP",
     [](const Neighbours& neighbours) {
         return ConnectTo(AF_INET, &neighbours.tcpAddress, sizeof(neighbours.tcpAddress));
     }},
    {"connect to an abstract socket",
     [](const Neighbours& neighbours) {
         return ConnectTo(AF_UNIX, &neighbours.abstractAddress, neighbours.abstractSize);
     }},
    {"signal another process",
     [](const Neighbours& neighbours) {
         return kill(neighbours.idler, 0) == 0;
     }},
    {"raise privileges",
     [](const Neighbours&) {
         return geteuid() != 0 && setuid(0) == 0;
     }},
};

void TryWaysOut(const Neighbours& neighbours)
{
    for (const auto& way : waysOut) {
        if (way.run(neighbours))
            std::cout << "DONE " << way.name << "\n";
    }
}

bool StartThread()
{
    try {
        std::thread([] {}).join();
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

bool Listen()
{
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool listens = listener >= 0 && listen(listener, 1) == 0;
    close(listener);
    return listens;
}

/// Files that no sandbox of ours contains.
const std::vector<std::string> forbidden = {
    "/proc",
    "/proc/self/root",
    "/proc/self/cwd",
    "/proc/self/environ",
    "/proc/self/exe",
    "/proc/1/root",
    "/proc/self/fd/0",
    "/dev/null",
    "/dev",
    "/sys",
    "/etc/passwd",
    "/etc/hosts",
    "/usr/lib",
    "/bin",
    "../../../../etc/passwd",
    "../../../../../../proc",
};

struct Options
{
    std::string mode;
    std::vector<Root> roots;
    std::string outside;
    std::string readOnly;
    KernelFiles kernelFiles = KernelFiles::Refused;
    bool triesWaysOut = false;
    std::vector<std::pair<std::string, std::string>> questions;
};

void ChangeUser(uid_t user)
{
    // Changing the user makes a process unreadable to itself until it runs another program.
    if (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0 ||
        prctl(PR_SET_DUMPABLE, 1, 0, 0, 0) != 0) {
        std::perror("SandboxProbe: cannot become another user");
        std::_Exit(2);
    }
}

Options ReadOptions(const std::vector<std::string>& arguments)
{
    Options options;
    options.mode = arguments.at(1);
    for (std::size_t index = 2; index < arguments.size(); index += 2) {
        const auto& name = arguments.at(index);
        const auto& value = arguments.at(index + 1);
        if (name == "--uid") {
            ChangeUser(static_cast<uid_t>(std::stoul(value)));
        } else if (name == "--root") {
            options.roots.push_back(MakeRoot(value, false));
        } else if (name == "--read-only") {
            options.roots.push_back(MakeRoot(value, true));
            options.readOnly = value;
        } else if (name == "--outside") {
            options.outside = value;
        } else if (name == "--kernel-files") {
            options.kernelFiles = KernelFiles::Allowed;
        } else if (name == "--ways-out") {
            options.triesWaysOut = true;
        } else {
            options.questions.emplace_back(name, value);
        }
    }
    return options;
}

/// Returns all names that could lead to a folder.
std::vector<std::string> NameInManyWays(const Path& folder, const Path& root)
{
    const auto relative = folder.lexically_relative(root).string();
    return {
        folder.string(),
        relative,
        "./" + relative,
        root.string() + "/" + relative,
        "folder/../" + relative,
        "link-to-" + folder.filename().string(),
        root.string() + "/link-to-" + folder.filename().string(),
        "relative-link-to-" + folder.filename().string(),
        "/proc/self/root" + folder.string(),
        "/proc/self/cwd/" + relative,
        "/proc/thread-self/root" + folder.string(),
        "//" + folder.string(),
    };
}

/// Writes a new file: some file systems wait for the disk when a file is overwritten.
void Replace(const Path& file, const std::string& content)
{
    std::error_code error;
    std::filesystem::remove(file, error);
    std::ofstream(file) << content;
}

/// Puts the content that the attempts count on into a folder, if possible. Undoes the attempt
/// before.
void Restore(const Path& folder)
{
    std::error_code error;
    std::filesystem::remove_all(folder / "new", error);
    std::filesystem::create_directories(folder / "folder" / "inner", error);
    std::filesystem::create_directory(folder / "empty", error);
    std::filesystem::remove("stolen", error);
    std::filesystem::create_symlink("secret", folder / "link", error);
    Replace(folder / "secret", "secret");
    Replace("inside", "inside");
}

void TryAll(const std::vector<Attempt>& attempts, const Path& folder, const Options& options)
{
    for (const auto& name : NameInManyWays(folder, options.roots.front().real)) {
        for (const auto& attempt : attempts) {
            if (options.mode == "free")
                Restore(folder);
            if (attempt.run(name))
                std::cout << "DONE " << folder.filename().string() << ": " << attempt.name << " as "
                          << name << "\n";
        }
    }
}

void TryEverything(const Options& options)
{
    TryAll(looks, options.outside, options);
    TryAll(changes, options.outside, options);
    TryAll(moves, options.outside, options);
    TryAll(changes, options.readOnly, options);
    if (options.mode == "free")
        return;
    TryAll(escapes, options.readOnly, options);
    for (const auto& path : forbidden) {
        struct stat status = {};
        if (lstat(path.c_str(), &status) == 0 || errno != ENOENT)
            std::cout << "DONE see " << path << "\n";
    }
}

void Answer(const std::string& question, const std::string& path)
{
    const std::vector<std::pair<std::string, bool>> answers = {
        {"--create", question == "--create" && OpenStream(path, "wb")},
        {"--read", question == "--read" && OpenStream(path, "rb")},
        {"--touch", question == "--touch" && Touch(path)},
        {"--list", question == "--list" && ListFolder(path)},
        {"--exists", question == "--exists" && access(path.c_str(), F_OK) == 0},
        {"--threads", question == "--threads" && StartThread()},
        {"--listen", question == "--listen" && Listen()},
        {"--refuse-sockets", question == "--refuse-sockets" && RefuseNewSockets()},
    };
    for (const auto& [name, isDone] : answers) {
        if (isDone)
            std::cout << "DONE " << name.substr(2) << " " << path << "\n";
    }
}

void Enter(const Options& options)
{
    if (options.mode == "sandbox") {
        const auto report = EnterSandbox(options.roots, options.kernelFiles);
        std::cout << "LAYERS " << report.ToString() << "\n";
    } else {
        if (options.mode == "landlock") {
            prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
            std::cout << "LAYERS Landlock " << RestrictWithLandlock(options.roots) << "\n";
        }
        std::filesystem::current_path(options.roots.front().real);
    }
}

int Run(const std::vector<std::string>& arguments)
{
    const auto options = ReadOptions(arguments);
    std::unique_ptr<Neighbours> neighbours;
    if (options.triesWaysOut)
        neighbours = std::make_unique<Neighbours>();
    try {
        Enter(options);
    } catch (const std::exception& error) {
        std::cout << "REFUSED " << error.what() << "\n";
        return 3;
    }
    if (!options.outside.empty())
        TryEverything(options);
    if (options.triesWaysOut)
        TryWaysOut(*neighbours);
    for (const auto& [question, path] : options.questions)
        Answer(question, path);
    return 0;
}

} // namespace
} // namespace Host

int main(int argc, char** argv)
{
    const int status = Host::Run({argv, argv + argc});
    std::cout.flush();
    // Checkers for leaks read /proc at the end, which is gone.
    std::_Exit(status);
}
