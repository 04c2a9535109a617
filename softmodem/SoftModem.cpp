#include "softmodem/SoftModem.h"

#include <set>
#include <stdexcept>

#include "ModemState.h"
#include "ProfileFields.h"
#include "StoreFile.h"

namespace softmodem {

namespace {

using Lock = std::lock_guard<std::mutex>;

void indicateBehindBack(ModemState& state, const std::vector<Change>& changes,
                        const std::set<unsigned>& subscriptions) {
    state.indicate(changes, subscriptions, state.meetFaults(ZAP_WDS_PROFILE_CHANGED_IND_V01));
}

// Null when there is no such subscription or technology.
Store* findStore(Stores& stores, Tech tech, unsigned subscription) {
    if (subscription >= kSubscriptions || !techFrom(static_cast<uint32_t>(tech))) return nullptr;
    return &stores[subscription][static_cast<size_t>(tech)];
}

std::optional<unsigned> addProfile(ModemState& state, const Profile& profile, unsigned subscription,
                                   std::optional<unsigned> index) {
    const Lock lock(state.mutex);
    Store* store = findStore(state.stores, profile.tech, subscription);
    if (!store || !acceptable(profile.fields, profile.tech)) return std::nullopt;
    if (!index) index = lowestFreeIndex(*store, profile.tech);
    if (!index || !validIndex(profile.tech, *index)) return std::nullopt;
    if (!store->emplace(*index, profile.fields).second) return std::nullopt;
    indicateBehindBack(state,
                       {changeOf(profile.tech, *index, Event::kCreate),
                        changeOf(profile.tech, *index, Event::kModify)},
                       {subscription});
    return index;
}

}  // namespace

SoftModem& SoftModem::instance() {
    static SoftModem& modem = *new SoftModem;
    return modem;
}

SoftModem::SoftModem() : state(ModemState::instance()) {}

void SoftModem::reset() {
    std::function<void(const Request&)> formerHook;  // destroyed after the lock is given back
    const Lock lock(state.mutex);
    state.stores = {};
    state.comeUp();
    for (auto& [id, client] : state.clients) client.forgetRegistrations();
    std::deque<Delivery> kept;
    for (Delivery& delivery : state.queue)
        if (delivery.kind != Delivery::Kind::kIndication) kept.push_back(std::move(delivery));
    state.queue = std::move(kept);
    state.delayed.clear();
    state.faults.clear();
    state.hurry = false;
    state.latency = {};
    state.hook.swap(formerHook);
    state.counters = {};
    state.requests.clear();
    state.diagLines.clear();
    state.changed.notify_all();
}

void SoftModem::goDown() {
    const Lock lock(state.mutex);
    state.goDown();
}

void SoftModem::comeUp() {
    const Lock lock(state.mutex);
    state.comeUp();
}

void SoftModem::restart() {
    const Lock lock(state.mutex);
    state.goDown();
    state.comeUp();
}

bool SoftModem::isUp() const {
    const Lock lock(state.mutex);
    return state.up;
}

void SoftModem::swapSubscriptions(unsigned a, unsigned b) {
    if (a >= kSubscriptions || b >= kSubscriptions) throw std::out_of_range("no such subscription");
    const Lock lock(state.mutex);
    state.stores[a].swap(state.stores[b]);
    indicateBehindBack(state, {changeOf(Tech::k3gpp, 0, Event::kSubscriptionChange)}, {a, b});
}

std::optional<unsigned> SoftModem::createProfile(const Profile& profile, unsigned subscription) {
    return addProfile(state, profile, subscription, std::nullopt);
}

std::optional<unsigned> SoftModem::createProfileAt(const Profile& profile, unsigned subscription) {
    return addProfile(state, profile, subscription, profile.index);
}

bool SoftModem::modifyProfile(const Profile& changes, unsigned subscription) {
    const Lock lock(state.mutex);
    Store* store = findStore(state.stores, changes.tech, subscription);
    if (!store || !acceptable(changes.fields, changes.tech)) return false;
    const auto entry = store->find(changes.index);
    if (entry == store->end()) return false;
    for (const auto& [name, value] : changes.fields) entry->second.insert_or_assign(name, value);
    indicateBehindBack(state, {changeOf(changes.tech, changes.index, Event::kModify)},
                       {subscription});
    return true;
}

bool SoftModem::deleteProfile(Tech tech, unsigned index, unsigned subscription) {
    const Lock lock(state.mutex);
    Store* store = findStore(state.stores, tech, subscription);
    if (!store || store->erase(index) == 0) return false;
    indicateBehindBack(state, {changeOf(tech, index, Event::kDelete)}, {subscription});
    return true;
}

std::vector<Profile> SoftModem::profiles(unsigned subscription) const {
    const Lock lock(state.mutex);
    std::vector<Profile> result;
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2})
        if (const Store* store = findStore(state.stores, tech, subscription))
            for (const auto& [index, fields] : *store) result.push_back({tech, index, fields});
    return result;
}

std::optional<Profile> SoftModem::profile(Tech tech, unsigned index, unsigned subscription) const {
    const Lock lock(state.mutex);
    const Store* store = findStore(state.stores, tech, subscription);
    if (!store) return std::nullopt;
    const auto entry = store->find(index);
    if (entry == store->end()) return std::nullopt;
    return Profile{tech, index, entry->second};
}

void SoftModem::indicate(uint32_t tech, unsigned index, uint32_t event, unsigned subscription) {
    const Lock lock(state.mutex);
    indicateBehindBack(state, {changeOf(static_cast<Tech>(tech), index, static_cast<Event>(event))},
                       {subscription});
}

void SoftModem::indicateRaw(unsigned messageId, const std::vector<uint8_t>& bytes) {
    const Lock lock(state.mutex);
    for (const auto& [id, client] : state.clients)
        if (client.indicate) state.deliver({Delivery::Kind::kIndication, id, messageId, {}, bytes});
}

void SoftModem::addFault(const Fault& fault) {
    const Lock lock(state.mutex);
    if (fault.count > 0) state.faults.push_back(fault);
}

void SoftModem::clearFaults() {
    const Lock lock(state.mutex);
    state.faults.clear();
}

void SoftModem::releaseIndications() {
    const Lock lock(state.mutex);
    for (Delivery& delivery : state.delayed) state.deliver(std::move(delivery));
    state.delayed.clear();
}

void SoftModem::setHurry(bool hurry) {
    const Lock lock(state.mutex);
    state.hurry = hurry;
    state.changed.notify_all();
}

void SoftModem::setLatency(std::chrono::microseconds perRequest) {
    const Lock lock(state.mutex);
    state.latency = perRequest;
}

void SoftModem::setRequestHook(std::function<void(const Request&)> hook) {
    // Swapped, so that what the former hook owns is destroyed after the lock is given back.
    const Lock lock(state.mutex);
    state.hook.swap(hook);
}

bool SoftModem::waitUntilIdle(std::chrono::milliseconds limit) {
    std::unique_lock<std::mutex> lock(state.mutex);
    if (state.onModemThread()) return false;
    return state.changed.wait_for(lock, limit,
                                  [&] { return state.queue.empty() && !state.beingCalled; });
}

Counters SoftModem::counters() const {
    const Lock lock(state.mutex);
    Counters result = state.counters;
    for (const auto& [id, client] : state.clients)
        ++(client.isNotifier ? result.openNotifiers : result.openClients);
    result.diagOpen = state.diagOpens > 0;
    return result;
}

std::vector<Request> SoftModem::requests() const {
    const Lock lock(state.mutex);
    return {state.requests.begin(), state.requests.end()};
}

void SoftModem::clearRequests() {
    const Lock lock(state.mutex);
    state.counters = {};
    state.requests.clear();
}

std::vector<DiagLine> SoftModem::diagLines() const {
    const Lock lock(state.mutex);
    return {state.diagLines.begin(), state.diagLines.end()};
}

std::string SoftModem::storeText(
    const std::function<bool(const Profile&, unsigned)>& wanted) const {
    Stores copy;
    {
        const Lock lock(state.mutex);
        copy = state.stores;
    }
    for (unsigned subscription = 0; wanted && subscription < kSubscriptions; ++subscription)
        for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
            Store& store = copy[subscription][static_cast<size_t>(tech)];
            for (auto entry = store.begin(); entry != store.end();) {
                const bool keep = wanted({tech, entry->first, entry->second}, subscription);
                entry = keep ? std::next(entry) : store.erase(entry);
            }
        }
    return formatStores(copy);
}

void SoftModem::save(const std::string& path) const {
    saveStore(path, storeText());
}

void saveStore(const std::string& path, const std::string& text) {
    writeFileAtomically(path, text);
}

void SoftModem::load(const std::string& path) {
    Stores loaded = parseStores(readFile(path), path);
    const Lock lock(state.mutex);
    state.stores = std::move(loaded);
    std::set<unsigned> all;
    for (unsigned subscription = 0; subscription < kSubscriptions; ++subscription)
        all.insert(subscription);
    indicateBehindBack(state, {changeOf(Tech::k3gpp, 0, Event::kProfileReady)}, all);
}

}  // namespace softmodem
