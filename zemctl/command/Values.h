// Values: what was typed for an option, checked and read. Free of state; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <zem/ProfileParams.h>

#include "command/Verb.h"
#include "output/Text.h"

namespace zemctl {

inline constexpr zem::NamedValue<bool> kSwitchNames[] = {{true, "on"}, {false, "off"}};

// "; did you mean 'apn'?", or nothing when no candidate is near.
std::string suggestion(const std::string& typed, const std::vector<std::string>& candidates);

// The names of a table as they are typed: in lower case, without UNKNOWN, which nobody asks for.
template <class Value, size_t N>
std::vector<std::string> namesOf(const zem::NamedValue<Value> (&table)[N]) {
    std::vector<std::string> names;
    for (const auto& known : table) {
        if (std::string(known.name) != "UNKNOWN") {
            names.push_back(lowerCase(known.name));
        }
    }
    return names;
}

// The text that was given for an option. Every reader throws UsageError, with the option's name.
struct OptionText {
    std::string option;
    std::string text;

    UsageError wrong(const std::string& expected) const;

    // The place of the text among the names, in any case.
    size_t placeIn(const std::vector<std::string>& names) const;

    template <class Value, size_t N>
    Value oneOf(const zem::NamedValue<Value> (&table)[N]) const {
        const std::string name = namesOf(table)[placeIn(namesOf(table))];
        for (const auto& known : table) {
            if (lowerCase(known.name) == name) {
                return known.value;
            }
        }
        return {};
    }

    std::string upTo(size_t bytes) const;
    int number(int least, int most) const;
    // The bits of names between commas.
    unsigned int apnTypes() const;
};

}  // namespace zemctl
