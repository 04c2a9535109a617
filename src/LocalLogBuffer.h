// LocalLogBuffer: the newest important log lines, with the local time, for a dump after the fact.
//
// Any thread.
#pragma once

#include <deque>
#include <string>
#include <vector>

#include <zem/Mutex.h>

namespace zem {

class LocalLogBuffer {
  public:
    // The library's own buffer: name "ZEM", capacity 200. Never destroyed.
    static LocalLogBuffer& getInstance();

    LocalLogBuffer(std::string name, int capacity);

    // Appends one line. The buffer settles at one line more than its capacity: it makes room before
    // it appends, and only when it is over full.
    void addLogWithTimestamp(std::string message);

    // Oldest first.
    std::vector<std::string> getLogs();
    std::string getName();
    void flush();

  private:
    Mutex mutex;
    std::deque<std::string> entries ZEM_GUARDED_BY(mutex);
    const std::string name;
    const size_t capacity;
};

}  // namespace zem
