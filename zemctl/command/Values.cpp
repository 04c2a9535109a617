#include "command/Values.h"

#include <algorithm>

namespace zemctl {

std::string suggestion(const std::string& typed, const std::vector<std::string>& candidates) {
    const std::string best = nearest(typed, candidates);
    return best.empty() ? "" : "; did you mean '" + best + "'?";
}

UsageError OptionText::wrong(const std::string& expected) const {
    return UsageError(option + " takes " + expected + ", not '" + text + '\'');
}

size_t OptionText::placeIn(const std::vector<std::string>& names) const {
    const auto found = std::find(names.begin(), names.end(), lowerCase(text));
    if (found == names.end()) {
        throw UsageError(wrong("one of " + join(names, ", ")).what() + suggestion(text, names));
    }
    return static_cast<size_t>(found - names.begin());
}

std::string OptionText::upTo(size_t bytes) const {
    if (text.size() > bytes) {
        throw UsageError(option + " takes at most " + std::to_string(bytes) + " bytes, not " +
                         std::to_string(text.size()));
    }
    return text;
}

int OptionText::number(int least, int most) const {
    const auto value = parseNumber(text, least, most);
    if (!value) {
        throw wrong("a number from " + std::to_string(least) + " to " + std::to_string(most));
    }
    return *value;
}

unsigned int OptionText::apnTypes() const {
    unsigned int mask = 0;
    for (const std::string_view name : split(text, ',')) {
        mask |= OptionText{option, std::string(trimmed(name))}.oneOf(zem::kApnTypeNames);
    }
    return mask;
}

}  // namespace zemctl
