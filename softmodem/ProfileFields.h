// ProfileFields: every field of a profile, in one table, with its place in each message.
// Free of state; any thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "softmodem/SoftModem.h"

namespace softmodem {

// Where a message keeps a field; value 0: it does not have it.
struct FieldPlace {
    size_t valid = 0, value = 0;
};

struct NamedValue {
    const char* name;
    uint64_t value;
};

struct ValueNames {
    const NamedValue* first = nullptr;
    size_t count = 0;

    const NamedValue* begin() const { return first; }
    const NamedValue* end() const { return first + count; }
};

struct ProfileField {
    const char* name;
    std::optional<Tech> tech;  // empty: both
    bool isText;
    bool isEnumeration;
    size_t size;  // in a message; a text's includes its terminator
    FieldPlace create, modify, settings;
    ValueNames valueNames;

    bool belongsTo(Tech other) const { return !tech || *tech == other; }
    // Empty when a profile may hold the value, else what is wrong with it.
    std::string objection(const Value& value) const;
    // The number of a name, or one in digits; empty when it is neither.
    std::optional<uint64_t> parseNumber(std::string_view text) const;
    // Numbers by name where there is one, texts escaped.
    std::string format(const Value& value) const;
};

struct FieldTable {
    const ProfileField* first;
    const ProfileField* last;

    const ProfileField* begin() const { return first; }
    const ProfileField* end() const { return last; }
};

// A number in digits, also as 0x...; the whole text.
std::optional<uint64_t> parseNumber(std::string_view text);

FieldTable profileFields();
const ProfileField* findField(std::string_view name);

// False when a name is unknown, of the other technology, or its value does not fit.
bool acceptable(const Fields& fields, Tech tech);

using PlaceOf = FieldPlace ProfileField::*;

// Empty when the message holds a text without end or a field of the other technology.
std::optional<Fields> readFields(const void* message, PlaceOf placeOf, Tech tech);
void writeFields(const Fields& fields, PlaceOf placeOf, void* message);

// For faults: spoils what a message already holds.
void unterminateTexts(PlaceOf placeOf, void* message);
void unterminateText(char* text, size_t size);
void overwriteEnumerations(PlaceOf placeOf, void* message, uint32_t value);

// Printable ASCII stands for itself, everything else becomes an escape.
std::string escaped(std::string_view text);

const char* techName(Tech tech);
std::optional<Tech> techFrom(uint32_t profileType);

}  // namespace softmodem
