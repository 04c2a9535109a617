#include "LocalLogBuffer.h"

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <utility>

namespace zem {

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static LocalLogBuffer& instance = *new LocalLogBuffer("ZEM", 200);
    return instance;
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)), capacity(static_cast<size_t>(capacity)) {}

std::string_view LocalLogBuffer::headAt(const timeval& now) {
    const char* const zone = getenv("TZ");
    const bool sameZone = zone ? headZone == zone : !headZone;
    if (headSecond != now.tv_sec || !sameZone) {
        tzset();  // localtime_r need not read the zone, and localtime's result is all threads'
        tm fields = {};
        localtime_r(&now.tv_sec, &fields);
        char seconds[50] = {};
        strftime(seconds, sizeof seconds, "%F %X", &fields);
        head = std::string("    ") + seconds + ".000 [" + name + "]";
        headSecond = now.tv_sec;
        headZone.reset();
        if (zone) headZone.emplace(zone);
    }
    char* const digits = &head[head.size() - name.size() - strlen("000 []")];
    const auto milliseconds = static_cast<unsigned>(now.tv_usec) / 1000;
    digits[0] = static_cast<char>('0' + milliseconds / 100);
    digits[1] = static_cast<char>('0' + milliseconds / 10 % 10);
    digits[2] = static_cast<char>('0' + milliseconds % 10);
    return head;
}

void LocalLogBuffer::addLogWithTimestamp(std::string_view message) {
    const MutexLock lock(mutex);  // from here on, so that no line is older than the one before
    timeval now = {};
    gettimeofday(&now, nullptr);
    const std::string_view start = headAt(now);
    if (entries.size() <= capacity) {
        entries.emplace_back();
        newest = entries.size() - 1;
    } else {
        newest = newest < capacity ? newest + 1 : 0;
    }
    // The memory of the line that goes serves the new one, unless most of it would lie idle.
    std::string& line = entries[newest];
    const size_t size = start.size() + message.size();
    if (line.capacity() < size || line.capacity() > 2 * size) {
        line = std::string();
        line.reserve(size);
    }
    line.clear();
    line.append(start).append(message);
}

std::vector<std::string> LocalLogBuffer::getLogs() {
    const MutexLock lock(mutex);
    if (entries.empty()) return {};
    const auto oldest = entries.begin() + static_cast<ptrdiff_t>(newest + 1);
    std::vector<std::string> lines(oldest, entries.end());
    lines.insert(lines.end(), entries.begin(), oldest);
    return lines;
}

std::string LocalLogBuffer::getName() {
    return name;
}

void LocalLogBuffer::flush() {
    const MutexLock lock(mutex);
    entries.clear();
}

}  // namespace zem
