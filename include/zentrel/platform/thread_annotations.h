#pragma once
// Annotations for clang's thread-safety analysis (-Wthread-safety): which lock guards which field,
// which functions need a lock held, which acquire or release one. With GCC, and with any compiler
// that lacks the analysis, every macro expands to nothing.
//
//   ZTMutex mutex_;
//   int count_ ZT_GUARDED_BY(mutex_);
//   void bumpLocked() ZT_REQUIRES(mutex_);
//
// The analysis understands only locks that are annotated as capabilities: use ZTMutex,
// ZTRecursiveMutex and their guards (zentrel/platform/mutex.h) for annotated fields.

#if defined(__clang__)
#define ZT_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZT_THREAD_ANNOTATION(x)
#endif

#define ZT_CAPABILITY(name) ZT_THREAD_ANNOTATION(capability(name))
#define ZT_SCOPED_CAPABILITY ZT_THREAD_ANNOTATION(scoped_lockable)
#define ZT_GUARDED_BY(lock) ZT_THREAD_ANNOTATION(guarded_by(lock))
#define ZT_PT_GUARDED_BY(lock) ZT_THREAD_ANNOTATION(pt_guarded_by(lock))
#define ZT_ACQUIRED_BEFORE(...) ZT_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define ZT_ACQUIRED_AFTER(...) ZT_THREAD_ANNOTATION(acquired_after(__VA_ARGS__))
#define ZT_REQUIRES(...) ZT_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ZT_ACQUIRE(...) ZT_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define ZT_RELEASE(...) ZT_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define ZT_TRY_ACQUIRE(...) ZT_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define ZT_EXCLUDES(...) ZT_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ZT_ASSERT_CAPABILITY(lock) ZT_THREAD_ANNOTATION(assert_capability(lock))
#define ZT_RETURN_CAPABILITY(lock) ZT_THREAD_ANNOTATION(lock_returned(lock))
#define ZT_NO_THREAD_SAFETY_ANALYSIS ZT_THREAD_ANNOTATION(no_thread_safety_analysis)
