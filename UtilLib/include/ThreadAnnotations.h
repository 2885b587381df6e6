#pragma once

/// Annotations that Clang's -Wthread-safety checks; empty for other compilers.
///
///     int m_count KESA_GUARDED_BY(m_mutex);              // only touched while m_mutex is held
///     void growLocked() KESA_REQUIRES(m_mutex);          // the caller holds m_mutex
///     void grow() KESA_EXCLUDES(m_mutex);                // the caller must not hold it
///     FastMutex m_inner KESA_ACQUIRED_AFTER(m_outer);    // order of two locks
#if defined(__clang__)
#define KESA_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define KESA_THREAD_ATTRIBUTE(x)
#endif

#define KESA_CAPABILITY(name) KESA_THREAD_ATTRIBUTE(capability(name))
#define KESA_SCOPED_CAPABILITY KESA_THREAD_ATTRIBUTE(scoped_lockable)
#define KESA_GUARDED_BY(mutex) KESA_THREAD_ATTRIBUTE(guarded_by(mutex))
#define KESA_PT_GUARDED_BY(mutex) KESA_THREAD_ATTRIBUTE(pt_guarded_by(mutex))
#define KESA_ACQUIRED_BEFORE(...) KESA_THREAD_ATTRIBUTE(acquired_before(__VA_ARGS__))
#define KESA_ACQUIRED_AFTER(...) KESA_THREAD_ATTRIBUTE(acquired_after(__VA_ARGS__))
#define KESA_REQUIRES(...) KESA_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define KESA_REQUIRES_SHARED(...) KESA_THREAD_ATTRIBUTE(requires_shared_capability(__VA_ARGS__))
#define KESA_ACQUIRE(...) KESA_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define KESA_ACQUIRE_SHARED(...) KESA_THREAD_ATTRIBUTE(acquire_shared_capability(__VA_ARGS__))
#define KESA_RELEASE(...) KESA_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define KESA_RELEASE_GENERIC(...) KESA_THREAD_ATTRIBUTE(release_generic_capability(__VA_ARGS__))
#define KESA_TRY_ACQUIRE(...) KESA_THREAD_ATTRIBUTE(try_acquire_capability(__VA_ARGS__))
#define KESA_EXCLUDES(...) KESA_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define KESA_RETURN_CAPABILITY(mutex) KESA_THREAD_ATTRIBUTE(lock_returned(mutex))
#define KESA_NO_THREAD_SAFETY_ANALYSIS KESA_THREAD_ATTRIBUTE(no_thread_safety_analysis)
