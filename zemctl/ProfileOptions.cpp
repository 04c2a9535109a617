#include "ProfileOptions.h"

#include <iterator>
#include <optional>
#include <vector>

#include <CLI/CLI.hpp>

#include "Settings.h"
#include "Text.h"
#include "Verb.h"

namespace zemctl {

namespace {

using zem::ProfileParams;

constexpr zem::NamedValue<bool> kSwitch[] = {{true, "on"}, {false, "off"}};

// An option and the text that was given for it.
struct Given {
    const char* option;
    const std::string& text;

    UsageError wrong(const std::string& expected) const {
        return UsageError(std::string(option) + " takes " + expected + ", not '" + text + '\'');
    }

    // The named value in any case; UNKNOWN is no value to ask for.
    template <class Value, size_t N>
    Value oneOf(const zem::NamedValue<Value> (&names)[N]) const {
        std::vector<std::string> valid;
        for (const auto& [value, name] : names) {
            if (std::string(name) == "UNKNOWN") {
                continue;
            }
            if (lowerCase(name) == lowerCase(text)) {
                return value;
            }
            valid.push_back(lowerCase(name));
        }
        throw wrong("one of " + join(valid, ", "));
    }

    std::string upTo(size_t bytes) const {
        if (text.size() > bytes) {
            throw UsageError(std::string(option) + " takes at most " + std::to_string(bytes) +
                             " bytes, not " + std::to_string(text.size()));
        }
        return text;
    }

    int number() const {
        const auto value = parseNumber(text, 0, kLargestNumber);
        if (!value) {
            throw wrong("a number from 0 to " + std::to_string(kLargestNumber));
        }
        return *value;
    }

    unsigned int apnTypes() const {
        unsigned int mask = 0;
        for (const std::string_view name : split(text, ',')) {
            const auto bit = apnTypeFromName(trimmed(name));
            if (!bit) {
                std::vector<std::string> valid;
                for (const auto& known : zem::kApnTypeNames) {
                    valid.push_back(lowerCase(known.name));
                }
                throw wrong("a list of " + join(valid, ", "));
            }
            mask |= *bit;
        }
        return mask;
    }
};

constexpr struct {
    const char* name;
    const char* type;
    const char* help;
    void (*set)(ProfileParams&, const Given&);
} kOptions[] = {
    {"--apn", "NAME", "Access point name",
     [](ProfileParams& p, const Given& g) { p.setApnName(g.upTo(kLongestApnName)); }},
    {"--user", "NAME", "User name",
     [](ProfileParams& p, const Given& g) { p.setUserName(g.upTo(kLongestCredential)); }},
    {"--password", "TEXT", "Password; never shown",
     [](ProfileParams& p, const Given& g) { p.setPassword(g.upTo(kLongestCredential)); }},
    {"--auth", "PROTOCOL", "Authentication: none, pap, chap, pap_chap",
     [](ProfileParams& p, const Given& g) { p.setAuthType(g.oneOf(zem::kAuthTypeNames)); }},
    {"--home", "IPTYPE", "IP type at home: v4, v6, v4v6",
     [](ProfileParams& p, const Given& g) { p.setHomeIPType(g.oneOf(zem::kIPTypeNames)); }},
    {"--roam", "IPTYPE", "IP type when roaming (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setRoamIPType(g.oneOf(zem::kIPTypeNames)); }},
    {"--types", "LIST", "APN types, such as default,mms",
     [](ProfileParams& p, const Given& g) { p.setApnTypesMask(g.apnTypes()); }},
    {"--class", "CLASS", "APN class: ims, admn, inet, app",
     [](ProfileParams& p, const Given& g) { p.setApnClass(g.oneOf(zem::kApnClassNames)); }},
    {"--clat", "on|off", "IPv4 over IPv6 (464XLAT)",
     [](ProfileParams& p, const Given& g) { p.setIsClatEnabled(g.oneOf(kSwitch)); }},
    {"--emergency", "on|off", "Emergency calls (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setIsEmergencySupported(g.oneOf(kSwitch)); }},
    {"--disabled", "on|off", "Profile switched off (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setIsApnDisabled(g.oneOf(kSwitch)); }},
    {"--max-conns", "NUMBER", "Connections in one time block (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setMaxPdnsConnPerBlock(g.number()); }},
    {"--max-conns-time", "SECONDS", "Length of the time block (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setMaxPdnConnTimer(g.number()); }},
    {"--wait-time", "SECONDS", "Time between requests (3GPP)",
     [](ProfileParams& p, const Given& g) { p.setPdnReqWaitInterval(g.number()); }},
};

}  // namespace

void addProfileOptions(CLI::App& app, ProfileParams& params) {
    for (const auto& option : kOptions) {
        app.add_option_function<std::string>(
               option.name,
               [&option, &params](const std::string& text) {
                   option.set(params, {option.name, text});
               },
               option.help)
            ->type_name(option.type);
    }
}

void addTechOption(CLI::App& app, zem::TechType& tech) {
    app.add_option_function<std::string>(
           "--tech",
           [&tech](const std::string& text) {
               tech = Given{"--tech", text}.oneOf(zem::kTechTypeNames);
           },
           "Family of profiles, 3gpp unless said otherwise")
        ->type_name("3gpp|3gpp2");
}

void addSwitchOption(CLI::App& app, const std::string& optionName, bool& value,
                     const std::string& help) {
    app.add_option_function<std::string>(
           optionName,
           [optionName, &value](const std::string& text) {
               value = Given{optionName.c_str(), text}.oneOf(kSwitch);
           },
           help)
        ->required()
        ->type_name("on|off");
}

void requireSettingsOf(zem::TechType tech, const ProfileParams& params) {
    if (tech == zem::TechType::TECH_3GPP) {
        return;
    }
    for (const Setting& setting : kSettings) {
        if (setting.only3gpp && setting.text(params)) {
            throw UsageError(std::string(setting.name) + " is no setting of a 3GPP2 profile");
        }
    }
}

}  // namespace zemctl
