// ProfileBuilders: parameters and profiles made in one line, with<ProfileParams>(apn("ims"),
// home(V4)).
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "ModemProfile.h"
#include "ProfileKey.h"

namespace zem {

inline constexpr auto UNKNOWN = IPType::UNKNOWN, V4 = IPType::V4, V6 = IPType::V6,
                      V4V6 = IPType::V4V6;

// A setting calls one setter of whatever record it is given.
#define ZEM_SETTING(name, setter)                                                  \
    inline constexpr auto name = [](auto value) {                                  \
        return [value = std::move(value)](auto& record) { record.setter(value); }; \
    }
ZEM_SETTING(apn, setApnName);
ZEM_SETTING(user, setUserName);
ZEM_SETTING(password, setPassword);
ZEM_SETTING(auth, setAuthType);
ZEM_SETTING(apnTypes, setApnTypesMask);
ZEM_SETTING(apnClass, setApnClass);
ZEM_SETTING(clat, setIsClatEnabled);
ZEM_SETTING(maxPdns, setMaxPdnsConnPerBlock);
ZEM_SETTING(maxTimer, setMaxPdnConnTimer);
ZEM_SETTING(interval, setPdnReqWaitInterval);
ZEM_SETTING(disabled, setIsApnDisabled);
ZEM_SETTING(emergency, setIsEmergencySupported);
// Of parameters alone.
ZEM_SETTING(home, setHomeIPType);
ZEM_SETTING(roam, setRoamIPType);
ZEM_SETTING(criteria, addFilterMatchCriteria);
ZEM_SETTING(techIs, setFilterByTechType);
ZEM_SETTING(idIs, setFilterByProfileId);
ZEM_SETTING(isZem, setFilterByIsZemProfile);
ZEM_SETTING(isIA, setFilterByIsIAProfile);
// Of profiles alone.
ZEM_SETTING(common, setCommonIPType);
ZEM_SETTING(overrideHome, setOverrideHomeIPType);
ZEM_SETTING(lteRoam, setLteRoamIPType);
ZEM_SETTING(umtsRoam, setUmtsRoamIPType);
ZEM_SETTING(profileName, setProfileName);
ZEM_SETTING(profileId, setProfileId);
ZEM_SETTING(persistent, setIsPersistent);

template <class Record, class... Settings>
Record with(const Settings&... settings) {
    Record record;
    (settings(record), ...);
    return record;
}

template <class Profile, class... Settings>
std::shared_ptr<Profile> profileWith(const Settings&... settings) {
    auto profile = std::make_shared<Profile>(ProfileParams());
    (settings(*profile), ...);
    return profile;
}

inline ProfileParams everySetting() {
    return with<ProfileParams>(apn("Internet"), user("Me"), password("Secret"),
                               auth(AuthType::PAP_CHAP), home(V6), roam(V4), apnTypes(0x840),
                               apnClass(ApnClass::INET), clat(true), maxPdns(1), maxTimer(2),
                               interval(-3), disabled(false), emergency(true));
}

// A key whose release nobody hears of.
inline std::shared_ptr<IProfileKey> quietKey() {
    return std::make_shared<ProfileKey>(TechType::TECH_3GPP, 2, 7,
                                        [](const auto&) { return nullptr; });
}

}  // namespace zem
