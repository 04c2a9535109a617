// Settings: one table of a profile's settings, for everything that prints or compares them.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include <zem/ProfileParams.h>

#include "command/Values.h"
#include "command/Verb.h"

namespace zemctl {

struct Setting {
    const char* name;    // as the library calls it
    const char* option;  // as a person types it
    const char* type;    // what stands behind the option
    const char* values;  // what it may hold, where candidates does not say it
    const char* unset;   // what an absent setting means
    const char* help;
    bool secret;    // not printed unless asked for
    bool only3gpp;  // 3GPP2 profiles have no such setting
    // As the library compares it; empty when the setting is absent.
    std::optional<std::string> (*text)(const zem::ProfileParams&);
    // Throws UsageError.
    void (*set)(zem::ProfileParams&, const OptionText&);
    Candidates candidates;  // null: any text or number
};

extern const std::vector<Setting> kSettings;

// One option for each setting.
Arguments settingArguments();

// The settings that were given; throws UsageError for a value that cannot be.
zem::ProfileParams settingsOf(const Given& given);

// --tech: a family of profiles.
Argument techArgument(const std::string& help);
// 3GPP when it is not given; throws UsageError.
zem::TechType techOf(const Given& given);

// Throws UsageError when a setting is given that 3GPP2 profiles do not have.
void requireSettingsOf(zem::TechType tech, const zem::ProfileParams& params);

// The limits of settings, in bytes where they are texts.
inline constexpr size_t kLongestApnName = 150;     // what the library keeps
inline constexpr size_t kLongestCredential = 127;  // what a modem stores
inline constexpr int kLastProfileId = 255;
inline constexpr int kLargestNumber = 65535;  // the modem's counters have 16 bits

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
