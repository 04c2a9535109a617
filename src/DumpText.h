// DumpText: the pieces that dump() lines are made of.
#pragma once

#include <string>
#include <string_view>

#include <zem/ProfileParams.h>

namespace zem {

// The name of a value, or its decimal number when the table does not hold it.
template <class Value, size_t N>
std::string nameOf(const NamedValue<Value> (&names)[N], Value value) {
    for (const auto& entry : names) {
        if (entry.value == value) return entry.name;
    }
    return std::to_string(static_cast<uint32_t>(value));
}

// The names of a mask's set bits, each followed by "|"; `none` for an empty mask. Unknown bits are
// left out.
template <class Bit, size_t N>
std::string maskNames(const NamedValue<Bit> (&names)[N], uint32_t mask, const char* none) {
    if (mask == 0) return none;
    std::string text;
    for (const auto& entry : names) {
        if (mask & entry.value) text.append(entry.name) += '|';
    }
    return text;
}

inline std::string nameOf(TechType value) {
    return nameOf(kTechTypeNames, value);
}
inline std::string nameOf(IPType value) {
    return nameOf(kIPTypeNames, value);
}
inline std::string nameOf(AuthType value) {
    return nameOf(kAuthTypeNames, value);
}
inline std::string nameOf(ApnClass value) {
    return nameOf(kApnClassNames, value);
}
inline const char* nameOf(bool value) {
    return value ? "true" : "false";
}

// Appends "Label=value,".
inline void appendItem(std::string& text, const char* label, std::string_view value) {
    text.append(label).append(value) += ',';
}

}  // namespace zem
