#include "Modem3gppProfile.h"

#include <utility>

#include "DumpText.h"
#include "ProfileConversions.h"
#include "SettingRules.h"

namespace zem {
namespace {

// The modem answers "not set" for a roaming type that follows the common one.
void takeRoamType(uint8_t valid, wds_common_pdp_type_enum_v01 type,
                  std::optional<IPType>& setting) {
    if (valid && type != WDS_COMMON_PDP_TYPE_NOT_SET_V01) setting = convertPdpType(type);
}

}  // namespace

Modem3gppProfile::Modem3gppProfile(const ProfileParams& params)
    : ModemProfile(TechType::TECH_3GPP, params),
      maxPdnsConnPerBlock(params.maxPdnsConnPerBlock),
      maxPdnConnTimer(params.maxPdnConnTimer),
      pdnReqWaitInterval(params.pdnReqWaitInterval),
      isApnDisabled(params.isApnDisabled),
      isEmergencySupported(params.isEmergencySupported) {
    std::optional<IPType> home;
    std::optional<IPType> roam;
    std::optional<IPType> overrideHome;
    getNewIPTypes(params, home, roam, overrideHome);
    commonIPType = home;
    lteRoamIPType = roam;
    umtsRoamIPType = roam;
    overrideHomeIPType = overrideHome;
}

Modem3gppProfile::Modem3gppProfile(int profileId,
                                   const wds_get_profile_settings_resp_msg_v01& response)
    : ModemProfile(TechType::TECH_3GPP, profileId, response) {
    const auto& r = response;
    take(r.profile_name_valid, r.profile_name, profileName);
    take(r.pdp_type_valid, r.pdp_type, commonIPType,
         [](wds_pdp_type_enum_v01 type) { return convertPdpType(type); });
    take(r.override_home_pdp_type_valid, r.override_home_pdp_type, overrideHomeIPType,
         [](wds_common_pdp_type_enum_v01 type) { return convertPdpType(type); });
    takeRoamType(r.lte_roaming_pdp_type_valid, r.lte_roaming_pdp_type, lteRoamIPType);
    takeRoamType(r.umts_roaming_pdp_type_valid, r.umts_roaming_pdp_type, umtsRoamIPType);
    take(r.apn_name_valid, r.apn_name, apnName);
    if (apnName) apnName = convertToLower(std::move(*apnName));
    take(r.apn_class_valid, r.apn_class, apnClass);
    take(r.supports_emergency_calls_valid, r.supports_emergency_calls, isEmergencySupported);
    take(r.authentication_preference_valid, r.authentication_preference, authType,
         [](uint8_t preference) { return convertToAuthType(preference); });
    take(r.max_pdn_conn_per_block_valid, r.max_pdn_conn_per_block, maxPdnsConnPerBlock);
    take(r.max_pdn_conn_timer_valid, r.max_pdn_conn_timer, maxPdnConnTimer);
    take(r.pdn_req_wait_interval_valid, r.pdn_req_wait_interval, pdnReqWaitInterval);
    take(r.apn_disabled_valid, r.apn_disabled, isApnDisabled);
    take(r.username_valid, r.username, userName);
    take(r.password_valid, r.password, password);
}

bool Modem3gppProfile::isIAProfile() const {
    return profileName == std::string_view(kZemIAProfileName);
}

bool Modem3gppProfile::isZemProfile() const {
    return isIAProfile() || profileName == std::string_view(kZemProfileName);
}

bool Modem3gppProfile::hasOverride() const {
    return overrideHomeIPType && *overrideHomeIPType != IPType::UNKNOWN;
}

void Modem3gppProfile::getNewIPTypes(const ProfileParams& params, std::optional<IPType>& home,
                                     std::optional<IPType>& roam,
                                     std::optional<IPType>& overrideHome) const {
    if (params.homeIPType) {
        home = params.homeIPType;
    } else {
        home = hasOverride() ? overrideHomeIPType : commonIPType;
    }
    if (params.roamIPType) {
        roam = params.roamIPType;
    } else if (lteRoamIPType == umtsRoamIPType) {
        roam = lteRoamIPType;
    }
    if (!home || !roam) return;
    if (home != roam) {
        overrideHome = home;
        home = IPType::V4V6;
    } else if (overrideHomeIPType) {
        overrideHome = IPType::UNKNOWN;  // tells the modem to drop it
    }
}

bool Modem3gppProfile::matchOwn(const ProfileQuery& query) const {
    const FilterProfileParams& params = query.params;
    if (query.asksKindOrIP && !matchKindAndIP(params)) return false;
    return agrees(params.maxPdnsConnPerBlock, maxPdnsConnPerBlock) &&
           agrees(params.maxPdnConnTimer, maxPdnConnTimer) &&
           agrees(params.pdnReqWaitInterval, pdnReqWaitInterval) &&
           agrees(params.isApnDisabled, isApnDisabled) &&
           agrees(params.isEmergencySupported, isEmergencySupported);
}

bool Modem3gppProfile::matchKindAndIP(const FilterProfileParams& params) const {
    if (params.hasFilterByIsIAProfile()) {
        if (isIAProfile() != params.getIsIAProfile()) return false;
    } else if (params.hasFilterByIsZemProfile()) {
        if (isZemProfile() != params.getIsZemProfile()) return false;
    }
    const unsigned int criteria = params.getFilterMatchCriteria();
    if (params.homeIPType) {
        const auto& held = hasOverride() ? overrideHomeIPType : commonIPType;
        if (!held || !matchIPType(*held, *params.homeIPType, criteria & MATCH_HOME_IP_SUBSET,
                                  criteria & MATCH_HOME_IP_SUPERSET)) {
            return false;
        }
    }
    if (!params.roamIPType) return true;
    IPType held;
    if (!lteRoamIPType && !umtsRoamIPType && commonIPType) {
        held = *commonIPType;  // one type for all networks
    } else if (lteRoamIPType && *lteRoamIPType == getUmtsRoamIPType()) {
        held = *lteRoamIPType;
    } else {
        return false;
    }
    return matchIPType(held, *params.roamIPType, criteria & MATCH_ROAM_IP_SUBSET,
                       criteria & MATCH_ROAM_IP_SUPERSET);
}

void Modem3gppProfile::apply(const std::shared_ptr<ModemProfile>& other) {
    ModemProfile::apply(other);
    const auto* same = dynamic_cast<const Modem3gppProfile*>(other.get());
    if (!same) return;
    copyPresent(same->overrideHomeIPType, overrideHomeIPType);
    copyPresent(same->lteRoamIPType, lteRoamIPType);
    copyPresent(same->umtsRoamIPType, umtsRoamIPType);
    copyPresent(same->maxPdnsConnPerBlock, maxPdnsConnPerBlock);
    copyPresent(same->maxPdnConnTimer, maxPdnConnTimer);
    copyPresent(same->pdnReqWaitInterval, pdnReqWaitInterval);
    copyPresent(same->isApnDisabled, isApnDisabled);
    copyPresent(same->isEmergencySupported, isEmergencySupported);
}

std::shared_ptr<ModemProfile> Modem3gppProfile::diff(const ModifyProfileParams& params) const {
    ProfileParams delta;
    bool changed = false;
    updateDiffParameters(params, delta, changed);
    takeChange(params.maxPdnsConnPerBlock, maxPdnsConnPerBlock, delta.maxPdnsConnPerBlock, changed);
    takeChange(params.maxPdnConnTimer, maxPdnConnTimer, delta.maxPdnConnTimer, changed);
    takeChange(params.pdnReqWaitInterval, pdnReqWaitInterval, delta.pdnReqWaitInterval, changed);
    takeChange(params.isApnDisabled, isApnDisabled, delta.isApnDisabled, changed);
    takeChange(params.isEmergencySupported, isEmergencySupported, delta.isEmergencySupported,
               changed);

    auto partial = std::make_shared<Modem3gppProfile>(delta);
    std::optional<IPType> home;
    std::optional<IPType> roam;
    std::optional<IPType> overrideHome;
    getNewIPTypes(params, home, roam, overrideHome);
    takeChange(home, commonIPType, partial->commonIPType, changed);
    takeChange(roam, lteRoamIPType, partial->lteRoamIPType, changed);
    takeChange(roam, umtsRoamIPType, partial->umtsRoamIPType, changed);
    takeChange(overrideHome, overrideHomeIPType, partial->overrideHomeIPType, changed);
    if (!changed) return nullptr;
    return partial;
}

ProfileParams Modem3gppProfile::get() const {
    FilterProfileParams params;
    updateGetParameters(params);
    params.setFilterByIsIAProfile(isIAProfile());
    params.setFilterByIsZemProfile(isZemProfile());
    copyPresent(hasOverride() ? overrideHomeIPType : commonIPType, params.homeIPType);
    if (lteRoamIPType == umtsRoamIPType) copyPresent(lteRoamIPType, params.roamIPType);
    copyPresent(maxPdnsConnPerBlock, params.maxPdnsConnPerBlock);
    copyPresent(maxPdnConnTimer, params.maxPdnConnTimer);
    copyPresent(pdnReqWaitInterval, params.pdnReqWaitInterval);
    copyPresent(isApnDisabled, params.isApnDisabled);
    copyPresent(isEmergencySupported, params.isEmergencySupported);
    return std::move(params);  // its settings alone, which are not copied
}

template <class Message>
void Modem3gppProfile::fill(Message& m) const {
    put(profileName, m.profile_name_valid, m.profile_name);
    put(commonIPType, m.pdp_type_valid, m.pdp_type, convertToZapPdpType);
    put(apnName, m.apn_name_valid, m.apn_name);
    put(userName, m.username_valid, m.username);
    put(password, m.password_valid, m.password);
    put(authType, m.authentication_preference_valid, m.authentication_preference,
        convertToZapAuthPref);
    put(isApnDisabled, m.apn_disabled_valid, m.apn_disabled);
    put(apnClass, m.apn_class_valid, m.apn_class);
    put(isEmergencySupported, m.supports_emergency_calls_valid, m.supports_emergency_calls);
    put(maxPdnsConnPerBlock, m.max_pdn_conn_per_block_valid, m.max_pdn_conn_per_block);
    put(maxPdnConnTimer, m.max_pdn_conn_timer_valid, m.max_pdn_conn_timer);
    put(pdnReqWaitInterval, m.pdn_req_wait_interval_valid, m.pdn_req_wait_interval);
    put(lteRoamIPType, m.lte_roaming_pdp_type_valid, m.lte_roaming_pdp_type,
        convertToZapCommonPdpType);
    put(umtsRoamIPType, m.umts_roaming_pdp_type_valid, m.umts_roaming_pdp_type,
        convertToZapCommonPdpType);
    put(overrideHomeIPType, m.override_home_pdp_type_valid, m.override_home_pdp_type,
        convertToZapCommonPdpType);
}

wds_create_profile_req_msg_v01 Modem3gppProfile::constructAddRequest() const {
    wds_create_profile_req_msg_v01 message;
    clear(message);
    updateAddParameters(message);
    message.profile_type = WDS_PROFILE_TYPE_3GPP_V01;
    fill(message);
    return message;
}

wds_modify_profile_settings_req_msg_v01 Modem3gppProfile::constructModifyRequest() const {
    wds_modify_profile_settings_req_msg_v01 message;
    clear(message);
    updateModifyParameters(message);
    fill(message);
    return message;
}

std::string Modem3gppProfile::dump() const {
    std::string text = ModemProfile::dump();
    appendItem(text, "OverrideHomeIPType=", overrideHomeIPType);
    appendItem(text, "LteRoamIP=", lteRoamIPType);
    appendItem(text, "UmtsRoamIP=", umtsRoamIPType);
    appendItem(text, "MaxPdnsConnPerBlock=", maxPdnsConnPerBlock);
    appendItem(text, "MaxPdnConnTimer=", maxPdnConnTimer);
    appendItem(text, "PdnReqWaitInterval=", pdnReqWaitInterval);
    if (isApnDisabled) appendItem(text, "IsApnDisabled=", int{*isApnDisabled});
    if (isEmergencySupported) appendItem(text, "IsEmergencySupported=", int{*isEmergencySupported});
    appendItem(text, "ProfileName=", profileName);
    return text;
}

}  // namespace zem
