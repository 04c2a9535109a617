// Annotations: what the compiler is told about the library's symbols and locks.
#pragma once

// Marks what libzem.so exports; everything else stays hidden.
#define ZEM_EXPORT __attribute__((visibility("default")))

// Clang checks lock use with -Wthread-safety; other compilers see nothing.
#if defined(__clang__)
// An attribute for clang's check of locks.
#define ZEM_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
// An attribute for clang's check of locks.
#define ZEM_THREAD_ATTRIBUTE(x)
#endif

// A class that is a lock, under the name that clang calls it by.
#define ZEM_CAPABILITY(name) ZEM_THREAD_ATTRIBUTE(capability(name))

// A class that holds a lock for as long as it lives.
#define ZEM_SCOPED_CAPABILITY ZEM_THREAD_ATTRIBUTE(scoped_lockable)

// A member that is touched only with the mutex held.
#define ZEM_GUARDED_BY(mutex) ZEM_THREAD_ATTRIBUTE(guarded_by(mutex))

// A function that returns with the lock held; no argument: the object itself.
#define ZEM_ACQUIRE(...) ZEM_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))

// A function that gives the lock up; no argument: the object itself.
#define ZEM_RELEASE(...) ZEM_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))

// A function that is called with the lock held.
#define ZEM_REQUIRES(...) ZEM_THREAD_ATTRIBUTE(requires_capability(__VA_ARGS__))

// A function that is left out of the check; it says why it may be.
#define ZEM_NO_THREAD_SAFETY_ANALYSIS ZEM_THREAD_ATTRIBUTE(no_thread_safety_analysis)
