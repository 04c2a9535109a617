// ModemAccess onto the software modem.
#include <condition_variable>
#include <mutex>

#include <softmodem/SoftModem.h>

#include "ModemAccess.h"

namespace zemctl {

namespace {

constexpr unsigned kProfileList = 0x002A;

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
    softmodem::SoftModem& modem = softmodem::SoftModem::instance();
    std::mutex mutex;
    std::condition_variable asked;
    bool listAsked = false;  // since the start or the last restart
};

ModemAccess::ModemAccess() : impl(std::make_unique<Impl>()) {
    impl->modem.setRequestHook([state = impl.get()](const softmodem::Request& request) {
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

bool ModemAccess::waitForLibrary(zem::Manager& manager, std::chrono::milliseconds limit) {
    {
        std::unique_lock lock(impl->mutex);
        if (!impl->asked.wait_for(lock, limit, [this] { return impl->listAsked; })) {
            return false;
        }
    }
    const bool idle = impl->modem.waitUntilIdle(limit);
    manager.filter({});  // answered only when the engine has read what it asked for
    return idle;
}

std::vector<StoredProfile> ModemAccess::profiles() const {
    std::vector<StoredProfile> result;
    for (const softmodem::Profile& profile : impl->modem.profiles()) {
        result.push_back(stored(profile));
    }
    return result;
}

void ModemAccess::restart() {
    impl->modem.waitUntilIdle();
    {
        const std::lock_guard lock(impl->mutex);
        impl->listAsked = false;
    }
    impl->modem.restart();
}

unsigned ModemAccess::openHandles() const {
    const softmodem::Counters counters = impl->modem.counters();
    return counters.openClients + counters.openNotifiers;
}

}  // namespace zemctl
