// WireBytes: messages as they stand on the wire, laid out from offsets and not from their types.
#pragma once

#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string_view>
#include <vector>

namespace zem {

using Bytes = std::vector<uint8_t>;

template <class Number>
Bytes littleEndian(Number value) {
    Bytes bytes;
    for (size_t i = 0; i < sizeof value; ++i)
        bytes.push_back(static_cast<uint8_t>(static_cast<uint64_t>(value) >> (8 * i)));
    return bytes;
}
inline Bytes u8(uint8_t value) {
    return littleEndian(value);
}
inline Bytes u16(uint16_t value) {
    return littleEndian(value);
}
inline Bytes u32(uint32_t value) {
    return littleEndian(value);
}
inline Bytes u64(uint64_t value) {
    return littleEndian(value);
}
inline Bytes text(std::string_view value) {
    return {value.begin(), value.end()};
}

constexpr int kNoFlag = -1;

// A value at an offset, with its valid flag at another.
struct Field {
    int validAt;
    size_t at;
    Bytes value;
};

// Bytes that no field names are zero.
inline Bytes layOut(size_t size, const std::vector<Field>& fields) {
    Bytes bytes(size);
    for (const auto& field : fields) {
        if (field.validAt != kNoFlag) bytes.at(static_cast<size_t>(field.validAt)) = 1;
        for (size_t i = 0; i < field.value.size(); ++i) bytes.at(field.at + i) = field.value[i];
    }
    return bytes;
}

template <class Message>
Bytes bytesOf(const Message& message) {
    Bytes bytes(sizeof message);
    memcpy(bytes.data(), &message, sizeof message);
    return bytes;
}

}  // namespace zem
