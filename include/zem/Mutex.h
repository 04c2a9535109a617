// Mutex: std::mutex with the annotations that clang's lock checks need. Any thread.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#include <zem/Annotations.h>

namespace zem {

class ZEM_CAPABILITY("mutex") Mutex {
  public:
    constexpr Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    // Blocks until the lock is to be had; the thread must not hold it already.
    void lock() ZEM_ACQUIRE() { mutex.lock(); }

    // The thread must hold the lock.
    void unlock() ZEM_RELEASE() { mutex.unlock(); }

  private:
    friend class MutexLock;
    std::mutex mutex;
};

// Holds a Mutex for a scope.
class ZEM_SCOPED_CAPABILITY MutexLock {
  public:
    // Blocks until the lock is to be had.
    explicit MutexLock(Mutex& held) ZEM_ACQUIRE(held) : lock(held.mutex) {}

    // Gives the lock up.
    ~MutexLock() ZEM_RELEASE() {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    // Gives the mutex up while waiting and has it again when it returns. May return early, so
    // callers test their condition in a loop.
    void wait(std::condition_variable& condition) { condition.wait(lock); }

    // The same, for at most limit; how it ended is not told.
    void wait(std::condition_variable& condition, std::chrono::milliseconds limit) {
        condition.wait_for(lock, limit);
    }

  private:
    std::unique_lock<std::mutex> lock;
};

}  // namespace zem
