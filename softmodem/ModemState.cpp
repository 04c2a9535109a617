#include "ModemState.h"

#include <pthread.h>

#include <algorithm>
#include <thread>

#include "IndicationCodec.h"

namespace softmodem {

namespace {

thread_local bool isModemThread = false;

unsigned firstIndex(Tech tech) {
    return tech == Tech::k3gpp ? 1 : 0;
}

}  // namespace

bool validIndex(Tech tech, unsigned index) {
    return index >= firstIndex(tech) && index < firstIndex(tech) + WDS_PROFILE_LIST_MAX_V01;
}

std::optional<unsigned> lowestFreeIndex(const Store& store, Tech tech) {
    unsigned index = firstIndex(tech);
    for (auto entry = store.begin(); entry != store.end() && entry->first == index; ++entry)
        ++index;
    if (!validIndex(tech, index)) return std::nullopt;
    return index;
}

Change changeOf(Tech tech, unsigned index, Event event) {
    Change change = {};
    change.profile_type = static_cast<wds_profile_type_enum_v01>(tech);
    change.profile_index = static_cast<uint8_t>(index);
    change.event = static_cast<wds_profile_event_enum_v01>(event);
    return change;
}

bool Client::wants(const Change& change) const {
    if (!registered() || !indicate) return false;
    const bool concernsOneProfile = change.event == WDS_PROFILE_EVENT_CREATE_V01 ||
                                    change.event == WDS_PROFILE_EVENT_DELETE_V01 ||
                                    change.event == WDS_PROFILE_EVENT_MODIFY_V01;
    if (!concernsOneProfile) return true;
    return std::any_of(events.begin(), events.end(), [&](const auto& wanted) {
        return (wanted.profile_type == WDS_PROFILE_TYPE_ALL_V01 ||
                wanted.profile_type == change.profile_type) &&
               (wanted.profile_index == kAnyIndex || wanted.profile_index == change.profile_index);
    });
}

void Client::forgetRegistrations() {
    subscription.reset();
    reportChanges = false;
    reportOwnChanges = false;
    events.clear();
}

const Fault* MetFaults::find(FaultKind kind) const {
    for (const Fault& fault : faults)
        if (fault.kind == kind) return &fault;
    return nullptr;
}

// Leaked: clients are released by static destructors, in whatever order those run.
ModemState& ModemState::instance() {
    static ModemState& state = *new ModemState;
    return state;
}

ModemState::ModemState() {
    std::thread([this] { runModemThread(); }).detach();
}

ClientId ModemState::open(Client client) {
    clients.emplace(nextClient, std::move(client));
    return nextClient++;
}

Client* ModemState::find(ClientId id) {
    const auto entry = clients.find(id);
    if (entry != clients.end()) return &entry->second;
    ++counters.badHandles;
    return nullptr;
}

bool ModemState::release(std::unique_lock<std::mutex>& lock, ClientId id) {
    if (!find(id)) return false;
    clients.erase(id);
    // Requests of it that wait for a time-out give up.
    changed.notify_all();
    // On the modem's thread the callback that runs is the caller's own.
    if (!isModemThread) changed.wait(lock, [&] { return beingCalled != id; });
    return true;
}

void ModemState::goDown() {
    if (!up) return;
    for (const auto& [id, client] : clients) {
        if (client.isNotifier) {
            if (client.notify) deliver({Delivery::Kind::kServiceDown, id});
        } else if (client.fail && client.serviceRun == serviceRun) {
            deliver({Delivery::Kind::kError, id});
        }
    }
    up = false;
    changed.notify_all();
}

void ModemState::comeUp() {
    if (up) return;
    for (auto& subscription : stores) {
        for (Store& store : subscription) {
            for (auto entry = store.begin(); entry != store.end();) {
                const auto persistent = entry->second.find("persistent");
                const bool keep = persistent != entry->second.end() &&
                                  std::get<uint64_t>(persistent->second) != 0;
                entry = keep ? std::next(entry) : store.erase(entry);
            }
        }
    }
    up = true;
    ++serviceRun;
    for (const auto& [id, client] : clients)
        if (client.isNotifier && client.notify) deliver({Delivery::Kind::kServiceUp, id});
}

MetFaults ModemState::meetFaults(unsigned messageId) {
    MetFaults met;
    for (auto fault = faults.begin(); fault != faults.end();) {
        const bool meant = fault->messageId == messageId ||
                           (fault->messageId == 0 && messageId != ZAP_WDS_PROFILE_CHANGED_IND_V01);
        if (meant && fault->skip > 0) {
            --fault->skip;
        } else if (meant && !met.find(fault->kind)) {
            met.faults.push_back(*fault);
            if (--fault->count == 0) {
                fault = faults.erase(fault);
                continue;
            }
        }
        ++fault;
    }
    return met;
}

void ModemState::indicate(const std::vector<Change>& changes,
                          const std::set<unsigned>& subscriptions, const MetFaults& met,
                          std::optional<ClientId> requester) {
    std::vector<Delivery> batch;
    for (const Change& change : changes) {
        for (const auto& [id, client] : clients) {
            if (gone(client) || !client.wants(change)) continue;
            if (subscriptions.count(*client.subscription) == 0) continue;
            if (id == requester && !client.reportOwnChanges) continue;
            batch.push_back(
                {Delivery::Kind::kIndication, id, ZAP_WDS_PROFILE_CHANGED_IND_V01, change});
        }
    }
    post(std::move(batch), met);
}

void ModemState::indicateReady(ClientId id, const MetFaults& met) {
    if (!clients.at(id).indicate) return;
    const Change ready = changeOf(Tech::k3gpp, 0, Event::kProfileReady);
    post({{Delivery::Kind::kIndication, id, ZAP_WDS_PROFILE_CHANGED_IND_V01, ready}}, met);
}

void ModemState::post(std::vector<Delivery> batch, const MetFaults& met) {
    if (met.find(FaultKind::kLoseIndication)) return;
    if (met.find(FaultKind::kReorderIndications)) std::reverse(batch.begin(), batch.end());
    for (Delivery& delivery : batch) {
        delivery.bytes =
            encodeIndication(delivery.change, !met.find(FaultKind::kInvalidIndication));
        // Cut short: the last element claims bytes that do not follow.
        if (met.find(FaultKind::kUndecodableIndication)) delivery.bytes.pop_back();
        if (met.find(FaultKind::kEmptyIndication)) delivery.bytes.clear();
        const unsigned times = met.find(FaultKind::kRepeatIndication) ? 2 : 1;
        for (unsigned i = 0; i < times; ++i) {
            if (met.find(FaultKind::kDelayIndication))
                delayed.push_back(delivery);
            else
                deliver(delivery);
        }
    }
}

void ModemState::deliver(Delivery delivery) {
    queue.push_back(std::move(delivery));
    changed.notify_all();
}

bool ModemState::onModemThread() const {
    return isModemThread;
}

void ModemState::runModemThread() {
    pthread_setname_np(pthread_self(), "softmodem");
    isModemThread = true;
    std::unique_lock<std::mutex> lock(mutex);
    for (;;) {
        changed.wait(lock, [this] { return !queue.empty(); });
        Delivery delivery = std::move(queue.front());
        queue.pop_front();
        const auto entry = clients.find(delivery.client);
        if (entry == clients.end()) {
            changed.notify_all();
            continue;
        }
        // A copy: the client may be released from inside its callback.
        const Client client = entry->second;
        beingCalled = delivery.client;
        if (delivery.kind == Delivery::Kind::kIndication) ++counters.indicationsSent;
        lock.unlock();

        zap_client_handle handle = handleOf(delivery.client);
        switch (delivery.kind) {
            case Delivery::Kind::kServiceUp:
            case Delivery::Kind::kServiceDown:
                client.notify(
                    handle,
                    wds_get_service_object_v01(WDS_SERVICE_MAJOR_V01, WDS_SERVICE_MINOR_V01,
                                               WDS_SERVICE_TOOL_V01),
                    delivery.kind == Delivery::Kind::kServiceUp ? ZAP_SERVICE_UP : ZAP_SERVICE_DOWN,
                    client.notifyUser);
                break;
            case Delivery::Kind::kError:
                client.fail(handle, static_cast<int>(CallError::kServiceGone), client.failUser);
                break;
            case Delivery::Kind::kIndication: {
                const auto length = static_cast<unsigned>(delivery.bytes.size());
                delivery.bytes.reserve(1);  // an empty one still has an address
                client.indicate(handle, delivery.messageId, delivery.bytes.data(), length,
                                client.indicateUser);
                break;
            }
        }

        lock.lock();
        beingCalled.reset();
        changed.notify_all();
    }
}

}  // namespace softmodem
