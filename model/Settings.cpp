#include "Settings.h"

#include <algorithm>
#include <optional>
#include <vector>

namespace zem::model {
namespace {

enum class Kind { kText, kFlag, kNumber, kIPType, kAuthType, kApnTypes, kApnClass };

struct Label {
    std::string_view name;
    Kind kind;
};

// In the order of the dumps.
constexpr Label kParams[] = {
    {"ApnName", Kind::kText},           {"UserName", Kind::kText},
    {"Password", Kind::kText},          {"AuthType", Kind::kAuthType},
    {"HomeIPType", Kind::kIPType},      {"RoamIPType", Kind::kIPType},
    {"ApnTypesMask", Kind::kApnTypes},  {"ApnClass", Kind::kApnClass},
    {"IsClatEnabled", Kind::kFlag},     {"MaxPdnsConnPerBlock", Kind::kNumber},
    {"MaxPdnConnTimer", Kind::kNumber}, {"PdnReqWaitInterval", Kind::kNumber},
    {"IsApnDisabled", Kind::kFlag},     {"IsEmergencySupported", Kind::kFlag},
    {"IsZemProfile", Kind::kFlag},      {"IsIAProfile", Kind::kFlag},
};
constexpr Label kProfile[] = {
    {"ApnName", Kind::kText},
    {"UserName", Kind::kText},
    {"Password", Kind::kText},
    {"AuthType", Kind::kAuthType},
    {"CommonIPType", Kind::kIPType},
    {"ApnTypesMask", Kind::kNumber},
    {"ApnClass", Kind::kApnClass},
    {"IsClatEnabled", Kind::kNumber},
    {"OverrideHomeIPType", Kind::kIPType},
    {"LteRoamIP", Kind::kIPType},
    {"UmtsRoamIP", Kind::kIPType},
    {"MaxPdnsConnPerBlock", Kind::kNumber},
    {"MaxPdnConnTimer", Kind::kNumber},
    {"PdnReqWaitInterval", Kind::kNumber},
    {"IsApnDisabled", Kind::kNumber},
    {"IsEmergencySupported", Kind::kNumber},
    {"ProfileName", Kind::kText},
};

const std::vector<std::string> kIPTypes = {"UNKNOWN", "V4", "V6", "V4V6"};
const std::vector<std::string> kAuthTypes = {"NONE", "PAP", "CHAP", "PAP_CHAP"};
const std::vector<std::string> kApnClasses = {"0", "IMS", "ADMN", "INET", "APP"};

// Each type's bit on the wire and its name, in the order of the library's bits.
constexpr struct {
    uint64_t wire;
    const char* name;
} kApnTypes[] = {
    {0x1, "DEFAULT|"}, {0x4, "MMS|"},         {0x10, "SUPL|"}, {0x8, "DUN|"},
    {0x20, "HIPRI|"},  {0x40, "FOTA|"},       {0x2, "IMS|"},   {0x80, "CBS|"},
    {0x100, "IA|"},    {0x200, "EMERGENCY|"}, {0x800, "MCX|"}, {0x400, "XCAP|"},
};

std::string named(const std::vector<std::string>& names, uint64_t value) {
    return value < names.size() ? names[value] : std::to_string(static_cast<uint32_t>(value));
}

std::string print(const Value& value, Kind kind) {
    switch (kind) {
        case Kind::kText:
            return text(value);
        case Kind::kFlag:
            return number(value) ? "true" : "false";
        case Kind::kNumber:
            return std::to_string(static_cast<int64_t>(number(value)));
        case Kind::kIPType:
            return named(kIPTypes, number(value));
        case Kind::kAuthType:
            return named(kAuthTypes, number(value));
        case Kind::kApnClass:
            return named(kApnClasses, number(value));
        case Kind::kApnTypes: {
            std::string types;
            for (size_t bit = 0; bit < std::size(kApnTypes); ++bit) {
                if (number(value) >> bit & 1) types += kApnTypes[bit].name;
            }
            return number(value) == 0 ? "NONE" : types;
        }
    }
    return {};
}

template <size_t N>
std::string dump(const Label (&labels)[N], const Settings& settings) {
    std::string line;
    for (const auto& [name, kind] : labels) {
        if (const Value* value = find(settings, name)) {
            line.append(name).append("=").append(print(*value, kind)).append(",");
        }
    }
    return line;
}

// What a number becomes on its way to the modem and on its way back; empty: it is then absent.
using Way = std::optional<uint64_t> (*)(uint64_t);

constexpr uint64_t kNotSet = 255;

std::optional<uint64_t> same(uint64_t value) {
    return value;
}
std::optional<uint64_t> byte(uint64_t value) {
    return value & 0xFF;
}
std::optional<uint64_t> twoBytes(uint64_t value) {
    return value & 0xFFFF;
}
std::optional<uint64_t> flag(uint64_t value) {
    return value != 0;
}
std::optional<uint64_t> preference(uint64_t value) {
    return value & 3;
}
std::optional<uint64_t> protocol(uint64_t value) {
    return value <= 3 ? value : 0;
}
std::optional<uint64_t> toPdp(uint64_t type) {
    return type == 1 ? 0 : type == 2 ? 2 : 3;
}
std::optional<uint64_t> fromPdp(uint64_t type) {
    return type == 0 ? 1 : type == 2 || type == 3 ? type : 0;
}
std::optional<uint64_t> toCommon(uint64_t type) {
    return type == 0 ? kNotSet : type == 1 || type == 2 ? type - 1 : 2;
}
std::optional<uint64_t> fromCommon(uint64_t type) {
    return type <= 2 ? type + 1 : 0;
}
std::optional<uint64_t> fromRoam(uint64_t type) {
    if (type == kNotSet) return std::nullopt;
    return fromCommon(type);
}
std::optional<uint64_t> toPdn(uint64_t type) {
    return type == 1 || type == 2 ? type - 1 : 2;
}

constexpr Way kNeverRead = nullptr;
constexpr Way kText = nullptr;

struct WireField {
    std::string_view label;
    Tech tech;
    const char* name;
    Way to;
    Way from;
    size_t capacity = 0;  // of a text
    bool readBack = true;
};

const WireField kWire[] = {
    {"ProfileName", Tech::k3gpp, "profile_name", kText, kText, 50},
    {"CommonIPType", Tech::k3gpp, "pdp_type", toPdp, fromPdp},
    {"ApnName", Tech::k3gpp, "apn_name", kText, kText, 150},
    {"UserName", Tech::k3gpp, "username", kText, kText, 127},
    {"Password", Tech::k3gpp, "password", kText, kText, 127},
    {"AuthType", Tech::k3gpp, "authentication_preference", preference, preference},
    {"IsApnDisabled", Tech::k3gpp, "apn_disabled", flag, flag},
    {"ApnClass", Tech::k3gpp, "apn_class", byte, same},
    {"IsEmergencySupported", Tech::k3gpp, "supports_emergency_calls", flag, flag},
    {"MaxPdnsConnPerBlock", Tech::k3gpp, "max_pdn_conn_per_block", twoBytes, same},
    {"MaxPdnConnTimer", Tech::k3gpp, "max_pdn_conn_timer", twoBytes, same},
    {"PdnReqWaitInterval", Tech::k3gpp, "pdn_req_wait_interval", twoBytes, same},
    {"LteRoamIP", Tech::k3gpp, "lte_roaming_pdp_type", toCommon, fromRoam},
    {"UmtsRoamIP", Tech::k3gpp, "umts_roaming_pdp_type", toCommon, fromRoam},
    {"OverrideHomeIPType", Tech::k3gpp, "override_home_pdp_type", toCommon, fromCommon},
    {"AuthType", Tech::k3gpp2, "auth_protocol_3gpp2", protocol, protocol},
    {"AuthType", Tech::k3gpp2, "pdn_level_auth_protocol_3gpp2", protocol, kNeverRead, 0, false},
    {"UserName", Tech::k3gpp2, "user_id_3gpp2", kText, kText, 127},
    {"UserName", Tech::k3gpp2, "pdn_level_user_id_3gpp2", kText, kNeverRead, 127, false},
    {"Password", Tech::k3gpp2, "password_3gpp2", kText, kNeverRead, 127, false},
    {"Password", Tech::k3gpp2, "pdn_level_password_3gpp2", kText, kNeverRead, 127, false},
    {"ApnName", Tech::k3gpp2, "apn_string_3gpp2", kText, kText, 150},
    {"CommonIPType", Tech::k3gpp2, "pdn_type_3gpp2", toPdn, fromCommon},
    {"ApnClass", Tech::k3gpp2, "apn_class_3gpp2", byte, same},
    {"ApnTypesMask", Tech::k3gpp, "apn_type_mask", same, same},
    {"ApnTypesMask", Tech::k3gpp2, "apn_type_mask", same, same},
    {"IsClatEnabled", Tech::k3gpp, "clat_enabled", flag, flag},
    {"IsClatEnabled", Tech::k3gpp2, "clat_enabled", flag, flag},
};

}  // namespace

std::string lowered(std::string name) {
    for (char& c : name) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return name;
}

const Value* find(const Settings& settings, std::string_view label) {
    const auto entry = settings.find(label);
    return entry == settings.end() ? nullptr : &entry->second;
}

std::string toApnName(const std::string& name) {
    return lowered(name.substr(0, 150));
}

uint64_t toWireMask(uint64_t apnTypes) {
    uint64_t wire = 0;
    for (size_t bit = 0; bit < std::size(kApnTypes); ++bit) {
        if (apnTypes >> bit & 1) wire |= kApnTypes[bit].wire;
    }
    return wire;
}

uint64_t toApnTypes(uint64_t wireMask) {
    uint64_t types = 0;
    for (size_t bit = 0; bit < std::size(kApnTypes); ++bit) {
        if (wireMask & kApnTypes[bit].wire) types |= uint64_t{1} << bit;
    }
    return types;
}

ProfileParams toParams(const Settings& settings) {
    ProfileParams params;
    for (const auto& [label, value] : settings) {
        if (const auto* string = std::get_if<std::string>(&value)) {
            if (label == "ApnName") params.setApnName(*string);
            if (label == "UserName") params.setUserName(*string);
            if (label == "Password") params.setPassword(*string);
            continue;
        }
        const auto whole = static_cast<uint32_t>(number(value));
        const auto whether = number(value) != 0;
        if (label == "AuthType") params.setAuthType(AuthType(whole));
        if (label == "HomeIPType") params.setHomeIPType(IPType(whole));
        if (label == "RoamIPType") params.setRoamIPType(IPType(whole));
        if (label == "ApnTypesMask") params.setApnTypesMask(whole);
        if (label == "ApnClass") params.setApnClass(ApnClass(whole));
        if (label == "IsClatEnabled") params.setIsClatEnabled(whether);
        if (label == "MaxPdnsConnPerBlock") params.setMaxPdnsConnPerBlock(int(whole));
        if (label == "MaxPdnConnTimer") params.setMaxPdnConnTimer(int(whole));
        if (label == "PdnReqWaitInterval") params.setPdnReqWaitInterval(int(whole));
        if (label == "IsApnDisabled") params.setIsApnDisabled(whether);
        if (label == "IsEmergencySupported") params.setIsEmergencySupported(whether);
    }
    return params;
}

std::string dumpParams(const Settings& settings) {
    return dump(kParams, settings);
}

std::string dumpProfile(Tech tech, int id, const Settings& settings) {
    return (tech == Tech::k3gpp2 ? "TechType=3GPP2,ProfileId=" : "TechType=3GPP,ProfileId=") +
           std::to_string(id) + "," + dump(kProfile, settings);
}

softmodem::Fields toFields(Tech tech, const Settings& settings) {
    softmodem::Fields fields;
    for (const auto& wire : kWire) {
        const Value* value = wire.tech == tech ? find(settings, wire.label) : nullptr;
        if (!value) continue;
        if (wire.capacity) {
            fields[wire.name] = text(*value).substr(0, wire.capacity);
        } else {
            fields[wire.name] = *wire.to(number(*value));
        }
    }
    return fields;
}

Settings fromFields(Tech tech, const softmodem::Fields& fields) {
    Settings settings;
    for (const auto& wire : kWire) {
        const auto field = fields.find(wire.name);
        if (wire.tech != tech || !wire.readBack || field == fields.end()) continue;
        if (wire.capacity) {
            const auto& string = text(field->second);
            settings[wire.label] = wire.label == "ApnName" ? lowered(string) : string;
        } else if (const auto value = wire.from(number(field->second))) {
            settings[wire.label] = *value;
        }
    }
    return settings;
}

}  // namespace zem::model
