// ModemAccess onto the software modem.
#include <algorithm>
#include <condition_variable>
#include <iterator>
#include <mutex>

#include <softmodem/SoftModem.h>

#include "session/Interrupt.h"
#include "session/ModemAccess.h"

namespace zemctl {

namespace {

constexpr std::chrono::milliseconds kSlice(50);  // between two looks at Ctrl-C

constexpr unsigned kProfileList = 0x002A;

// As numbers of the modem's fields; its APN types have an order of their own.
constexpr uint64_t kYes = 1;
constexpr uint64_t kClassIms = 1, kClassInternet = 3;
constexpr uint64_t kTypeDefault = 0x1, kTypeIms = 0x2, kTypeSupl = 0x10, kTypeAttach = 0x100,
                   kTypeEmergency = 0x200;
constexpr uint64_t kIpv4 = 0, kIpv4v6 = 3, kPdnIpv4v6 = 2;

// What the modem comes with; fields and values are the modem's own.
const struct FactoryProfile {
    softmodem::Tech tech;
    unsigned index;
    softmodem::Fields fields;
} kFactoryProfiles[] = {
    // Internet, with which the modem attaches until it knows better.
    {softmodem::Tech::k3gpp,
     1,
     {{"profile_name", "profile1"},
      {"apn_name", "internet"},
      {"pdp_type", kIpv4v6},
      {"apn_class", kClassInternet},
      {"apn_type_mask", kTypeDefault | kTypeSupl | kTypeAttach},
      {"persistent", kYes}}},
    // Voice and messages.
    {softmodem::Tech::k3gpp,
     2,
     {{"profile_name", "profile2"},
      {"apn_name", "ims"},
      {"pdp_type", kIpv4v6},
      {"apn_class", kClassIms},
      {"apn_type_mask", kTypeIms},
      {"persistent", kYes}}},
    // Emergency calls.
    {softmodem::Tech::k3gpp,
     3,
     {{"profile_name", "profile3"},
      {"apn_name", "sos"},
      {"pdp_type", kIpv4v6},
      {"apn_type_mask", kTypeEmergency},
      {"supports_emergency_calls", kYes},
      {"persistent", kYes}}},
    // The attach that leaves the choice of the APN to the network.
    {softmodem::Tech::k3gpp,
     4,
     {{"profile_name", "profile4"},
      {"apn_name", ""},
      {"pdp_type", kIpv4},
      {"apn_type_mask", kTypeAttach},
      {"persistent", kYes}}},
    {softmodem::Tech::k3gpp2,
     0,
     {{"apn_string_3gpp2", "internet"},
      {"pdn_type_3gpp2", kPdnIpv4v6},
      {"apn_class_3gpp2", kClassInternet},
      {"apn_type_mask", kTypeDefault},
      {"persistent", kYes}}},
};

zem::TechType techType(softmodem::Tech tech) {
    return tech == softmodem::Tech::k3gpp2 ? zem::TechType::TECH_3GPP2 : zem::TechType::TECH_3GPP;
}

StoredProfile stored(const softmodem::Profile& profile) {
    StoredProfile result{techType(profile.tech), static_cast<int>(profile.index), {}};
    for (const std::string& line : softmodem::describe(profile)) {
        const size_t equals = line.find('=');
        result.fields.emplace_back(line.substr(0, equals),
                                   equals == std::string::npos ? "" : line.substr(equals + 1));
    }
    return result;
}

}  // namespace

struct ModemAccess::Impl {
    void hurry() const {
        modem.setLatency({});
        modem.setHurry(true);
    }

    softmodem::SoftModem& modem = softmodem::SoftModem::instance();
    std::mutex mutex;
    std::condition_variable asked;
    unsigned subscription = 0;
    std::chrono::milliseconds latency{0};
    bool listAsked = false;  // since the start or the last restart
};

// The hook shares the state: a call of it may still be running when this object goes.
ModemAccess::ModemAccess(int subscription) : impl(std::make_shared<Impl>()) {
    impl->subscription = static_cast<unsigned>(subscription);
    impl->modem.setRequestHook([state = impl](const softmodem::Request& request) {
        if (interruptSignal() != 0) {
            state->hurry();
        }
        if (request.messageId == kProfileList) {
            const std::lock_guard lock(state->mutex);
            state->listAsked = true;
            state->asked.notify_all();
        }
    });
}

ModemAccess::~ModemAccess() {
    impl->modem.setRequestHook({});
}

bool ModemAccess::inProcess() const {
    return true;
}

bool ModemAccess::waitForLibrary(zem::Manager& manager, std::chrono::milliseconds limit,
                                 const std::function<void()>& passing) {
    {
        const auto end = std::chrono::steady_clock::now() + limit;
        std::unique_lock lock(impl->mutex);
        while (!impl->asked.wait_for(lock, kSlice, [this] { return impl->listAsked; })) {
            throwIfInterrupted();
            if (passing) {
                passing();
            }
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
        }
    }
    const bool idle = impl->modem.waitUntilIdle(limit);
    zem::FilterProfileParams nothing;
    nothing.setFilterByProfileId(-1);
    manager.filter(nothing);  // answered only when the engine has read what it asked for
    return idle;
}

bool ModemAccess::isUp() const {
    return impl->modem.isUp();
}

std::string ModemAccess::storeText(const std::set<std::pair<zem::TechType, int>>& without) const {
    return impl->modem.storeText([&](const softmodem::Profile& profile, unsigned) {
        const auto persistent = profile.fields.find("persistent");
        return without.count({techType(profile.tech), static_cast<int>(profile.index)}) == 0 ||
               (persistent != profile.fields.end() &&
                persistent->second != softmodem::Value(uint64_t{0}));
    });
}

void ModemAccess::save(const std::string& path, const std::string& text) {
    softmodem::saveStore(path, text);
}

void ModemAccess::load(const std::string& path) {
    impl->modem.load(path);
}

std::vector<StoredProfile> ModemAccess::profiles() const {
    std::vector<StoredProfile> result;
    for (const softmodem::Profile& profile : impl->modem.profiles(impl->subscription)) {
        result.push_back(stored(profile));
    }
    return result;
}

void ModemAccess::boot() {
    {
        const std::lock_guard lock(impl->mutex);
        impl->listAsked = false;
    }
    impl->modem.comeUp();
}

void ModemAccess::restart() {
    impl->modem.waitUntilIdle();
    impl->modem.goDown();
    boot();
}

void ModemAccess::setLatency(std::chrono::milliseconds latency) {
    impl->latency = latency;
    impl->modem.setLatency(latency);
}

void ModemAccess::calmDown() {
    impl->modem.setLatency(impl->latency);
    impl->modem.setHurry(false);
}

void ModemAccess::hurry() {
    impl->hurry();
}

bool ModemAccess::storeFactoryProfiles() {
    return std::all_of(std::begin(kFactoryProfiles), std::end(kFactoryProfiles),
                       [this](const FactoryProfile& profile) {
                           return impl->modem
                               .createProfileAt({profile.tech, profile.index, profile.fields},
                                                impl->subscription)
                               .has_value();
                       });
}

bool ModemAccess::changeProfile(zem::TechType tech, int index, const std::string& field,
                                unsigned value) {
    const bool changed = impl->modem.modifyProfile(
        {tech == zem::TechType::TECH_3GPP2 ? softmodem::Tech::k3gpp2 : softmodem::Tech::k3gpp,
         static_cast<unsigned>(index),
         {{field, uint64_t{value}}}},
        impl->subscription);
    impl->modem.waitUntilIdle();
    return changed;
}

unsigned ModemAccess::openHandles() const {
    const softmodem::Counters counters = impl->modem.counters();
    return counters.openClients + counters.openNotifiers;
}

}  // namespace zemctl
