// ModemAccess: what the tool sees of the modem, and does to it, behind the library's back.
//
// Two implementations, chosen by the build: the software modem in this process, and a device's
// modem, which can neither be looked into nor restarted from here. One thread; outlives the
// Manager that it is given.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <zem/Manager.h>

namespace zemctl {

struct StoredProfile {
    zem::TechType tech;
    int index;
    std::vector<std::pair<std::string, std::string>> fields;  // as the modem names and stores them
};

class ModemAccess {
  public:
    explicit ModemAccess(int subscription = 0);
    ~ModemAccess();
    ModemAccess(const ModemAccess&) = delete;
    ModemAccess& operator=(const ModemAccess&) = delete;

    // Whether the operations below the next one reach the modem; else they do nothing and answer
    // empty.
    bool inProcess() const;

    // Waits until the library has registered and read the modem's profiles, since the start or the
    // last restart; calls passing from time to time. False when the limit passes first; throws
    // Interrupted when the user wants an end.
    bool waitForLibrary(zem::Manager& manager,
                        std::chrono::milliseconds limit = std::chrono::seconds(10),
                        const std::function<void()>& passing = {});

    bool isUp() const;
    std::vector<StoredProfile> profiles() const;
    void boot();  // the library registers anew
    void restart();

    // The stores of all subscriptions as a text, to a file and from one. Both throw
    // std::runtime_error with the file's name, and its line where one is at fault.
    // Left out are those of the given profiles that are transient.
    std::string storeText(const std::set<std::pair<zem::TechType, int>>& without) const;
    static void save(const std::string& path, const std::string& text);
    void load(const std::string& path);

    // How long each request takes.
    void setLatency(std::chrono::milliseconds latency);
    // From now on the modem answers at once, and a request that it would not answer fails. So it
    // does by itself once the user wants an end, until calmDown().
    void hurry();
    void calmDown();

    // Puts the factory profiles into the modem, as it comes from its maker. False when a place is
    // taken.
    bool storeFactoryProfiles();

    // Sets a number in a stored profile, as the network does. False when the profile has no such
    // field.
    bool changeProfile(zem::TechType tech, int index, const std::string& field, unsigned value);

    // Connections that the library holds to the modem.
    unsigned openHandles() const;

  private:
    struct Impl;
    std::shared_ptr<Impl> impl;
};

}  // namespace zemctl
