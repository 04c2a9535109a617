// Settings: a profile's or a record's settings by the label that they have in dumps, and what the
// modem makes of them. Worked out in tables, in the plainest way, to hold the library against.
#pragma once

#include <zem/ProfileParams.h>

#include <softmodem/SoftModem.h>

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

namespace zem::model {

using softmodem::Tech;
using softmodem::Value;  // flags are 0 and 1; a negative number stands as 64 bits
using Settings = std::map<std::string_view, Value>;

inline uint64_t number(const Value& value) {
    return std::get<uint64_t>(value);
}
inline const std::string& text(const Value& value) {
    return std::get<std::string>(value);
}
// Null when the setting is absent.
const Value* find(const Settings& settings, std::string_view label);

std::string lowered(std::string name);
// Cut to 150 characters and in lower case.
std::string toApnName(const std::string& name);
uint64_t toWireMask(uint64_t apnTypes);
uint64_t toApnTypes(uint64_t wireMask);

ProfileParams toParams(const Settings& settings);
std::string dumpParams(const Settings& settings);
std::string dumpProfile(Tech tech, int id, const Settings& settings);

// A cached profile's settings as the modem stores them, and back.
softmodem::Fields toFields(Tech tech, const Settings& settings);
Settings fromFields(Tech tech, const softmodem::Fields& fields);

}  // namespace zem::model
