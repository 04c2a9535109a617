#include "session/Interrupt.h"

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
    int none = 0;
    if (number != SIGINT) {
        pendingSignal = number;
    } else if (!pendingSignal.compare_exchange_strong(none, number)) {
        // Ctrl-C may be taken back, a signal that came before it may not.
    }
    const uint64_t one = 1;
    if (write(wakeFd, &one, sizeof one) < 0) {
        // Full or not there: whoever waits wakes up anyway, or nobody does.
    }
    errno = savedErrno;
}

void drain() {
    uint64_t count = 0;
    if (read(wakeFd, &count, sizeof count) < 0) {
        // Nothing was noted.
    }
}

// A handler on another thread may wake up those who wait when its signal is forgotten already.
void drainUnlessInterrupted() {
    if (pendingSignal == 0) {
        drain();
    }
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
    int number = SIGINT;  // one that has come meanwhile is not the user's to take back
    if (pendingSignal.compare_exchange_strong(number, 0)) {
        drain();
    }
}

void throwIfInterrupted() {
    if (pendingSignal != 0) {
        throw Interrupted();
    }
}

bool waitForInput(int fd, int otherFd) {
    pollfd waits[] = {{wakeFd, POLLIN, 0}, {otherFd, POLLIN, 0}, {fd, POLLIN, 0}};
    const bool any = poll(waits, 3, -1) > 0;
    drainUnlessInterrupted();
    return any && pendingSignal == 0 && waits[1].revents == 0 && waits[2].revents != 0;
}

bool sleepUnlessInterrupted(std::chrono::milliseconds time) {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + time;
    for (Clock::time_point now; pendingSignal == 0 && (now = Clock::now()) < end;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - now);
        pollfd wake = {wakeFd, POLLIN, 0};
        poll(&wake, 1, static_cast<int>(left.count()));
        drainUnlessInterrupted();
    }
    return pendingSignal == 0;
}

}  // namespace zemctl
