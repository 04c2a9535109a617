#include <zem/ProfileParams.h>

#include "DumpText.h"

namespace zem {

ProfileParams::~ProfileParams() = default;

std::string ProfileParams::dump() const {
    std::string text;
    appendDump(text, *this);
    return text;
}

void appendDump(std::string& text, const ProfileParams& params) {
    appendItem(text, "ApnName=", params.apnName);
    appendItem(text, "UserName=", params.userName);
    appendItem(text, "Password=", params.password);
    appendItem(text, "AuthType=", params.authType);
    appendItem(text, "HomeIPType=", params.homeIPType);
    appendItem(text, "RoamIPType=", params.roamIPType);
    if (params.apnTypesMask) {
        text += "ApnTypesMask=";
        appendMask(text, kApnTypeNames, *params.apnTypesMask, "NONE");
        text += ',';
    }
    appendItem(text, "ApnClass=", params.apnClass);
    appendItem(text, "IsClatEnabled=", params.isClatEnabled);
    appendItem(text, "MaxPdnsConnPerBlock=", params.maxPdnsConnPerBlock);
    appendItem(text, "MaxPdnConnTimer=", params.maxPdnConnTimer);
    appendItem(text, "PdnReqWaitInterval=", params.pdnReqWaitInterval);
    appendItem(text, "IsApnDisabled=", params.isApnDisabled);
    appendItem(text, "IsEmergencySupported=", params.isEmergencySupported);
    appendItem(text, "IsZemProfile=", params.isZemProfile);
    appendItem(text, "IsIAProfile=", params.isIAProfile);
}

AddProfileParams::AddProfileParams(bool isPersistent, TechType techType, bool isIAProfile)
    : AddProfileParams(ProfileParams(), isPersistent, techType, isIAProfile) {}

AddProfileParams::AddProfileParams(const ProfileParams& params, bool isPersistent,
                                   TechType techType, bool isIAProfile)
    : ProfileParams(params), isPersistent(isPersistent), techType(techType) {
    this->isIAProfile = isIAProfile;
}

std::string AddProfileParams::dump() const {
    std::string text;
    appendDump(text, *this);
    return text;
}

void appendDump(std::string& text, const AddProfileParams& params) {
    append(text, params.getTechType());
    text += " persist=";
    append(text, params.getIsPersistent());
    text += ": ";
    appendDump(text, static_cast<const ProfileParams&>(params));
}

FilterProfileParams::FilterProfileParams(const ProfileParams& params) : ProfileParams(params) {}

std::string FilterProfileParams::dump() const {
    std::string text;
    appendDump(text, *this);
    return text;
}

void appendDump(std::string& text, const FilterProfileParams& params) {
    appendMask(text, kMatchCriteriaNames, params.getFilterMatchCriteria(), "None");
    text += ": ";
    if (params.hasFilterByTechType()) appendItem(text, "tech=", params.getFilterByTechType());
    if (params.hasFilterByProfileId()) appendItem(text, "id=", params.getFilterByProfileId());
    appendDump(text, static_cast<const ProfileParams&>(params));
}

}  // namespace zem
