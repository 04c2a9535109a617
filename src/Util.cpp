#include <zem/Util.h>

#include <zem/Manager.h>

#include <optional>
#include <unordered_set>

#include "LogWrapper.h"
#include "ProfileConversions.h"

namespace zem {
namespace {

constexpr unsigned int kLooseHomeIP = MATCH_HOME_IP_SUBSET | MATCH_HOME_IP_SUPERSET;
constexpr unsigned int kLooseRoamIP = MATCH_ROAM_IP_SUBSET | MATCH_ROAM_IP_SUPERSET;

std::string dumpOf(const std::shared_ptr<IProfileKey>& key) {
    return key ? key->dump() : "";
}

// Each takes over a setting that is present.
void copyApnName(const ProfileParams& from, ProfileParams& to) {
    if (from.hasApnName()) to.setApnName(from.getApnName());
}

void copyHomeIPType(const ProfileParams& from, ProfileParams& to) {
    if (from.hasHomeIPType()) to.setHomeIPType(from.getHomeIPType());
}

void copyRoamIPType(const ProfileParams& from, ProfileParams& to) {
    if (from.hasRoamIPType()) to.setRoamIPType(from.getRoamIPType());
}

void copyIPTypes(const ProfileParams& from, ProfileParams& to) {
    copyHomeIPType(from, to);
    copyRoamIPType(from, to);
}

void copyCredentials(const ProfileParams& from, ProfileParams& to) {
    if (from.hasUserName()) to.setUserName(from.getUserName());
    if (from.hasPassword()) to.setPassword(from.getPassword());
    if (from.hasAuthType()) to.setAuthType(from.getAuthType());
}

FilterProfileParams filterByTech(TechType techType) {
    FilterProfileParams filter;
    filter.setFilterByTechType(techType);
    return filter;
}

// A profile that the library made for another purpose than the attach.
bool isZemButNotIA(const ProfileParams& profile) {
    return profile.getIsZemProfile() && !profile.getIsIAProfile();
}

ModifyProfileParams apnTypes(unsigned int mask) {
    ModifyProfileParams change;
    change.setApnTypesMask(mask);
    return change;
}

}  // namespace

Util::Util() : manager(&Manager::getInstance()) {
    ZEM_LOG(LOG_DEBUG, "zem::Util: constructor");
}

Util::~Util() {
    ZEM_LOG(LOG_DEBUG, "zem::Util: destructor");
}

void Util::setProfileUpdateAllowed(bool allowed) {
    ZEM_LOG(LOG_API, "zem::Util: profileUpdateAllowed %s", allowed ? "true" : "false");
    profileUpdateAllowed = allowed;
}

// The first key of the answer; the others are let go at once.
std::shared_ptr<IProfileKey> Util::findFirst(const FilterProfileParams& filter) {
    const auto keys = manager->filter(filter);
    return keys.empty() ? nullptr : keys.front();
}

std::shared_ptr<IProfileKey> Util::findOrCreateProfileForSetupDataCall(
    TechType techType, const ProfileParams& params) {
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForSetupDataCall > %s", params.dump().c_str());
    FilterProfileParams filter = filterByTech(techType);
    copyApnName(params, filter);
    if (techType == TechType::TECH_3GPP2 && params.hasUserName()) {
        filter.setUserName(params.getUserName());
    }
    if (!profileUpdateAllowed) copyHomeIPType(params, filter);
    auto key = findFirst(filter);
    if (!key && !profileUpdateAllowed) {
        filter.addFilterMatchCriteria(kLooseHomeIP);
        key = findFirst(filter);
    }
    if (key) {
        ZEM_LOG(LOG_API, "found existing setupDataCall profile");
        if (profileUpdateAllowed) {
            ZEM_LOG(LOG_API, "Modifying profile with input parameters");
            manager->modifyProfile(ModifyProfileParams(params), key);
        }
    } else {
        key = manager->addProfile(AddProfileParams(params, false, techType, false));
        ZEM_LOG(LOG_API, "setupDataCall profile added");
    }
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForSetupDataCall < %s", dumpOf(key).c_str());
    return key;
}

std::shared_ptr<IProfileKey> Util::findOrCreateProfileForEmergencyDataCall(
    const ProfileParams& params) {
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForEmergencyDataCall > %s", params.dump().c_str());
    FilterProfileParams capable = filterByTech(TechType::TECH_3GPP);
    capable.setIsEmergencySupported(true);
    std::shared_ptr<IProfileKey> key;
    if (params.hasApnName()) {
        FilterProfileParams byName = capable;
        copyApnName(params, byName);
        key = findFirst(byName);
        if (key) ZEM_LOG(LOG_API, "found an emergency profile by name");
    }
    if (!key) {
        key = findFirst(capable);
        if (key) ZEM_LOG(LOG_API, "found a profile that supports emergency calls");
    }
    if (!key) {
        AddProfileParams profile(params, true, TechType::TECH_3GPP, false);
        profile.setIsEmergencySupported(true);
        profile.setApnTypesMask(APN_TYPE_EMERGENCY);
        key = manager->addProfile(profile);
        ZEM_LOG(LOG_API, "emergency profile created");
    }
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForEmergencyDataCall < %s", dumpOf(key).c_str());
    return key;
}

std::shared_ptr<IProfileKey> Util::findOrCreateProfileForLteAttach(const ProfileParams& params) {
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForLteAttach > %s", params.dump().c_str());
    ModifyProfileParams update;
    copyCredentials(params, update);
    if (params.hasApnTypesMask()) update.setApnTypesMask(params.getApnTypesMask());
    if (params.hasMaxPdnsConnPerBlock()) {
        update.setMaxPdnsConnPerBlock(params.getMaxPdnsConnPerBlock());
    }
    if (params.hasMaxPdnConnTimer()) update.setMaxPdnConnTimer(params.getMaxPdnConnTimer());
    if (params.hasPdnReqWaitInterval())
        update.setPdnReqWaitInterval(params.getPdnReqWaitInterval());

    auto key = findForLteAttach(params, update);
    if (key) {
        manager->modifyProfile(update, key);
        ZEM_LOG(LOG_API, "zem Modifying profile identified for IA");
    } else {
        key = manager->addProfile(AddProfileParams(params, true, TechType::TECH_3GPP, true));
        ZEM_LOG(LOG_API, "zem ZEM IA profile created for attach");
    }
    ZEM_LOG(LOG_API, "zem findOrCreateProfileForLteAttach < %s", dumpOf(key).c_str());
    return key;
}

// The key of the profile to use, or null; what it must be changed to grows on the way.
std::shared_ptr<IProfileKey> Util::findForLteAttach(const ProfileParams& params,
                                                    ProfileParams& update) {
    FilterProfileParams exact = filterByTech(TechType::TECH_3GPP);
    copyApnName(params, exact);
    if (!params.hasApnName()) ZEM_LOG(LOG_API, "zem NULL apn scenario");
    copyIPTypes(params, exact);
    if (auto key = findFirst(exact)) {
        const auto profile = manager->getProfile(key);
        if (profile && !isZemButNotIA(*profile)) {
            ZEM_LOG(LOG_API, "zem Found an exact match modem or ZEM IA profile for attach");
            return key;
        }
    }

    FilterProfileParams loose = filterByTech(TechType::TECH_3GPP);
    copyApnName(params, loose);
    if (profileUpdateAllowed) {
        copyIPTypes(params, update);
    } else {
        loose.setFilterByIsZemProfile(false);
        copyIPTypes(params, loose);
        if (params.hasHomeIPType()) loose.addFilterMatchCriteria(kLooseHomeIP);
        if (params.hasRoamIPType()) loose.addFilterMatchCriteria(kLooseRoamIP);
    }
    if (auto key = findFirst(loose)) {
        ZEM_LOG(LOG_API, "zem Found a loose match profile for attach");
        const auto profile = manager->getProfile(key);
        if (profile && isZemButNotIA(*profile)) {
            ZEM_LOG(LOG_API, "It is not a ZEM_IA profile. so skipping it.");
        } else if (profile) {
            ZEM_LOG(LOG_API, "It is ZEM_IA profile or modem profile.");
            return key;
        }
    }

    copyIPTypes(params, update);
    FilterProfileParams own = filterByTech(TechType::TECH_3GPP);
    own.setFilterByIsZemProfile(true);
    own.setFilterByIsIAProfile(true);
    FilterProfileParams ownByName = own;
    copyApnName(params, ownByName);
    if (auto key = findFirst(ownByName)) {
        ZEM_LOG(LOG_API, "zem Found a ZEM IA profile that matches APN name for attach");
        return key;
    }
    auto key = findFirst(own);
    if (key) {
        copyApnName(params, update);
        ZEM_LOG(LOG_API, "zem Found any ZEM IA profile for attach");
    }
    return key;
}

bool Util::matchLteAttachProfileId(int profileId, const ProfileParams& params) {
    const std::string input =
        "Profile id = " + std::to_string(profileId) + " Input Params = " + params.dump();
    ZEM_LOG(LOG_API, "zem matchLteAttachProfileId > %s", input.c_str());
    FilterProfileParams byId = filterByTech(TechType::TECH_3GPP);
    byId.setFilterByProfileId(profileId);
    const auto key = findFirst(byId);
    const auto profile = key ? manager->getProfile(key) : std::nullopt;
    if (profile) {
        if (isZemButNotIA(*profile)) {
            ZEM_LOG(LOG_ERROR,
                    "Profile id %d is a ZEM profile which is not an IA profile, cannot be used for "
                    "attach",
                    profileId);
            return false;
        }
        FilterProfileParams fits;
        copyApnName(params, fits);
        copyIPTypes(params, fits);
        copyCredentials(params, fits);
        if (!profileUpdateAllowed && !profile->getIsZemProfile()) {
            fits.addFilterMatchCriteria(kLooseHomeIP | kLooseRoamIP);
        }
        if (manager->match(fits, key)) {
            ZEM_LOG(LOG_API, "zem matchLteAttachList < %d", profileId);
            return true;
        }
    }
    ZEM_LOG(LOG_API, "zem matchLteAttachProfileId < did not match input params");
    return false;
}

void Util::updateModemProfileByApnClass(const std::list<ProfileParams>& params3gpp,
                                        const std::list<ProfileParams>& params3gpp2) {
    ZEM_LOG(LOG_API, "zem updateModemProfileByApnClass > ");
    ZEM_LOG(LOG_API, "  3gpp:");
    for (const auto& params : params3gpp) ZEM_LOG(LOG_API, "    %s", params.dump().c_str());
    ZEM_LOG(LOG_API, "  3gpp2:");
    for (const auto& params : params3gpp2) ZEM_LOG(LOG_API, "    %s", params.dump().c_str());
    for (const auto& params : params3gpp) {
        ZEM_LOG(LOG_DEBUG, "zem update 3gpp modem profile by APN class for %s",
                params.dump().c_str());
        updateModemProfileByApnClassAndTechType(params, TechType::TECH_3GPP);
    }
    for (const auto& params : params3gpp2) {
        ZEM_LOG(LOG_DEBUG, "zem update 3gpp2 modem profile by APN class for %s",
                params.dump().c_str());
        updateModemProfileByApnClassAndTechType(params, TechType::TECH_3GPP2);
    }
    ZEM_LOG(LOG_API, "zem updateModemProfileByApnClass < OK");
}

void Util::updateModemProfileByApnClassAndTechType(const ProfileParams& params, TechType techType) {
    if (!params.hasApnClass()) {
        ZEM_LOG(LOG_DEBUG, "zem either tech type or apn class is missing");
        return;
    }
    FilterProfileParams filter = filterByTech(techType);
    filter.setApnClass(params.getApnClass());
    const auto keys = manager->filter(filter);
    if (keys.empty()) {
        ZEM_LOG(LOG_DEBUG,
                "Did not find a match for APN class and tech type, create a persistent profile");
        manager->addProfile(AddProfileParams(params, true, techType, false));
        return;
    }
    ZEM_LOG(LOG_DEBUG, "Found a match for APN class and tech type, modify the profile");
    for (const auto& key : keys) {
        if (!manager->modifyProfile(ModifyProfileParams(params), key)) {
            ZEM_LOG(LOG_ERROR, "Error while modifying profile by APN class");
        }
    }
}

void Util::updateAPNTypeBitmaskOnModemProfile(const std::list<ProfileParams>& params) {
    ZEM_LOG(LOG_API, "zem updateAPNTypeBitmaskOnModemProfile > ");
    for (const auto& entry : params) ZEM_LOG(LOG_API, "    %s", entry.dump().c_str());
    std::list<ProfileParams> entries = params;
    std::unordered_set<std::string> names;
    for (auto& entry : entries) {
        ZEM_LOG(LOG_API, "zem update APN type bitmask on modem profile for %s",
                entry.dump().c_str());
        if (entry.hasApnName()) {
            entry.setApnName(convertToLower(entry.getApnName()));
            names.insert(entry.getApnName());
        }
        if (!entry.hasApnTypesMask()) {
            entry.setApnTypesMask(0);
            ZEM_LOG(LOG_ERROR, "zem APN type mask not present, setting to 0");
        }
        if (!entry.hasHomeIPType()) {
            entry.setHomeIPType(IPType::V4V6);
            ZEM_LOG(LOG_ERROR, "zem Home IP type not present, setting to v4v6");
        }
    }
    for (const auto& name : names) {
        unsigned int v4Mask = 0;
        unsigned int v6Mask = 0;
        unsigned int v4v6Mask = 0;
        for (const auto& entry : entries) {
            // An entry without a name takes part in none, not in that of an empty one.
            if (!entry.hasApnName() || entry.getApnName() != name) continue;
            switch (entry.getHomeIPType()) {
                case IPType::V4:
                    v4Mask |= entry.getApnTypesMask();
                    break;
                case IPType::V6:
                    v6Mask |= entry.getApnTypesMask();
                    break;
                default:
                    v4v6Mask |= entry.getApnTypesMask();
                    break;
            }
        }
        ZEM_LOG(LOG_DEBUG, "zem processing APN name %s, V4 mask:0x%x, v6 mask0x%x:, v4v6 mask:0x%x",
                name.c_str(), v4Mask, v6Mask, v4v6Mask);
        if (profileUpdateAllowed) {
            handleCombinedProfileUpdate(v4Mask | v6Mask | v4v6Mask, name);
        } else {
            handleProfileUpdateByTechType(TechType::TECH_3GPP, v4Mask, v6Mask, v4v6Mask, name);
            handleProfileUpdateByTechType(TechType::TECH_3GPP2, v4Mask, v6Mask, v4v6Mask, name);
        }
    }
    ZEM_LOG(LOG_API, "zem updateAPNTypeBitmaskOnModemProfile < OK");
}

void Util::handleCombinedProfileUpdate(unsigned int mask, const std::string& apnName) {
    FilterProfileParams filter;
    filter.setApnName(apnName);
    for (const auto& key : manager->filter(filter)) {
        ZEM_LOG(LOG_DEBUG, "zem updating profile id:%d, tech type:%d, with combined mask0x%x:",
                key->getProfileId(), static_cast<int>(key->getTechType()), mask);
        manager->modifyProfile(apnTypes(mask), key);
    }
}

void Util::handleProfileUpdateByTechType(TechType techType, unsigned int v4Mask,
                                         unsigned int v6Mask, unsigned int v4v6Mask,
                                         const std::string& apnName) {
    const bool v4Placed = v4Mask == 0 || updateByIpType(techType, IPType::V4, v4Mask, apnName);
    const unsigned int base = v4v6Mask | (v4Placed ? 0 : v4Mask);
    const bool v6Placed = v6Mask == 0 || updateByIpType(techType, IPType::V6, v6Mask, apnName);
    if (v6Placed && base == 0) return;
    const unsigned int target = base | (v6Placed ? 0 : v6Mask);
    if (updateByIpType(techType, IPType::V4V6, target, apnName)) return;
    // No dual-stack profile: both single-stack ones take what it would have taken.
    updateByIpType(techType, IPType::V4, target | v4Mask, apnName);
    updateByIpType(techType, IPType::V6, base | v6Mask, apnName);
}

bool Util::updateByIpType(TechType techType, IPType ipType, unsigned int mask,
                          const std::string& apnName) {
    FilterProfileParams filter = filterByTech(techType);
    filter.setApnName(apnName);
    filter.setHomeIPType(ipType);
    const auto keys = manager->filter(filter);
    if (keys.empty()) {
        ZEM_LOG(LOG_DEBUG, "zem no match found for apn name:%s, ip type:%d, tech type:%d",
                apnName.c_str(), static_cast<int>(ipType), static_cast<int>(techType));
        return false;
    }
    for (const auto& key : keys) {
        ZEM_LOG(LOG_DEBUG,
                "zem updating profile id:%d, tech type:%d, with mask0x%x:", key->getProfileId(),
                static_cast<int>(key->getTechType()), mask);
        manager->modifyProfile(apnTypes(mask), key);
    }
    return true;
}

}  // namespace zem
