// Wire: every field of the profile messages in one table, to draw what a modem answers and to check
// what it is sent.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "Input.h"
#include "wds_service_v01.h"

namespace zem::fuzz {

using Create = wds_create_profile_req_msg_v01;
using Modify = wds_modify_profile_settings_req_msg_v01;
using Settings = wds_get_profile_settings_resp_msg_v01;

enum class Kind { kText, kApn, kFlag, kNumber, kAuth, kPdp, kCommonPdp, kPdn, kApnTypes };

constexpr std::optional<uint32_t> k3gpp = WDS_PROFILE_TYPE_3GPP_V01;
constexpr std::optional<uint32_t> k3gpp2 = WDS_PROFILE_TYPE_3GPP2_V01;
constexpr std::optional<uint32_t> kBoth = std::nullopt;

struct WireField {
    std::string name;
    Kind kind;
    std::optional<uint32_t> family;
    size_t valid, at, size;
};

template <class Message>
const std::vector<WireField>& fieldsOf() {
#define ZEM_FIELD(field, kind, family)                                                          \
    WireField {                                                                                 \
#field, Kind::kind, family, offsetof(Message, field##_valid), offsetof(Message, field), \
            sizeof(Message::field)                                                              \
    }
    static const std::vector<WireField> all = [] {
        std::vector<WireField> fields = {
            ZEM_FIELD(profile_name, kText, k3gpp),
            ZEM_FIELD(pdp_type, kPdp, k3gpp),
            ZEM_FIELD(apn_name, kApn, k3gpp),
            ZEM_FIELD(username, kText, k3gpp),
            ZEM_FIELD(password, kText, k3gpp),
            ZEM_FIELD(authentication_preference, kAuth, k3gpp),
            ZEM_FIELD(apn_disabled, kFlag, k3gpp),
            ZEM_FIELD(apn_class, kNumber, k3gpp),
            ZEM_FIELD(supports_emergency_calls, kFlag, k3gpp),
            ZEM_FIELD(max_pdn_conn_per_block, kNumber, k3gpp),
            ZEM_FIELD(max_pdn_conn_timer, kNumber, k3gpp),
            ZEM_FIELD(pdn_req_wait_interval, kNumber, k3gpp),
            ZEM_FIELD(lte_roaming_pdp_type, kCommonPdp, k3gpp),
            ZEM_FIELD(umts_roaming_pdp_type, kCommonPdp, k3gpp),
            ZEM_FIELD(override_home_pdp_type, kCommonPdp, k3gpp),
            ZEM_FIELD(auth_protocol_3gpp2, kAuth, k3gpp2),
            ZEM_FIELD(user_id_3gpp2, kText, k3gpp2),
            ZEM_FIELD(apn_string_3gpp2, kApn, k3gpp2),
            ZEM_FIELD(pdn_type_3gpp2, kPdn, k3gpp2),
            ZEM_FIELD(apn_class_3gpp2, kNumber, k3gpp2),
            ZEM_FIELD(apn_type_mask, kApnTypes, kBoth),
            ZEM_FIELD(clat_enabled, kFlag, kBoth),
        };
        if constexpr (!std::is_same_v<Message, Modify>) {
            fields.push_back(ZEM_FIELD(persistent, kFlag, kBoth));
        }
        if constexpr (!std::is_same_v<Message, Settings>) {
            fields.push_back(ZEM_FIELD(password_3gpp2, kText, k3gpp2));
            fields.push_back(ZEM_FIELD(pdn_level_auth_protocol_3gpp2, kAuth, k3gpp2));
            fields.push_back(ZEM_FIELD(pdn_level_user_id_3gpp2, kText, k3gpp2));
            fields.push_back(ZEM_FIELD(pdn_level_password_3gpp2, kText, k3gpp2));
        }
        return fields;
    }();
#undef ZEM_FIELD
    return all;
}

inline bool isText(Kind kind) {
    return kind == Kind::kText || kind == Kind::kApn;
}

// What a modem may answer: any bytes, or some fields with values that are mostly sensible.
inline Settings drawResponse(Input& input) {
    Settings response;
    memset(&response, 0, sizeof response);
    auto* const bytes = reinterpret_cast<uint8_t*>(&response);
    if (input.rarely(8)) {  // a pattern, since no input has bytes for so many
        uint8_t pattern[64];
        const size_t length = 1 + input.upTo(sizeof pattern - 1);
        input.fill(pattern, length);
        for (size_t i = 0; i < sizeof response; ++i) bytes[i] = pattern[i % length];
        return response;
    }
    for (size_t count = input.upTo(12); count > 0; --count) {
        const WireField& field = input.oneOf(fieldsOf<Settings>());
        bytes[field.valid] = input.rarely(8) ? input.number<uint8_t>() : 1;
        if (isText(field.kind)) {
            const std::string text = input.text();  // its end may have no room
            memcpy(bytes + field.at, text.c_str(), std::min(text.size() + 1, field.size));
        } else if (field.size == sizeof(uint64_t)) {
            const uint64_t mask =
                input.rarely(8) ? input.number<uint64_t>() : input.number<uint16_t>() & 0xFFFu;
            memcpy(bytes + field.at, &mask, field.size);
        } else {
            const uint32_t number = input.small();
            memcpy(bytes + field.at, &number, field.size);
        }
    }
    return response;
}

inline bool permitted(const WireField& field, uint64_t value) {
    switch (field.kind) {
        case Kind::kFlag:
            return value <= 1;
        case Kind::kAuth:
            return value <= 3;
        case Kind::kPdp:  // never PPP
            return value == WDS_PDP_TYPE_IPV4_V01 || value == WDS_PDP_TYPE_IPV6_V01 ||
                   value == WDS_PDP_TYPE_IPV4V6_V01;
        case Kind::kCommonPdp:
            return value <= 2 || value == WDS_COMMON_PDP_TYPE_NOT_SET_V01;
        case Kind::kPdn:  // never unspecified
            return value <= 2;
        default:
            return true;
    }
}

// A request as a modem may expect it: of one family, fields in their range, texts with an end, and
// nothing where no field is. The APN types alone go back as the modem itself gave them.
template <class Message>
void checkRequest(const Message& message) {
    std::vector<uint8_t> bytes(sizeof message);
    memcpy(bytes.data(), &message, sizeof message);
    uint32_t family = 0;
    memcpy(&family, bytes.data(), sizeof family);
    require(family <= 1, "a request names a known family");
    // What has been looked at becomes zero. The modify request names an index behind the family.
    std::fill_n(bytes.begin(), std::is_same_v<Message, Modify> ? 5 : 4, uint8_t{0});
    for (const WireField& field : fieldsOf<Message>()) {
        uint8_t& valid = bytes[field.valid];
        require(valid <= 1, "a valid flag is 0 or 1", field.name);
        if (!valid) continue;
        valid = 0;
        require(!field.family || *field.family == family, "fields are of one family", field.name);
        auto* const value = bytes.data() + field.at;
        if (isText(field.kind)) {
            const size_t length = strnlen(reinterpret_cast<const char*>(value), field.size);
            require(length < field.size, "a text has an end", field.name);
            const bool lower =
                std::none_of(value, value + length, [](uint8_t c) { return c >= 'A' && c <= 'Z'; });
            require(field.kind != Kind::kApn || lower, "an APN is in lower case", field.name);
            std::fill_n(value, length, uint8_t{0});
        } else {
            uint64_t number = 0;
            memcpy(&number, value, field.size);
            require(permitted(field, number), "a value is in its range",
                    field.name + " = " + std::to_string(number));
            std::fill_n(value, field.size, uint8_t{0});
        }
    }
    if constexpr (std::is_same_v<Message, Create>) {
        require(message.persistent_valid, "a creation says whether it is persistent");
    }
    require(std::all_of(bytes.begin(), bytes.end(), [](uint8_t byte) { return byte == 0; }),
            "no byte is set where no valid field is");
}

// The answer of a modem that stored the request as it came.
inline Settings storedAs(const Create& request) {
    Settings response;
    memset(&response, 0, sizeof response);
    for (const WireField& to : fieldsOf<Settings>()) {
        for (const WireField& from : fieldsOf<Create>()) {
            if (from.name != to.name) continue;
            const auto* const source = reinterpret_cast<const uint8_t*>(&request);
            auto* const target = reinterpret_cast<uint8_t*>(&response);
            target[to.valid] = source[from.valid];
            memcpy(target + to.at, source + from.at, to.size);
        }
    }
    return response;
}

}  // namespace zem::fuzz
