#include "ProfileConversions.h"

#include <cstring>

#include "LogWrapper.h"

namespace zem {
namespace {

constexpr size_t kMaxApnLength = WDS_APN_SIZE_V01 - 1;

constexpr struct {
    ApnTypes type;
    uint64_t zapType;
} kApnTypePairs[] = {
    {APN_TYPE_DEFAULT, 0x1},     {APN_TYPE_MMS, 0x4},    {APN_TYPE_SUPL, 0x10},
    {APN_TYPE_DUN, 0x8},         {APN_TYPE_HIPRI, 0x20}, {APN_TYPE_FOTA, 0x40},
    {APN_TYPE_IMS, 0x2},         {APN_TYPE_CBS, 0x80},   {APN_TYPE_IA, 0x100},
    {APN_TYPE_EMERGENCY, 0x200}, {APN_TYPE_MCX, 0x800},  {APN_TYPE_XCAP, 0x400},
};

// The three numberings of an IP type on the wire.
constexpr struct {
    IPType type;
    wds_profile_pdn_type_enum_v01 pdn;
    wds_pdp_type_enum_v01 pdp;
    wds_common_pdp_type_enum_v01 common;
} kIPTypes[] = {
    {IPType::V4, WDS_PROFILE_PDN_TYPE_IPV4_V01, WDS_PDP_TYPE_IPV4_V01,
     WDS_COMMON_PDP_TYPE_IPV4_V01},
    {IPType::V6, WDS_PROFILE_PDN_TYPE_IPV6_V01, WDS_PDP_TYPE_IPV6_V01,
     WDS_COMMON_PDP_TYPE_IPV6_V01},
    {IPType::V4V6, WDS_PROFILE_PDN_TYPE_IPV4V6_V01, WDS_PDP_TYPE_IPV4V6_V01,
     WDS_COMMON_PDP_TYPE_IPV4V6_V01},
};

// Unknown and unheard-of types go out as dual stack.
constexpr auto kDualStack = kIPTypes[2];

auto wireTypes(IPType type) {
    for (const auto& entry : kIPTypes) {
        if (entry.type == type) return entry;
    }
    return kDualStack;
}

constexpr uint32_t onlyKnownAuth(uint32_t protocol) {
    return protocol <= 3 ? protocol : 0;
}

}  // namespace

uint64_t convertToProfileIdentifier(TechType techType, int profileId) {
    return convertToZapProfileType(techType) | static_cast<uint64_t>(profileId & 0xFF) << 32;
}

void convertToProfileIdentifier(TechType techType, int profileId,
                                wds_profile_identifier_type_v01& identifier) {
    const uint64_t value = convertToProfileIdentifier(techType, profileId);
    static_assert(sizeof value == sizeof identifier);
    memcpy(&identifier, &value, sizeof value);
}

wds_profile_type_enum_v01 convertToZapProfileType(TechType techType) {
    return techType == TechType::TECH_3GPP2 ? WDS_PROFILE_TYPE_3GPP2_V01
                                            : WDS_PROFILE_TYPE_3GPP_V01;
}

TechType convertProfileType(wds_profile_type_enum_v01 type) {
    switch (type) {
        case WDS_PROFILE_TYPE_3GPP_V01:
            return TechType::TECH_3GPP;
        case WDS_PROFILE_TYPE_3GPP2_V01:
            return TechType::TECH_3GPP2;
        default:
            ZEM_LOG(LOG_DEBUG, "Unknown tech type %d", static_cast<int>(type));
            return TechType::TECH_3GPP;
    }
}

IPType convertPdnType(wds_profile_pdn_type_enum_v01 type) {
    for (const auto& entry : kIPTypes) {
        if (entry.pdn == type) return entry.type;
    }
    if (type != WDS_PROFILE_PDN_TYPE_UNSPECIFIED_V01) {
        ZEM_LOG(LOG_DEBUG, "Unknown profile_pdn_type_enum %d", static_cast<int>(type));
    }
    return IPType::UNKNOWN;
}

IPType convertPdpType(wds_pdp_type_enum_v01 type) {
    for (const auto& entry : kIPTypes) {
        if (entry.pdp == type) return entry.type;
    }
    ZEM_LOG(LOG_DEBUG, "Unknown pdp_type_enum %d", static_cast<int>(type));
    return IPType::UNKNOWN;
}

IPType convertPdpType(wds_common_pdp_type_enum_v01 type) {
    for (const auto& entry : kIPTypes) {
        if (entry.common == type) return entry.type;
    }
    ZEM_LOG(LOG_DEBUG, "Unknown pdp_type_enum %d", static_cast<int>(type));
    return IPType::UNKNOWN;
}

wds_profile_pdn_type_enum_v01 convertToZapProfilePdnType(IPType type) {
    return wireTypes(type).pdn;
}

wds_pdp_type_enum_v01 convertToZapPdpType(IPType type) {
    return wireTypes(type).pdp;
}

wds_common_pdp_type_enum_v01 convertToZapCommonPdpType(IPType type) {
    // Only this form can say "not set": it is how an override is taken back.
    return type == IPType::UNKNOWN ? WDS_COMMON_PDP_TYPE_NOT_SET_V01 : wireTypes(type).common;
}

AuthType convertToAuthType(unsigned char preference) {
    return AuthType(preference & 3u);
}

unsigned char convertToZapAuthPref(AuthType type) {
    return static_cast<unsigned char>(static_cast<uint32_t>(type) & 3u);
}

AuthType convertToAuthType(wds_profile_auth_protocol_enum_v01 protocol) {
    if (onlyKnownAuth(protocol) != protocol) {
        ZEM_LOG(LOG_DEBUG, "Unknown auth_protocol_enum %d", static_cast<int>(protocol));
    }
    return AuthType(onlyKnownAuth(protocol));
}

wds_profile_auth_protocol_enum_v01 convertToZapAuthProtocol(AuthType type) {
    return wds_profile_auth_protocol_enum_v01(onlyKnownAuth(static_cast<uint32_t>(type)));
}

wds_profile_auth_protocol_enum_v01 convertToZapPdnLevelAuthProtocol(AuthType type) {
    return convertToZapAuthProtocol(type);
}

uint64_t convertToSingleZapApnType(ApnTypes type) {
    for (const auto& pair : kApnTypePairs) {
        if (pair.type == type) return pair.zapType;
    }
    return 0;
}

uint64_t convertToZapApnTypeMask(unsigned int mask) {
    uint64_t zapMask = 0;
    for (const auto& pair : kApnTypePairs) {
        if (mask & pair.type) zapMask |= pair.zapType;
    }
    return zapMask;
}

ApnTypes convertToSingleCommonApnType(unsigned long type) {
    for (const auto& pair : kApnTypePairs) {
        if (pair.zapType == type) return pair.type;
    }
    return ApnTypes(0);
}

unsigned int convertToCommonApnTypeMask(unsigned long mask) {
    unsigned int common = 0;
    for (const auto& pair : kApnTypePairs) {
        if (mask & pair.zapType) common |= pair.type;
    }
    return common;
}

std::string convertToLower(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return text;
}

std::string convertToApnName(std::string text) {
    if (text.size() > kMaxApnLength) text.resize(kMaxApnLength);
    return convertToLower(std::move(text));
}

}  // namespace zem
