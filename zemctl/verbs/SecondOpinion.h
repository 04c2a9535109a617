// SecondOpinion: what zem::Util has to answer, and has to leave behind, worked out from the
// modem's profiles by other means than its own.
//
// Plain values and no calls into the library: no thread rule.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <zem/ProfileParams.h>

#include "session/ModemView.h"
#include "verbs/CarrierList.h"

namespace zemctl {

// The profiles any of which is right; filters answer in the order of tokens.
struct Choice {
    std::set<ProfileId> found;
    bool created = false;  // whether a new one is right as well
};

Choice choiceForDataCall(const ModemView& view, zem::TechType tech, const zem::ProfileParams& asked,
                         bool updatesAllowed);
Choice choiceForEmergencyCall(const ModemView& view, const zem::ProfileParams& asked);
Choice choiceForAttach(const ModemView& view, const zem::ProfileParams& asked, bool updatesAllowed);

// Whether a profile may be used for an attach with these settings.
bool fitsAttach(const zem::ProfileParams& profile, const zem::ProfileParams& asked,
                bool updatesAllowed);

// What a profile that was found for the attach has to read like afterwards.
zem::ProfileParams expectedOfAttach(const zem::ProfileParams& profile,
                                    const zem::ProfileParams& asked, bool updatesAllowed);

// What the application of a carrier list has left wrong, a line each; empty when all is right. The
// last entry of an APN class decides over its profiles; each APN type of the list is served by a
// profile of its entry's name, if there is one; all other profiles are as before.
std::vector<std::string> wrongAfterList(const ModemView& before, const ModemView& after,
                                        const CarrierList& list,
                                        const std::set<zem::TechType>& techs, bool updatesAllowed);

}  // namespace zemctl
