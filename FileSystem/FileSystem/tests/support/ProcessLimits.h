#pragma once

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <fcntl.h>
#include <pthread.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <system_error>
#include <unistd.h>

namespace FileSystemTests {

/// Sets one limit of this process as long as it lives.
class ProcessLimit
{
public:
    ProcessLimit(__rlimit_resource resource, rlim_t limit)
        : resource(resource)
    {
        if (::getrlimit(resource, &previous) != 0)
            throw std::system_error(errno, std::generic_category(), "getrlimit");
        const rlimit changed{limit, previous.rlim_max};
        if (::setrlimit(resource, &changed) != 0)
            throw std::system_error(errno, std::generic_category(), "setrlimit");
    }
    ProcessLimit(const ProcessLimit&) = delete;
    ProcessLimit& operator=(const ProcessLimit&) = delete;
    ~ProcessLimit() { static_cast<void>(::setrlimit(resource, &previous)); }

private:
    __rlimit_resource resource;
    rlimit previous{};
};

/// Keeps files from growing beyond a size: writing fails, as on a full disk. Print nothing
/// meanwhile, since the standard output may be a file.
class FileSizeLimit
{
public:
    explicit FileSizeLimit(rlim_t bytes)
        : limit(RLIMIT_FSIZE, bytes)
    {}
    FileSizeLimit(const FileSizeLimit&) = delete;
    FileSizeLimit& operator=(const FileSizeLimit&) = delete;
    ~FileSizeLimit() { static_cast<void>(std::signal(SIGXFSZ, previous)); }

private:
    using Handler = void (*)(int);
    Handler previous = std::signal(SIGXFSZ, SIG_IGN); // before the limit
    ProcessLimit limit;
};

/// Keeps this process from opening further descriptors.
class NoMoreDescriptors
{
public:
    NoMoreDescriptors()
        : limit(RLIMIT_NOFILE, LowestFreeDescriptor())
    {}

private:
    static rlim_t LowestFreeDescriptor()
    {
        const int descriptor = ::open("/", O_RDONLY | O_CLOEXEC);
        if (descriptor < 0)
            throw std::system_error(errno, std::generic_category(), "open /");
        ::close(descriptor);
        return static_cast<rlim_t>(descriptor);
    }

    ProcessLimit limit;
};

/// Keeps the process from starting threads: the system has no room for their stacks.
class NoMoreThreads
{
public:
    NoMoreThreads()
    {
        ::pthread_getattr_default_np(&previous);
        pthread_attr_t endless = previous;
        ::pthread_attr_setstacksize(&endless, std::size_t{1} << 47U);
        ::pthread_setattr_default_np(&endless);
    }
    NoMoreThreads(const NoMoreThreads&) = delete;
    NoMoreThreads& operator=(const NoMoreThreads&) = delete;
    ~NoMoreThreads()
    {
        ::pthread_setattr_default_np(&previous);
        ::pthread_attr_destroy(&previous);
    }

private:
    pthread_attr_t previous{};
};

/// Gives the calling thread alone the rights of an ordinary user as long as this lives; if it has
/// no others, nothing changes. Made and destroyed on the same thread.
class WithoutRights
{
public:
    WithoutRights()
        : previous(static_cast<uid_t>(::setfsuid(::geteuid() == 0 ? nobody : ::geteuid())))
    {}
    WithoutRights(const WithoutRights&) = delete;
    WithoutRights& operator=(const WithoutRights&) = delete;
    ~WithoutRights() { ::setfsuid(previous); }

private:
    static constexpr uid_t nobody = 65534;
    uid_t previous;
};

} // namespace FileSystemTests
