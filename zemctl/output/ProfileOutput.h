// ProfileOutput: profiles as the verbs show them, to people and to programs. No thread rule.
#pragma once

#include <string>
#include <vector>

#include <zem/ProfileParams.h>

#include "output/Output.h"
#include "output/Report.h"
#include "output/Settings.h"
#include "session/KeyRing.h"
#include "session/ModemView.h"

namespace zemctl {

// What is known of one profile.
struct SeenProfile {
    ProfileId id;
    zem::ProfileParams params;
    unsigned long token = 0;        // by which the library counts its keys
    std::vector<std::string> keys;  // held to it, by name
};

// The token that a key's dump ends with.
unsigned long tokenOf(const std::shared_ptr<zem::IProfileKey>& key);

// With the names of the keys on the ring that hold the same profile.
SeenProfile seen(const std::shared_ptr<zem::IProfileKey>& key, const zem::ProfileParams& params,
                 const KeyRing& keys);

// One object for each, whose keys are always the same: null where a setting is absent.
Json toJson(const SeenProfile& profile);

// One row for each, with the settings by which a person tells profiles apart.
Table profileTable(const std::vector<SeenProfile>& profiles);

// One row for each present setting.
Table settingTable(const zem::ProfileParams& params);

// One row for each setting that reads otherwise now.
Table settingChanges(const zem::ProfileParams& before, const zem::ProfileParams& after);

// A setting's value, fit to be shown; "-" when it is absent.
std::string shownSetting(const Setting& setting, const zem::ProfileParams& params);

}  // namespace zemctl
