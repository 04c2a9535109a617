#include <zem/EventManager.h>

#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "EventFd.h"
#include "LogWrapper.h"

namespace zem {
namespace {

constexpr int kLookAroundMs = 100;

struct Approved {
    Mutex mutex;
    std::set<int> fds ZEM_GUARDED_BY(mutex);
};

// Never destroyed: engines stop, and callers remove descriptors, while the process exits.
Approved& approved() {
    static Approved& instance = *new Approved;
    return instance;
}

// Descriptors that epoll has refused to watch, each with its loop's epoll instance: they are
// registered all the same, but no event of them arrives.
class Refused {
  public:
    using Pair = std::pair<int, int>;

    void note(Pair pair, bool isRefused) {
        if (!isRefused && count == 0) return;
        const MutexLock lock(mutex);
        if (isRefused) {
            pairs.insert(pair);
        } else {
            pairs.erase(pair);
        }
        count = pairs.size();
    }

    bool contains(Pair pair) {
        if (count == 0) return false;
        const MutexLock lock(mutex);
        return pairs.count(pair) != 0;
    }

  private:
    std::atomic<size_t> count{0};  // nearly always 0, which spares every turn of a loop the lock
    Mutex mutex;
    std::set<Pair> pairs ZEM_GUARDED_BY(mutex);
};

// Never destroyed, as the approved list.
Refused& refused() {
    static Refused& instance = *new Refused;
    return instance;
}

std::string flagNames(uint32_t events) {
    static constexpr struct {
        uint32_t flag;
        const char* name;
    } kNames[] = {{EPOLLOUT, "EPOLLOUT "},
                  {EPOLLPRI, "EPOLLPRI "},
                  {EPOLLERR, "EPOLLERR "},
                  {EPOLLET, "EPOLLET "}};
    std::string names;
    for (const auto& [flag, name] : kNames) {
        if (events & flag) names += name;
    }
    return names;
}

}  // namespace

std::optional<bool> isWatched(EventManager& loop, int fd) {
    const MutexLock lock(loop.mutex);
    if (loop.handlers.count(fd) == 0) return std::nullopt;
    return !refused().contains({loop.epollFd, fd});
}

EventManager::EventManager() : epollFd(epoll_create1(EPOLL_CLOEXEC)), wakeFd(-1), events{} {
    if (epollFd == -1) {
        ZEM_LOG(LOG_ERROR, "Cannot create epoll instance");
        abort();
    }
    wakeFd = EventFd::create().release();
    addEventHandler(wakeFd, clearRead, nullptr, nullptr, EPOLLIN | EPOLLHUP);
    ZEM_LOG(LOG_VERBOSE, "EventManager is ready. epollFd:%d", epollFd);
}

EventManager::~EventManager() {
    removeEventHandler(wakeFd);
    close(wakeFd);
    close(epollFd);
}

bool EventManager::addEventHandler(int fd, EventCallback callback, void* data,
                                   CloseCallback closeCallback, int mask) {
    ZEM_LOG(LOG_VERBOSE,
            "EventManager::addEventHandler(int %d, EventCallback %p, void* %p, CloseCallback %p, "
            "events %d) EX",
            fd, reinterpret_cast<void*>(callback), data, reinterpret_cast<void*>(closeCallback),
            mask);
    bool known = false;
    bool watched = true;
    {
        const MutexLock lock(mutex);
        known = handlers.count(fd) != 0;
        if (!known) {
            epoll_event event = {};
            event.events = static_cast<uint32_t>(mask);
            event.data.fd = fd;
            watched = epoll_ctl(epollFd, EPOLL_CTL_ADD, fd, &event) == 0;
            handlers[fd] = {callback, closeCallback, data};
            addApprovedFd(fd);
            refused().note({epollFd, fd}, !watched);
        }
    }
    if (known) ZEM_LOG(LOG_INFO, "fd=%d is already in handlers", fd);
    if (!watched) ZEM_LOG(LOG_ERROR, "Cannot add event handler");
    return !known;
}

int EventManager::removeEventHandler(int fd) {
    ZEM_LOG(LOG_VERBOSE, "EventManager::removeEventHandler(int fd) EX");
    bool watched = false;
    bool known = false;
    HandlerObject handler;
    {
        const MutexLock lock(mutex);
        watched = epoll_ctl(epollFd, EPOLL_CTL_DEL, fd, nullptr) == 0;
        const auto entry = handlers.find(fd);
        known = entry != handlers.end();
        if (known) handler = entry->second;
    }
    if (!watched) ZEM_LOG(LOG_ERROR, "Cannot remove event handler");
    if (handler.closeCallback) handler.closeCallback(fd, handler.data);
    size_t erased = 0;
    int lost = 0;
    {
        const MutexLock lock(mutex);
        if (known) erased = handlers.erase(fd);
        lost = remApprovedFd(fd);
        refused().note({epollFd, fd}, false);
    }
    if (known && erased != 1) {
        ZEM_LOG(LOG_ERROR, "handlers.erase for fd %d, returned %d!", fd, static_cast<int>(erased));
    }
    return lost;
}

void EventManager::processEvents() {
    // A loop that cannot be woken looks by itself whether it is to end.
    const int limit = refused().contains({epollFd, wakeFd}) ? kLookAroundMs : -1;
    const int count = epoll_wait(epollFd, events, kMaxEvents, limit);
    if (count == -1) {
        ZEM_LOG(LOG_ERROR, "epoll_wait error");
        return;
    }
    for (int i = 0; i < count; ++i) {
        const int fd = events[i].data.fd;  // copied: epoll_event is packed on x86-64
        const uint32_t mask = events[i].events;
        ZEM_LOG(LOG_VERBOSE, "there are %d file descriptor(s) with events pending", count - i);
        ZEM_LOG(LOG_VERBOSE, "processing event number: %d, handling %d for %d", i,
                static_cast<int>(mask), fd);
        handleEvent(fd, mask);
    }
}

void EventManager::handleEvent(int fd, uint32_t mask) {
    if (mask & EPOLLHUP) {
        ZEM_LOG(LOG_INFO, "file descriptor '%d' sent HUP.", fd);
        removeAndClose(fd);
    } else if (mask & EPOLLIN) {
        handleInput(fd);
    } else {
        ZEM_LOG(LOG_INFO, "Unhandled epoll event: %s [flags 0%o]", flagNames(mask).c_str(), mask);
    }
}

void EventManager::handleInput(int fd) {
    bool isApproved = false;
    bool known = false;
    HandlerObject handler;  // a copy: the callback may remove its own entry
    {
        const MutexLock lock(mutex);
        isApproved = isApprovedFd(fd);
        const auto entry = handlers.find(fd);
        known = entry != handlers.end();
        if (known) handler = entry->second;
    }
    if (!isApproved) {
        ZEM_LOG(LOG_INFO, "file descriptor %d is not on the approved list, cannot process event",
                fd);
        removeAndClose(fd);
    } else if (!known) {
        ZEM_LOG(LOG_INFO, "file descriptor '%d' does not have an event handler registered", fd);
    } else {
        ZEM_LOG(LOG_VERBOSE, "file descriptor '%d' is processing events [callback:%p, data:%p]", fd,
                reinterpret_cast<void*>(handler.callback), handler.data);
        if (handler.callback) {
            handler.callback(fd, handler.data);
        } else {
            ZEM_LOG(LOG_ERROR, "no callback registered");
        }
    }
}

void EventManager::removeAndClose(int fd) {
    removeEventHandler(fd);
    close(fd);
}

void EventManager::wake() {
    ZEM_LOG(LOG_VERBOSE, "EventManager::wake() EX");
    puts("wake()");  // deliberately on the console as well
    fflush(stdout);
    const uint64_t one = 1;
    const ssize_t written = write(wakeFd, &one, sizeof one);
    if (written != sizeof one) {
        ZEM_LOG(LOG_INFO, "Error in writing rv: %d, error: %s", static_cast<int>(written),
                strerror(errno));
    }
}

void EventManager::clearRead(int fd, void*) {
    drain(fd, 256, LOG_INFO);
}

void EventManager::addApprovedFd(int fd) {
    Approved& list = approved();
    const MutexLock lock(list.mutex);
    list.fds.insert(fd);
}

int EventManager::remApprovedFd(int fd) {
    Approved& list = approved();
    const MutexLock lock(list.mutex);
    return static_cast<int>(list.fds.erase(fd));
}

bool EventManager::isApprovedFd(int fd) {
    Approved& list = approved();
    const MutexLock lock(list.mutex);
    return list.fds.count(fd) != 0;
}

}  // namespace zem
