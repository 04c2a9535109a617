#include "Modem3gpp2Profile.h"

#include <utility>

#include "ProfileConversions.h"
#include "SettingRules.h"

namespace zem {

Modem3gpp2Profile::Modem3gpp2Profile(const ProfileParams& params)
    : ModemProfile(TechType::TECH_3GPP2, params) {
    commonIPType = params.homeIPType;
}

Modem3gpp2Profile::Modem3gpp2Profile(int profileId,
                                     const wds_get_profile_settings_resp_msg_v01& response)
    : ModemProfile(TechType::TECH_3GPP2, profileId, response) {
    const auto& r = response;
    take(r.pdn_type_3gpp2_valid, r.pdn_type_3gpp2, commonIPType, convertPdnType);
    take(r.apn_string_3gpp2_valid, r.apn_string_3gpp2, apnName);
    if (apnName) apnName = convertToLower(std::move(*apnName));
    take(r.apn_class_3gpp2_valid, r.apn_class_3gpp2, apnClass);
    take(r.auth_protocol_3gpp2_valid, r.auth_protocol_3gpp2, authType,
         [](wds_profile_auth_protocol_enum_v01 protocol) { return convertToAuthType(protocol); });
    take(r.user_id_3gpp2_valid, r.user_id_3gpp2, userName);
}

bool Modem3gpp2Profile::matchOwn(const ProfileQuery& query) const {
    if (query.asks3gpp) return false;
    const FilterProfileParams& params = query.params;
    const unsigned int criteria = params.getFilterMatchCriteria();
    return !params.homeIPType ||
           matchIPType(getCommonIPType(), *params.homeIPType, criteria & MATCH_HOME_IP_SUBSET,
                       criteria & MATCH_HOME_IP_SUPERSET);
}

std::shared_ptr<ModemProfile> Modem3gpp2Profile::diff(const ModifyProfileParams& params) const {
    ProfileParams delta;
    bool changed = false;
    updateDiffParameters(params, delta, changed);
    takeChange(params.homeIPType, commonIPType, delta.homeIPType, changed);
    auto partial = std::make_shared<Modem3gpp2Profile>(delta);
    if (!changed) return nullptr;
    return partial;
}

ProfileParams Modem3gpp2Profile::get() const {
    FilterProfileParams params;
    updateGetParameters(params);
    copyPresent(commonIPType, params.homeIPType);
    return std::move(params);  // its settings alone, which are not copied
}

// The profile's own credentials and those of its PDN level are one and the same here.
template <class Message>
void Modem3gpp2Profile::fill(Message& m) const {
    put(authType, m.auth_protocol_3gpp2_valid, m.auth_protocol_3gpp2, convertToZapAuthProtocol);
    put(authType, m.pdn_level_auth_protocol_3gpp2_valid, m.pdn_level_auth_protocol_3gpp2,
        convertToZapPdnLevelAuthProtocol);
    put(userName, m.user_id_3gpp2_valid, m.user_id_3gpp2);
    put(userName, m.pdn_level_user_id_3gpp2_valid, m.pdn_level_user_id_3gpp2);
    put(password, m.password_3gpp2_valid, m.password_3gpp2);
    put(password, m.pdn_level_password_3gpp2_valid, m.pdn_level_password_3gpp2);
    put(apnName, m.apn_string_3gpp2_valid, m.apn_string_3gpp2);
    put(commonIPType, m.pdn_type_3gpp2_valid, m.pdn_type_3gpp2, convertToZapProfilePdnType);
    put(apnClass, m.apn_class_3gpp2_valid, m.apn_class_3gpp2);
}

wds_create_profile_req_msg_v01 Modem3gpp2Profile::constructAddRequest() const {
    wds_create_profile_req_msg_v01 message;
    clear(message);
    updateAddParameters(message);
    message.profile_type = WDS_PROFILE_TYPE_3GPP2_V01;
    fill(message);
    return message;
}

wds_modify_profile_settings_req_msg_v01 Modem3gpp2Profile::constructModifyRequest() const {
    wds_modify_profile_settings_req_msg_v01 message;
    clear(message);
    updateModifyParameters(message);
    fill(message);
    return message;
}

}  // namespace zem
