// BareHandoff: what a call from one thread to another cannot do without. One thread waits in epoll,
// the other hands it a number and waits for it to come back; nothing is allocated or logged.
#pragma once

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>

namespace zem {

class BareHandoff {
  public:
    BareHandoff() {
        epoll_event interest{};
        interest.events = EPOLLIN;
        epoll_ctl(epoll, EPOLL_CTL_ADD, event, &interest);
        server = std::thread([this] { serve(); });
    }
    ~BareHandoff() {
        call(0);
        server.join();
        close(event);
        close(epoll);
    }
    BareHandoff(const BareHandoff&) = delete;
    BareHandoff& operator=(const BareHandoff&) = delete;

    int call(int request) {
        std::unique_lock lock(mutex);
        const uint64_t one = 1;
        if (write(event, &one, sizeof one) != sizeof one) return -1;
        slot = request;
        answered = false;
        condition.wait(lock, [this] { return answered; });
        return slot;
    }

  private:
    void serve() {
        for (bool more = true; more;) {
            epoll_event ready{};
            if (epoll_wait(epoll, &ready, 1, -1) != 1) continue;
            for (uint64_t count; read(event, &count, sizeof count) == sizeof count;) {
            }
            const std::lock_guard lock(mutex);
            more = slot != 0;
            answered = true;
            condition.notify_one();
        }
    }

    const int epoll = epoll_create1(EPOLL_CLOEXEC);
    const int event = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    std::mutex mutex;
    std::condition_variable condition;
    int slot = 0;
    bool answered = false;
    std::thread server;
};

}  // namespace zem
