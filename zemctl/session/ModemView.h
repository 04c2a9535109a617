// ModemView: the modem's profiles at one moment, and what differs between two moments.
//
// Reads through the library, so its rules hold: one call at a time.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <zem/Manager.h>

#include "output/Report.h"
#include "session/ModemAccess.h"

namespace zemctl {

using ProfileId = std::pair<zem::TechType, int>;  // a family, and the index in it

std::string profileName(zem::TechType tech, int index);  // "3GPP:1"
std::string profileName(const ProfileId& id);
ProfileId idOf(const std::shared_ptr<zem::IProfileKey>& key);

// A stored field's value, fit to be shown: passwords are masked.
std::string shownField(const std::pair<std::string, std::string>& field);

// One field of a profile; "-" where it is absent.
struct FieldChange {
    ProfileId profile;
    std::string field, before, after;
};

// Ordered by profile and field. A profile that has come or gone differs in each of its fields.
std::vector<FieldChange> changedFields(const std::vector<StoredProfile>& before,
                                       const std::vector<StoredProfile>& after);

struct ModemView {
    // As the modem stores them; on a device, which cannot be looked into, as the library does.
    std::vector<StoredProfile> stored;
    std::map<ProfileId, zem::ProfileParams> read;  // as the library reads them

    static ModemView take(zem::Manager& manager, const ModemAccess& modem);

    bool has(const ProfileId& id) const { return read.count(id) != 0; }

    // A line for each profile that the modem stores and the library reads otherwise or not at all,
    // or the other way round.
    std::vector<std::string> disagreements() const;
};

// "internet V4V6 DEFAULT|MMS INET"; the settings by which a person tells profiles apart.
std::string summary(const ModemView& view, const ProfileId& id);

// One row for each profile, the two moments side by side, and what has become of it.
Table sideBySide(const ModemView& before, const ModemView& after);

// The profiles of one moment.
Table overview(const ModemView& view);

// The fields that differ; of profiles that are there both times.
Table changeTable(const ModemView& before, const ModemView& after);

}  // namespace zemctl
