#include "Settings.h"

#include "Text.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using Text = std::optional<std::string>;

// What the library keeps of an APN name.
constexpr size_t kApnNameLength = 150;

template <class Value, size_t N>
std::string nameIn(const zem::NamedValue<Value> (&names)[N], Value value) {
    for (const auto& [known, name] : names) {
        if (known == value) {
            return name;
        }
    }
    return std::to_string(static_cast<uint32_t>(value));
}

Text textOf(bool present, std::string text) {
    return present ? Text(std::move(text)) : std::nullopt;
}

std::string yesNo(bool value) {
    return value ? "true" : "false";
}

}  // namespace

std::string ipTypeName(zem::IPType value) {
    return nameIn(zem::kIPTypeNames, value);
}

std::string apnClassName(zem::ApnClass value) {
    return nameIn(zem::kApnClassNames, value);
}

std::string techTypeName(zem::TechType value) {
    return nameIn(zem::kTechTypeNames, value);
}

std::string authTypeName(zem::AuthType value) {
    return nameIn(zem::kAuthTypeNames, value);
}

std::string apnTypesText(unsigned int mask) {
    std::vector<std::string> names;
    for (const auto& [bit, name] : zem::kApnTypeNames) {
        if ((mask & bit) != 0) {
            names.emplace_back(name);
        }
    }
    return names.empty() ? "NONE" : join(names, "|");
}

std::optional<unsigned int> apnTypeFromName(std::string_view name) {
    const std::string wanted = lowerCase(name);
    for (const auto& [bit, known] : zem::kApnTypeNames) {
        if (lowerCase(known) == wanted) {
            return bit;
        }
    }
    return std::nullopt;
}

const std::vector<Setting> kSettings = {
    {"ApnName", false,
     [](const ProfileParams& p) {
         return textOf(p.hasApnName(), lowerCase(p.getApnName().substr(0, kApnNameLength)));
     }},
    {"UserName", false,
     [](const ProfileParams& p) { return textOf(p.hasUserName(), p.getUserName()); }},
    {"Password", true,
     [](const ProfileParams& p) { return textOf(p.hasPassword(), p.getPassword()); }},
    {"AuthType", false,
     [](const ProfileParams& p) { return textOf(p.hasAuthType(), authTypeName(p.getAuthType())); }},
    {"HomeIPType", false,
     [](const ProfileParams& p) {
         return textOf(p.hasHomeIPType(), ipTypeName(p.getHomeIPType()));
     }},
    {"RoamIPType", false,
     [](const ProfileParams& p) {
         return textOf(p.hasRoamIPType(), ipTypeName(p.getRoamIPType()));
     }},
    {"ApnTypesMask", false,
     [](const ProfileParams& p) {
         return textOf(p.hasApnTypesMask(), apnTypesText(p.getApnTypesMask()));
     }},
    {"ApnClass", false,
     [](const ProfileParams& p) { return textOf(p.hasApnClass(), apnClassName(p.getApnClass())); }},
    {"IsClatEnabled", false,
     [](const ProfileParams& p) {
         return textOf(p.hasIsClatEnabled(), yesNo(p.getIsClatEnabled()));
     }},
    {"MaxPdnsConnPerBlock", false,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnsConnPerBlock(), std::to_string(p.getMaxPdnsConnPerBlock()));
     }},
    {"MaxPdnConnTimer", false,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnConnTimer(), std::to_string(p.getMaxPdnConnTimer()));
     }},
    {"PdnReqWaitInterval", false,
     [](const ProfileParams& p) {
         return textOf(p.hasPdnReqWaitInterval(), std::to_string(p.getPdnReqWaitInterval()));
     }},
    {"IsApnDisabled", false,
     [](const ProfileParams& p) {
         return textOf(p.hasIsApnDisabled(), yesNo(p.getIsApnDisabled()));
     }},
    {"IsEmergencySupported", false,
     [](const ProfileParams& p) {
         return textOf(p.hasIsEmergencySupported(), yesNo(p.getIsEmergencySupported()));
     }},
};

std::vector<Text> settingTexts(const ProfileParams& params) {
    std::vector<Text> texts;
    texts.reserve(kSettings.size());
    for (const Setting& setting : kSettings) {
        texts.push_back(setting.text(params));
    }
    return texts;
}

std::vector<std::string> differences(const ProfileParams& asked, const ProfileParams& seen) {
    std::vector<std::string> lines;
    for (const Setting& setting : kSettings) {
        const Text want = setting.text(asked);
        const Text got = setting.text(seen);
        if (!want || want == got) {
            continue;
        }
        const auto shown = [&](const Text& text) {
            return !text ? "nothing" : setting.secret ? kMask : printable(*text);
        };
        lines.push_back(std::string(setting.name) + ": asked for " + shown(want) + ", read " +
                        shown(got));
    }
    return lines;
}

}  // namespace zemctl
