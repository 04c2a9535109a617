#include "output/ProfileOutput.h"

#include <cstdlib>

#include <nlohmann/json.hpp>

#include "output/Secrets.h"
#include "output/Settings.h"
#include "output/Text.h"

namespace zemctl {

namespace {

using zem::ProfileParams;

constexpr const char* kAbsent = "-";

template <class Value>
Json orNull(bool present, const Value& value) {
    return present ? Json(value) : Json(nullptr);
}

std::string notes(const SeenProfile& profile) {
    std::vector<std::string> words;
    if (profile.params.getIsEmergencySupported()) {
        words.emplace_back("emergency");
    }
    if (profile.params.getIsApnDisabled()) {
        words.emplace_back("off");
    }
    if (profile.params.getIsIAProfile()) {
        words.emplace_back("zem attach");
    } else if (profile.params.getIsZemProfile()) {
        words.emplace_back("zem");
    }
    words.insert(words.end(), profile.keys.begin(), profile.keys.end());
    return join(words, ", ");
}

}  // namespace

unsigned long tokenOf(const std::shared_ptr<zem::IProfileKey>& key) {
    const std::string text = key->dump();
    return std::strtoul(text.c_str() + text.rfind('=') + 1, nullptr, 10);
}

SeenProfile seen(const std::shared_ptr<zem::IProfileKey>& key, const ProfileParams& params,
                 const KeyRing& keys) {
    SeenProfile profile{idOf(key), params, tokenOf(key), {}};
    for (const HeldKey& each : keys) {
        if (each.id == profile.id && tokenOf(each.key) == profile.token) {
            profile.keys.push_back(each.name);
        }
    }
    return profile;
}

Json toJson(const SeenProfile& profile) {
    const ProfileParams& p = profile.params;
    Json types = nullptr;
    if (p.hasApnTypesMask()) {
        types = Json::array();
        for (const auto& [bit, name] : zem::kApnTypeNames) {
            if ((p.getApnTypesMask() & bit) != 0) {
                types.push_back(lowerCase(name));
            }
        }
    }
    return {
        {"profile", profileName(profile.id)},
        {"techType", techTypeName(profile.id.first)},
        {"profileId", profile.id.second},
        {"apnName", orNull(p.hasApnName(), p.getApnName())},
        {"userName", orNull(p.hasUserName(), p.getUserName())},
        {"password", orNull(p.hasPassword(), secret(p.getPassword()))},
        {"authType", orNull(p.hasAuthType(), authTypeName(p.getAuthType()))},
        {"homeIPType", orNull(p.hasHomeIPType(), ipTypeName(p.getHomeIPType()))},
        {"roamIPType", orNull(p.hasRoamIPType(), ipTypeName(p.getRoamIPType()))},
        {"apnTypesMask", orNull(p.hasApnTypesMask(), p.getApnTypesMask())},
        {"apnTypes", types},
        {"apnClass", orNull(p.hasApnClass(), apnClassName(p.getApnClass()))},
        {"isClatEnabled", orNull(p.hasIsClatEnabled(), p.getIsClatEnabled())},
        {"maxPdnsConnPerBlock", orNull(p.hasMaxPdnsConnPerBlock(), p.getMaxPdnsConnPerBlock())},
        {"maxPdnConnTimer", orNull(p.hasMaxPdnConnTimer(), p.getMaxPdnConnTimer())},
        {"pdnReqWaitInterval", orNull(p.hasPdnReqWaitInterval(), p.getPdnReqWaitInterval())},
        {"isApnDisabled", orNull(p.hasIsApnDisabled(), p.getIsApnDisabled())},
        {"isEmergencySupported", orNull(p.hasIsEmergencySupported(), p.getIsEmergencySupported())},
        {"isZemProfile", p.getIsZemProfile()},
        {"isIAProfile", p.getIsIAProfile()},
        {"token", profile.token},
        {"keys", profile.keys},
    };
}

std::string shownSetting(const Setting& setting, const ProfileParams& params) {
    const auto text = setting.text(params);
    return !text ? kAbsent : printable(setting.secret ? secret(*text) : *text);
}

Table profileTable(const std::vector<SeenProfile>& profiles) {
    Table table({"PROFILE", "APN", "HOME", "ROAM", "AUTH", "USER", "TYPES", "CLASS", "NOTES"});
    for (const SeenProfile& profile : profiles) {
        const auto text = [&](const char* name) {
            for (const Setting& setting : kSettings) {
                if (name == std::string(setting.name)) {
                    return shownSetting(setting, profile.params);
                }
            }
            return std::string();
        };
        const bool nameless = profile.params.getApnName().empty();
        table.row({profileName(profile.id), nameless ? "(no name)" : text("ApnName"),
                   text("HomeIPType"), text("RoamIPType"), text("AuthType"), text("UserName"),
                   text("ApnTypesMask"), text("ApnClass"), notes(profile)});
    }
    return table;
}

Table settingTable(const ProfileParams& params) {
    Table table({"SETTING", "VALUE"});
    for (const Setting& setting : kSettings) {
        if (setting.text(params)) {
            table.row({setting.name, shownSetting(setting, params)});
        }
    }
    return table;
}

Table settingChanges(const ProfileParams& before, const ProfileParams& after) {
    Table table({"SETTING", "BEFORE", "AFTER"});
    for (const Setting& setting : kSettings) {
        if (setting.text(before) != setting.text(after)) {
            table.row({setting.name, shownSetting(setting, before), shownSetting(setting, after)});
        }
    }
    return table;
}

}  // namespace zemctl
