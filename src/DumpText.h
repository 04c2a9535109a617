// DumpText: the pieces that dump() lines are made of, each appended to the line as it grows.
#pragma once

#include <charconv>
#include <cstdint>
#include <iterator>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>

#include <zem/ProfileParams.h>

namespace zem {

// Room for a line, so that few lines have to move as they grow.
inline constexpr size_t kUsualLine = 200;

inline void append(std::string& text, std::string_view value) {
    text.append(value);
}

inline void append(std::string& text, const char* value) {
    text.append(value);
}

inline void append(std::string& text, bool value) {
    append(text, value ? "true" : "false");
}

// A number in decimal.
template <class Number, std::enable_if_t<std::is_integral_v<Number>, int> = 0>
void append(std::string& text, Number number) {
    char digits[20];
    text.append(digits, std::to_chars(digits, std::end(digits), number).ptr);
}

// The name of a value, or its decimal number when the table does not hold it.
template <class Value, size_t N>
void append(std::string& text, const NamedValue<Value> (&names)[N], Value value) {
    for (const auto& entry : names) {
        if (entry.value == value) return append(text, entry.name);
    }
    append(text, static_cast<uint32_t>(value));
}

inline void append(std::string& text, TechType value) {
    append(text, kTechTypeNames, value);
}
inline void append(std::string& text, IPType value) {
    append(text, kIPTypeNames, value);
}
inline void append(std::string& text, AuthType value) {
    append(text, kAuthTypeNames, value);
}
inline void append(std::string& text, ApnClass value) {
    append(text, kApnClassNames, value);
}

// The names of a mask's set bits, each followed by "|"; `none` for an empty mask. Unknown bits are
// left out.
template <class Bit, size_t N>
void appendMask(std::string& text, const NamedValue<Bit> (&names)[N], uint32_t mask,
                std::string_view none) {
    if (mask == 0) text.append(none);
    for (const auto& entry : names) {
        if (mask & entry.value) text.append(entry.name) += '|';
    }
}

// "Label=value,".
template <class Value>
void appendItem(std::string& text, std::string_view label, const Value& value) {
    text.append(label);
    append(text, value);
    text += ',';
}

// Nothing for a setting that is not there.
template <class Value>
void appendItem(std::string& text, std::string_view label, const std::optional<Value>& setting) {
    if (setting) appendItem(text, label, *setting);
}

// What dump() of a record returns.
void appendDump(std::string& text, const ProfileParams& params);
void appendDump(std::string& text, const AddProfileParams& params);
void appendDump(std::string& text, const FilterProfileParams& params);

}  // namespace zem
