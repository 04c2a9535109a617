#include "session/ModemView.h"

#include <set>

#include "output/Secrets.h"
#include "output/Settings.h"
#include "output/Text.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using Fields = std::map<std::string, std::string>;

constexpr const char* kAbsent = "-";

std::map<ProfileId, Fields> byId(const std::vector<StoredProfile>& profiles) {
    std::map<ProfileId, Fields> result;
    for (const StoredProfile& profile : profiles) {
        Fields& fields = result[{profile.tech, profile.index}];
        fields.insert(profile.fields.begin(), profile.fields.end());
    }
    return result;
}

StoredProfile storedAs(const ProfileId& id, const ProfileParams& params) {
    StoredProfile profile{id.first, id.second, {}};
    for (const Setting& setting : kSettings) {
        if (auto text = setting.text(params)) {
            profile.fields.emplace_back(setting.name, *std::move(text));
        }
    }
    return profile;
}

std::string summary(const ProfileParams& params) {
    std::vector<std::string> words;
    words.push_back(params.getApnName().empty() ? "(no name)" : printable(params.getApnName()));
    words.push_back(params.hasHomeIPType() ? ipTypeName(params.getHomeIPType()) : kAbsent);
    if (params.hasRoamIPType() && params.getRoamIPType() != params.getHomeIPType()) {
        words.back() += '/' + ipTypeName(params.getRoamIPType());
    }
    words.push_back(apnTypesText(params.getApnTypesMask()));
    if (params.hasApnClass()) {
        words.push_back(apnClassName(params.getApnClass()));
    }
    if (params.getIsEmergencySupported()) {
        words.emplace_back("emergency");
    }
    if (params.getIsApnDisabled()) {
        words.emplace_back("off");
    }
    if (params.getIsIAProfile()) {
        words.emplace_back("(zem attach)");
    } else if (params.getIsZemProfile()) {
        words.emplace_back("(zem)");
    }
    return join(words, " ");
}

}  // namespace

std::string summary(const ModemView& view, const ProfileId& id) {
    const auto found = view.read.find(id);
    return found == view.read.end() ? kAbsent : summary(found->second);
}

std::string profileName(zem::TechType tech, int index) {
    return techTypeName(tech) + ':' + std::to_string(index);
}

std::string profileName(const ProfileId& id) {
    return profileName(id.first, id.second);
}

ProfileId idOf(const std::shared_ptr<zem::IProfileKey>& key) {
    return {key->getTechType(), key->getProfileId()};
}

std::string shownField(const std::pair<std::string, std::string>& field) {
    return printable(isSecretField(field.first) ? secret(field.second) : field.second);
}

std::vector<FieldChange> changedFields(const std::vector<StoredProfile>& before,
                                       const std::vector<StoredProfile>& after) {
    const auto was = byId(before);
    const auto is = byId(after);
    std::set<std::pair<ProfileId, std::string>> names;
    for (const auto* moment : {&was, &is}) {
        for (const auto& [id, fields] : *moment) {
            for (const auto& field : fields) {
                names.emplace(id, field.first);
            }
        }
    }
    const auto valueIn = [](const std::map<ProfileId, Fields>& moment, const ProfileId& id,
                            const std::string& name) -> const std::string* {
        const auto profile = moment.find(id);
        if (profile == moment.end()) {
            return nullptr;
        }
        const auto field = profile->second.find(name);
        return field == profile->second.end() ? nullptr : &field->second;
    };
    const auto shown = [](const std::string& name, const std::string* value) {
        return value ? shownField({name, *value}) : kAbsent;
    };
    std::vector<FieldChange> changes;
    for (const auto& [id, name] : names) {
        const std::string* const old = valueIn(was, id, name);
        const std::string* const now = valueIn(is, id, name);
        if (!old || !now || *old != *now) {
            changes.push_back({id, name, shown(name, old), shown(name, now)});
        }
    }
    return changes;
}

ModemView ModemView::take(zem::Manager& manager, const ModemAccess& modem) {
    ModemView view;
    for (const auto& key : manager.filter({})) {
        if (auto params = manager.getProfile(key)) {
            view.read.emplace(idOf(key), *std::move(params));
        }
    }
    if (modem.inProcess()) {
        view.stored = modem.profiles();
    } else {
        for (const auto& [id, params] : view.read) {
            view.stored.push_back(storedAs(id, params));
        }
    }
    return view;
}

std::vector<std::string> ModemView::disagreements() const {
    std::vector<std::string> lines;
    std::set<ProfileId> unseen;
    for (const auto& entry : read) {
        unseen.insert(entry.first);
    }
    for (const StoredProfile& profile : stored) {
        const ProfileId id(profile.tech, profile.index);
        const auto found = read.find(id);
        if (found == read.end()) {
            lines.push_back(profileName(id) + " is unknown to the library");
            continue;
        }
        unseen.erase(id);
        for (const auto& field : profile.fields) {
            const bool isName = field.first == "apn_name" || field.first == "apn_string_3gpp2";
            if (isName && lowerCase(field.second) != lowerCase(found->second.getApnName())) {
                lines.push_back(profileName(id) + " has another APN name on the modem");
            }
        }
    }
    for (const ProfileId& id : unseen) {
        lines.push_back(profileName(id) + " is not on the modem");
    }
    return lines;
}

Table sideBySide(const ModemView& before, const ModemView& after) {
    Table table({"PROFILE", "BEFORE", "AFTER", ""});
    std::set<ProfileId> ids;
    std::set<ProfileId> changed;
    for (const ModemView* view : {&before, &after}) {
        for (const StoredProfile& profile : view->stored) {
            ids.emplace(profile.tech, profile.index);
        }
    }
    for (const FieldChange& change : changedFields(before.stored, after.stored)) {
        changed.insert(change.profile);
    }
    for (const ProfileId& id : ids) {
        const bool was = before.read.count(id) != 0;
        const bool is = after.read.count(id) != 0;
        table.row({profileName(id), summary(before, id), summary(after, id),
                   !was                ? "new"
                   : !is               ? "gone"
                   : changed.count(id) ? "changed"
                                       : ""});
    }
    return table;
}

Table overview(const ModemView& view) {
    Table table({"PROFILE", "APN, IP TYPE HOME/ROAM, TYPES, CLASS"});
    for (const StoredProfile& profile : view.stored) {
        const ProfileId id(profile.tech, profile.index);
        table.row({profileName(id), summary(view, id)});
    }
    return table;
}

Table changeTable(const ModemView& before, const ModemView& after) {
    Table table({"PROFILE", "STORED FIELD", "BEFORE", "AFTER"});
    const auto was = byId(before.stored);
    const auto is = byId(after.stored);
    for (const auto& [id, field, old, now] : changedFields(before.stored, after.stored)) {
        if (was.count(id) != 0 && is.count(id) != 0) {
            table.row({profileName(id), field, old, now});
        }
    }
    return table;
}

}  // namespace zemctl
