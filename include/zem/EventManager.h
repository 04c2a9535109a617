// EventManager: the epoll loop that the engine thread runs.
//
// processEvents is for the one thread that owns the loop; every handler runs on it. The other
// operations may be called from any thread, also from a handler. Descriptors stay their owner's:
// take one out before closing it. The loop itself closes a descriptor in two cases only, after a
// hang-up and when input comes for one that is not approved.
#pragma once

#include <sys/epoll.h>

#include <map>

#include <zem/Annotations.h>
#include <zem/Mutex.h>

namespace zem {

// Called with the descriptor and the data given at registration.
using EventCallback = void (*)(int fd, void* data);
using CloseCallback = void (*)(int fd, void* data);

// What is known of a registered descriptor.
struct HandlerObject {
    EventCallback callback = nullptr;
    CloseCallback closeCallback = nullptr;  // null: nothing is called on removal
    void* data = nullptr;
};

class ZEM_EXPORT EventManager {
  public:
    // Aborts the process when no epoll instance or eventfd can be had.
    EventManager();

    // Leaves all descriptors but its own to their owners.
    ~EventManager();

    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    // Watches fd for the epoll events given (EPOLLIN and so on) and approves it. False only when fd
    // is registered already. A descriptor that epoll refuses is logged, and recorded all the same.
    bool addEventHandler(int fd, EventCallback callback, void* data, CloseCallback closeCallback,
                         int events);

    // Stops watching fd and calls its close callback. Returns how many entries the approved list
    // lost: 0 or 1.
    int removeEventHandler(int fd);

    // Waits without limit for up to four events and handles them.
    void processEvents();

    // Makes a blocked processEvents return.
    void wake();

    // Reads fd until it is empty; an EventCallback that ignores its data.
    static void clearRead(int fd, void* data);

    // The descriptors, in all loops of the process, whose input may be dispatched.
    static void addApprovedFd(int fd);
    static int remApprovedFd(int fd);  // how many entries were erased: 0 or 1
    static bool isApprovedFd(int fd);

  private:
    void handleEvent(int fd, uint32_t events);
    void handleInput(int fd);
    void removeAndClose(int fd);

    static constexpr int kMaxEvents = 4;

    int epollFd;
    int wakeFd;
    epoll_event events[kMaxEvents];
    // Held over epoll_ctl, the table and the approval together, so that an event can never find a
    // half-registered descriptor; never over a callback.
    Mutex mutex;
    std::map<int, HandlerObject> handlers ZEM_GUARDED_BY(mutex);
};

}  // namespace zem
