// IndicationCodec: the wire form of the profile-changed indication, elements of a type byte, a
// 16-bit length and a value. Free of state; any thread.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "wds_service_v01.h"

namespace softmodem {

// `valid` false leaves the profile-changed element out, yet the message still decodes.
std::vector<uint8_t> encodeIndication(const wds_profile_changed_ind_type_v01& change, bool valid);

// Empty when the bytes are no such indication.
std::optional<wds_profile_changed_ind_msg_v01> decodeIndication(const uint8_t* bytes,
                                                                size_t length);

}  // namespace softmodem
