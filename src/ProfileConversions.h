// Conversions between the library's values and those of the modem's data service.
//
// Values that a side does not know become 0; those that come from the modem are logged at debug
// level where the modem's enumeration has unknown values at all. Any thread.
#pragma once

#include <cstdint>
#include <string>

#include <zem/ProfileParams.h>

#include "wds_service_v01.h"

namespace zem {

// The wire identifier as one number: the type in bit 0, the index's low eight bits in bits 32
// to 39.
uint64_t convertToProfileIdentifier(TechType techType, int profileId);

// The same written into a message, its padding zeroed.
void convertToProfileIdentifier(TechType techType, int profileId,
                                wds_profile_identifier_type_v01& identifier);

wds_profile_type_enum_v01 convertToZapProfileType(TechType techType);

TechType convertProfileType(wds_profile_type_enum_v01 type);

IPType convertPdnType(wds_profile_pdn_type_enum_v01 type);
IPType convertPdpType(wds_pdp_type_enum_v01 type);
IPType convertPdpType(wds_common_pdp_type_enum_v01 type);
wds_profile_pdn_type_enum_v01 convertToZapProfilePdnType(IPType type);
wds_pdp_type_enum_v01 convertToZapPdpType(IPType type);
wds_common_pdp_type_enum_v01 convertToZapCommonPdpType(IPType type);

// 3GPP: two preference bits, PAP and CHAP.
AuthType convertToAuthType(unsigned char preference);
unsigned char convertToZapAuthPref(AuthType type);
// 3GPP2: a protocol number.
AuthType convertToAuthType(wds_profile_auth_protocol_enum_v01 protocol);
wds_profile_auth_protocol_enum_v01 convertToZapAuthProtocol(AuthType type);
wds_profile_auth_protocol_enum_v01 convertToZapPdnLevelAuthProtocol(AuthType type);

// APN types: one bit, or a whole mask. Bits that the other side does not have are dropped.
uint64_t convertToSingleZapApnType(ApnTypes type);
uint64_t convertToZapApnTypeMask(unsigned int mask);
ApnTypes convertToSingleCommonApnType(unsigned long type);
unsigned int convertToCommonApnTypeMask(unsigned long mask);

// ASCII letters only: no locale, and bytes above 0x7F stay as they are.
std::string convertToLower(std::string text);

// An APN name as profiles hold it: the first 150 characters in lower case.
std::string convertToApnName(std::string text);

}  // namespace zem
