// ClientRequestManager: the engine: its thread, its loop, its cache, and the way in for callers.
//
// Built, used and destroyed on callers' threads, never on its own: destroying it joins the engine
// thread.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include <zem/EventManager.h>

#include "ClientRequest.h"
#include "ClientResponse.h"
#include "Handoff.h"
#include "ProfileCache.h"

namespace zem {

class ClientRequestManager {
  public:
    // Starts the engine for a modem instance. Aborts the process when the system has no descriptor
    // left, throws std::system_error when it has no thread.
    explicit ClientRequestManager(int instance);
    ~ClientRequestManager();
    ClientRequestManager(const ClientRequestManager&) = delete;
    ClientRequestManager& operator=(const ClientRequestManager&) = delete;

    // Caller's thread; blocks until the engine has answered. See Handoff::call.
    std::shared_ptr<ClientResponse> processClientRequest(
        const std::shared_ptr<ClientRequest>& request);

    // Any thread.
    std::vector<std::string> dump();

    // The engine thread's body.
    void runZemThread();

    // Engine thread: the event handler of the request descriptor; arg is the manager.
    static void handleClientRequest(int fd, void* arg);

  private:
    std::shared_ptr<ClientResponse> dispatch(const ClientRequest& request);
    bool handleCallback(const ClientRequest& request);

    const std::shared_ptr<Handoff> handoff = std::make_shared<Handoff>();
    std::thread thread;
    // True before the thread starts: were the thread to set it, it could undo the destructor's
    // false.
    std::atomic<bool> running{true};
    EventManager eventManager;
    ProfileCache cache;
    bool refreshInProgress = false;
};

}  // namespace zem
