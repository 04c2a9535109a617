// LocalLogBuffer: the newest important log lines, with the local time, for a dump after the fact.
//
// Any thread.
#pragma once

#include <ctime>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <zem/Mutex.h>

namespace zem {

// The local time down to the second, as text. Made anew when the second or the variable TZ is
// another; a zone file that changes behind TZ's back is seen with the next second.
class SecondText {
  public:
    std::string_view at(time_t second);

  private:
    bool isMadeIn(const char* zone) const;

    std::optional<time_t> madeFor;
    bool zoneNamed = false;  // by TZ
    char zoneName[64] = {};
    char text[50] = {};
    size_t length = 0;
};

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
    Mutex mutex;
    std::deque<std::string> entries ZEM_GUARDED_BY(mutex);
    SecondText secondText ZEM_GUARDED_BY(mutex);
    const std::string name;
    const size_t capacity;
};

}  // namespace zem
