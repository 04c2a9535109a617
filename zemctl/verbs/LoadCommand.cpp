#include "verbs/LoadCommand.h"

#include <algorithm>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <zem/Manager.h>

#include "output/Report.h"
#include "output/Secrets.h"
#include "output/Settings.h"
#include "output/Text.h"
#include "session/LibraryLog.h"
#include "session/ModemAccess.h"
#include "session/ModemView.h"
#include "session/Session.h"
#include "verbs/FilterQuestions.h"
#include "verbs/OperatorList.h"

namespace zemctl {

namespace {

using zem::IPType;
using zem::ProfileParams;

constexpr int kInstance = 0;
constexpr zem::TechType kTech = zem::TechType::TECH_3GPP;

// Profiles that the modem needs before anybody asks for data: they outlive their key and a restart
// of the modem.
bool isPersistent(const ProfileParams& params) {
    return (params.getApnTypesMask() & (zem::APN_TYPE_IMS | zem::APN_TYPE_IA)) != 0;
}

std::string kindOf(const ProfileParams& params) {
    return isPersistent(params) ? "persistent" : "transient";
}

std::string profiles(size_t count) {
    return counted(count, "profile", "profiles");
}

std::string yesNo(bool value) {
    return value ? "yes" : "no";
}

// A profile that this run added.
struct Loaded {
    ProfileParams expected;                 // what the library has to answer
    int id;                                 // its index on the modem
    std::shared_ptr<zem::IProfileKey> key;  // null while none is held
    bool onModem = true;

    std::string name() const { return profileName(kTech, id); }
    std::string apn() const { return printable(expected.getApnName()); }
};

class LoadCommand {
  public:
    LoadCommand(const OperatorOptions& options, const CarrierList& entries, Session& owner)
        : source(options), list(entries), session(owner), report(owner.report) {}

    int run();

  private:
    // The steps, in order.
    bool startLibrary();
    void addProfiles();
    void showStored();
    void readBack();
    void filterProfiles();
    void matchProfiles();
    void modifyProfile();
    void restartModem();
    void refreshProfiles();
    void addTransientAgain();
    void releaseKeys();
    void deletePersistent();
    void stopLibrary();
    void conclude();

    bool startModemStep(const std::string& title);
    std::shared_ptr<zem::IProfileKey> add(const ProfileParams& params);
    std::shared_ptr<zem::IProfileKey> find(const Loaded& profile);
    std::vector<std::string> wrongReadings();
    void checkPresence();
    void checkKeysExpired();
    std::optional<StoredProfile> stored(const Loaded& profile) const;

    // Keys are released through the manager, which talks to the modem.
    const OperatorOptions source;
    const CarrierList list;
    Session& session;
    Report& report;
    ModemAccess modem;
    // Not the process's own: the last step stops it and looks for what it left open at the modem.
    std::unique_ptr<zem::Manager> manager;
    std::vector<Loaded> loaded;
};

int LoadCommand::run() {
    report.number();
    reportOperator(report, source, list);
    if (startLibrary()) {
        addProfiles();
        if (!loaded.empty()) {
            showStored();
            readBack();
            filterProfiles();
            matchProfiles();
            modifyProfile();
            restartModem();
            refreshProfiles();
            addTransientAgain();
            releaseKeys();
            deletePersistent();
        }
    }
    stopLibrary();
    conclude();
    return report.checksFailed() == 0 ? kDone : kRefused;
}

// --- Into the modem ---

bool LoadCommand::startLibrary() {
    report.step("Start the library on modem instance " + std::to_string(kInstance));
    setLibraryLog(session.logLevel());
    manager = std::make_unique<zem::Manager>();
    manager->init(kInstance, true);
    return report.check(modem.waitForLibrary(*manager),
                        "it has registered with the modem and read the modem's profiles");
}

std::shared_ptr<zem::IProfileKey> LoadCommand::add(const ProfileParams& params) {
    return manager->addProfile(
        zem::AddProfileParams(params, isPersistent(params), kTech, isAttachProfile(params)));
}

void LoadCommand::addProfiles() {
    report.step("Add the profiles");
    Table table({"LINE", "CARRIER", "APN", "TYPES", "CLASS", "HOME", "ROAM", "AUTH", "USER",
                 "PASSWORD", "STATE", "KIND", "KEY"});
    const auto shown = [](bool present, const std::string& text) {
        return present ? text : std::string("-");
    };
    Progress progress(session.output, "adding", list.usable.size());
    for (const CarrierEntry& entry : list.usable) {
        progress.step();
        const ProfileParams& params = entry.params;
        auto key = add(params);
        table.row({std::to_string(entry.line), entry.carrier, printable(params.getApnName()),
                   apnTypesText(params.getApnTypesMask()), apnClassName(params.getApnClass()),
                   shown(params.hasHomeIPType(), ipTypeName(params.getHomeIPType())),
                   shown(params.hasRoamIPType(), ipTypeName(params.getRoamIPType())),
                   shown(params.hasAuthType(), authTypeName(params.getAuthType())),
                   shown(params.hasUserName(), printable(params.getUserName())),
                   shown(params.hasPassword(), printable(secret(params.getPassword()))),
                   params.getIsApnDisabled() ? "off" : "on", kindOf(params),
                   key ? profileName(key->getTechType(), key->getProfileId()) : "refused"});
        if (key) {
            const int id = key->getProfileId();
            loaded.push_back({params, id, std::move(key)});
        }
    }
    report.table(table);
    report.line("Persistent are those that serve IMS or the initial attach (IA).");
    report.check(
        loaded.size() == list.usable.size(),
        "the modem took " + std::to_string(loaded.size()) + " of " + profiles(list.usable.size()));
}

// Begins a step that reaches into the modem; false when that cannot be done here.
bool LoadCommand::startModemStep(const std::string& title) {
    report.step(title);
    if (!modem.inProcess()) {
        report.line("left out: this needs the software modem");
    }
    return modem.inProcess();
}

std::optional<StoredProfile> LoadCommand::stored(const Loaded& profile) const {
    for (StoredProfile& candidate : modem.profiles()) {
        if (candidate.tech == kTech && candidate.index == profile.id) {
            return std::move(candidate);
        }
    }
    return std::nullopt;
}

void LoadCommand::showStored() {
    if (!startModemStep("What the modem stores, field by field")) {
        return;
    }
    std::vector<std::string> wrong;
    for (const Loaded& profile : loaded) {
        const auto onModem = stored(profile);
        if (!onModem) {
            wrong.push_back(profile.name() + " is not there");
            continue;
        }
        std::vector<std::string> words;
        for (const auto& field : onModem->fields) {
            words.push_back(field.first + '=' + shownField(field));
            if (field.first == "apn_name" &&
                lowerCase(field.second) != lowerCase(profile.expected.getApnName())) {
                wrong.push_back(profile.name() + " has another APN name");
            }
        }
        report.paragraph(profile.name(), words);
    }
    report.check(wrong.empty(), "each profile is stored under its key's index and its APN name",
                 wrong);
}

// --- The library's answers ---

std::vector<std::string> LoadCommand::wrongReadings() {
    std::vector<std::string> wrong;
    for (const Loaded& profile : loaded) {
        if (!profile.onModem) {
            continue;
        }
        const auto seen = manager->getProfile(profile.key);
        if (!seen) {
            wrong.push_back(profile.name() + " cannot be read");
            continue;
        }
        for (const std::string& difference : differences(profile.expected, *seen)) {
            wrong.push_back(profile.name() + ' ' + difference);
        }
    }
    return wrong;
}

void LoadCommand::readBack() {
    report.step("Read each profile back");
    size_t settings = 0;
    for (const Loaded& profile : loaded) {
        const auto texts = settingTexts(profile.expected);
        settings += static_cast<size_t>(
            std::count_if(texts.begin(), texts.end(), [](const auto& text) { return !!text; }));
    }
    const std::vector<std::string> wrong = wrongReadings();
    report.check(wrong.empty(),
                 profiles(loaded.size()) + ", " + counted(settings, "setting", "settings") +
                     " in all, read as asked",
                 wrong);
}

void LoadCommand::filterProfiles() {
    report.step("Filter");
    Table table({"QUESTION", "FOUND", "PROFILES"});
    std::vector<std::string> wrong;
    size_t asked = 0;
    const auto names = [](const std::set<int>& ids) {
        std::vector<std::string> texts;
        texts.reserve(ids.size());
        for (const int id : ids) {
            texts.push_back(std::to_string(id));
        }
        return join(texts, " ");
    };
    std::set<int> ours;
    for (const Loaded& profile : loaded) {
        ours.insert(profile.id);
    }
    for (const Question& question : filterQuestions()) {
        std::set<int> expected;
        for (const Loaded& profile : loaded) {
            if (question.expected(profile.expected)) {
                expected.insert(profile.id);
            }
        }
        std::set<int> found;  // a device's modem has others that match as well
        for (const auto& key : manager->filter(question.filter)) {
            if (key->getTechType() == kTech && ours.count(key->getProfileId()) != 0) {
                found.insert(key->getProfileId());
            }
        }
        ++asked;
        if (found != expected) {
            wrong.push_back(question.words + ": expected " + names(expected) + ", found " +
                            names(found));
        }
        if (!found.empty()) {
            table.row({question.words, std::to_string(found.size()), names(found)});
        }
    }
    report.table(table);
    report.check(wrong.empty(),
                 std::to_string(asked) +
                     " questions find what the carrier list says; those not "
                     "shown rightly find nothing",
                 wrong);
}

void LoadCommand::matchProfiles() {
    const Loaded& first = loaded.front();
    report.step("Match " + first.name() + ", APN " + first.apn());
    const zem::FilterProfileParams own(first.expected);
    struct {
        const char* words;
        zem::FilterProfileParams filter;
        bool expected;
    } cases[] = {
        {"all of its own settings", own, true},      {"the same, APN name in capitals", own, true},
        {"the same, another APN name", own, false},  {"the same, another user name", own, false},
        {"the same, another APN class", own, false},
    };
    std::string capitals = first.expected.getApnName();
    for (char& c : capitals) {
        c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    }
    cases[1].filter.setApnName(capitals);
    cases[2].filter.setApnName(first.expected.getApnName() + ".other");
    cases[3].filter.setUserName(first.expected.getUserName() + ".other");
    cases[4].filter.setApnClass(first.expected.getApnClass() == zem::ApnClass::APP
                                    ? zem::ApnClass::INET
                                    : zem::ApnClass::APP);
    Table table({"QUESTION", "MATCHES"});
    std::vector<std::string> wrong;
    for (const auto& [words, filter, expected] : cases) {
        const bool matches = manager->match(filter, first.key);
        table.row({words, yesNo(matches)});
        if (matches != expected) {
            wrong.push_back(std::string(words) + ": expected " + yesNo(expected));
        }
    }
    report.table(table);
    report.check(wrong.empty(), "a profile matches its own settings and no others", wrong);
}

// --- Change ---

// The home IP type is the setting with the most behind it: the modem holds it in up to two fields.
void LoadCommand::modifyProfile() {
    const auto persistent = std::find_if(loaded.begin(), loaded.end(), [](const Loaded& profile) {
        return isPersistent(profile.expected);
    });
    Loaded& chosen = persistent == loaded.end() ? loaded.front() : *persistent;
    const bool wide = chosen.expected.getHomeIPType() == IPType::V4V6;
    zem::ModifyProfileParams change;
    change.setHomeIPType(wide ? IPType::V4 : IPType::V4V6);
    change.setPdnReqWaitInterval(chosen.expected.getPdnReqWaitInterval() == 30 ? 60 : 30);

    report.step("Modify " + chosen.name() + ", APN " + chosen.apn());
    report.line("asked for " + change.dump());
    const auto before = modem.profiles();
    const bool answer = manager->modifyProfile(change, chosen.key);
    const auto after = modem.profiles();
    chosen.expected.setHomeIPType(change.getHomeIPType());
    chosen.expected.setPdnReqWaitInterval(change.getPdnReqWaitInterval());

    Table table({"STORED FIELD", "BEFORE", "AFTER"});
    std::vector<std::string> others;
    for (const auto& [profile, field, was, is] : changedFields(before, after)) {
        table.row({field, was, is});
        if (profile != ProfileId(kTech, chosen.id)) {
            others.push_back(join({profileName(profile), field, "was", was, "is", is}, " "));
        }
    }
    report.table(table);
    if (modem.inProcess()) {
        report.check(!table.empty() && others.empty(),
                     "the modem has changed this profile and no other", others);
    }
    report.check(answer, "the library has said yes");
    const std::vector<std::string> wrong = wrongReadings();
    report.check(wrong.empty(), "every profile reads as it should", wrong);
}

// --- The modem's own doings ---

// A key to the profile as the library has it now; null when it has gone.
std::shared_ptr<zem::IProfileKey> LoadCommand::find(const Loaded& profile) {
    zem::FilterProfileParams filter;
    filter.setFilterByTechType(kTech);
    filter.setFilterByProfileId(profile.id);
    filter.setApnName(profile.expected.getApnName());
    const auto keys = manager->filter(filter);
    return keys.empty() ? nullptr : keys.front();
}

// Takes new keys, and holds the library, and the modem where it can be seen, against onModem.
void LoadCommand::checkPresence() {
    Table table({"PROFILE", "APN", "KIND", "NOW"});
    std::vector<std::string> wrong;
    for (Loaded& profile : loaded) {
        profile.key = find(profile);
        const bool known = profile.key != nullptr;
        const bool there = modem.inProcess() ? stored(profile).has_value() : known;
        table.row({profile.name(), profile.apn(), kindOf(profile.expected),
                   there ? "on the modem" : "gone"});
        if (known != profile.onModem || there != profile.onModem) {
            wrong.push_back(profile.name() + ": expected " + (profile.onModem ? "there" : "gone") +
                            ", on the modem: " + yesNo(there) +
                            ", known to the library: " + yesNo(known));
        }
    }
    report.table(table);
    report.check(wrong.empty(), "what should be there is there, and nothing else", wrong);
}

void LoadCommand::checkKeysExpired() {
    std::vector<std::string> alive;
    for (Loaded& profile : loaded) {
        if (profile.key && manager->getProfile(profile.key)) {
            alive.push_back(profile.key->dump() + " still answers");
        }
        profile.key.reset();
    }
    report.check(alive.empty(), "every key from before has expired", alive);
}

void LoadCommand::restartModem() {
    if (!startModemStep("Restart the modem")) {
        return;
    }
    modem.restart();
    report.line("A modem forgets its transient profiles when it goes down.");
    report.check(modem.waitForLibrary(*manager), "the library has registered anew");
    checkKeysExpired();
    for (Loaded& profile : loaded) {
        profile.onModem = isPersistent(profile.expected);
    }
    checkPresence();
    const auto survivors =
        std::count_if(loaded.begin(), loaded.end(), [](const Loaded& p) { return p.onModem; });
    const std::vector<std::string> wrong = wrongReadings();
    report.check(wrong.empty(), profiles(static_cast<size_t>(survivors)) + " left, read as before",
                 wrong);
}

void LoadCommand::refreshProfiles() {
    report.step("Refresh the modem's configuration");
    Table table({"CALL", "ANSWER"});
    std::vector<std::string> wrong;
    const auto expect = [&](const std::string& call, const std::string& answer, bool refused) {
        table.row({call, answer});
        if (!refused) {
            wrong.push_back(call + " was not refused");
        }
    };
    manager->refresh(zem::START);
    table.row({"refresh START", "-"});
    const auto added = add(loaded.front().expected);
    expect("addProfile", added ? added->dump() : "no key", added == nullptr);
    const size_t found = manager->filter({}).size();
    expect("filter everything", profiles(found), found == 0);
    for (const Loaded& profile : loaded) {
        if (profile.key) {
            const bool read = manager->getProfile(profile.key).has_value();
            expect("getProfile " + profile.name(), read ? "settings" : "nothing", !read);
            const bool deleted = manager->deleteProfile(profile.key);
            expect("deleteProfile " + profile.name(), yesNo(deleted), !deleted);
            break;
        }
    }
    manager->refresh(zem::COMPLETE);
    table.row({"refresh COMPLETE", "-"});
    report.table(table);
    report.check(wrong.empty(), "every call between START and COMPLETE is refused", wrong);
    report.line("COMPLETE has the library read all profiles anew.");
    checkKeysExpired();
    checkPresence();
}

// --- Out of the modem ---

void LoadCommand::addTransientAgain() {
    report.step("Add the transient profiles again");
    std::vector<std::string> wrong;
    size_t count = 0;
    for (Loaded& profile : loaded) {
        if (isPersistent(profile.expected)) {
            continue;
        }
        // Not restarted, the modem has it still, but the library no longer knows it for its own.
        if (profile.onModem && !manager->deleteProfile(profile.key)) {
            wrong.push_back(profile.name() + " could not be deleted");
        }
        profile.key = add(profile.expected);
        profile.onModem = profile.key != nullptr;
        if (profile.key) {
            profile.id = profile.key->getProfileId();
            ++count;
        } else {
            wrong.push_back(profile.name() + " was refused");
        }
    }
    report.check(wrong.empty(), "the modem took " + profiles(count), wrong);
}

void LoadCommand::releaseKeys() {
    report.step("Release all keys");
    for (Loaded& profile : loaded) {
        profile.key.reset();
        profile.onModem = isPersistent(profile.expected);
    }
    report.line("The last key to a transient profile takes the profile with it.");
    checkPresence();
}

void LoadCommand::deletePersistent() {
    report.step("Delete the persistent profiles");
    std::vector<std::string> wrong;
    size_t count = 0;
    for (Loaded& profile : loaded) {
        if (!profile.key) {
            continue;
        }
        ++count;
        if (!manager->deleteProfile(profile.key)) {
            wrong.push_back(profile.name() + " could not be deleted");
        }
        profile.key.reset();
        profile.onModem = false;
        if (find(profile)) {
            wrong.push_back(profile.name() + " is still known to the library");
        }
    }
    if (modem.inProcess() && !modem.profiles().empty()) {
        wrong.push_back("the modem still stores " + profiles(modem.profiles().size()));
    }
    report.check(wrong.empty(), profiles(count) + " deleted, the modem is as it was", wrong);
}

void LoadCommand::stopLibrary() {
    report.step("Stop the library");
    report.line("The engine says wake() when it is woken to stop:");
    for (Loaded& profile : loaded) {
        profile.key.reset();
    }
    manager.reset();
    if (modem.inProcess()) {
        report.check(modem.openHandles() == 0, "it has left nothing open at the modem");
    }
}

void LoadCommand::conclude() {
    const size_t refused = list.usable.size() - loaded.size();
    report.step("Summary");
    report.check(loaded.size() + refused + list.skipped.size() == list.entries,
                 counted(list.entries, "entry", "entries") + " of " + source.plmn + ": " +
                     std::to_string(loaded.size()) + " added, " +
                     (refused == 0 ? "" : std::to_string(refused) + " refused by the modem, ") +
                     skippedSummary(list));
    if (!list.warnings.empty()) {
        report.line(counted(list.warnings.size(), "value", "values") +
                    " left out, with a warning each in step 1");
    }
    report.countChecks();
}

}  // namespace

Step prepareLoad(const Given& given) {
    const OperatorOptions source = operatorOf(given);
    return [source, list = readOperator(source)](Session& session) {
        session.requireOwnModem();
        return LoadCommand(source, list, session).run();
    };
}

}  // namespace zemctl
