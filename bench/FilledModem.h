// FilledModem: the software modem with so many profiles in its stores.
#pragma once

#include <softmodem/SoftModem.h>

#include <cstddef>
#include <cstdlib>
#include <string>

namespace zem {

constexpr size_t kFull = 255;  // profiles that the modem stores of each technology

// How many profiles there are of each technology.
struct Stock {
    size_t of3gpp;
    size_t of3gpp2;

    size_t all() const { return of3gpp + of3gpp2; }
};

inline std::string apnNameOf(size_t i) {
    return "apn" + std::to_string(i) + ".operator.example";
}

// What changes are made of.
inline constexpr char kAddedName[] = "internet";

class UserNames {
  public:
    // Another one than last time.
    const char* next() { return names[first = !first]; }

  private:
    const char* const names[2] = {"one", "other"};
    bool first = false;
};

inline void store(const softmodem::Profile& profile) {
    if (!softmodem::SoftModem::instance().createProfile(profile)) abort();
}

// The modem as it left its maker, but for those profiles.
inline softmodem::SoftModem& filledModem(const Stock& stock) {
    softmodem::SoftModem& modem = softmodem::SoftModem::instance();
    modem.reset();
    modem.clearRequests();
    for (size_t i = 0; i < stock.of3gpp || i < stock.of3gpp2; ++i) {
        const std::string name = apnNameOf(i), user = "user" + std::to_string(i);
        if (i < stock.of3gpp) {
            store({softmodem::Tech::k3gpp, 0, {{"apn_name", name}, {"username", user}}});
        }
        if (i < stock.of3gpp2) {
            store({softmodem::Tech::k3gpp2,
                   0,
                   {{"apn_string_3gpp2", name}, {"user_id_3gpp2", user}}});
        }
    }
    return modem;
}

}  // namespace zem
