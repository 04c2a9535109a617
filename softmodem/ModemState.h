// ModemState: all there is to the modem, behind one mutex, and the thread that calls clients back.
//
// Whoever uses it holds `mutex`; no callback, hook or wait ever runs under it.
#pragma once

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <vector>

#include "wds_service_v01.h"
#include "zap_client.h"

#include "softmodem/SoftModem.h"

namespace softmodem {

constexpr unsigned kSubscriptions = 16;
constexpr unsigned kAnyIndex = 0xFF;

using Store = std::map<unsigned, Fields>;  // by index
using Stores = std::array<std::array<Store, 2>, kSubscriptions>;

bool validIndex(Tech tech, unsigned index);
std::optional<unsigned> lowestFreeIndex(const Store& store, Tech tech);

// A handle is its client's number dressed as a pointer: nobody can follow a stale one.
using ClientId = uint64_t;

inline ClientId idOf(zap_client_handle handle) {
    return reinterpret_cast<ClientId>(handle);
}
inline zap_client_handle handleOf(ClientId id) {
    return reinterpret_cast<zap_client_handle>(id);  // NOLINT(performance-no-int-to-ptr)
}

// One handle of the client library.
struct Client {
    bool isNotifier = false;
    uint64_t serviceRun = 0;  // the one it was opened on

    zap_notify_cb notify = nullptr;
    zap_ind_cb indicate = nullptr;
    zap_error_cb fail = nullptr;
    void *notifyUser = nullptr, *indicateUser = nullptr, *failUser = nullptr;

    std::optional<uint32_t> subscription;  // empty: not bound
    bool reportChanges = false;
    bool reportOwnChanges = false;
    std::vector<wds_profile_identifier_type_v01> events;

    bool registered() const { return subscription && reportChanges && !events.empty(); }
    bool wants(const wds_profile_changed_ind_type_v01& change) const;
    void forgetRegistrations();
};

// One call that the modem's thread owes a client.
struct Delivery {
    enum class Kind { kServiceUp, kServiceDown, kError, kIndication };

    Kind kind;
    ClientId client;
    unsigned messageId = 0;
    wds_profile_changed_ind_type_v01 change = {};
    std::vector<uint8_t> bytes = {};
};

using Change = wds_profile_changed_ind_type_v01;
Change changeOf(Tech tech, unsigned index, Event event);

// The faults that a request meets, at most one of a kind.
struct MetFaults {
    std::vector<Fault> faults;

    const Fault* find(FaultKind kind) const;
};

class ModemState {
  public:
    static ModemState& instance();

    std::mutex mutex;
    std::condition_variable changed;  // of anything that someone waits for

    Stores stores;

    bool up = true;
    uint64_t serviceRun = 1;  // counts the times the service came up
    std::map<ClientId, Client> clients;
    ClientId nextClient = 1;  // never used again, so that a stale handle stays unknown

    std::deque<Delivery> queue;
    std::vector<Delivery> delayed;
    std::optional<ClientId> beingCalled;

    std::vector<Fault> faults;
    bool hurry = false;
    std::chrono::microseconds latency{0};
    std::function<void(const Request&)> hook;

    Counters counters;  // openClients, openNotifiers and diagOpen are found out when asked for
    std::deque<Request> requests;
    unsigned diagOpens = 0;
    std::deque<DiagLine> diagLines;

    ClientId open(Client client);
    // Null, and counted, when there is no such client.
    Client* find(ClientId id);
    bool gone(const Client& client) const { return !up || client.serviceRun != serviceRun; }
    // Returns when no other thread runs a callback of it.
    bool release(std::unique_lock<std::mutex>& lock, ClientId id);

    void goDown();
    void comeUp();

    MetFaults meetFaults(unsigned messageId);
    // To every client of those subscriptions that wants them; the requester's own wish counts.
    void indicate(const std::vector<Change>& changes, const std::set<unsigned>& subscriptions,
                  const MetFaults& met, std::optional<ClientId> requester = std::nullopt);
    void indicateReady(ClientId id, const MetFaults& met);
    void deliver(Delivery delivery);
    bool onModemThread() const;

  private:
    ModemState();
    ~ModemState() = delete;

    void post(std::vector<Delivery> batch, const MetFaults& met);
    [[noreturn]] void runModemThread();
};

}  // namespace softmodem
