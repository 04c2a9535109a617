#include "LocalLogBuffer.h"

#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <utility>

namespace zem {
namespace {

std::string localTime() {
    timeval now = {};
    gettimeofday(&now, nullptr);
    tm fields = {};
    localtime_r(&now.tv_sec, &fields);  // localtime() shares one result among all threads
    char seconds[50] = {};
    strftime(seconds, sizeof seconds, "%F %X", &fields);
    char text[sizeof seconds + 12] = {};
    snprintf(text, sizeof text, "%s.%03d", seconds, static_cast<int>(now.tv_usec / 1000));
    return text;
}

}  // namespace

LocalLogBuffer& LocalLogBuffer::getInstance() {
    static LocalLogBuffer& instance = *new LocalLogBuffer("ZEM", 200);
    return instance;
}

LocalLogBuffer::LocalLogBuffer(std::string name, int capacity)
    : name(std::move(name)), capacity(static_cast<size_t>(capacity)) {
    tzset();  // localtime_r need not read the time zone itself
}

void LocalLogBuffer::addLogWithTimestamp(std::string message) {
    std::string line = "    " + localTime() + " [" + name + "]" + std::move(message);
    const MutexLock lock(mutex);
    while (entries.size() > capacity) entries.pop_front();
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
