// Journal: all that the library does in a scenario, line by line in one order: its log lines, its
// calls to the modem, the modem's calls to it, and whatever a scenario adds.
//
// This program's own definitions of the client library's functions, of both log sinks and of a few
// functions of the C library take the place of those in the shared libraries; they record the call
// and pass it on. The order is the same in each run: an engine's thread begins once the caller has
// its engine, and the modem calls back one call at a time, when every engine is at rest.
#pragma once

#include <sys/epoll.h>

#include <functional>
#include <string>
#include <vector>

#include "LogWrapper.h"

namespace zem::journal {

// From here on lines are written to fd, and engines' threads wait for settle().
void begin(int fd);

// A line of the calling thread. Of texts with several lines, the others are indented.
void record(const std::string& text);
void heading(const std::string& text);

// Nothing is recorded while one lives.
struct Silence {
    Silence();
    ~Silence();
};

// Makes that many calls of a function fail, after others that do not.
void fail(const std::string& function, int times = 1, int skip = 0);

// What the caller's next epoll_wait returns.
void pretend(const std::vector<epoll_event>& events);

// What is recorded meanwhile is recorded as another kind of thread's.
void as(const char* kind, const std::function<void()>& action);

// Lets new engines begin and the modem call back, until nothing is left to do. Does nothing on an
// engine's thread.
void settle();

// Records the lines that are logged.
struct Writer : LogWriter {
    void write(LogLevel level, std::string tag, std::string message) override;
    int convertPrio(LogLevel level) override { return static_cast<int>(level); }
};

// The bytes that are not zero, each run of them after its offset.
std::string nonZeroBytes(const void* message, size_t size);

}  // namespace zem::journal
