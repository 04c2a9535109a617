// Settings: one table of a profile's settings, for everything that prints or compares them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <zem/ProfileParams.h>

namespace zemctl {

struct Setting {
    const char* name;
    bool secret;    // never printed
    bool only3gpp;  // 3GPP2 profiles have no such setting
    // As the library compares it; empty when the setting is absent.
    std::optional<std::string> (*text)(const zem::ProfileParams&);
};

extern const std::vector<Setting> kSettings;

// The limits of settings, in bytes where they are texts.
inline constexpr size_t kLongestApnName = 150;     // what the library keeps
inline constexpr size_t kLongestCredential = 127;  // what a modem stores
inline constexpr int kLargestNumber = 65535;       // the modem's counters have 16 bits

// What stands in place of a secret.
inline constexpr const char* kMask = "********";

// One text per setting in the table's order: equal for records that mean the same profile.
std::vector<std::optional<std::string>> settingTexts(const zem::ProfileParams& params);

// A line for each setting that is asked for and reads otherwise; empty when all agree. Settings
// that the family does not have are passed over.
std::vector<std::string> differences(const zem::ProfileParams& asked,
                                     const zem::ProfileParams& seen,
                                     zem::TechType tech = zem::TechType::TECH_3GPP);

// "ApnName=internet" and so on; passwords are masked.
std::vector<std::string> settingWords(const zem::ProfileParams& params);

// The names of two records agree as the library compares them.
bool sameApnName(const zem::ProfileParams& a, const zem::ProfileParams& b);

std::string ipTypeName(zem::IPType value);
std::string apnClassName(zem::ApnClass value);
std::string techTypeName(zem::TechType value);
std::string authTypeName(zem::AuthType value);
std::string apnTypesText(unsigned int mask);  // "DEFAULT|MMS"

// The bit of an APN type's name, in any case; empty when zem has no such type.
std::optional<unsigned int> apnTypeFromName(std::string_view name);

}  // namespace zemctl
