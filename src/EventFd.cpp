#include "EventFd.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <utility>

namespace zem {

EventFd::EventFd(EventFd&& other) noexcept : fd(std::exchange(other.fd, -1)) {}

EventFd& EventFd::operator=(EventFd&& other) noexcept {
    std::swap(fd, other.fd);
    return *this;
}

EventFd::~EventFd() {
    if (fd != -1) close(fd);
}

EventFd EventFd::create() {
    EventFd created;
    created.fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (created.fd == -1) {
        ZEM_LOG(LOG_ERROR, "Cannot create eventfd instance");
        abort();
    }
    return created;
}

int EventFd::release() {
    return std::exchange(fd, -1);
}

ssize_t EventFd::signal() const {
    const uint64_t one = 1;
    return write(fd, &one, sizeof one);
}

void drain(int fd, size_t piece, LogLevel failureLevel) {
    char buffer[256];
    ssize_t got = 0;
    do {
        got = read(fd, buffer, piece);
    } while (got > 0);  // 0 is the end of a pipe or socket: waiting for -1 would never return
    if (got == -1 && errno != EAGAIN) {
        LogWrapper::getInstance().log(failureLevel, kLogTag,
                                      "Error while clearing the read buffer on fd %d", fd);
    }
}

}  // namespace zem
