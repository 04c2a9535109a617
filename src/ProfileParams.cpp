#include <zem/ProfileParams.h>

#include "DumpText.h"

namespace zem {
namespace {

std::string printed(const std::string& value) {
    return value;
}
std::string printed(int value) {
    return std::to_string(value);
}
std::string printed(bool value) {
    return nameOf(value);
}
template <class Enumeration>
std::string printed(Enumeration value) {
    return nameOf(value);
}

template <class Value>
void appendSetting(std::string& text, const char* label, const std::optional<Value>& setting) {
    if (setting) appendItem(text, label, printed(*setting));
}

}  // namespace

ProfileParams::~ProfileParams() = default;

std::string ProfileParams::dump() const {
    std::string text;
    appendSetting(text, "ApnName=", apnName);
    appendSetting(text, "UserName=", userName);
    appendSetting(text, "Password=", password);
    appendSetting(text, "AuthType=", authType);
    appendSetting(text, "HomeIPType=", homeIPType);
    appendSetting(text, "RoamIPType=", roamIPType);
    if (apnTypesMask)
        appendItem(text, "ApnTypesMask=", maskNames(kApnTypeNames, *apnTypesMask, "NONE"));
    appendSetting(text, "ApnClass=", apnClass);
    appendSetting(text, "IsClatEnabled=", isClatEnabled);
    appendSetting(text, "MaxPdnsConnPerBlock=", maxPdnsConnPerBlock);
    appendSetting(text, "MaxPdnConnTimer=", maxPdnConnTimer);
    appendSetting(text, "PdnReqWaitInterval=", pdnReqWaitInterval);
    appendSetting(text, "IsApnDisabled=", isApnDisabled);
    appendSetting(text, "IsEmergencySupported=", isEmergencySupported);
    appendSetting(text, "IsZemProfile=", isZemProfile);
    appendSetting(text, "IsIAProfile=", isIAProfile);
    return text;
}

AddProfileParams::AddProfileParams(bool isPersistent, TechType techType, bool isIAProfile)
    : AddProfileParams(ProfileParams(), isPersistent, techType, isIAProfile) {}

AddProfileParams::AddProfileParams(const ProfileParams& params, bool isPersistent,
                                   TechType techType, bool isIAProfile)
    : ProfileParams(params), isPersistent(isPersistent), techType(techType) {
    this->isIAProfile = isIAProfile;
}

std::string AddProfileParams::dump() const {
    return nameOf(techType) + " persist=" + nameOf(isPersistent) + ": " + ProfileParams::dump();
}

FilterProfileParams::FilterProfileParams(const ProfileParams& params) : ProfileParams(params) {}

std::string FilterProfileParams::dump() const {
    std::string text = maskNames(kMatchCriteriaNames, filterMatchCriteria, "None") + ": ";
    appendSetting(text, "tech=", filterByTechType);
    appendSetting(text, "id=", filterByProfileId);
    return text + ProfileParams::dump();
}

}  // namespace zem
