// LocalLogBuffer: the newest important log lines, with the local time, for a dump after the fact.
//
// Any thread.
#pragma once

#include <sys/time.h>

#include <optional>
#include <string>
#include <string_view>
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
    void addLogWithTimestamp(std::string_view message);

    // Oldest first.
    std::vector<std::string> getLogs();
    std::string getName();
    void flush();

  private:
    // What a line begins with: "    2026-11-15 06:49:18.123 [ZEM]".
    std::string_view headAt(const timeval& now) ZEM_REQUIRES(mutex);

    Mutex mutex;
    std::vector<std::string> entries ZEM_GUARDED_BY(mutex);  // a ring once it is over full
    size_t newest ZEM_GUARDED_BY(mutex) = 0;

    // The head is made anew when the second is another, or the variable TZ: null for one that is
    // not set. A zone's file that changes is seen with the next second.
    std::string head ZEM_GUARDED_BY(mutex);
    std::optional<time_t> headSecond ZEM_GUARDED_BY(mutex);
    std::optional<std::string> headZone ZEM_GUARDED_BY(mutex);

    const std::string name;
    const size_t capacity;
};

}  // namespace zem
