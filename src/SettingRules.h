// SettingRules: what is done to every optional setting and message field alike, stated once.
#pragma once

#include <cstring>
#include <optional>
#include <string>

#include "wds_service_v01.h"

namespace zem {

// A filter's setting that is absent asks nothing; one that is present wants its equal.
template <class Value>
bool agrees(const std::optional<Value>& asked, const std::optional<Value>& held) {
    return !asked || (held && *held == *asked);
}

// Takes a wanted setting into a difference when it is not what is held.
template <class Value>
void takeChange(const std::optional<Value>& wanted, const std::optional<Value>& held,
                std::optional<Value>& delta, bool& changed) {
    if (!wanted || wanted == held) return;
    delta = wanted;
    changed = true;
}

template <class Value>
void copyPresent(const std::optional<Value>& from, std::optional<Value>& to) {
    if (from) to = from;
}

// Zeroed to the last byte, its padding included: a message goes to the modem as it stands.
template <class Message>
void clear(Message& message) {
    memset(&message, 0, sizeof message);
}

// Message fields stand behind their valid flag. put() sets both for a present setting, take() reads
// a valid field into a setting.
template <class Value, class Field, class Convert>
void put(const std::optional<Value>& setting, uint8_t& valid, Field& field, Convert convert) {
    if (!setting) return;
    valid = 1;
    field = static_cast<Field>(convert(*setting));
}

template <class Value, class Field>
void put(const std::optional<Value>& setting, uint8_t& valid, Field& field) {
    put(setting, valid, field, [](Value value) { return value; });
}

// Cut to the field's capacity less its terminator; the message was zeroed before.
template <size_t N>
void put(const std::optional<std::string>& setting, uint8_t& valid, char (&field)[N]) {
    if (!setting) return;
    valid = 1;
    memcpy(field, setting->c_str(), strnlen(setting->c_str(), N - 1));
}

template <class Value, class Field, class Convert>
void take(uint8_t valid, Field field, std::optional<Value>& setting, Convert convert) {
    if (valid) setting = convert(field);
}

template <class Value, class Field>
void take(uint8_t valid, Field field, std::optional<Value>& setting) {
    if (valid) setting = static_cast<Value>(field);
}

// A modem may leave out the terminator.
template <size_t N>
void take(uint8_t valid, const char (&field)[N], std::optional<std::string>& setting) {
    if (valid) setting.emplace(field, strnlen(field, N));
}

}  // namespace zem
