#include "Settings.h"

#include "Text.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using Text = std::optional<std::string>;

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

Text apnNameText(const ProfileParams& params) {
    return textOf(params.hasApnName(), lowerCase(params.getApnName().substr(0, kLongestApnName)));
}

std::string shown(const Setting& setting, const Text& text) {
    return !text ? "nothing" : setting.secret ? kMask : printable(*text);
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
    {"ApnName", false, false, apnNameText},
    {"UserName", false, false,
     [](const ProfileParams& p) { return textOf(p.hasUserName(), p.getUserName()); }},
    {"Password", true, false,
     [](const ProfileParams& p) { return textOf(p.hasPassword(), p.getPassword()); }},
    {"AuthType", false, false,
     [](const ProfileParams& p) { return textOf(p.hasAuthType(), authTypeName(p.getAuthType())); }},
    {"HomeIPType", false, false,
     [](const ProfileParams& p) {
         return textOf(p.hasHomeIPType(), ipTypeName(p.getHomeIPType()));
     }},
    {"RoamIPType", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasRoamIPType(), ipTypeName(p.getRoamIPType()));
     }},
    {"ApnTypesMask", false, false,
     [](const ProfileParams& p) {
         return textOf(p.hasApnTypesMask(), apnTypesText(p.getApnTypesMask()));
     }},
    {"ApnClass", false, false,
     [](const ProfileParams& p) { return textOf(p.hasApnClass(), apnClassName(p.getApnClass())); }},
    {"IsClatEnabled", false, false,
     [](const ProfileParams& p) {
         return textOf(p.hasIsClatEnabled(), yesNo(p.getIsClatEnabled()));
     }},
    {"MaxPdnsConnPerBlock", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnsConnPerBlock(), std::to_string(p.getMaxPdnsConnPerBlock()));
     }},
    {"MaxPdnConnTimer", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnConnTimer(), std::to_string(p.getMaxPdnConnTimer()));
     }},
    {"PdnReqWaitInterval", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasPdnReqWaitInterval(), std::to_string(p.getPdnReqWaitInterval()));
     }},
    {"IsApnDisabled", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasIsApnDisabled(), yesNo(p.getIsApnDisabled()));
     }},
    {"IsEmergencySupported", false, true,
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

std::vector<std::string> differences(const ProfileParams& asked, const ProfileParams& seen,
                                     zem::TechType tech) {
    std::vector<std::string> lines;
    for (const Setting& setting : kSettings) {
        const Text want = setting.text(asked);
        const Text got = setting.text(seen);
        const bool has = !setting.only3gpp || tech == zem::TechType::TECH_3GPP;
        if (!want || !has || want == got) {
            continue;
        }
        lines.push_back(std::string(setting.name) + ": asked for " + shown(setting, want) +
                        ", read " + shown(setting, got));
    }
    return lines;
}

std::vector<std::string> settingWords(const ProfileParams& params) {
    std::vector<std::string> words;
    for (const Setting& setting : kSettings) {
        if (const Text text = setting.text(params)) {
            words.push_back(std::string(setting.name) + '=' + shown(setting, text));
        }
    }
    return words;
}

bool sameApnName(const ProfileParams& a, const ProfileParams& b) {
    return apnNameText(a) == apnNameText(b);
}

}  // namespace zemctl
