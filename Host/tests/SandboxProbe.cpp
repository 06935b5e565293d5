// Enters the sandbox, or not, and then tries to reach what it should not. Says on standard output,
// line by line, what was done: "LAYERS text", "REFUSED reason", and "DONE attempt" for everything
// that succeeded. The same attempts run without a sandbox show that they can succeed at all.
//
// usage: SandboxProbe MODE [--uid N] [--root DIR] [--read-only DIR] [--outside DIR]
//                     [--create FILE] [--read FILE] [--touch PATH] [--list DIR] [--exists PATH]
// MODE: free, sandbox or landlock. With --outside all attempts are made on that folder, which holds
// "secret", "folder/inner" and "link", and on the first read-only root, which holds the same.

#include "Core/Exception.h"
#include "Landlock.h"
#include "Sandbox.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <functional>
#include <grp.h>
#include <iostream>
#include <string>
#include <sys/inotify.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>
#include <utime.h>
#include <vector>

namespace Host {
namespace {

using Path = std::filesystem::path;

/// What is tried on a folder with known content; true when it was possible.
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

/// Getting something from a folder into the root, which is the working directory, or out of it.
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

/// What no sandbox of ours holds.
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
        } else {
            options.questions.emplace_back(name, value);
        }
    }
    return options;
}

/// A folder by all the names that could lead to it.
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

/// Some file systems wait for the disk where a file is overwritten, but not where it is a new one.
void Replace(const Path& file, const std::string& content)
{
    std::error_code error;
    std::filesystem::remove(file, error);
    std::ofstream(file) << content;
}

/// Puts the content that the attempts count on into a folder, where that is possible: what an
/// attempt before it did is undone.
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
    };
    for (const auto& [name, isDone] : answers) {
        if (isDone)
            std::cout << "DONE " << name.substr(2) << " " << path << "\n";
    }
}

void Enter(const Options& options)
{
    if (options.mode == "sandbox") {
        const auto report = EnterSandbox(options.roots);
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
    try {
        Enter(options);
    } catch (const Core::Exception& error) {
        std::cout << "REFUSED " << error.GetMessage() << "\n";
        return 3;
    }
    if (!options.outside.empty())
        TryEverything(options);
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
    // Checkers that look for leaks at the end read /proc, which is not there any more.
    std::_Exit(status);
}
