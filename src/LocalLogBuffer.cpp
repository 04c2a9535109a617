#include "LocalLogBuffer.h"

#include <sys/time.h>

#include <cstdlib>
#include <cstring>
#include <utility>

namespace zem {

std::string_view SecondText::at(time_t second) {
    const char* const zone = getenv("TZ");
    if (madeFor != second || !isMadeIn(zone)) {
        tzset();  // localtime_r need not read the zone, and localtime's result is all threads'
        tm fields = {};
        localtime_r(&second, &fields);
        length = strftime(text, sizeof text, "%F %X", &fields);
        zoneNamed = zone;
        const size_t size = zone ? strlen(zone) + 1 : 0;
        madeFor.reset();
        if (size <= sizeof zoneName) {  // else too long to remember
            if (zone) memcpy(zoneName, zone, size);
            madeFor = second;
        }
    }
    return {text, length};
}

bool SecondText::isMadeIn(const char* zone) const {
    return zone ? zoneNamed && strcmp(zone, zoneName) == 0 : !zoneNamed;
}

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static LocalLogBuffer& instance = *new LocalLogBuffer("ZEM", 200);
    return instance;
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)), capacity(static_cast<size_t>(capacity)) {}

void LocalLogBuffer::addLogWithTimestamp(std::string_view message) {
    const MutexLock lock(mutex);  // from here on, so that no line is older than the one before
    timeval now = {};
    gettimeofday(&now, nullptr);
    const std::string_view seconds = secondText.at(now.tv_sec);
    const auto milliseconds = static_cast<unsigned>(now.tv_usec) / 1000;
    const auto digit = [](unsigned number) { return static_cast<char>('0' + number % 10); };
    const char fraction[] = {
        '.', digit(milliseconds / 100), digit(milliseconds / 10), digit(milliseconds), ' ', '['};
    constexpr std::string_view kIndent = "    ";
    const size_t size =
        kIndent.size() + seconds.size() + sizeof fraction + name.size() + 1 + message.size();

    std::string line;
    while (entries.size() > capacity) {
        line = std::move(entries.front());
        entries.pop_front();
    }
    // The memory of the line that goes serves the new one, unless most of it would lie idle.
    if (line.capacity() > 2 * size) line = std::string();
    line.clear();
    line.reserve(size);
    line.append(kIndent).append(seconds).append(fraction, sizeof fraction).append(name);
    line.append(1, ']').append(message);
    entries.push_back(std::move(line));
}

std::vector<std::string> LocalLogBuffer::getLogs() {
    const MutexLock lock(mutex);
    return {entries.begin(), entries.end()};
}

std::string LocalLogBuffer::getName() {
    return name;
}

void LocalLogBuffer::flush() {
    const MutexLock lock(mutex);
    entries.clear();
}

}  // namespace zem
