#pragma once

namespace Host {

#if defined(__SANITIZE_THREAD__)
inline constexpr bool underThreadSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
inline constexpr bool underThreadSanitizer = true;
#else
inline constexpr bool underThreadSanitizer = false;
#endif
#else
inline constexpr bool underThreadSanitizer = false;
#endif

/// ThreadSanitizer runs a thread of its own, and a sandbox wants a process with one thread.
#define SKIP_UNDER_THREAD_SANITIZER()                                                              \
    if (underThreadSanitizer)                                                                      \
    GTEST_SKIP() << "NOT TESTED, a sandbox wants a process with one thread, and ThreadSanitizer "  \
                    "runs one of its own"

} // namespace Host
