// Clang's thread-safety attributes; nothing under other compilers, and nothing outside the library, whose
// callers cannot see its locks.
#pragma once

#if defined(__clang__) && defined(QV_UNIT)
#define QV_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define QV_THREAD_ATTRIBUTE(x)
#endif

#define QV_CAPABILITY(name) QV_THREAD_ATTRIBUTE(capability(name))
#define QV_SCOPED_CAPABILITY QV_THREAD_ATTRIBUTE(scoped_lockable)
#define QV_GUARDED_BY(lock) QV_THREAD_ATTRIBUTE(guarded_by(lock))
#define QV_REQUIRES(...) QV_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))
#define QV_ACQUIRE(...) QV_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define QV_RELEASE(...) QV_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define QV_EXCLUDES(...) QV_THREAD_ATTRIBUTE(locks_excluded(__VA_ARGS__))
#define QV_ASSERT_HELD(...) QV_THREAD_ATTRIBUTE(assert_capability(__VA_ARGS__))
// Every use says beside it why the lock is not taken.
#define QV_NO_THREAD_SAFETY_ANALYSIS QV_THREAD_ATTRIBUTE(no_thread_safety_analysis)
