// Tally: one thread counts events, another waits for them.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace zem {

class Tally {
  public:
    void add() {
        {
            const std::lock_guard lock(mutex);
            if (++count != wanted) return;
        }
        reached.notify_one();
    }

    // Returns when there are so many more than when it last returned.
    void await(size_t number) {
        std::unique_lock lock(mutex);
        wanted = number;
        reached.wait(lock, [this] { return count >= wanted; });
        count -= number;
        wanted = 0;
    }

  private:
    std::mutex mutex;
    std::condition_variable reached;
    size_t count = 0;
    size_t wanted = 0;
};

}  // namespace zem
