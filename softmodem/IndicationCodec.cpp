#include "IndicationCodec.h"

#include <cstring>

namespace softmodem {

namespace {

constexpr uint8_t kProfileChanged = 0x10;
constexpr uint8_t kPadding = 0x7f;  // an element that decoders skip
constexpr size_t kHeaderSize = 3;
constexpr size_t kProfileChangedSize = 9;

void append(std::vector<uint8_t>& bytes, uint64_t number, size_t size) {
    for (size_t i = 0; i < size; ++i) bytes.push_back(static_cast<uint8_t>(number >> (8 * i)));
}

uint32_t load32(const uint8_t* bytes) {
    uint32_t number = 0;
    memcpy(&number, bytes, sizeof number);
    return number;
}

}  // namespace

std::vector<uint8_t> encodeIndication(const wds_profile_changed_ind_type_v01& change, bool valid) {
    std::vector<uint8_t> bytes;
    if (!valid) {
        append(bytes, kPadding, 1);
        append(bytes, 0, 2);
        return bytes;
    }
    append(bytes, kProfileChanged, 1);
    append(bytes, kProfileChangedSize, 2);
    append(bytes, change.event, 4);
    append(bytes, change.profile_type, 4);
    append(bytes, change.profile_index, 1);
    return bytes;
}

std::optional<wds_profile_changed_ind_msg_v01> decodeIndication(const uint8_t* bytes,
                                                                size_t length) {
    if (length == 0) return std::nullopt;
    wds_profile_changed_ind_msg_v01 message = {};
    while (length > 0) {
        if (length < kHeaderSize) return std::nullopt;
        const uint8_t type = bytes[0];
        const size_t size = bytes[1] + 256u * bytes[2];
        bytes += kHeaderSize;
        length -= kHeaderSize;
        if (size > length) return std::nullopt;
        if (type == kProfileChanged) {
            if (size != kProfileChangedSize || message.profile_changed_valid) return std::nullopt;
            message.profile_changed_valid = 1;
            message.profile_changed.event = static_cast<wds_profile_event_enum_v01>(load32(bytes));
            message.profile_changed.profile_type =
                static_cast<wds_profile_type_enum_v01>(load32(bytes + 4));
            message.profile_changed.profile_index = bytes[8];
        }
        bytes += size;
        length -= size;
    }
    return message;
}

}  // namespace softmodem
