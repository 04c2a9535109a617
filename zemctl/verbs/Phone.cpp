#include "verbs/Phone.h"

#include <algorithm>
#include <map>

#include "output/Settings.h"
#include "output/Text.h"
#include "session/LibraryLog.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using zem::TechType;

constexpr int kInstance = 0;

std::string namesOf(const std::set<ProfileId>& ids) {
    std::vector<std::string> names;
    names.reserve(ids.size());
    for (const ProfileId& id : ids) {
        names.push_back(profileName(id));
    }
    return join(names, " or ");
}

}  // namespace

bool Phone::start(const std::string& logLevel) {
    report.step("Boot the modem and start the library on instance " + std::to_string(kInstance));
    if (!modem.inProcess()) {
        report.line("The device's modem has booted, with profiles of its own.");
    } else if (!report.check(modem.storeFactoryProfiles(), "the modem has its factory profiles")) {
        return false;
    }
    setLibraryLog(logLevel);
    manager.init(kInstance, true);
    if (!report.check(modem.waitForLibrary(manager),
                      "the library has registered with the modem and read its profiles")) {
        return false;
    }
    booted = look();
    report.table(overview(booted));
    const std::vector<std::string> wrong = booted.disagreements();
    return report.check(wrong.empty(), "the library reads what the modem stores", wrong);
}

void Phone::ask(const std::string& title, const ProfileParams& params) {
    report.step(title);
    const std::vector<std::string> words = settingWords(params);
    report.paragraph("asked for", words.empty() ? std::vector<std::string>{"any"} : words);
}

// --- zem::Util's operations ---

void Phone::allowUpdates(bool allowed) {
    report.step(std::string("Updates of profiles that are found: ") + (allowed ? "on" : "off"));
    util.setProfileUpdateAllowed(allowed);
    updatesAllowed = allowed;
}

std::optional<ProfileId> Phone::take(const std::string& purpose, const Key& key,
                                     const ModemView& before, const Choice& choice,
                                     bool createsTransient, const Expected& expected) {
    const ModemView after = look();
    std::vector<std::string> wrong = after.disagreements();
    if (!key) {
        report.check(false, "the library has given a key", wrong);
        return std::nullopt;
    }
    const ProfileId id = idOf(key);
    const auto found = before.read.find(id);
    const bool created = found == before.read.end();
    report.paragraph("answered",
                     {profileName(id) + (created ? ", created:" : ", found:"), summary(after, id)});
    report.table(changeTable(before, after));

    std::string right = namesOf(choice.found);
    if (choice.created) {
        right += right.empty() ? "a new profile" : " or a new profile";
    }
    report.check(created ? choice.created : choice.found.count(id) != 0,
                 "the answer is the one that fits: " + right);

    const auto read = after.read.find(id);
    if (read == after.read.end()) {
        wrong.push_back(profileName(id) + " is not there");
    } else {
        const auto lines =
            differences(expected(created ? nullptr : &found->second), read->second, id.first);
        wrong.insert(wrong.end(), lines.begin(), lines.end());
    }
    for (const FieldChange& change : changedFields(before.stored, after.stored)) {
        if (change.profile != id) {
            wrong.push_back(profileName(change.profile) + ' ' + change.field + " has changed");
        }
    }
    report.check(wrong.empty(), "the modem stores it as it should be, and all others as before",
                 wrong);

    const bool transient = created ? createsTransient : keys.isTransient(key);
    const HeldKey& held = keys.hold(key, purpose, transient);
    report.line("held as " + held.name + (transient ? ", transient" : ""));
    return id;
}

std::optional<ProfileId> Phone::setupCall(TechType tech, const ProfileParams& params) {
    ask("Profile for a " + techTypeName(tech) + " data call", params);
    const ModemView before = look();
    const Choice choice = choiceForDataCall(before, tech, params, updatesAllowed);
    const Key key = util.findOrCreateProfileForSetupDataCall(tech, params);
    return take("data call", key, before, choice, true, [&](const ProfileParams* found) {
        return !found || updatesAllowed ? params : *found;
    });
}

std::optional<ProfileId> Phone::emergencyCall(const ProfileParams& params) {
    ask("Profile for an emergency call", params);
    const ModemView before = look();
    const Choice choice = choiceForEmergencyCall(before, params);
    const Key key = util.findOrCreateProfileForEmergencyDataCall(params);
    return take("emergency call", key, before, choice, false, [&](const ProfileParams* found) {
        ProfileParams expected = found ? *found : params;
        expected.setIsEmergencySupported(true);
        if (!found) {
            expected.setApnTypesMask(zem::APN_TYPE_EMERGENCY);
        }
        return expected;
    });
}

std::optional<ProfileId> Phone::attach(const ProfileParams& params) {
    ask("Profile for the LTE attach", params);
    const ModemView before = look();
    const Choice choice = choiceForAttach(before, params, updatesAllowed);
    const Key key = util.findOrCreateProfileForLteAttach(params);
    return take("LTE attach", key, before, choice, false, [&](const ProfileParams* found) {
        return found ? expectedOfAttach(*found, params, updatesAllowed) : params;
    });
}

bool Phone::matchAttach(int id, const ProfileParams& params) {
    const ProfileId profile(TechType::TECH_3GPP, id);
    ask("May the modem attach with " + profileName(profile) + '?', params);
    const ModemView view = look();
    const auto found = view.read.find(profile);
    const bool expected =
        found != view.read.end() && fitsAttach(found->second, params, updatesAllowed);
    const bool answer = util.matchLteAttachProfileId(id, params);
    report.paragraph("answered", {answer ? "yes," : "no,", profileName(profile) + " is",
                                  summary(view, profile)});
    report.check(answer == expected,
                 std::string("the answer is right: ") + (expected ? "yes" : "no"));
    return answer;
}

void Phone::update(const CarrierList& list, bool also3gpp2) {
    std::list<ProfileParams> entries;
    for (const CarrierEntry& entry : list.usable) {
        entries.push_back(entry.params);
    }
    report.where().whileShowing("applying", [&] {
        util.updateModemProfileByApnClass(entries,
                                          also3gpp2 ? entries : std::list<ProfileParams>());
        util.updateAPNTypeBitmaskOnModemProfile(entries);
    });
}

void Phone::applyApns(const OperatorOptions& source, const CarrierList& list, bool also3gpp2) {
    reportOperator(report, source, list);
    report.step("Apply the carrier list: by APN class, then the APN types");
    std::map<zem::ApnClass, std::vector<std::string>> namesOfClass;
    for (const CarrierEntry& entry : list.usable) {
        namesOfClass[entry.params.getApnClass()].push_back(printable(entry.params.getApnName()));
    }
    for (const auto& [apnClass, names] : namesOfClass) {
        if (names.size() > 1) {
            report.line("Class " + apnClassName(apnClass) + " has " + std::to_string(names.size()) +
                        " entries; the last decides: " + names.back());
        }
    }
    const ModemView before = look();
    update(list, also3gpp2);
    const ModemView after = look();
    report.table(sideBySide(before, after));
    report.table(changeTable(before, after));
    std::set<TechType> techs = {TechType::TECH_3GPP};
    if (also3gpp2) {
        techs.insert(TechType::TECH_3GPP2);
    }
    std::vector<std::string> wrong = wrongAfterList(before, after, list, techs, updatesAllowed);
    const std::vector<std::string> unlike = after.disagreements();
    wrong.insert(wrong.end(), unlike.begin(), unlike.end());
    report.check(wrong.empty(),
                 "each class has its last entry's settings, each APN type is served, the rest is "
                 "as before",
                 wrong);
}

// --- What happens to a phone besides ---

void Phone::applyApnsAgain(const CarrierList& list, bool also3gpp2) {
    report.step("Apply the same carrier list again");
    const ModemView before = look();
    update(list, also3gpp2);
    const ModemView after = look();
    report.table(changeTable(before, after));
    report.check(changedFields(before.stored, after.stored).empty(), "nothing has changed");
}

void Phone::changeBehind(const ProfileId& id) {
    constexpr unsigned kSeconds = 45;
    report.step("The network changes " + profileName(id) + " behind the library's back");
    const ModemView before = look();
    const bool changed =
        modem.changeProfile(id.first, id.second, "pdn_req_wait_interval", kSeconds);
    const ModemView after = look();
    report.table(changeTable(before, after));
    std::vector<std::string> wrong = after.disagreements();
    const auto read = after.read.find(id);
    if (read == after.read.end() ||
        read->second.getPdnReqWaitInterval() != static_cast<int>(kSeconds)) {
        wrong.push_back("the library has not seen it");
    }
    report.check(changed && wrong.empty(), "the library reads the new value", wrong);
    wrong.clear();
    Table table({"KEY", "PROFILE", "HELD FOR", "ITS HOLDER"});
    for (const HeldKey& each : keys) {
        const bool told = each.told->exchange(false);
        table.row({each.name, profileName(each.id), each.purpose, told ? "was told" : "-"});
        if (told != (each.id == id) || !manager.getProfile(each.key)) {
            wrong.push_back(each.key->dump() + (told ? " was told" : " was not told") +
                            (manager.getProfile(each.key) ? "" : ", and has expired"));
        }
        if (told) {
            KeyRing::listen(each);
        }
    }
    report.table(table);
    report.check(wrong.empty(), "the holders of its keys were told, no others; all keys are valid",
                 wrong);
}

void Phone::restartModem() {
    report.step("Restart the modem");
    const ModemView before = look();
    modem.restart();
    report.check(modem.waitForLibrary(manager), "the library has registered anew");
    const ModemView after = look();
    report.table(sideBySide(before, after));
    std::vector<std::string> wrong = after.disagreements();
    std::set<ProfileId> forgotten;
    for (const HeldKey& each : keys) {
        if (!*each.told || manager.getProfile(each.key)) {
            wrong.push_back(each.key->dump() + " has not expired");
        }
        if (each.transient) {
            forgotten.insert(each.id);
        }
    }
    keys.clear();
    for (const auto& entry : before.read) {
        if (after.has(entry.first) == (forgotten.count(entry.first) != 0)) {
            wrong.push_back(profileName(entry.first) +
                            (after.has(entry.first) ? " is still there" : " is gone"));
        }
    }
    report.check(wrong.empty(), "transient profiles are gone, the others there; all keys expired",
                 wrong);
}

bool Phone::onModem(const ProfileId& id) const {
    const ModemView view = look();
    return std::any_of(view.stored.begin(), view.stored.end(), [&](const StoredProfile& profile) {
        return ProfileId(profile.tech, profile.index) == id;
    });
}

void Phone::releaseKeys(const std::vector<std::string>& names) {
    Table table({"KEY", "PROFILE", "HELD FOR", "KIND", "NOW"});
    std::vector<std::string> wrong;
    bool anyValid = false;
    for (const std::string& name : names) {
        HeldKey released = keys.take(name);
        const bool wasThere = manager.getProfile(released.key).has_value();
        anyValid = anyValid || wasThere;
        const auto sameProfile = [text = released.key->dump()](const HeldKey& other) {
            return other.key->dump() == text;
        };
        released.key.reset();
        const bool last = std::none_of(keys.begin(), keys.end(), sameProfile);
        const bool there = onModem(released.id);
        table.row({released.name, profileName(released.id), released.purpose,
                   !wasThere            ? "expired"
                   : released.transient ? "transient"
                                        : "stays",
                   there ? "on the modem" : "gone"});
        if (wasThere && there == (released.transient && last)) {
            wrong.push_back(profileName(released.id) + (there ? " is still there" : " is gone"));
        }
    }
    report.table(table);
    if (!anyValid) {
        report.line("A key that has expired takes nothing along.");
        return;
    }
    report.check(wrong.empty(), "transient profiles went with their last key, all others stay",
                 wrong);
}

void Phone::showSinceBoot() {
    report.step("The modem since its boot");
    const ModemView now = look();
    report.table(sideBySide(booted, now));
    std::vector<std::string> wrong = now.disagreements();
    for (const StoredProfile& profile : now.stored) {
        for (const auto& [field, value] : profile.fields) {
            if (field == "persistent" && value == "0") {
                wrong.push_back(profileName(profile.tech, profile.index) + " is transient");
            }
        }
    }
    report.check(wrong.empty(), "no transient profile is left", wrong);
}

}  // namespace zemctl
