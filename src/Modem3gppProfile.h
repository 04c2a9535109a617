// Modem3gppProfile: a 3GPP data profile, the richer of the two kinds. Engine thread only.
#pragma once

#include "ModemProfile.h"

namespace zem {

class Modem3gppProfile : public ModemProfile {
  public:
    // A new profile, with no index yet.
    explicit Modem3gppProfile(const ProfileParams& params);
    // A profile read from the modem.
    Modem3gppProfile(int profileId, const wds_get_profile_settings_resp_msg_v01& response);
    ~Modem3gppProfile() noexcept(false) override = default;

    void apply(const std::shared_ptr<ModemProfile>& other) override;
    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& params) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;
    std::string dump() const override;

    ZEM_ACCESSORS(IPType, OverrideHomeIPType, overrideHomeIPType)
    ZEM_ACCESSORS(IPType, LteRoamIPType, lteRoamIPType)
    ZEM_ACCESSORS(IPType, UmtsRoamIPType, umtsRoamIPType)
    ZEM_ACCESSORS(int, MaxPdnsConnPerBlock, maxPdnsConnPerBlock)
    ZEM_ACCESSORS(int, MaxPdnConnTimer, maxPdnConnTimer)
    ZEM_ACCESSORS(int, PdnReqWaitInterval, pdnReqWaitInterval)
    ZEM_ACCESSORS(bool, IsApnDisabled, isApnDisabled)
    ZEM_ACCESSORS(std::string, ProfileName, profileName)
    ZEM_ACCESSORS(bool, IsEmergencySupported, isEmergencySupported)

    // The modem's common, roaming and override types for the home and roaming types that params ask
    // for, with this profile's own where params ask for none. Where home and roaming differ, the
    // common type is dual stack and the override holds the home type. A result that does not follow
    // is left alone.
    void getNewIPTypes(const ProfileParams& params, std::optional<IPType>& home,
                       std::optional<IPType>& roam, std::optional<IPType>& overrideHome) const;

  private:
    bool matchOwn(const ProfileQuery& query) const override;
    bool matchKindAndIP(const FilterProfileParams& params) const;
    bool isIAProfile() const;
    bool isZemProfile() const;
    bool hasOverride() const;
    template <class Message>
    void fill(Message& message) const;

    std::optional<IPType> overrideHomeIPType;
    std::optional<IPType> lteRoamIPType;
    std::optional<IPType> umtsRoamIPType;
    std::optional<int> maxPdnsConnPerBlock;
    std::optional<int> maxPdnConnTimer;
    std::optional<int> pdnReqWaitInterval;
    std::optional<bool> isApnDisabled;
    std::optional<std::string> profileName;
    std::optional<bool> isEmergencySupported;
};

}  // namespace zem
