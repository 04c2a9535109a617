// Modem3gpp2Profile: a 3GPP2 data profile. Engine thread only.
#pragma once

#include "ModemProfile.h"

namespace zem {

class Modem3gpp2Profile : public ModemProfile {
  public:
    // A new profile, with no index yet.
    explicit Modem3gpp2Profile(const ProfileParams& params);
    // A profile read from the modem, which does not give its password away.
    Modem3gpp2Profile(int profileId, const wds_get_profile_settings_resp_msg_v01& response);
    ~Modem3gpp2Profile() noexcept(false) override = default;

    std::shared_ptr<ModemProfile> diff(const ModifyProfileParams& params) const override;
    ProfileParams get() const override;
    wds_create_profile_req_msg_v01 constructAddRequest() const override;
    wds_modify_profile_settings_req_msg_v01 constructModifyRequest() const override;

  private:
    bool matchOwn(const ProfileQuery& query) const override;
    template <class Message>
    void fill(Message& message) const;
};

}  // namespace zem
