// RogueModem: the ZAP client library and a data service that answers whatever the input says, and
// that holds the library to what a modem may expect of it. One at a time, one thread.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "Input.h"
#include "wds_service_v01.h"
#include "zap_client.h"

namespace zem::fuzz {

class RogueModem {
  public:
    explicit RogueModem(Input& choices) : input(choices) { current = this; }
    ~RogueModem();  // requires that no handle is open
    RogueModem(const RogueModem&) = delete;
    RogueModem& operator=(const RogueModem&) = delete;

    // What comes of itself, to one of the open handles that have a callback for it.
    void notify();
    void fail();
    void indicate();

    // Whether every indication that came has been looked at, but for those without bytes or client,
    // and every client that failed was given back.
    bool atRest() const;
    // The one who was to look at them is gone.
    void forgetIndications() { undecoded.clear(); }

    struct Count {
        unsigned sent = 0, succeeded = 0;
    };
    std::map<unsigned, Count> counts;  // of requests, by message id

    // The library's side, behind the C functions.
    struct Handle {
        bool isNotifier;
        zap_notify_cb notify = nullptr;
        zap_ind_cb indicate = nullptr;
        zap_error_cb fail = nullptr;
        void* user = nullptr;
        bool failed = false;
    };
    static RogueModem& instance();
    bool refuses() { return input.rarely(16); }
    int open(const Handle& handle, zap_client_handle* out);
    Handle& known(zap_client_handle handle);
    int registerNotify(zap_client_handle notifier, zap_notify_cb callback, void* user);
    int registerError(zap_client_handle client, zap_error_cb callback, void* user);
    int send(zap_client_handle client, unsigned messageId, const void* request, unsigned length,
             void* response, unsigned room, unsigned timeoutMs);
    int decode(zap_client_handle client, unsigned messageId, const void* bytes, unsigned length,
               void* out, unsigned room);
    int release(zap_client_handle handle);

  private:
    template <class Callback>
    std::pair<zap_client_handle, Handle> drawHandle(Callback Handle::*callback);
    void answer(unsigned messageId, void* response, unsigned room);

    static RogueModem* current;
    Input& input;
    std::map<zap_client_handle, Handle> handles;
    uintptr_t newest = 0;  // never used again, so that a stale handle stays unknown
    std::deque<std::pair<zap_client_handle, std::vector<unsigned char>>> undecoded;
    unsigned total = 0;
};

}  // namespace zem::fuzz
