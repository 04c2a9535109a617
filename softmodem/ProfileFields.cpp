#include "ProfileFields.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <type_traits>

#include "wds_service_v01.h"

namespace softmodem {

namespace {

using Create = wds_create_profile_req_msg_v01;
using Modify = wds_modify_profile_settings_req_msg_v01;
using Settings = wds_get_profile_settings_resp_msg_v01;

constexpr NamedValue kPdpTypes[] = {{"ipv4", WDS_PDP_TYPE_IPV4_V01},
                                    {"ppp", WDS_PDP_TYPE_PPP_V01},
                                    {"ipv6", WDS_PDP_TYPE_IPV6_V01},
                                    {"ipv4v6", WDS_PDP_TYPE_IPV4V6_V01}};
constexpr NamedValue kCommonPdpTypes[] = {{"ipv4", WDS_COMMON_PDP_TYPE_IPV4_V01},
                                          {"ipv6", WDS_COMMON_PDP_TYPE_IPV6_V01},
                                          {"ipv4v6", WDS_COMMON_PDP_TYPE_IPV4V6_V01},
                                          {"not_set", WDS_COMMON_PDP_TYPE_NOT_SET_V01}};
constexpr NamedValue kPdnTypes[] = {{"ipv4", WDS_PROFILE_PDN_TYPE_IPV4_V01},
                                    {"ipv6", WDS_PROFILE_PDN_TYPE_IPV6_V01},
                                    {"ipv4v6", WDS_PROFILE_PDN_TYPE_IPV4V6_V01},
                                    {"unspecified", WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01}};
// The bits of the 3GPP preference give the same numbers.
constexpr NamedValue kAuthProtocols[] = {{"none", WDS_PROFILE_AUTH_PROTOCOL_NONE_V01},
                                         {"pap", WDS_PROFILE_AUTH_PROTOCOL_PAP_V01},
                                         {"chap", WDS_PROFILE_AUTH_PROTOCOL_CHAP_V01},
                                         {"pap_chap", WDS_PROFILE_AUTH_PROTOCOL_PAP_CHAP_V01}};

template <size_t N>
constexpr ValueNames names(const NamedValue (&table)[N]) {
    return {table, N};
}

constexpr ValueNames kNoNames;
constexpr std::optional<Tech> k3gppOnly = Tech::k3gpp;
constexpr std::optional<Tech> k3gpp2Only = Tech::k3gpp2;
constexpr std::optional<Tech> kBoth = std::nullopt;
constexpr FieldPlace kAbsent;

#define PLACE(message, field)                                      \
    FieldPlace {                                                   \
        offsetof(message, field##_valid), offsetof(message, field) \
    }
#define FIELD(field, tech, enumeration, valueNames, modifyPlace, settingsPlace)                 \
    ProfileField {                                                                              \
#field, tech, std::is_array_v < decltype(Create::field)>, enumeration,                  \
            sizeof(Create::field), PLACE(Create, field), modifyPlace, settingsPlace, valueNames \
    }
#define NUMBER(field, tech) \
    FIELD(field, tech, false, kNoNames, PLACE(Modify, field), PLACE(Settings, field))
#define TEXT NUMBER
#define ENUMERATION(field, tech, valueNames) \
    FIELD(field, tech, true, valueNames, PLACE(Modify, field), PLACE(Settings, field))

constexpr ProfileField kFields[] = {
    TEXT(profile_name, k3gppOnly),
    ENUMERATION(pdp_type, k3gppOnly, names(kPdpTypes)),
    TEXT(apn_name, k3gppOnly),
    TEXT(username, k3gppOnly),
    TEXT(password, k3gppOnly),
    ENUMERATION(authentication_preference, k3gppOnly, names(kAuthProtocols)),
    NUMBER(apn_disabled, k3gppOnly),
    ENUMERATION(apn_class, k3gppOnly, kNoNames),
    NUMBER(supports_emergency_calls, k3gppOnly),
    NUMBER(max_pdn_conn_per_block, k3gppOnly),
    NUMBER(max_pdn_conn_timer, k3gppOnly),
    NUMBER(pdn_req_wait_interval, k3gppOnly),
    ENUMERATION(lte_roaming_pdp_type, k3gppOnly, names(kCommonPdpTypes)),
    ENUMERATION(umts_roaming_pdp_type, k3gppOnly, names(kCommonPdpTypes)),
    ENUMERATION(override_home_pdp_type, k3gppOnly, names(kCommonPdpTypes)),
    FIELD(persistent, kBoth, false, kNoNames, kAbsent, PLACE(Settings, persistent)),
    ENUMERATION(auth_protocol_3gpp2, k3gpp2Only, names(kAuthProtocols)),
    TEXT(user_id_3gpp2, k3gpp2Only),
    FIELD(password_3gpp2, k3gpp2Only, false, kNoNames, PLACE(Modify, password_3gpp2), kAbsent),
    TEXT(apn_string_3gpp2, k3gpp2Only),
    ENUMERATION(pdn_type_3gpp2, k3gpp2Only, names(kPdnTypes)),
    ENUMERATION(apn_class_3gpp2, k3gpp2Only, kNoNames),
    FIELD(pdn_level_auth_protocol_3gpp2, k3gpp2Only, true, names(kAuthProtocols),
          PLACE(Modify, pdn_level_auth_protocol_3gpp2), kAbsent),
    FIELD(pdn_level_user_id_3gpp2, k3gpp2Only, false, kNoNames,
          PLACE(Modify, pdn_level_user_id_3gpp2), kAbsent),
    FIELD(pdn_level_password_3gpp2, k3gpp2Only, false, kNoNames,
          PLACE(Modify, pdn_level_password_3gpp2), kAbsent),
    NUMBER(apn_type_mask, kBoth),
    NUMBER(clat_enabled, kBoth),
};

#undef ENUMERATION
#undef TEXT
#undef NUMBER
#undef FIELD
#undef PLACE

// Numbers are little-endian on the wire and here, so the low bytes come first.
uint64_t loadNumber(const uint8_t* from, size_t size) {
    uint64_t number = 0;
    memcpy(&number, from, size);
    return number;
}

void storeNumber(uint8_t* to, size_t size, uint64_t number) {
    memcpy(to, &number, size);
}

}  // namespace

std::string ProfileField::objection(const Value& value) const {
    if (const auto* text = std::get_if<std::string>(&value)) {
        if (!isText) return "a number is expected";
        if (text->size() >= size)
            return "text of " + std::to_string(text->size()) + " bytes, at most " +
                   std::to_string(size - 1);
        if (text->find('\0') != std::string::npos) return "text holds a zero byte";
        return {};
    }
    if (isText) return "a text is expected";
    const uint64_t most = size == 8 ? UINT64_MAX : (uint64_t{1} << (8 * size)) - 1;
    if (std::get<uint64_t>(value) > most)
        return "number out of range, at most " + std::to_string(most);
    return {};
}

std::optional<uint64_t> ProfileField::parseNumber(std::string_view text) const {
    for (const NamedValue& named : valueNames)
        if (text == named.name) return named.value;
    return softmodem::parseNumber(text);
}

std::string ProfileField::format(const Value& value) const {
    if (const auto* text = std::get_if<std::string>(&value)) return escaped(*text);
    const uint64_t number = std::get<uint64_t>(value);
    for (const NamedValue& named : valueNames)
        if (named.value == number) return named.name;
    if (size < 8) return std::to_string(number);
    char hex[19];
    snprintf(hex, sizeof hex, "0x%llx", static_cast<unsigned long long>(number));
    return hex;
}

std::optional<uint64_t> parseNumber(std::string_view text) {
    const bool hex = text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X";
    if (hex) text.remove_prefix(2);
    uint64_t number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, hex ? 16 : 10);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

FieldTable profileFields() {
    return {std::begin(kFields), std::end(kFields)};
}

const ProfileField* findField(std::string_view name) {
    for (const ProfileField& field : kFields)
        if (name == field.name) return &field;
    return nullptr;
}

bool acceptable(const Fields& fields, Tech tech) {
    return std::all_of(fields.begin(), fields.end(), [&](const auto& entry) {
        const ProfileField* field = findField(entry.first);
        return field && field->belongsTo(tech) && field->objection(entry.second).empty();
    });
}

std::optional<Fields> readFields(const void* message, PlaceOf placeOf, Tech tech) {
    const auto* bytes = static_cast<const uint8_t*>(message);
    Fields fields;
    for (const ProfileField& field : kFields) {
        const FieldPlace& place = field.*placeOf;
        if (place.value == 0 || bytes[place.valid] == 0) continue;
        if (!field.belongsTo(tech)) return std::nullopt;
        if (field.isText) {
            const auto* text = reinterpret_cast<const char*>(bytes + place.value);
            const size_t length = strnlen(text, field.size);
            if (length == field.size) return std::nullopt;
            fields[field.name] = std::string(text, length);
        } else {
            fields[field.name] = loadNumber(bytes + place.value, field.size);
        }
    }
    return fields;
}

void writeFields(const Fields& fields, PlaceOf placeOf, void* message) {
    auto* bytes = static_cast<uint8_t*>(message);
    for (const ProfileField& field : kFields) {
        const FieldPlace& place = field.*placeOf;
        const auto entry = fields.find(field.name);
        if (place.value == 0 || entry == fields.end()) continue;
        bytes[place.valid] = 1;
        if (const auto* text = std::get_if<std::string>(&entry->second))
            memcpy(bytes + place.value, text->c_str(), text->size() + 1);
        else
            storeNumber(bytes + place.value, field.size, std::get<uint64_t>(entry->second));
    }
}

void unterminateText(char* text, size_t size) {
    const size_t length = strnlen(text, size);
    memset(text + length, '~', size - length);
}

void unterminateTexts(PlaceOf placeOf, void* message) {
    auto* bytes = static_cast<uint8_t*>(message);
    for (const ProfileField& field : kFields) {
        const FieldPlace& place = field.*placeOf;
        if (field.isText && place.value != 0 && bytes[place.valid] != 0)
            unterminateText(reinterpret_cast<char*>(bytes + place.value), field.size);
    }
}

void overwriteEnumerations(PlaceOf placeOf, void* message, uint32_t value) {
    auto* bytes = static_cast<uint8_t*>(message);
    for (const ProfileField& field : kFields) {
        const FieldPlace& place = field.*placeOf;
        if (field.isEnumeration && place.value != 0 && bytes[place.valid] != 0)
            storeNumber(bytes + place.value, field.size, value);
    }
}

std::string escaped(std::string_view text) {
    std::string result;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            result += '\\';
            result += c;
        } else if (byte >= 0x20 && byte < 0x7f) {
            result += c;
        } else {
            char hex[5];
            snprintf(hex, sizeof hex, "\\x%02x", byte);
            result += hex;
        }
    }
    return result;
}

const char* techName(Tech tech) {
    return tech == Tech::k3gpp ? "3gpp" : "3gpp2";
}

std::optional<Tech> techFrom(uint32_t profileType) {
    if (profileType == WDS_PROFILE_TYPE_3GPP_V01) return Tech::k3gpp;
    if (profileType == WDS_PROFILE_TYPE_3GPP2_V01) return Tech::k3gpp2;
    return std::nullopt;
}

std::vector<std::string> fieldNames(Tech tech) {
    std::vector<std::string> result;
    for (const ProfileField& field : kFields)
        if (field.belongsTo(tech)) result.emplace_back(field.name);
    return result;
}

std::vector<std::string> valueNames(std::string_view name) {
    std::vector<std::string> result;
    if (const ProfileField* field = findField(name))
        for (const NamedValue& named : field->valueNames) result.emplace_back(named.name);
    return result;
}

Value parseValue(Tech tech, std::string_view name, std::string_view text) {
    const std::string start = std::string(name) + ": ";
    const ProfileField* field = findField(name);
    if (!field) throw std::invalid_argument("no field \"" + escaped(name) + "\"");
    if (!field->belongsTo(tech))
        throw std::invalid_argument(start + "no field of " + techName(tech));
    Value value = std::string(text);
    if (!field->isText) {
        const std::optional<uint64_t> number = field->parseNumber(text);
        if (!number)
            throw std::invalid_argument(start + "\"" + escaped(text) + "\" is no value of it");
        value = *number;
    }
    if (const std::string objection = field->objection(value); !objection.empty())
        throw std::invalid_argument(start + objection);
    return value;
}

std::vector<std::string> describe(const Profile& profile) {
    std::vector<std::string> lines;
    for (const ProfileField& field : kFields)
        if (const auto entry = profile.fields.find(field.name); entry != profile.fields.end())
            lines.push_back(std::string(field.name) + "=" + field.format(entry->second));
    return lines;
}

}  // namespace softmodem
