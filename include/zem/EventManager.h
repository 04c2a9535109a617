// EventManager: the epoll loop that the engine thread runs.
//
// processEvents is for the one thread that owns the loop; every handler runs on it. The other
// operations may be called from any thread, also from a handler. Descriptors stay their owner's:
// take one out before closing it. The loop itself closes a descriptor in two cases only, after a
// hang-up and when input comes for one that is not approved.
#pragma once

#include <sys/epoll.h>

#include <map>
#include <optional>

#include <zem/Annotations.h>
#include <zem/Mutex.h>

namespace zem {

// What is done with a descriptor that has input: called with it and the data given at registration,
// on the loop's thread. It must not block, and must empty the descriptor.
using EventCallback = void (*)(int fd, void* data);

// Called with the same arguments when the descriptor is removed from the loop, on the thread that
// removes it: the caller of removeEventHandler, or the loop's own after a hang-up or input that is
// not approved. The descriptor is still open. Not called when the loop is destroyed.
using CloseCallback = void (*)(int fd, void* data);

// What is known of a registered descriptor.
struct HandlerObject {
    EventCallback callback = nullptr;       // null: input is logged as an error, and stays
    CloseCallback closeCallback = nullptr;  // null: nothing is called on removal
    void* data = nullptr;                   // handed to both, never looked at
};

class ZEM_EXPORT EventManager {
  public:
    // Aborts the process when no epoll instance or eventfd can be had.
    EventManager();

    // Leaves all descriptors but its own to their owners, and calls no close callback.
    ~EventManager();

    EventManager(const EventManager&) = delete;
    EventManager& operator=(const EventManager&) = delete;

    // Watches fd for the epoll events given (EPOLLIN and so on; hang-ups always) and approves it.
    // False only when fd is registered already, which changes nothing. A descriptor that epoll
    // refuses is logged, and recorded all the same. closeCallback may be null.
    bool addEventHandler(int fd, EventCallback callback, void* data, CloseCallback closeCallback,
                         int events);

    // Stops watching fd and calls its close callback; does not close it. Returns how many entries
    // the approved list lost: 0 or 1. One that is not registered is logged. A handler that takes
    // out another descriptor, whose input came in the same turn, finds it closed by the loop after.
    int removeEventHandler(int fd);

    // Waits without limit for up to four events and handles them. A wait that fails, by a signal
    // too, is logged and returns. Events without input or hang-up are logged and change nothing.
    void processEvents();

    // Makes a blocked processEvents return, or the next one if none is blocked. Writes the line
    // "wake()" to standard output.
    void wake();

    // Reads fd, which must not block, until it is empty or at its end; an EventCallback that
    // ignores its data. Any other failure is logged.
    static void clearRead(int fd, void* data);

    // The descriptors, in all loops of the process, whose input may be dispatched; other input
    // makes the loop take out and close its descriptor. remApprovedFd returns how many entries were
    // erased: 0 or 1.
    static void addApprovedFd(int fd);
    static int remApprovedFd(int fd);
    static bool isApprovedFd(int fd);

  private:
    // Whether events of fd may arrive in this loop: true unless epoll refused it, and empty when fd
    // is not registered.
    friend std::optional<bool> isWatched(EventManager& loop, int fd);

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
