// ProfileChangedInd: one change of a modem profile, as the modem reports it.
#pragma once

#include <cstdint>
#include <string>

#include <zem/ProfileParams.h>

namespace zem {

enum class ProfileChangedEvent : uint32_t {
    Create = 0,
    Delete = 1,
    Modify = 2,
    SubscriptionChange = 3,  // all profiles are others now; the profile named means nothing
    ProfileReady = 4,        // the modem has started; the profile named means nothing
};

struct ProfileChangedInd {
    TechType techType;
    int profileId;
    ProfileChangedEvent event;

    bool operator==(const ProfileChangedInd& other) const {
        return techType == other.techType && profileId == other.profileId && event == other.event;
    }

    // Such as "3GPP:1 Modify".
    std::string dump() const;
};

}  // namespace zem
