// Records: every setting of the parameter records in one table, to draw them and to look at them.
#pragma once

#include <optional>
#include <string>

#include <zem/ProfileParams.h>

#include "Input.h"

namespace zem::fuzz {

inline std::string textOf(const std::string& value) {
    return value;
}
template <class Value>
std::string textOf(Value value) {
    return std::to_string(static_cast<int64_t>(value));
}

inline void draw(Input& input, std::string& value) {
    value = input.text();
}
inline void draw(Input& input, bool& value) {
    value = input.flag();
}
inline void draw(Input& input, int& value) {
    value = static_cast<int>(input.small());
}
// A mask: bits that somebody knows as a rule.
inline void draw(Input& input, unsigned int& value) {
    value = input.rarely(8) ? input.number<uint32_t>() : input.number<uint16_t>() & 0xFFFu;
}
template <class Enumeration>
void draw(Input& input, Enumeration& value) {
    value = Enumeration(input.small());
}

struct Setting {
    const char* label;  // in dumps
    bool only3gpp;
    void (*set)(ProfileParams&, Input&);
    std::optional<std::string> (*text)(const ProfileParams&);  // empty: not set
};

#define ZEM_SETTING(Name, only3gpp)                                                        \
    {                                                                                      \
#Name "=", only3gpp,                                                                     \
     [](ProfileParams& params, Input& input) {                                                \
         auto value = params.get##Name();                                                     \
         draw(input, value);                                                                  \
         params.set##Name(value);                                                             \
     },                                                                                       \
     [](const ProfileParams& params) {                                                        \
         return params.has##Name() ? std::optional(textOf(params.get##Name())) : std::nullopt; \
     } \
    }
inline constexpr Setting kSettings[] = {
    ZEM_SETTING(ApnName, false),        ZEM_SETTING(UserName, false),
    ZEM_SETTING(Password, false),       ZEM_SETTING(AuthType, false),
    ZEM_SETTING(HomeIPType, false),     ZEM_SETTING(RoamIPType, true),
    ZEM_SETTING(ApnTypesMask, false),   ZEM_SETTING(ApnClass, false),
    ZEM_SETTING(IsClatEnabled, false),  ZEM_SETTING(MaxPdnsConnPerBlock, true),
    ZEM_SETTING(MaxPdnConnTimer, true), ZEM_SETTING(PdnReqWaitInterval, true),
    ZEM_SETTING(IsApnDisabled, true),   ZEM_SETTING(IsEmergencySupported, true),
};
#undef ZEM_SETTING

// Draws some settings.
inline void drawSettings(Input& input, ProfileParams& params) {
    for (size_t count = input.upTo(8); count > 0; --count)
        input.oneOf(kSettings).set(params, input);
}

template <class Record>
Record drawRecord(Input& input) {
    Record record;
    drawSettings(input, record);
    return record;
}

inline FilterProfileParams drawFilter(Input& input) {
    auto filter = drawRecord<FilterProfileParams>(input);
    const auto asked = input.number<uint8_t>();
    if (asked & 1) filter.setFilterByTechType(TechType(input.small()));
    if (asked & 2) filter.setFilterByProfileId(static_cast<int>(input.small()));
    if (asked & 4) filter.setFilterByIsZemProfile(input.flag());
    if (asked & 8) filter.setFilterByIsIAProfile(input.flag());
    if (asked & 16) filter.addFilterMatchCriteria(input.number<uint8_t>());
    return filter;
}

}  // namespace zem::fuzz
