// Handoff: the one slot each way through which callers' threads and the engine meet.
//
// Shared by the engine and by every key that it hands out, so that a key may outlive its engine:
// once the hand-off is closed, calls return null at once.
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <memory>
#include <thread>

#include <zem/EventManager.h>
#include <zem/Mutex.h>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "EventFd.h"

namespace zem {

class Handoff {
  public:
    // Creates the descriptor that tells the engine of a request, and returns it to be watched.
    int open();

    // Refuses calls from now on, waits until the engine has seen to the last one, ends all calls
    // that still wait, and gives the descriptor away: no event of it is left in the engine's loop.
    // Empty when the loop has closed the descriptor. Any thread but the engine's, while that runs.
    EventFd close(EventManager& loop);

    // The calling thread is the engine from here until leaveEngine(); its own calls are refused.
    void enterEngine() { engineThread = std::this_thread::get_id(); }
    void leaveEngine() { engineThread = std::thread::id(); }

    // Caller's thread: hands the request over and blocks until there is an answer. Null when the
    // engine could not be told, has gone, or is the caller itself. Calls must not overlap: a later
    // request takes the place of an earlier one, and the first to wake takes the answer. A call
    // that finds another's request or answer logs an error.
    std::shared_ptr<ClientResponse> call(const std::shared_ptr<ClientRequest>& request);

    // Engine thread: empties fd, and answers the waiting request, if any, with what dispatch
    // returns. A null answer leaves the caller waiting.
    using Dispatch = std::function<std::shared_ptr<ClientResponse>(const ClientRequest&)>;
    void answer(int fd, const Dispatch& dispatch);

  private:
    // Signals the request, puts it into the slot, and waits for an answer. Gives the caller what
    // was in the slot.
    std::shared_ptr<ClientResponse> handOver(const std::shared_ptr<ClientRequest>& request,
                                             std::shared_ptr<ClientRequest>& displaced,
                                             MutexLock& lock) ZEM_REQUIRES(mutex);

    Mutex mutex;
    std::condition_variable answered;
    std::shared_ptr<ClientRequest> requestSlot ZEM_GUARDED_BY(mutex);
    std::shared_ptr<ClientResponse> responseSlot ZEM_GUARDED_BY(mutex);
    EventFd requestFd ZEM_GUARDED_BY(mutex);
    std::condition_variable drained;
    bool signalled ZEM_GUARDED_BY(mutex) = false;  // the engine has not emptied the descriptor yet
    bool closed ZEM_GUARDED_BY(mutex) = false;
    std::atomic<std::thread::id> engineThread{};
};

}  // namespace zem
