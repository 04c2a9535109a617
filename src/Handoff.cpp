#include "Handoff.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include "LogWrapper.h"

namespace zem {
namespace {

constexpr std::chrono::milliseconds kWatchCheck(100);

}  // namespace

int Handoff::open() {
    const MutexLock lock(mutex);
    requestFd = EventFd::create();
    return requestFd.get();
}

EventFd Handoff::close(EventManager& loop) {
    // Outlives the lock. A request that the loop has not heard may own the last reference to a key,
    // which owns this in turn: neither would ever go.
    std::shared_ptr<ClientRequest> unheard;
    MutexLock lock(mutex);
    EventFd last = std::move(requestFd);  // a later caller's write fails
    // The loop may have been given an event of the descriptor and not have handled it yet. Were the
    // descriptor closed now, the loop would read, or close, whatever gets its number next.
    while (signalled && isWatched(loop, last.get()).value_or(false)) {
        lock.wait(drained, kWatchCheck);
    }
    // An outsider took the approval away, and the loop has removed and closed the descriptor.
    if (!isWatched(loop, last.get())) last.release();
    closed = true;
    unheard.swap(requestSlot);
    answered.notify_all();
    return last;
}

std::shared_ptr<ClientResponse> Handoff::call(const std::shared_ptr<ClientRequest>& request) {
    if (engineThread.load() == std::this_thread::get_id()) {
        // The manager logs an error of its own when it gets no answer; a key looks at none.
        const LogLevel level = request->getRequestType() == CALLBACK ? LOG_ERROR : LOG_API;
        LogWrapper::getInstance().log(level, kLogTag, "request refused on the engine thread: %s",
                                      request->text().c_str());
        return nullptr;
    }
    // Both outlive the lock. A request that is left in the slot, by a call that took another's
    // answer, may own the last reference to a key, whose destructor is a call and would wait for
    // this mutex forever.
    std::shared_ptr<ClientRequest> displaced;
    std::shared_ptr<ClientRequest> waiting;
    std::string found;
    {
        MutexLock lock(mutex);
        if (!requestSlot && !responseSlot) return handOver(request, displaced, lock);
        waiting = requestSlot;
        if (!waiting) found = responseSlot->dump();
    }
    // Without the lock, too: to print a registration, its dump locks the key, and may be the last
    // to hold it. Cut so that both dumps fit into the line.
    if (waiting) found = waiting->dump();
    ZEM_LOG(LOG_ERROR, "calls overlap: %.240s finds %.240s", request->text().c_str(),
            found.c_str());
    MutexLock lock(mutex);
    return handOver(request, displaced, lock);
}

std::shared_ptr<ClientResponse> Handoff::handOver(const std::shared_ptr<ClientRequest>& request,
                                                  std::shared_ptr<ClientRequest>& displaced,
                                                  MutexLock& lock) {
    const ssize_t written = requestFd.signal();
    if (written != sizeof(uint64_t)) {
        ZEM_LOG(LOG_ERROR, "error in writing rv: %d error: %s", static_cast<int>(written),
                strerror(errno));
        return nullptr;
    }
    signalled = true;
    // A copy: the last reference must not be the engine's to drop.
    displaced = std::exchange(requestSlot, request);
    while (!responseSlot && !closed) lock.wait(answered);
    return std::move(responseSlot);
}

void Handoff::answer(int fd, const Dispatch& dispatch) {
    // Taken first and held to the end: whatever the dispatch copies of the caller's keys must be
    // gone before the caller can wake and drop its own, or the last reference would die on this
    // thread.
    {
        const MutexLock lock(mutex);
        drain(fd, sizeof(uint64_t), LOG_ERROR);
        signalled = false;
        drained.notify_all();
        if (requestSlot) {
            ZEM_LOG(LOG_INFO, "Handling %s", requestSlot->text().c_str());
            if (auto response = dispatch(*requestSlot)) responseSlot = std::move(response);
            requestSlot = nullptr;
        }
    }
    answered.notify_one();  // after the unlock: the caller wakes to find the mutex free
}

}  // namespace zem
