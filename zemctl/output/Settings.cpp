#include "output/Settings.h"

#include "output/Secrets.h"
#include "output/Text.h"

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
    return !text ? "nothing" : printable(setting.secret ? secret(*text) : *text);
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
    {"ApnName", "--apn", "NAME", "up to 150 bytes", "not set", "Access point name", false, false,
     apnNameText,
     [](ProfileParams& p, const OptionText& t) { p.setApnName(t.upTo(kLongestApnName)); }, nullptr},
    {"UserName", "--user", "NAME", "up to 127 bytes", "not set", "User name", false, false,
     [](const ProfileParams& p) { return textOf(p.hasUserName(), p.getUserName()); },
     [](ProfileParams& p, const OptionText& t) { p.setUserName(t.upTo(kLongestCredential)); },
     nullptr},
    {"Password", "--password", "TEXT", "up to 127 bytes", "not set",
     "Password; masked in what the tool prints", true, false,
     [](const ProfileParams& p) { return textOf(p.hasPassword(), p.getPassword()); },
     [](ProfileParams& p, const OptionText& t) { p.setPassword(t.upTo(kLongestCredential)); },
     nullptr},
    {"AuthType", "--auth", "PROTOCOL", "", "not set", "Authentication protocols offered", false,
     false,
     [](const ProfileParams& p) { return textOf(p.hasAuthType(), authTypeName(p.getAuthType())); },
     [](ProfileParams& p, const OptionText& t) { p.setAuthType(t.oneOf(zem::kAuthTypeNames)); },
     [](const Typing&) { return namesOf(zem::kAuthTypeNames); }},
    {"HomeIPType", "--home", "IPTYPE", "", "not set", "PDP type on the home network", false, false,
     [](const ProfileParams& p) {
         return textOf(p.hasHomeIPType(), ipTypeName(p.getHomeIPType()));
     },
     [](ProfileParams& p, const OptionText& t) { p.setHomeIPType(t.oneOf(zem::kIPTypeNames)); },
     [](const Typing&) { return namesOf(zem::kIPTypeNames); }},
    {"RoamIPType", "--roam", "IPTYPE", "", "not set: as at home", "PDP type when roaming", false,
     true,
     [](const ProfileParams& p) {
         return textOf(p.hasRoamIPType(), ipTypeName(p.getRoamIPType()));
     },
     [](ProfileParams& p, const OptionText& t) { p.setRoamIPType(t.oneOf(zem::kIPTypeNames)); },
     [](const Typing&) { return namesOf(zem::kIPTypeNames); }},
    {"ApnTypesMask", "--types", "LIST", "", "not set", "APN types served, between commas", false,
     false,
     [](const ProfileParams& p) {
         return textOf(p.hasApnTypesMask(), apnTypesText(p.getApnTypesMask()));
     },
     [](ProfileParams& p, const OptionText& t) { p.setApnTypesMask(t.apnTypes()); },
     [](const Typing&) { return namesOf(zem::kApnTypeNames); }},
    {"ApnClass", "--class", "CLASS", "", "not set", "APN class", false, false,
     [](const ProfileParams& p) { return textOf(p.hasApnClass(), apnClassName(p.getApnClass())); },
     [](ProfileParams& p, const OptionText& t) { p.setApnClass(t.oneOf(zem::kApnClassNames)); },
     [](const Typing&) { return namesOf(zem::kApnClassNames); }},
    {"IsClatEnabled", "--clat", "on|off", "", "not set", "IPv4 over IPv6 (464XLAT)", false, false,
     [](const ProfileParams& p) {
         return textOf(p.hasIsClatEnabled(), yesNo(p.getIsClatEnabled()));
     },
     [](ProfileParams& p, const OptionText& t) { p.setIsClatEnabled(t.oneOf(kSwitchNames)); },
     [](const Typing&) { return namesOf(kSwitchNames); }},
    {"MaxPdnsConnPerBlock", "--max-conns", "NUMBER", "0 to 65535", "not set",
     "PDN connections in one time block", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnsConnPerBlock(), std::to_string(p.getMaxPdnsConnPerBlock()));
     },
     [](ProfileParams& p, const OptionText& t) {
         p.setMaxPdnsConnPerBlock(t.number(0, kLargestNumber));
     },
     nullptr},
    {"MaxPdnConnTimer", "--max-conns-time", "SECONDS", "0 to 65535", "not set",
     "Length of the time block", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasMaxPdnConnTimer(), std::to_string(p.getMaxPdnConnTimer()));
     },
     [](ProfileParams& p, const OptionText& t) {
         p.setMaxPdnConnTimer(t.number(0, kLargestNumber));
     },
     nullptr},
    {"PdnReqWaitInterval", "--wait-time", "SECONDS", "0 to 65535", "not set",
     "Time between PDN requests", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasPdnReqWaitInterval(), std::to_string(p.getPdnReqWaitInterval()));
     },
     [](ProfileParams& p, const OptionText& t) {
         p.setPdnReqWaitInterval(t.number(0, kLargestNumber));
     },
     nullptr},
    {"IsApnDisabled", "--disabled", "on|off", "", "not set", "Profile switched off", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasIsApnDisabled(), yesNo(p.getIsApnDisabled()));
     },
     [](ProfileParams& p, const OptionText& t) { p.setIsApnDisabled(t.oneOf(kSwitchNames)); },
     [](const Typing&) { return namesOf(kSwitchNames); }},
    {"IsEmergencySupported", "--emergency", "on|off", "", "not set",
     "Profile may carry emergency calls", false, true,
     [](const ProfileParams& p) {
         return textOf(p.hasIsEmergencySupported(), yesNo(p.getIsEmergencySupported()));
     },
     [](ProfileParams& p, const OptionText& t) {
         p.setIsEmergencySupported(t.oneOf(kSwitchNames));
     },
     [](const Typing&) { return namesOf(kSwitchNames); }},
};

Arguments settingArguments() {
    Arguments arguments;
    for (const Setting& setting : kSettings) {
        std::string help = setting.help;
        help += setting.only3gpp ? " (3GPP): " : ": ";
        help += setting.candidates ? join(setting.candidates({}), ", ") : setting.values;
        arguments.push_back({setting.option, setting.type, help, Arity::kOptional,
                             setting.candidates, std::string(setting.type) == "LIST"});
    }
    return arguments;
}

ProfileParams settingsOf(const Given& given) {
    ProfileParams params;
    for (const Setting& setting : kSettings) {
        if (given.has(setting.option)) {
            if (setting.secret) {
                rememberSecret(given.text(setting.option));
            }
            setting.set(params, {setting.option, given.text(setting.option)});
        }
    }
    return params;
}

Argument techArgument(const std::string& help) {
    return {"--tech", "3gpp|3gpp2", help, Arity::kOptional,
            [](const Typing&) { return namesOf(zem::kTechTypeNames); }};
}

zem::TechType techOf(const Given& given) {
    return given.has("--tech")
               ? OptionText{"--tech", given.text("--tech")}.oneOf(zem::kTechTypeNames)
               : zem::TechType::TECH_3GPP;
}

void requireSettingsOf(zem::TechType tech, const ProfileParams& params) {
    if (tech == zem::TechType::TECH_3GPP) {
        return;
    }
    for (const Setting& setting : kSettings) {
        if (setting.only3gpp && setting.text(params)) {
            throw UsageError(std::string(setting.option) + ": 3GPP2 profiles have no " +
                             setting.name);
        }
    }
}

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
