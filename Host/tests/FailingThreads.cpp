// Preloaded into a program, makes its n-th attempt to start a thread fail as one fails when the
// system allows no more; TALVENSOR_FAILING_THREAD says which.

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <dlfcn.h>
#include <pthread.h>
#include <unistd.h>

extern "C" [[gnu::visibility("default")]] int pthread_create(pthread_t* thread,
                                                             const pthread_attr_t* attributes,
                                                             void* (*function)(void*),
                                                             void* argument)
{
    static std::atomic<long> attempts{0};
    const char* failing = std::getenv("TALVENSOR_FAILING_THREAD");
    if (failing != nullptr && ++attempts == std::strtol(failing, nullptr, 10)) {
        constexpr char text[] = "A thread is refused\n";
        static_cast<void>(!::write(STDERR_FILENO, text, sizeof(text) - 1));
        return EAGAIN;
    }
    using Create = int (*)(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*);
    static const auto create = reinterpret_cast<Create>(dlsym(RTLD_NEXT, "pthread_create"));
    return create(thread, attributes, function, argument);
}
