// SteppedLoop: an event loop that the test itself steps, on the test's own thread.
#pragma once

#include <sys/epoll.h>

#include <cstdint>

#include <zem/EventManager.h>

#include "EventFd.h"

namespace zem {

class SteppedLoop {
  public:
    SteppedLoop() : mark(EventFd::create()) {
        loop.addEventHandler(mark.get(), handleMark, this, nullptr, EPOLLIN);
    }
    ~SteppedLoop() { loop.removeEventHandler(mark.get()); }

    // Handles all that is pending: the mark, being last, comes last.
    void pass() {
        mark.signal();
        for (marked = false; !marked;) loop.processEvents();
    }

    EventManager loop;

  private:
    static void handleMark(int fd, void* arg) {
        drain(fd, sizeof(uint64_t), LOG_ERROR);
        static_cast<SteppedLoop*>(arg)->marked = true;
    }

    EventFd mark;
    bool marked = false;
};

}  // namespace zem
