// Annotations: what the compiler is told about the library's symbols and locks.
#pragma once

// Marks what libzem.so exports; everything else stays hidden.
#define ZEM_EXPORT __attribute__((visibility("default")))

// Clang checks lock use with -Wthread-safety; other compilers see nothing.
#if defined(__clang__)
#define ZEM_THREAD_ATTRIBUTE(x) __attribute__((x))
#else
#define ZEM_THREAD_ATTRIBUTE(x)
#endif

#define ZEM_CAPABILITY(name) ZEM_THREAD_ATTRIBUTE(capability(name))
#define ZEM_SCOPED_CAPABILITY ZEM_THREAD_ATTRIBUTE(scoped_lockable)
#define ZEM_GUARDED_BY(mutex) ZEM_THREAD_ATTRIBUTE(guarded_by(mutex))
#define ZEM_ACQUIRE(...) ZEM_THREAD_ATTRIBUTE(acquire_capability(__VA_ARGS__))
#define ZEM_RELEASE(...) ZEM_THREAD_ATTRIBUTE(release_capability(__VA_ARGS__))
#define ZEM_NO_THREAD_SAFETY_ANALYSIS ZEM_THREAD_ATTRIBUTE(no_thread_safety_analysis)
