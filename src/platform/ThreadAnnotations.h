// Annotations for clang's thread-safety analysis (-Wthread-safety). They
// state which mutex guards which data and which functions take or need it,
// so that clang rejects an access made without the lock. Other compilers
// ignore them.
#ifndef VELMOR_PLATFORM_THREAD_ANNOTATIONS_H_
#define VELMOR_PLATFORM_THREAD_ANNOTATIONS_H_

#if defined(__clang__)
#define VELMOR_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VELMOR_THREAD_ANNOTATION(x)
#endif

// A type that is a lock ("mutex").
#define CAPABILITY(x) VELMOR_THREAD_ANNOTATION(capability(x))
// A type whose objects hold a lock for their lifetime.
#define SCOPED_CAPABILITY VELMOR_THREAD_ANNOTATION(scoped_lockable)
// The data may be touched only while holding the named lock.
#define GUARDED_BY(x) VELMOR_THREAD_ANNOTATION(guarded_by(x))
// What the pointer points to may be touched only while holding the lock.
#define PT_GUARDED_BY(x) VELMOR_THREAD_ANNOTATION(pt_guarded_by(x))
// The caller must hold the named locks.
#define REQUIRES(...) VELMOR_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
// The caller must not hold the named locks (the function takes them).
#define EXCLUDES(...) VELMOR_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
// The function takes the named locks (or, on a lock type, itself).
#define ACQUIRE(...) VELMOR_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
// The function releases the named locks (or, on a lock type, itself).
#define RELEASE(...) VELMOR_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
// Tells the analysis that the lock is held at this point.
#define ASSERT_CAPABILITY(x) VELMOR_THREAD_ANNOTATION(assert_capability(x))
// Leaves a function out of the analysis; say why wherever it is used.
#define NO_THREAD_SAFETY_ANALYSIS VELMOR_THREAD_ANNOTATION(no_thread_safety_analysis)

#endif  // VELMOR_PLATFORM_THREAD_ANNOTATIONS_H_
