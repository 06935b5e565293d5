#pragma once

/// Names for the attributes from which clang checks the use of locks (-Wthread-safety, on wherever
/// clang compiles). Other compilers see nothing.
///
/// - `GUARDED_BY(mutex)`: a member that is read and written with the mutex held only.
/// - `PT_GUARDED_BY(mutex)`: the same for the object that a pointer points to.
/// - `REQUIRES(mutex)`: a function that is called with the mutex held.
/// - `EXCLUDES(mutex)`: a function that takes the mutex itself.
/// - `ACQUIRE`, `RELEASE`, `TRY_ACQUIRE`: a function that locks or unlocks.
/// - `RETURN_CAPABILITY(mutex)`: a function that returns a reference to the mutex.
/// - `NO_THREAD_SAFETY_ANALYSIS`: a function that is not checked; a comment says why.
///
/// The attributes: https://clang.llvm.org/docs/ThreadSafetyAnalysis.html

#ifdef __clang__
#define THREAD_ANNOTATION(attribute) __attribute__((attribute))
#else
#define THREAD_ANNOTATION(attribute)
#endif

#define CAPABILITY(name) THREAD_ANNOTATION(capability(name))
#define SCOPED_CAPABILITY THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(mutex) THREAD_ANNOTATION(guarded_by(mutex))
#define PT_GUARDED_BY(mutex) THREAD_ANNOTATION(pt_guarded_by(mutex))
#define REQUIRES(...) THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define REQUIRES_SHARED(...) THREAD_ANNOTATION(requires_shared_capability(__VA_ARGS__))
#define EXCLUDES(...) THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ACQUIRE_SHARED(...) THREAD_ANNOTATION(acquire_shared_capability(__VA_ARGS__))
#define RELEASE(...) THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define RELEASE_SHARED(...) THREAD_ANNOTATION(release_shared_capability(__VA_ARGS__))
#define RELEASE_GENERIC(...) THREAD_ANNOTATION(release_generic_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ASSERT_CAPABILITY(mutex) THREAD_ANNOTATION(assert_capability(mutex))
#define RETURN_CAPABILITY(mutex) THREAD_ANNOTATION(lock_returned(mutex))
#define NO_THREAD_SAFETY_ANALYSIS THREAD_ANNOTATION(no_thread_safety_analysis)
