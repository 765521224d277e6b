// ThreadAnnotations.h: tells clang's -Wthread-safety which lock guards what. Expands to nothing elsewhere; macros,
// because other compilers warn about attributes they do not know.
//
//     int busyCount VOLE_GUARDED_BY(mutex);
//     void releaseLocked() VOLE_REQUIRES(mutex);
#ifndef COMMON_STL_THREADANNOTATIONS_H
#define COMMON_STL_THREADANNOTATIONS_H

#if defined(__clang__)
#define VOLE_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define VOLE_THREAD_ATTRIBUTE(x)
#endif

#define VOLE_CAPABILITY(name) VOLE_THREAD_ATTRIBUTE(capability(name))
#define VOLE_SCOPED_CAPABILITY VOLE_THREAD_ATTRIBUTE(scoped_lockable)
#define VOLE_GUARDED_BY(lock) VOLE_THREAD_ATTRIBUTE(guarded_by(lock))
#define VOLE_REQUIRES(...) VOLE_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define VOLE_REQUIRES_SHARED(...) VOLE_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define VOLE_ACQUIRE(...) VOLE_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define VOLE_ACQUIRE_SHARED(...) VOLE_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define VOLE_TRY_ACQUIRE(...) VOLE_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define VOLE_TRY_ACQUIRE_SHARED(...) VOLE_THREAD_ATTRIBUTE(try_acquire_shared_capability(__VA_ARGS__))
#define VOLE_RELEASE(...) VOLE_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define VOLE_RELEASE_GENERIC(...) VOLE_THREAD_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
// For the functions that implement a lock, and those that need none because their caller owns the object alone.
#define VOLE_NO_THREAD_ANALYSIS VOLE_THREAD_ATTRIBUTE(no_thread_safety_analysis)

#endif  // COMMON_STL_THREADANNOTATIONS_H
