// EventFd: an eventfd and its owner.
#pragma once

#include <sys/types.h>

#include <cstddef>

#include "LogWrapper.h"

namespace zem {

class EventFd {
  public:
    // No descriptor yet: get() is -1, and signal() fails.
    EventFd() = default;
    EventFd(EventFd&& other) noexcept;
    EventFd& operator=(EventFd&& other) noexcept;
    ~EventFd();

    // Non-blocking and close-on-exec. Logs and aborts the process when none can be had.
    static EventFd create();

    int get() const { return fd; }

    // The descriptor, which is the caller's to close from now on.
    int release();

    // Adds one to the counter; any thread. Returns what write() returned, 8 for success.
    ssize_t signal() const;

  private:
    int fd = -1;
};

// Reads fd in pieces of up to 256 bytes until it is empty or at its end; any other failure is
// logged at the level given.
void drain(int fd, size_t piece, LogLevel failureLevel);

}  // namespace zem
