#include "Interrupt.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <initializer_list>

namespace zemctl {

namespace {

std::atomic<int> pendingSignal{0};
std::atomic<int> wakeFd{-1};

void note(int number) {
    const int savedErrno = errno;
    pendingSignal = number;
    const uint64_t one = 1;
    if (write(wakeFd, &one, sizeof one) < 0) {
        // Full or not there: whoever waits wakes up anyway, or nobody does.
    }
    errno = savedErrno;
}

}  // namespace

void watchForInterrupts() {
    wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action = {};
    action.sa_handler = note;
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction old = {};
        sigaction(number, nullptr, &old);
        if (old.sa_handler != SIG_IGN) {  // as under nohup
            sigaction(number, &action, nullptr);
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
}

int interruptSignal() {
    return pendingSignal;
}

void clearInterrupt() {
    pendingSignal = 0;
    uint64_t count = 0;
    if (read(wakeFd, &count, sizeof count) < 0) {
        // Nothing was noted.
    }
}

void throwIfInterrupted() {
    if (pendingSignal != 0) {
        throw Interrupted();
    }
}

bool sleepUnlessInterrupted(std::chrono::milliseconds time) {
    pollfd wake = {wakeFd, POLLIN, 0};
    poll(&wake, 1, static_cast<int>(time.count()));
    return pendingSignal == 0;
}

}  // namespace zemctl
