#include "PhoneModel.h"

#include <algorithm>
#include <unordered_set>

namespace zem::model {
namespace {

enum Event : unsigned { kCreate, kDelete, kModify, kSubscriptionChange, kProfileReady };

constexpr unsigned kSubset = 1, kSuperset = 0x10;  // of the home IP type; the roaming one's is next
constexpr unsigned kNameSubset = 4, kTypesSubset = 8;
constexpr uint64_t kUnknown = 0, kV4 = 1, kV6 = 2, kV4V6 = 3;

std::string nameOf(Tech tech) {
    return tech == Tech::k3gpp2 ? "3GPP2" : "3GPP";
}

std::optional<uint64_t> numberOf(const Settings& settings, std::string_view label) {
    const Value* value = find(settings, label);
    if (!value) return std::nullopt;
    return number(*value);
}

std::optional<uint64_t> homeOf(const Settings& held) {
    const auto overrideHome = numberOf(held, "OverrideHomeIPType");
    return overrideHome && *overrideHome != kUnknown ? overrideHome
                                                     : numberOf(held, "CommonIPType");
}

bool isNamed(const Settings& held, const char* name) {
    const Value* profileName = find(held, "ProfileName");
    return profileName && text(*profileName) == name;
}
bool isIA(const Settings& held) {
    return isNamed(held, "zem_profile_ia");
}
bool isZem(const Settings& held) {
    return isIA(held) || isNamed(held, "zem_profile");
}

void copy(const Settings& from, std::initializer_list<const char*> labels, Settings& to) {
    for (const char* label : labels) {
        if (const Value* value = find(from, label)) to[label] = *value;
    }
}

bool ipTypeFits(uint64_t held, uint64_t asked, unsigned criteria) {
    return ((criteria & kSubset) && (asked & held) == asked) ||
           ((criteria & kSuperset) && (held & ~asked) == 0) || held == asked;
}

bool isPersistent(const softmodem::Fields& fields) {
    const auto flag = fields.find("persistent");
    return flag != fields.end() && number(flag->second) != 0;
}

bool isFlagSet(const Settings& settings, std::string_view label) {
    const Value* flag = find(settings, label);
    return flag && number(*flag) == 1;
}

}  // namespace

std::string inWords(const softmodem::Profile& profile) {
    std::string words = nameOf(profile.tech) + ":" + std::to_string(profile.index);
    for (const auto& each : softmodem::describe(profile)) words += " " + each;
    return words;
}

std::string Key::dump() const {
    return nameOf(tech) + ":" + std::to_string(id) + " token=" + std::to_string(token);
}

std::string PhoneModel::Ind::dump() const {
    const char* names[] = {"Create", "Delete", "Modify"};
    return "  " + nameOf(tech) + ":" + std::to_string(id) + " " + names[event];
}

// --- The modem ---

// Whether the library takes the request for done. carryOut() does it, unless it must be refused,
// and says what there is to report.
template <class CarryOut>
bool PhoneModel::send(const char* name, CarryOut carryOut) {
    std::optional<FaultKind> met;
    bool done = false;
    if (client.open && up) {
        if (fault && fault->skip-- == 0) {
            met = fault->kind;
            fault.reset();
        }
        if (met == FaultKind::kGoDown) {
            modemDown();
        } else if (met != FaultKind::kTimeOut && met != FaultKind::kRefuse) {
            std::vector<Change> changes;
            done = carryOut(changes);
            if (done) report(changes, met);
        }
    }
    if (done && met != FaultKind::kSendError) return true;
    errors.push_back("Unable send " + std::string(name));
    return false;
}

void PhoneModel::report(const std::vector<Change>& changes, std::optional<FaultKind> met) {
    if (!up || !client.registered() || met == FaultKind::kLoseIndication) return;
    auto sent = changes;
    if (met == FaultKind::kReorderIndications) std::reverse(sent.begin(), sent.end());
    for (const auto& change : sent) {
        underWay.push_back(change);
        if (met == FaultKind::kRepeatIndication) underWay.push_back(change);
    }
}

std::optional<unsigned> PhoneModel::create(Store& store, Tech tech, std::optional<unsigned> index,
                                           const softmodem::Fields& fields) {
    const unsigned first = tech == Tech::k3gpp ? 1 : 0;
    for (unsigned free = first; !index && free < first + 255; ++free) {
        if (store.count(free) == 0) index = free;
    }
    if (!index || *index < first || !store.emplace(*index, fields).second) return std::nullopt;
    return index;
}

bool PhoneModel::modemCreate(Tech tech, std::optional<unsigned> index,
                             const softmodem::Fields& fields) {
    index = create(store(tech), tech, index, fields);
    if (!index) return false;
    const auto type = static_cast<unsigned>(tech);
    report({{type, *index, kCreate + 1}, {type, *index, kModify + 1}}, {});
    return true;
}

softmodem::Fields* PhoneModel::stored(Tech tech, int id) {
    const auto entry = store(tech).find(static_cast<unsigned>(id));
    return entry == store(tech).end() ? nullptr : &entry->second;
}

bool PhoneModel::modemModify(Tech tech, unsigned index, const softmodem::Fields& fields) {
    auto* const profile = stored(tech, static_cast<int>(index));
    if (!profile) return false;
    for (const auto& [name, value] : fields) (*profile)[name] = value;
    report({{static_cast<unsigned>(tech), index, kModify + 1}}, {});
    return true;
}

bool PhoneModel::modemDelete(Tech tech, unsigned index) {
    if (store(tech).erase(index) == 0) return false;
    report({{static_cast<unsigned>(tech), index, kDelete + 1}}, {});
    return true;
}

void PhoneModel::modemIndicate(unsigned tech, unsigned index, unsigned event) {
    report({{tech, index, event}}, {});
}

void PhoneModel::modemSwapSubscriptions() {
    stores[0].swap(stores[1]);
    report({{0, 0, kSubscriptionChange + 1}}, {});
}

void PhoneModel::modemDown() {
    up = false;
    client = {};
    underWay.clear();
}

void PhoneModel::modemUp() {
    if (up) return;
    up = true;
    for (auto& both : stores) {
        for (auto& store : both) {
            for (auto entry = store.begin(); entry != store.end();) {
                entry = isPersistent(entry->second) ? std::next(entry) : store.erase(entry);
            }
        }
    }
}

void PhoneModel::serveUp() {
    if (!up || client.open) return;
    client.open = true;
    send("bind req message", [this](auto&) { return client.bound = true; });
    send("indication req message", [this](auto&) { return client.reports = client.bound; });
    send("config req message", [this](auto& changes) {
        client.events = client.bound;
        if (client.registered()) changes.push_back({0, 0, kProfileReady + 1});
        return client.bound;
    });
}

void PhoneModel::settle() {
    serveUp();
    if (fault && fault->kind == FaultKind::kGoDown) fault.reset();  // not in the midst of those
    while (!underWay.empty()) {
        const Change change = underWay.front();
        underWay.erase(underWay.begin());
        onIndication(change);
    }
    fault.reset();
}

// --- The cache ---

PhoneModel::MaybeEntry PhoneModel::read(Tech tech, int id) {
    const softmodem::Fields* fields = nullptr;
    const bool done = send("ZAP_WDS_GET_PROFILE_SETTINGS_REQ_V01 message", [&](auto&) {
        fields = stored(tech, id);
        return fields && client.bound;
    });
    if (!done) return std::nullopt;
    return Entry{tech, id, fromFields(tech, *fields), isPersistent(*fields)};
}

void PhoneModel::readAll() {
    for (auto entry = cache.begin(); entry != cache.end();) entry = drop(entry);
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
        std::vector<unsigned> listed;
        const bool done = send("ZAP_WDS_GET_PROFILE_LIST_REQ_V01 message", [&](auto&) {
            for (const auto& entry : store(tech)) listed.push_back(entry.first);
            return client.bound;
        });
        if (!done) break;
        for (const unsigned index : listed) {
            cache.emplace(nextToken++, read(tech, static_cast<int>(index)));
        }
    }
}

void PhoneModel::end(MaybeEntry& entry) {
    if (!entry) return;
    for (const auto& [listener, serial] : entry->listeners) {
        if (alive.count(serial)) fired.push_back(std::to_string(listener));
    }
}

std::map<uint64_t, PhoneModel::MaybeEntry>::iterator PhoneModel::drop(
    std::map<uint64_t, MaybeEntry>::iterator entry) {
    end(entry->second);
    return cache.erase(entry);
}

void PhoneModel::onIndication(const Change& change) {
    const bool known = change.event >= 1 && change.event <= 4;
    const Ind ind = {change.tech == 1 ? Tech::k3gpp2 : Tech::k3gpp, static_cast<int>(change.index),
                     known ? change.event - 1 : kProfileReady};
    const auto echo = std::find(pending.begin(), pending.end(), ind);
    if (echo != pending.end()) {
        pending.erase(echo);
        return;
    }
    if (ind.event == kCreate) {
        const uint64_t token = nextToken++;
        cache.emplace(token, read(ind.tech, ind.id));
    } else if (ind.event == kDelete || ind.event == kModify) {
        for (auto entry = cache.begin(); entry != cache.end();) {
            auto& held = entry->second;
            if (!held || held->tech != ind.tech || held->id != ind.id) {
                ++entry;
            } else if (ind.event == kDelete) {
                entry = drop(entry);
            } else {
                auto fresh = read(ind.tech, ind.id);
                end(held);
                held = std::move(fresh);
                ++entry;
            }
        }
    } else {
        readAll();
    }
}

void PhoneModel::init(unsigned instance) {
    for (auto& entry : cache) end(entry.second);
    cache.clear();
    pending.clear();
    client = {};
    refreshing = false;
    subscription = instance;
    ++engine;
}

// --- Manager ---

Key PhoneModel::makeKey(uint64_t token, Entry& entry) {
    ++entry.count;
    alive.insert(nextSerial);
    return {entry.tech, entry.id, token, engine, nextSerial++};
}

PhoneModel::MaybeEntry* PhoneModel::lookUp(const MaybeKey& key, bool isError) {
    if (!key) return nullptr;
    const auto entry = cache.find(key->token);
    if (entry != cache.end()) return &entry->second;
    if (isError) note("ProfileCache: token is not present or expired");
    return nullptr;
}

bool PhoneModel::deleteOnModem(Tech tech, int id) {
    return send("ZAP_WDS_DELETE_PROFILE_REQ_V01 message", [&](auto& changes) {
        changes = {{static_cast<unsigned>(tech), static_cast<unsigned>(id), kDelete + 1}};
        return client.bound && store(tech).erase(static_cast<unsigned>(id)) == 1;
    });
}

MaybeKey PhoneModel::addProfile(const Settings& params, bool persistent, unsigned techNumber,
                                bool isIA) {
    if (refreshing) return std::nullopt;
    const uint64_t token = nextToken++;
    if (techNumber > 1) {
        note("ProfileCache: failed to create profile");
        return std::nullopt;
    }
    const auto tech = static_cast<Tech>(techNumber);
    Entry entry = {tech, -1, wantedBy(params, {}, tech), persistent, true};
    if (tech == Tech::k3gpp) {
        entry.settings["ProfileName"] = std::string(isIA ? "zem_profile_ia" : "zem_profile");
    }
    auto fields = toFields(tech, entry.settings);
    fields["persistent"] = persistent ? 1u : 0u;
    const bool done = send("ZAP_WDS_CREATE_PROFILE_REQ_V01 message", [&](auto& changes) {
        if (!client.bound) return false;
        const auto index = create(store(tech), tech, {}, fields);
        if (!index) return false;
        entry.id = static_cast<int>(*index);
        changes = {{techNumber, *index, kCreate + 1}, {techNumber, *index, kModify + 1}};
        return true;
    });
    if (!done) return std::nullopt;
    expect(tech, entry.id, kCreate);
    expect(tech, entry.id, kModify);
    return makeKey(token, *cache.emplace(token, entry).first->second);
}

bool PhoneModel::modifyProfile(const Settings& params, const MaybeKey& key) {
    if (refreshing) return false;
    auto* const found = lookUp(key, false);
    if (!found) return false;
    if (!*found) return true;
    Entry& entry = **found;
    const Settings changes = wantedBy(params, entry.settings, entry.tech);
    if (changes.empty()) return true;
    const bool done = send("ZAP_WDS_MODIFY_PROFILE_SETTINGS_REQ_V01 message", [&](auto& reported) {
        auto* const profile = client.bound ? stored(entry.tech, entry.id) : nullptr;
        if (!profile) return false;
        for (auto& [name, value] : toFields(entry.tech, changes)) (*profile)[name] = value;
        reported = {
            {static_cast<unsigned>(entry.tech), static_cast<unsigned>(entry.id), kModify + 1}};
        return true;
    });
    if (!done) {
        note("ProfileCache: failed to modify modem profile");
        return true;
    }
    for (const auto& [label, value] : changes) entry.settings[label] = value;
    expect(entry.tech, entry.id, kModify);
    return true;
}

bool PhoneModel::deleteProfile(const MaybeKey& key) {
    if (refreshing || !lookUp(key)) return false;
    if (!deleteOnModem(key->tech, key->id)) {
        note("ProfileCache: Failed to remove profile");
        return false;
    }
    expect(key->tech, key->id, kDelete);
    drop(cache.find(key->token));
    return true;
}

std::vector<Key> PhoneModel::filter(const Filter& asked) {
    std::vector<Key> keys;
    if (refreshing) return keys;
    for (auto& [token, entry] : cache) {
        if (!entry) {
            note("ProfileCache: null profile");
        } else if (matches(asked, *entry)) {
            keys.push_back(makeKey(token, *entry));
        }
    }
    return keys;
}

std::optional<Settings> PhoneModel::getProfile(const MaybeKey& key) {
    if (refreshing) return std::nullopt;
    const auto* const entry = lookUp(key);
    if (!entry || !*entry) return std::nullopt;
    const Settings& held = (*entry)->settings;
    Settings params;
    copy(held,
         {"ApnName", "UserName", "Password", "AuthType", "ApnClass", "IsClatEnabled",
          "MaxPdnsConnPerBlock", "MaxPdnConnTimer", "PdnReqWaitInterval", "IsApnDisabled",
          "IsEmergencySupported"},
         params);
    if (const auto mask = numberOf(held, "ApnTypesMask"))
        params["ApnTypesMask"] = toApnTypes(*mask);
    if (const auto home = homeOf(held)) params["HomeIPType"] = *home;
    if ((*entry)->tech == Tech::k3gpp2) return params;
    const auto roam = numberOf(held, "LteRoamIP");
    if (roam && roam == numberOf(held, "UmtsRoamIP")) params["RoamIPType"] = *roam;
    params["IsZemProfile"] = isZem(held) ? 1u : 0u;
    params["IsIAProfile"] = isIA(held) ? 1u : 0u;
    return params;
}

bool PhoneModel::match(const Filter& asked, const MaybeKey& key) {
    if (refreshing) return false;
    const auto* const entry = lookUp(key);
    return entry && *entry && matches(asked, **entry);
}

void PhoneModel::refresh(bool start) {
    refreshing = start;
    if (!start) readAll();
}

bool PhoneModel::usable(const Key& key) {
    if (key.engine == engine) return !refreshing;
    note("error in writing rv: -1 error: Bad file descriptor");
    return false;
}

void PhoneModel::release(const Key& key) {
    alive.erase(key.serial);
    if (!usable(key)) return;
    auto* const found = lookUp(key);
    if (!found || !*found) return;
    Entry& entry = **found;
    if (entry.count >= 2) {
        --entry.count;
    } else if (!entry.persistent && entry.zemCreated) {
        if (!deleteOnModem(entry.tech, entry.id)) {
            note("ProfileCache: failed to release profile");
            return;
        }
        expect(entry.tech, entry.id, kDelete);
        drop(cache.find(key.token));
    }
}

void PhoneModel::listen(const Key& key, unsigned listener) {
    if (!usable(key)) return;
    auto* const entry = lookUp(key);
    if (entry && *entry) (*entry)->listeners.emplace_back(listener, key.serial);
}

// --- Settings ---

PhoneModel::IPTypes PhoneModel::newIPTypes(const Settings& params, const Settings& held) {
    IPTypes types;
    types.common = find(params, "HomeIPType") ? numberOf(params, "HomeIPType") : homeOf(held);
    const auto lte = numberOf(held, "LteRoamIP");
    if (find(params, "RoamIPType")) {
        types.roam = numberOf(params, "RoamIPType");
    } else if (lte == numberOf(held, "UmtsRoamIP")) {
        types.roam = lte;
    }
    if (!types.common || !types.roam) return types;
    if (types.common != types.roam) {
        types.overrideHome = types.common;
        types.common = kV4V6;
    } else if (find(held, "OverrideHomeIPType")) {
        types.overrideHome = kUnknown;
    }
    return types;
}

// What the profile must take on to satisfy the parameters.
Settings PhoneModel::wantedBy(const Settings& params, const Settings& held, Tech tech) {
    Settings wanted;
    copy(params, {"UserName", "Password", "AuthType", "ApnClass", "IsClatEnabled"}, wanted);
    if (const Value* name = find(params, "ApnName")) wanted["ApnName"] = toApnName(text(*name));
    if (tech == Tech::k3gpp) {
        copy(params,
             {"MaxPdnsConnPerBlock", "MaxPdnConnTimer", "PdnReqWaitInterval", "IsApnDisabled",
              "IsEmergencySupported"},
             wanted);
        const IPTypes types = newIPTypes(params, held);
        if (types.common) wanted["CommonIPType"] = *types.common;
        if (types.roam) wanted["LteRoamIP"] = wanted["UmtsRoamIP"] = *types.roam;
        if (types.overrideHome) wanted["OverrideHomeIPType"] = *types.overrideHome;
    } else if (const Value* home = find(params, "HomeIPType")) {
        wanted["CommonIPType"] = *home;
    }
    for (auto setting = wanted.begin(); setting != wanted.end();) {
        const Value* value = find(held, setting->first);
        setting = value && *value == setting->second ? wanted.erase(setting) : std::next(setting);
    }
    if (const Value* mask = find(params, "ApnTypesMask")) {
        const auto had = numberOf(held, "ApnTypesMask");
        if (!had || toApnTypes(*had) != number(*mask))
            wanted["ApnTypesMask"] = toWireMask(number(*mask));
    }
    return wanted;
}

bool PhoneModel::matches(const Filter& asked, const Entry& entry) const {
    const Settings& held = entry.settings;
    if (asked.tech && *asked.tech != entry.tech) return false;
    if (const Value* name = find(asked.settings, "ApnName")) {
        const Value* has = find(held, "ApnName");
        const std::string wanted = toApnName(text(*name));
        if (!has) return false;
        if (asked.criteria & kNameSubset ? text(*has).find(wanted) == std::string::npos
                                         : text(*has) != wanted)
            return false;
    }
    if (const auto mask = numberOf(asked.settings, "ApnTypesMask")) {
        const auto has = numberOf(held, "ApnTypesMask");
        const uint64_t wire = toWireMask(*mask);
        if (!has) return false;
        if (asked.criteria & kTypesSubset ? (wire & ~*has) != 0 : wire != *has) return false;
    }
    for (const char* label :
         {"UserName", "Password", "AuthType", "ApnClass", "IsClatEnabled", "MaxPdnsConnPerBlock",
          "MaxPdnConnTimer", "PdnReqWaitInterval", "IsApnDisabled", "IsEmergencySupported"}) {
        const Value* wanted = find(asked.settings, label);
        const Value* has = find(held, label);
        if (wanted && (!has || *has != *wanted)) return false;
    }
    if (asked.id && *asked.id != entry.id) return false;
    const auto home = numberOf(asked.settings, "HomeIPType");
    const auto roam = numberOf(asked.settings, "RoamIPType");
    if (entry.tech == Tech::k3gpp2) {
        if (asked.isZem || asked.isIA || roam) return false;
        for (const char* label : {"MaxPdnsConnPerBlock", "MaxPdnConnTimer", "PdnReqWaitInterval",
                                  "IsApnDisabled", "IsEmergencySupported"}) {
            if (find(asked.settings, label)) return false;
        }
        return !home ||
               ipTypeFits(numberOf(held, "CommonIPType").value_or(kUnknown), *home, asked.criteria);
    }
    if (asked.isIA ? isIA(held) != *asked.isIA : asked.isZem && isZem(held) != *asked.isZem)
        return false;
    if (home && !(homeOf(held) && ipTypeFits(*homeOf(held), *home, asked.criteria))) return false;
    if (!roam) return true;
    const auto lte = numberOf(held, "LteRoamIP");
    const auto umts = numberOf(held, "UmtsRoamIP");
    auto has = lte && *lte == umts.value_or(kUnknown) ? lte : std::nullopt;
    if (!lte && !umts) has = numberOf(held, "CommonIPType");
    return has && ipTypeFits(*has, *roam, asked.criteria >> 1);
}

// --- Util ---

MaybeKey PhoneModel::takeFirst(std::vector<Key> keys) {
    if (keys.empty()) return std::nullopt;
    for (size_t i = 1; i < keys.size(); ++i) release(keys[i]);
    return keys.front();
}

MaybeKey PhoneModel::setupDataCall(Tech tech, const Settings& params) {
    Filter asked;
    asked.tech = tech;
    copy(params, {"ApnName"}, asked.settings);
    if (tech == Tech::k3gpp2) copy(params, {"UserName"}, asked.settings);
    if (!updateAllowed) copy(params, {"HomeIPType"}, asked.settings);
    MaybeKey key = takeFirst(filter(asked));
    if (!key && !updateAllowed) {
        asked.criteria = kSubset | kSuperset;
        key = takeFirst(filter(asked));
    }
    if (!key) return addProfile(params, false, static_cast<unsigned>(tech), false);
    if (updateAllowed) modifyProfile(params, key);
    return key;
}

MaybeKey PhoneModel::emergencyCall(const Settings& params) {
    MaybeKey key;
    Filter asked;
    asked.tech = Tech::k3gpp;
    asked.settings["IsEmergencySupported"] = 1u;
    if (find(params, "ApnName")) {
        Filter byName = asked;
        copy(params, {"ApnName"}, byName.settings);
        key = takeFirst(filter(byName));
    }
    if (!key) key = takeFirst(filter(asked));
    if (key) return key;
    Settings created = params;
    created["IsEmergencySupported"] = 1u;
    created["ApnTypesMask"] = 0x200u;
    return addProfile(created, true, 0, false);
}

MaybeKey PhoneModel::lteAttach(const Settings& params) {
    enum { kUnreadable, kUsable, kOtherPurpose };
    const auto judge = [this](const MaybeKey& key) {
        const auto profile = getProfile(key);
        if (!profile) return kUnreadable;
        const bool other =
            isFlagSet(*profile, "IsZemProfile") && !isFlagSet(*profile, "IsIAProfile");
        return other ? kOtherPurpose : kUsable;
    };
    Settings update;
    copy(params,
         {"UserName", "Password", "AuthType", "ApnTypesMask", "MaxPdnsConnPerBlock",
          "MaxPdnConnTimer", "PdnReqWaitInterval"},
         update);
    const auto search = [&]() -> MaybeKey {
        Filter named;
        named.tech = Tech::k3gpp;
        copy(params, {"ApnName"}, named.settings);

        Filter exact = named;
        copy(params, {"HomeIPType", "RoamIPType"}, exact.settings);
        if (const MaybeKey key = takeFirst(filter(exact))) {
            if (judge(key) == kUsable) return key;
            release(*key);
        }
        Filter loose = named;
        if (updateAllowed) {
            copy(params, {"HomeIPType", "RoamIPType"}, update);
        } else {
            loose.isZem = false;
            copy(params, {"HomeIPType", "RoamIPType"}, loose.settings);
            if (find(params, "HomeIPType")) loose.criteria |= 0x11;
            if (find(params, "RoamIPType")) loose.criteria |= 0x22;
        }
        if (const MaybeKey key = takeFirst(filter(loose))) {
            if (judge(key) == kUsable) return key;
            release(*key);
        }
        copy(params, {"HomeIPType", "RoamIPType"}, update);
        Filter own = named;
        own.isZem = own.isIA = true;
        if (const MaybeKey key = takeFirst(filter(own))) return key;
        own.settings.clear();
        const MaybeKey key = takeFirst(filter(own));
        if (key) copy(params, {"ApnName"}, update);
        return key;
    };
    const MaybeKey key = search();
    if (!key) return addProfile(params, true, 0, true);
    modifyProfile(update, key);
    return key;
}

bool PhoneModel::matchLteAttach(int id, const Settings& params) {
    Filter byId;
    byId.tech = Tech::k3gpp;
    byId.id = id;
    const MaybeKey key = takeFirst(filter(byId));
    if (!key) return false;
    bool fits = false;
    if (const auto profile = getProfile(key)) {
        const bool zem = isFlagSet(*profile, "IsZemProfile");
        if (zem && !isFlagSet(*profile, "IsIAProfile")) {
            errors.push_back("Profile id " + std::to_string(id) +
                             " is a ZEM profile which is not an IA profile, cannot be used for "
                             "attach");
        } else {
            Filter asked;
            copy(params,
                 {"ApnName", "HomeIPType", "RoamIPType", "UserName", "Password", "AuthType"},
                 asked.settings);
            if (!updateAllowed && !zem) asked.criteria = 0x33;
            fits = match(asked, key);
        }
    }
    release(*key);
    return fits;
}

void PhoneModel::updateByApnClass(Tech tech, const std::vector<Settings>& entries) {
    for (const Settings& params : entries) {
        if (!find(params, "ApnClass")) continue;
        Filter asked;
        asked.tech = tech;
        copy(params, {"ApnClass"}, asked.settings);
        const auto keys = filter(asked);
        for (const Key& key : keys) modifyProfile(params, key);
        for (const Key& key : keys) release(key);
        if (!keys.empty()) continue;
        if (const auto key = addProfile(params, true, static_cast<unsigned>(tech), false))
            release(*key);
    }
}

void PhoneModel::updateByIpType(Tech tech, uint64_t ipType, uint64_t mask, const std::string& apn,
                                bool& found) {
    Filter asked;
    asked.tech = tech;
    asked.settings = {{"ApnName", apn}, {"HomeIPType", ipType}};
    const auto keys = filter(asked);
    for (const Key& key : keys) modifyProfile({{"ApnTypesMask", mask}}, key);
    for (const Key& key : keys) release(key);
    found = !keys.empty();
}

void PhoneModel::updateApnTypesByTech(Tech tech, const std::array<uint64_t, 4>& masks,
                                      const std::string& apn) {
    bool found4 = false;
    bool found6 = false;
    bool found = false;
    if (masks[kV4]) updateByIpType(tech, kV4, masks[kV4], apn, found4);
    const uint64_t base = masks[kV4V6] | (found4 ? 0 : masks[kV4]);
    if (masks[kV6]) updateByIpType(tech, kV6, masks[kV6], apn, found6);
    const uint64_t target = base | (found6 ? 0 : masks[kV6]);
    if (base == 0 && (found6 || masks[kV6] == 0)) return;
    updateByIpType(tech, kV4V6, target, apn, found);
    if (found) return;
    updateByIpType(tech, kV4, target | masks[kV4], apn, found);
    updateByIpType(tech, kV6, base | masks[kV6], apn, found);
}

void PhoneModel::updateApnTypes(std::vector<Settings> entries) {
    std::unordered_set<std::string> names;
    names.max_load_factor(1.0F);
    for (Settings& entry : entries) {
        if (const Value* name = find(entry, "ApnName")) {
            const std::string lower = lowered(text(*name));
            entry["ApnName"] = lower;
            names.insert(lower);
        }
        if (entry.emplace("ApnTypesMask", 0u).second)
            note("zem APN type mask not present, setting to 0");
        if (entry.emplace("HomeIPType", kV4V6).second)
            note("zem Home IP type not present, setting to v4v6");
    }
    for (const auto& name : names) {
        std::array<uint64_t, 4> masks = {};
        for (const Settings& entry : entries) {
            const Value* own = find(entry, "ApnName");
            if (!own || text(*own) != name) continue;
            const uint64_t type = *numberOf(entry, "HomeIPType");
            masks[type == kV4 || type == kV6 ? type : kV4V6] |= *numberOf(entry, "ApnTypesMask");
        }
        if (updateAllowed) {
            const auto keys = filter({{{"ApnName", name}}});
            const uint64_t all = masks[kV4] | masks[kV6] | masks[kV4V6];
            for (const Key& key : keys) modifyProfile({{"ApnTypesMask", all}}, key);
            for (const Key& key : keys) release(key);
        } else {
            updateApnTypesByTech(Tech::k3gpp, masks, name);
            updateApnTypesByTech(Tech::k3gpp2, masks, name);
        }
    }
}

// --- What must be seen ---

std::vector<std::string> PhoneModel::modemLines(unsigned which) const {
    std::vector<std::string> lines;
    for (const Tech tech : {Tech::k3gpp, Tech::k3gpp2}) {
        for (const auto& [index, fields] : stores[which][static_cast<size_t>(tech)])
            lines.push_back(inWords({tech, index, fields}));
    }
    return lines;
}

std::vector<std::string> PhoneModel::cacheLines() const {
    std::vector<std::string> lines;
    for (const auto& [token, entry] : cache) {
        lines.push_back("  " + std::to_string(token) + ": " +
                        (entry ? dumpProfile(entry->tech, entry->id, entry->settings) : "null"));
    }
    return lines;
}

std::vector<std::string> PhoneModel::pendingLines() const {
    std::vector<std::string> lines;
    for (const Ind& ind : pending) lines.push_back(ind.dump());
    return lines;
}

}  // namespace zem::model
