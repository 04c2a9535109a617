// ModemAccess on a device: the modem is reached through the library alone.
#include <stdexcept>

#include "session/Interrupt.h"
#include "session/ModemAccess.h"

namespace zemctl {

namespace {

constexpr std::chrono::milliseconds kBetweenTries(100);

}  // namespace

struct ModemAccess::Impl {};

ModemAccess::ModemAccess(int /*subscription*/) {}
ModemAccess::~ModemAccess() = default;

bool ModemAccess::inProcess() const {
    return false;
}

// A device's modem always holds profiles of its own, so the first one seen tells that they are
// read.
bool ModemAccess::waitForLibrary(zem::Manager& manager, std::chrono::milliseconds limit,
                                 const std::function<void()>& passing) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (manager.filter({}).empty()) {
        if (std::chrono::steady_clock::now() >= end) {
            return false;
        }
        sleepUnlessInterrupted(kBetweenTries);
        if (passing) {
            passing();
        }
        throwIfInterrupted();
    }
    return true;
}

bool ModemAccess::isUp() const {
    return true;
}

std::string ModemAccess::storeText(
    const std::set<std::pair<zem::TechType, int>>& /*without*/) const {
    return {};
}

void ModemAccess::save(const std::string& /*path*/, const std::string& /*text*/) {}

void ModemAccess::load(const std::string& path) {
    throw std::runtime_error(path + ": a device's modem has no file");
}

std::vector<StoredProfile> ModemAccess::profiles() const {
    return {};
}

void ModemAccess::boot() {}

void ModemAccess::restart() {}

void ModemAccess::setLatency(std::chrono::milliseconds /*latency*/) {}

void ModemAccess::hurry() {}

void ModemAccess::calmDown() {}

bool ModemAccess::storeFactoryProfiles() {
    return false;
}

bool ModemAccess::changeProfile(zem::TechType /*tech*/, int /*index*/, const std::string& /*field*/,
                                unsigned /*value*/) {
    return false;
}

unsigned ModemAccess::openHandles() const {
    return 0;
}

}  // namespace zemctl
