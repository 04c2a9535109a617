#include "ModemProfile.h"

#include <cstdlib>

#include "DumpText.h"
#include "LogWrapper.h"
#include "ProfileConversions.h"
#include "SettingRules.h"

namespace zem {
namespace {

// Masks in the modem's layout.
bool matchMask(uint64_t held, uint64_t asked, bool subset) {
    return (subset ? held & asked : held) == asked;
}

}  // namespace

bool expired(const ExpirationListener& listener) {
    return listener.second.expired();
}

ModemProfile::ModemProfile(TechType techType, const ProfileParams& params)
    : userName(params.userName),
      password(params.password),
      authType(params.authType),
      apnClass(params.apnClass),
      isClatEnabled(params.isClatEnabled),
      techType(techType) {
    if (params.apnName) apnName = convertToApnName(*params.apnName);
    if (params.apnTypesMask) apnTypesMask = convertToZapApnTypeMask(*params.apnTypesMask);
}

ModemProfile::ModemProfile(TechType techType, int profileId,
                           const wds_get_profile_settings_resp_msg_v01& response)
    : techType(techType), profileId(profileId) {
    take(response.apn_type_mask_valid, response.apn_type_mask, apnTypesMask);
    take(response.clat_enabled_valid, response.clat_enabled, isClatEnabled);
    isPersistent = response.persistent_valid && response.persistent;
}

ModemProfile::~ModemProfile() noexcept(false) {
    ZEM_LOG(LOG_DEBUG, "~ModemProfile()");
    for (const auto& listener : listeners) {
        if (expired(listener)) continue;
        ZEM_LOG(LOG_DEBUG, "invoke callback");
        listener.first();
    }
}

ProfileQuery::ProfileQuery(const FilterProfileParams& params) : params(params) {
    if (params.hasApnName()) apnName = convertToApnName(params.getApnName());
    if (params.hasApnTypesMask()) apnTypesMask = convertToZapApnTypeMask(params.getApnTypesMask());
    asksCommon = params.hasUserName() || params.hasPassword() || params.hasAuthType() ||
                 params.hasApnTypesMask() || params.hasApnClass() || params.hasIsClatEnabled();
    asksKindOrIP = params.hasFilterByIsIAProfile() || params.hasFilterByIsZemProfile() ||
                   params.hasHomeIPType() || params.hasRoamIPType();
    asks3gpp = params.hasFilterByIsIAProfile() || params.hasFilterByIsZemProfile() ||
               params.hasRoamIPType() || params.hasMaxPdnsConnPerBlock() ||
               params.hasMaxPdnConnTimer() || params.hasPdnReqWaitInterval() ||
               params.hasIsApnDisabled() || params.hasIsEmergencySupported();
}

bool ModemProfile::matchApnName(const ProfileQuery& query) const {
    if (!apnName) return false;
    const bool subset = query.params.filterMatchCriteria & MATCH_APN_NAME_SUBSET;
    if (subset && apnName->size() > query.apnName->size()) {
        return apnName->find(*query.apnName) != std::string::npos;
    }
    return *apnName == *query.apnName;
}

bool ModemProfile::matchCommon(const ProfileQuery& query) const {
    const FilterProfileParams& params = query.params;
    if (!agrees(params.userName, userName)) return false;
    if (!agrees(params.password, password)) return false;
    if (!agrees(params.authType, authType)) return false;
    if (query.apnTypesMask) {
        const bool subset = params.filterMatchCriteria & MATCH_APN_TYPES_SUBSET;
        if (!apnTypesMask || !matchMask(*apnTypesMask, *query.apnTypesMask, subset)) return false;
    }
    return agrees(params.apnClass, apnClass) && agrees(params.isClatEnabled, isClatEnabled);
}

bool ModemProfile::matchIPType(IPType held, IPType asked, bool subset, bool superset) {
    const auto profileSet = static_cast<uint32_t>(held);
    const auto filterSet = static_cast<uint32_t>(asked);
    return (subset && (filterSet & profileSet) == filterSet) ||
           (superset && (profileSet & ~filterSet) == 0) || held == asked;
}

bool ModemProfile::matchSubsetApnTypesMask(unsigned int apnTypes) const {
    return matchMask(getApnTypesMask(), convertToZapApnTypeMask(apnTypes), true);
}

bool ModemProfile::matchExactApnTypesMask(unsigned int apnTypes) const {
    return matchMask(getApnTypesMask(), convertToZapApnTypeMask(apnTypes), false);
}

void ModemProfile::apply(const std::shared_ptr<ModemProfile>& other) {
    if (!other) return;
    if (other->apnName) apnName = convertToApnName(*other->apnName);
    copyPresent(other->userName, userName);
    copyPresent(other->password, password);
    copyPresent(other->authType, authType);
    copyPresent(other->commonIPType, commonIPType);
    copyPresent(other->apnTypesMask, apnTypesMask);
    copyPresent(other->apnClass, apnClass);
    copyPresent(other->isClatEnabled, isClatEnabled);
}

void ModemProfile::updateDiffParameters(const ModifyProfileParams& params, ProfileParams& delta,
                                        bool& changed) const {
    if (params.apnName && convertToApnName(*params.apnName) != apnName) {
        delta.apnName = convertToLower(*params.apnName);
        changed = true;
    }
    takeChange(params.userName, userName, delta.userName, changed);
    takeChange(params.password, password, delta.password, changed);
    takeChange(params.authType, authType, delta.authType, changed);
    // Compared in the callers' layout, which does not have all of the modem's bits.
    std::optional<unsigned int> held;
    if (apnTypesMask) held = convertToCommonApnTypeMask(*apnTypesMask);
    takeChange(params.apnTypesMask, held, delta.apnTypesMask, changed);
    takeChange(params.apnClass, apnClass, delta.apnClass, changed);
    takeChange(params.isClatEnabled, isClatEnabled, delta.isClatEnabled, changed);
}

void ModemProfile::updateGetParameters(FilterProfileParams& out) const {
    copyPresent(apnName, out.apnName);
    copyPresent(userName, out.userName);
    copyPresent(password, out.password);
    copyPresent(authType, out.authType);
    if (apnTypesMask) out.setApnTypesMask(convertToCommonApnTypeMask(*apnTypesMask));
    copyPresent(apnClass, out.apnClass);
    copyPresent(isClatEnabled, out.isClatEnabled);
}

template <class Message>
void ModemProfile::fillCommon(Message& message) const {
    put(apnTypesMask, message.apn_type_mask_valid, message.apn_type_mask);
    put(isClatEnabled, message.clat_enabled_valid, message.clat_enabled);
}

void ModemProfile::updateAddParameters(wds_create_profile_req_msg_v01& message) const {
    fillCommon(message);
    message.persistent_valid = 1;
    message.persistent = isPersistent;
}

void ModemProfile::updateModifyParameters(wds_modify_profile_settings_req_msg_v01& message) const {
    convertToProfileIdentifier(techType, profileId, message.profile);
    fillCommon(message);
}

uint64_t ModemProfile::constructProfileIdentifier() const {
    return convertToProfileIdentifier(techType, profileId);
}

void ModemProfile::registerExpirationListener(std::function<void()> callback,
                                              std::weak_ptr<IProfileKey> key) {
    listeners.emplace_back(std::move(callback), std::move(key));
}

void ModemProfile::clearExpiredListeners() {
    listeners.remove_if(expired);
}

void ModemProfile::addToRefCount(int change) {
    if (__builtin_add_overflow(refCount, change, &refCount)) {
        ZEM_LOG(LOG_ERROR, "ModemProfile: reference count overflow");
        abort();
    }
}

std::string ModemProfile::dump() const {
    std::string text;
    text.reserve(2 * kUsualLine);
    appendItem(text, "TechType=", techType);
    appendItem(text, "ProfileId=", profileId);
    appendItem(text, "ApnName=", apnName);
    appendItem(text, "UserName=", userName);
    appendItem(text, "Password=", password);
    appendItem(text, "AuthType=", authType);
    appendItem(text, "CommonIPType=", commonIPType);
    appendItem(text, "ApnTypesMask=", apnTypesMask);
    appendItem(text, "ApnClass=", apnClass);
    if (isClatEnabled) appendItem(text, "IsClatEnabled=", int{*isClatEnabled});
    return text;
}

}  // namespace zem
