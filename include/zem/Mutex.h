// Mutex: std::mutex with the annotations that clang's lock checks need.
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

    void lock() ZEM_ACQUIRE() { mutex.lock(); }
    void unlock() ZEM_RELEASE() { mutex.unlock(); }

  private:
    friend class MutexLock;
    std::mutex mutex;
};

// Holds a Mutex for a scope.
class ZEM_SCOPED_CAPABILITY MutexLock {
  public:
    explicit MutexLock(Mutex& held) ZEM_ACQUIRE(held) : lock(held.mutex) {}
    ~MutexLock() ZEM_RELEASE() {}
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    // Gives the mutex up while waiting; may return early, so callers test their condition in a
    // loop.
    void wait(std::condition_variable& condition) { condition.wait(lock); }
    void wait(std::condition_variable& condition, std::chrono::milliseconds limit) {
        condition.wait_for(lock, limit);
    }

  private:
    std::unique_lock<std::mutex> lock;
};

}  // namespace zem
