// Phone: an engine on the software modem, all of whose profiles it has read.
#pragma once

#include <softmodem/SoftModem.h>
#include <zem/Manager.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>

namespace zem {

constexpr size_t kFull = 255;  // profiles that the modem stores of each technology

inline std::string apnNameOf(size_t i) {
    return "apn" + std::to_string(i) + ".operator.example";
}

// One at a time: there is one modem.
class Phone {
  public:
    // The modem has just left its maker, but for count profiles of each technology.
    explicit Phone(size_t count) {
        modem.reset();
        for (size_t i = 0; i < count; ++i) store(i);
        manager.init(0, false);
        // The modem reports its profiles once the engine has registered.
        while (manager.filter({}).size() != 2 * count) std::this_thread::yield();
        modem.waitUntilIdle();
        manager.refresh(COMPLETE);
    }

    softmodem::SoftModem& modem = softmodem::SoftModem::instance();
    Manager manager;

  private:
    void store(size_t i) {
        const std::string name = apnNameOf(i), user = "user" + std::to_string(i);
        const softmodem::Profile profiles[] = {
            {softmodem::Tech::k3gpp, 0, {{"apn_name", name}, {"username", user}}},
            {softmodem::Tech::k3gpp2, 0, {{"apn_string_3gpp2", name}, {"user_id_3gpp2", user}}},
        };
        for (const auto& profile : profiles) {
            if (!modem.createProfile(profile)) abort();
        }
    }
};

}  // namespace zem
