#include "verbs/PolicyVerbs.h"

#include <optional>

#include <nlohmann/json.hpp>

#include "command/Values.h"
#include "output/ProfileOutput.h"
#include "output/Settings.h"
#include "session/Session.h"
#include "verbs/LoadCommand.h"
#include "verbs/OperatorList.h"
#include "verbs/StoryCommand.h"

namespace zemctl {

namespace {

using zem::TechType;

constexpr const char* kChecked =
    "The answer is held against a second opinion, worked out from what the modem stored before.";

// Answers come from a library that is up and not in the middle of a refresh.
Phone& phoneOf(Session& session) {
    session.library();
    session.refuseDuringRefresh();
    return session.phone();
}

// The key that the policy has given is the newest on the ring.
int showAnswer(Session& session, const std::optional<ProfileId>& answer) {
    if (!answer) {
        return kRefused;
    }
    const auto& key = session.keys.back().key;
    session.output.object(toJson(seen(key, session.read(key), session.keys)));
    return kDone;
}

Step prepareSetupCall(const Given& given) {
    const TechType tech = techOf(given);
    const zem::ProfileParams params = settingsOf(given);
    requireSettingsOf(tech, params);
    return [=](Session& session) {
        return showAnswer(session, phoneOf(session).setupCall(tech, params));
    };
}

Step prepareEmergencyCall(const Given& given) {
    return [params = settingsOf(given)](Session& session) {
        return showAnswer(session, phoneOf(session).emergencyCall(params));
    };
}

Step prepareAttach(const Given& given) {
    return [params = settingsOf(given)](Session& session) {
        return showAnswer(session, phoneOf(session).attach(params));
    };
}

Step prepareMatchAttach(const Given& given) {
    const int id = OptionText{"--id", given.text("--id")}.number(0, kLastProfileId);
    return [id, params = settingsOf(given)](Session& session) {
        const bool answer = phoneOf(session).matchAttach(id, params);
        session.output.object(
            {{"profile", profileName(TechType::TECH_3GPP, id)}, {"matches", answer}});
        return answer ? kDone : kRefused;
    };
}

Step prepareApplyApns(const Given& given) {
    const OperatorOptions source = operatorOf(given);
    return
        [source, list = readOperator(source), also3gpp2 = given.has("--3gpp2")](Session& session) {
            phoneOf(session).applyApns(source, list, also3gpp2);
            return kDone;
        };
}

Step prepareUpdates(const Given& given) {
    return [allowed =
                OptionText{"updates", given.text("STATE")}.oneOf(kSwitchNames)](Session& session) {
        session.phone().allowUpdates(allowed);
        return kDone;
    };
}

}  // namespace

VerbGroup policyVerbs() {
    return {
        "Policies",
        {
            {"setup-call", "Find or create the profile for a data call", kChecked,
             "setup-call --apn internet --home v4v6",
             settingArguments() +
                 Arguments{techArgument("Family of profiles, 3gpp unless said otherwise")},
             Where::kAnywhere, prepareSetupCall},
            {"emergency-call", "Find or create the profile for an emergency call", kChecked,
             "emergency-call --apn sos", settingArguments(), Where::kAnywhere,
             prepareEmergencyCall},
            {"attach", "Find or create the profile for the LTE attach", kChecked,
             "attach --apn internet --home v4v6", settingArguments(), Where::kAnywhere,
             prepareAttach},
            {"match-attach", "Say whether the modem may attach with a profile",
             "A no is exit status 1.", "match-attach --id 1 --apn internet",
             Arguments{{"--id", "N", "Index of the 3GPP profile on the modem, 0 to 255",
                        Arity::kRequired}} +
                 settingArguments(),
             Where::kAnywhere, prepareMatchAttach},
            {"apply-apns", "Bring the modem's profiles in line with an operator's carrier list",
             "By APN class, then the APN types. When a class has several entries, the last one "
             "decides.",
             "apply-apns --plmn 26202 examples/carriers.xml",
             operatorArguments() +
                 Arguments{{"--3gpp2", "", "Take the entries for the 3GPP2 profiles as well",
                            Arity::kSwitch}},
             Where::kAnywhere, prepareApplyApns},
            {"updates",
             "Whether the policies may rewrite profiles that they find; off at first",
             "",
             "updates on",
             {{"STATE", "", "on or off", Arity::kRequired,
               [](const Typing&) { return namesOf(kSwitchNames); }}},
             Where::kAnywhere,
             prepareUpdates},
            {"story", "Tell a phone's story: boot, carrier list, attach, calls, restart, release",
             "On a modem of its own. Every step says what it expects and checks it.",
             "story --plmn 311480 examples/carriers.xml", operatorArguments(), Where::kCommandLine,
             prepareStory},
            {"load", "Load an operator's carrier list into the modem and check each step",
             "On a modem of its own, through every operation of zem::Manager.",
             "load --plmn 26201 examples/carriers.xml", operatorArguments(), Where::kCommandLine,
             prepareLoad},
        },
    };
}

}  // namespace zemctl
