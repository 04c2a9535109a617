#include "verbs/ManagerVerbs.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <climits>
#include <optional>

#include <nlohmann/json.hpp>

#include "command/Values.h"
#include "output/ProfileOutput.h"
#include "output/Secrets.h"
#include "output/Settings.h"
#include "session/Interrupt.h"
#include "session/Session.h"

namespace zemctl {

namespace {

using Key = std::shared_ptr<zem::IProfileKey>;

constexpr const char* kAll = "all";
constexpr int kLongestWatch = 1'000'000;  // seconds
constexpr std::chrono::milliseconds kBetweenLooks(100);

constexpr zem::NamedValue<unsigned int> kSubsets[] = {
    {zem::MATCH_HOME_IP_SUBSET, "home"},
    {zem::MATCH_ROAM_IP_SUBSET, "roam"},
    {zem::MATCH_APN_NAME_SUBSET, "apn"},
    {zem::MATCH_APN_TYPES_SUBSET, "types"},
};
constexpr zem::NamedValue<unsigned int> kSupersets[] = {
    {zem::MATCH_HOME_IP_SUPERSET, "home"},
    {zem::MATCH_ROAM_IP_SUPERSET, "roam"},
};
constexpr zem::NamedValue<zem::PDCRefreshStatus> kRefreshNames[] = {{zem::START, "start"},
                                                                    {zem::COMPLETE, "complete"}};

Argument nameArgument() {
    return {"--as", "NAME", "Name of the key; k1, k2 and so on unless said otherwise"};
}

Argument profileArgument() {
    return {"PROFILE", "", "A profile such as 3gpp:1, or the name of a key that is held",
            Arity::kRequired, profileWords};
}

Arguments filterArguments() {
    const auto switches = [](const Typing&) { return namesOf(kSwitchNames); };
    return settingArguments() +
           Arguments{
               techArgument("Profiles of that family"),
               {"--id", "N", "The profile of that index on the modem, 0 to 255"},
               {"--zem", "on|off", "Profiles that the library has created, or has not (3GPP)",
                Arity::kOptional, switches},
               {"--ia", "on|off", "Profiles made for the initial attach, or not (3GPP)",
                Arity::kOptional, switches},
               {"--subset", "LIST",
                "These of home, roam, apn and types may be contained in the profile's",
                Arity::kOptional, [](const Typing&) { return namesOf(kSubsets); }, true},
               {"--superset", "LIST", "These of home and roam may contain the profile's",
                Arity::kOptional, [](const Typing&) { return namesOf(kSupersets); }, true},
           };
}

template <size_t N>
unsigned int criteriaOf(const Given& given, const char* option,
                        const zem::NamedValue<unsigned int> (&names)[N]) {
    unsigned int criteria = 0;
    if (given.has(option)) {
        const std::string list = given.text(option);
        for (const std::string_view name : split(list, ',')) {
            criteria |= OptionText{option, std::string(trimmed(name))}.oneOf(names);
        }
    }
    return criteria;
}

zem::FilterProfileParams filterOf(const Given& given) {
    const auto option = [&](const char* name) { return OptionText{name, given.text(name)}; };
    zem::FilterProfileParams filter(settingsOf(given));
    if (given.has("--tech")) {
        filter.setFilterByTechType(techOf(given));
    }
    if (given.has("--id")) {
        filter.setFilterByProfileId(option("--id").number(0, kLastProfileId));
    }
    if (given.has("--zem")) {
        filter.setFilterByIsZemProfile(option("--zem").oneOf(kSwitchNames));
    }
    if (given.has("--ia")) {
        filter.setFilterByIsIAProfile(option("--ia").oneOf(kSwitchNames));
    }
    filter.addFilterMatchCriteria(criteriaOf(given, "--subset", kSubsets) |
                                  criteriaOf(given, "--superset", kSupersets));
    return filter;
}

// A key's name must not be mistaken for a profile, an option or another key.
std::string keyNameOf(const Given& given) {
    std::string name = given.text("--as");
    const bool fits = name.empty() ? !given.has("--as")
                                   : std::isalpha(static_cast<unsigned char>(name[0])) != 0 &&
                                         std::all_of(name.begin(), name.end(), [](unsigned char c) {
                                             return std::isalnum(c) != 0 || c == '-' || c == '_';
                                         });
    if (const auto verbs = verbNames(true);
        fits && std::find(verbs.begin(), verbs.end(), name) != verbs.end()) {
        throw UsageError("--as: '" + name + "' is a verb");
    }
    if (!fits || name == kAll) {
        throw UsageError("--as takes a letter, then letters, digits, '-' and '_', not '" + name +
                         '\'');
    }
    return name;
}

void requireFree(const Session& session, const std::string& name) {
    const auto names = session.keys.names();
    if (std::find(names.begin(), names.end(), name) != names.end()) {
        throw UsageError("a key '" + name + "' is held already");
    }
}

// --- The verbs ---

Step prepareList(const Given& given) {
    return [filter = filterOf(given), hold = given.has("--hold")](Session& session) {
        zem::Manager& manager = session.library();
        session.refuseDuringRefresh();
        auto found = manager.filter(filter);
        found.sort([](const Key& a, const Key& b) { return idOf(a) < idOf(b); });
        std::vector<SeenProfile> profiles;
        std::optional<Progress> progress(std::in_place, session.output, "reading", found.size());
        while (!found.empty()) {
            progress->step();
            const Key key = std::move(found.front());
            found.pop_front();
            const auto params = manager.getProfile(key);
            if (!params) {
                continue;  // it has gone meanwhile
            }
            if (hold) {
                session.keys.hold(key, "list", session.keys.isTransient(key));
            }
            profiles.push_back(seen(key, *params, session.keys));
        }
        progress.reset();
        for (const SeenProfile& profile : profiles) {
            session.output.object(toJson(profile));
        }
        session.report.table(profileTable(profiles));
        if (profiles.empty()) {
            session.report.line("no profile matches");
        }
        return kDone;
    };
}

Step prepareGet(const Given& given) {
    return [word = ProfileWord::parse(given.text("PROFILE"))](Session& session) {
        const Key key = session.keyTo(word);
        const SeenProfile profile = seen(key, session.read(key), session.keys);
        session.output.object(toJson(profile));
        session.report.step(profileName(profile.id));
        session.report.table(settingTable(profile.params));
        return kDone;
    };
}

Step prepareAdd(const Given& given) {
    const zem::TechType tech = techOf(given);
    const zem::ProfileParams settings = settingsOf(given);
    requireSettingsOf(tech, settings);
    const bool persistent = given.has("--persistent");
    const zem::AddProfileParams params(settings, persistent, tech, given.has("--ia"));
    return [params, persistent, name = keyNameOf(given)](Session& session) {
        zem::Manager& manager = session.library();
        session.refuseDuringRefresh();
        requireFree(session, name);
        const Key key = manager.addProfile(params);
        if (!key) {
            throw Failure(kRefused, "the modem has not created the profile");
        }
        const HeldKey& held = session.keys.hold(key, "add", !persistent, name);
        const SeenProfile profile = seen(key, session.read(key), session.keys);
        session.output.object(toJson(profile));
        session.report.line(held.name + " holds " + profileName(held.id) +
                            (persistent ? ", persistent" : ", transient"));
        return kDone;
    };
}

Step prepareModify(const Given& given) {
    const zem::ProfileParams settings = settingsOf(given);
    const ProfileWord word = ProfileWord::parse(given.text("PROFILE"));
    if (settings.dump().empty()) {
        throw UsageError("modify takes at least one setting, such as --apn NAME");
    }
    if (word.id) {
        requireSettingsOf(word.id->first, settings);
    }
    return [settings, word](Session& session) {
        const Key key = session.keyTo(word);
        requireSettingsOf(key->getTechType(), settings);
        const zem::ProfileParams before = session.read(key);
        const bool answer =
            session.library().modifyProfile(zem::ModifyProfileParams(settings), key);
        session.settle();  // a change whose answer was lost comes as the modem's own
        const SeenProfile now = seen(key, session.read(key), session.keys);
        const Table changes = settingChanges(before, now.params);
        session.output.object(toJson(now));
        session.report.step(profileName(now.id) + (changes.empty() ? " is as before" : ""));
        session.report.table(changes);
        const auto wrong = differences(settings, now.params, now.id.first);
        if (!answer || !wrong.empty()) {
            throw Failure(kRefused, "the modem has not made the change" +
                                        (wrong.empty() ? "" : ": " + join(wrong, "; ")));
        }
        return kDone;
    };
}

Step prepareDelete(const Given& given) {
    return [word = ProfileWord::parse(given.text("PROFILE"))](Session& session) {
        const Key key = session.keyTo(word);
        const SeenProfile profile = seen(key, session.read(key), session.keys);
        if (!session.library().deleteProfile(key)) {
            throw Failure(kRefused, "the modem has not deleted " + profileName(profile.id));
        }
        session.output.object(toJson(profile));
        session.report.line(
            profileName(profile.id) + " is gone" +
            (profile.keys.empty() ? "" : ", and expired with it: " + join(profile.keys, ", ")));
        return kDone;
    };
}

Step prepareMatch(const Given& given) {
    return [filter = filterOf(given),
            word = ProfileWord::parse(given.text("PROFILE"))](Session& session) {
        const Key key = session.keyTo(word);
        session.read(key);  // else an expired key would be a plain no
        const bool answer = session.library().match(filter, key);
        session.output.object({{"profile", profileName(idOf(key))}, {"matches", answer}});
        session.report.line(answer ? "yes" : "no");
        return answer ? kDone : kRefused;
    };
}

Step prepareRefresh(const Given& given) {
    const auto status = OptionText{"refresh", given.text("STATUS")}.oneOf(kRefreshNames);
    return [status](Session& session) {
        zem::Manager& manager = session.library();
        session.output.whileShowing("refreshing", [&] { manager.refresh(status); });
        session.refreshing = status == zem::START;
        session.cause = Cause::kRefresh;
        session.report.line(session.refreshing
                                ? "refresh started: all else is refused, but dump"
                                : "refresh complete: all profiles are read anew, all keys expired");
        return kDone;
    };
}

Step prepareWatch(const Given& given) {
    if (given.has("STATE")) {
        if (given.has("--for") || given.has("--count")) {
            throw UsageError("watch on and watch off take no --for and no --count");
        }
        return
            [on = OptionText{"watch", given.text("STATE")}.oneOf(kSwitchNames)](Session& session) {
                session.library();
                session.refuseDuringRefresh();
                session.watch = on ? std::make_unique<Watch>(session) : nullptr;
                session.report.line(on ? "changes are shown after each command"
                                       : "changes are not shown any more");
                return kDone;
            };
    }
    const auto number = [&](const char* name, int most) {
        return given.has(name) ? OptionText{name, given.text(name)}.number(1, most) : most;
    };
    return [seconds = number("--for", kLongestWatch),
            count = number("--count", INT_MAX)](Session& session) {
        session.library();
        session.refuseDuringRefresh();
        session.unlockFile();
        std::optional<Watch> own;
        Watch& watch = session.watch ? *session.watch : own.emplace(session);
        const size_t toldBefore = watch.told();
        const Console& console = session.output.console;
        if (console.errTerminal) {
            console.err << "watching; Ctrl-C ends it" << std::endl;
        }
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
        while (watch.told() - toldBefore < static_cast<size_t>(count) &&
               std::chrono::steady_clock::now() < end) {
            if (!sleepUnlessInterrupted(kBetweenLooks)) {
                if (session.interactive) {  // the session goes on
                    session.goOn();
                    console.err << (console.errTerminal ? "\n" : "");  // behind the ^C
                }
                break;
            }
            watch.look(session.reload() ? Cause::kFile : Cause::kNetwork);
        }
        return kDone;
    };
}

Step prepareDump(const Given& /*given*/) {
    return [](Session& session) {
        if (!session.libraryStarted()) {
            session.library();
        }
        Json lines = Json::array();
        for (const std::string& line : zem::Manager::getInstance().dump()) {
            const std::string shown = withoutSecrets(line);
            lines.push_back(shown);
            session.output.text() << printable(shown) << '\n';
        }
        session.output.object({{"lines", lines}});
        return kDone;
    };
}

Step prepareKeys(const Given& /*given*/) {
    return [](Session& session) {
        Table table({"KEY", "PROFILE", "TOKEN", "REFERENCES", "HELD FOR", "KIND", "STATE"});
        for (HeldKey& each : session.keys) {
            const size_t references = session.keys.references(each);
            std::string state = "valid";
            if (session.refreshing) {
                state = "unknown until the refresh is complete";
            } else if (!zem::Manager::getInstance().getProfile(each.key)) {
                state = "expired";
            } else if (each.told->exchange(false)) {
                state = "valid, told of a change";
                KeyRing::listen(each);
            }
            session.output.object({{"key", each.name},
                                   {"profile", profileName(each.id)},
                                   {"token", tokenOf(each.key)},
                                   {"references", references},
                                   {"purpose", each.purpose},
                                   {"transient", each.transient},
                                   {"state", state}});
            table.row({each.name, profileName(each.id), std::to_string(tokenOf(each.key)),
                       std::to_string(references), each.purpose,
                       each.transient ? "transient" : "stays", state});
        }
        session.report.table(table);
        if (session.keys.empty()) {
            session.report.line("no key is held");
        }
        return kDone;
    };
}

Step prepareRelease(const Given& given) {
    return [names = given.all("KEY")](Session& session) {
        std::vector<std::string> wanted = names;
        const std::vector<std::string> held = session.keys.names();
        if (wanted == std::vector<std::string>{kAll}) {
            wanted = held;
        }
        for (const std::string& name : wanted) {
            if (!session.keys.find(name)) {
                throw Failure(kNoProfile, "no key '" + name + "' is held" + suggestion(name, held));
            }
        }
        session.library();  // up, or nothing can be released
        session.refuseDuringRefresh();
        std::sort(wanted.begin(), wanted.end());
        wanted.erase(std::unique(wanted.begin(), wanted.end()), wanted.end());
        session.phone().releaseKeys(wanted);
        return kDone;
    };
}

std::vector<std::string> heldKeys(const Typing& typing) {
    std::vector<std::string> names;
    if (typing.session) {
        names = typing.session->keys.names();
    }
    names.emplace_back(kAll);
    return names;
}

}  // namespace

std::vector<std::string> profileWords(const Typing& typing) {
    std::vector<std::string> words = typing.profiles;
    if (typing.session) {
        words = typing.session->keys.names();
        for (const StoredProfile& profile : typing.session->storedProfiles()) {
            words.push_back(lowerCase(profileName(profile.tech, profile.index)));
        }
    }
    return words;
}

VerbGroup managerVerbs() {
    return {
        "Profiles",
        {
            {"list", "List the profiles that a filter finds; without options, all",
             "Each setting that is given must agree with the profile's. --subset and --superset "
             "make "
             "the comparison of the settings they name looser.",
             "list --home v4 --subset home,types --types ia,default",
             filterArguments() +
                 Arguments{
                     {"--hold", "", "Hold the key to each profile that is found", Arity::kSwitch}},
             Where::kAnywhere, prepareList},
            {"get",
             "Show one profile's settings",
             "",
             "get 3gpp:1",
             {profileArgument()},
             Where::kAnywhere,
             prepareGet},
            {"add", "Create a profile and hold the key to it",
             "A profile that is not persistent is gone with its last key, at the latest when the "
             "session ends; that is how the library works.",
             "add --apn internet --home v4v6 --types default --persistent",
             settingArguments() +
                 Arguments{
                     techArgument("Family of profiles, 3gpp unless said otherwise"),
                     {"--persistent", "", "Stays when its last key goes, and after a restart",
                      Arity::kSwitch},
                     {"--ia", "", "Mark it as made for the LTE initial attach", Arity::kSwitch},
                     nameArgument()},
             Where::kAnywhere, prepareAdd},
            {"modify", "Change a profile's settings; those not given stay as they are", "",
             "modify 3gpp:1 --auth chap --user anna",
             Arguments{profileArgument()} + settingArguments(), Where::kAnywhere, prepareModify},
            {"delete",
             "Delete a profile from the modem; all keys to it expire",
             "",
             "delete 3gpp:4",
             {profileArgument()},
             Where::kAnywhere,
             prepareDelete},
            {"match", "Say whether a profile matches a filter",
             "Prints yes or no; a no is exit status 1.", "match 3gpp:1 --apn inter --subset apn",
             Arguments{profileArgument()} + filterArguments(), Where::kAnywhere, prepareMatch},
            {"refresh",
             "Begin or end a configuration refresh of the modem",
             "After 'start' the library refuses everything but dump; 'complete' reads all profiles "
             "anew, and every key that is held expires.",
             "refresh complete",
             {{"STATUS", "", "start or complete", Arity::kRequired,
               [](const Typing&) { return namesOf(kRefreshNames); }}},
             Where::kAnywhere,
             prepareRefresh},
            {"watch",
             "Show the profiles that change, when, and through whom, until Ctrl-C",
             "Through whom: this client, the network, a restart, another subscription, or somebody "
             "else through the modem's file. 'watch on' shows after each command of a session what "
             "it has changed.",
             "watch --for 60",
             {{"STATE", "", "on or off: watch while other verbs run", Arity::kOptional,
               [](const Typing&) { return namesOf(kSwitchNames); }},
              {"--for", "SECONDS", "End after so long"},
              {"--count", "N", "End after so many changes"}},
             Where::kAnywhere,
             prepareWatch},
            {"dump",
             "Show the library's cache, what the modem still owes it, and its newest lines",
             "",
             "dump",
             {},
             Where::kAnywhere,
             prepareDump},
            {"keys",
             "Show the keys that are held, and how many hold the same profile",
             "",
             "keys",
             {},
             Where::kAnywhere,
             prepareKeys},
            {"release",
             "Drop keys; the last one takes a transient profile along",
             "",
             "release k1 k2",
             {{"KEY", "", "Names of keys, or all", Arity::kMany, heldKeys}},
             Where::kAnywhere,
             prepareRelease},
        },
    };
}

}  // namespace zemctl
