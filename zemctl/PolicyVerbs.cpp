#include "PolicyVerbs.h"

#include <CLI/CLI.hpp>

#include "LibraryLog.h"
#include "ModemAccess.h"
#include "OperatorList.h"
#include "Phone.h"
#include "ProfileOptions.h"
#include "Report.h"
#include "Verb.h"

namespace zemctl {

namespace {

constexpr const char* kNoFactory = "none";

// What the options of any of the verbs set.
struct PolicyOptions {
    zem::ProfileParams params;
    zem::TechType tech = zem::TechType::TECH_3GPP;
    int id = 0;
    bool updates = false;
    bool also3gpp2 = false;
    OperatorOptions source;
};

using Step = std::function<bool(Phone&)>;

const struct {
    const char* name;
    const char* summary;
    void (*declare)(CLI::App&, PolicyOptions&);
    // Throws UsageError when the options do not go together.
    Step (*make)(const PolicyOptions&);
} kPolicyVerbs[] = {
    {"setup-call", "Find or create the profile for a data call",
     [](CLI::App& app, PolicyOptions& options) {
         addTechOption(app, options.tech);
         addProfileOptions(app, options.params);
     },
     [](const PolicyOptions& options) -> Step {
         requireSettingsOf(options.tech, options.params);
         return [=](Phone& phone) {
             return phone.setupCall(options.tech, options.params).has_value();
         };
     }},
    {"emergency-call", "Find or create the profile for an emergency call",
     [](CLI::App& app, PolicyOptions& options) { addProfileOptions(app, options.params); },
     [](const PolicyOptions& options) -> Step {
         return [=](Phone& phone) { return phone.emergencyCall(options.params).has_value(); };
     }},
    {"attach", "Find or create the profile for the LTE attach",
     [](CLI::App& app, PolicyOptions& options) { addProfileOptions(app, options.params); },
     [](const PolicyOptions& options) -> Step {
         return [=](Phone& phone) { return phone.attach(options.params).has_value(); };
     }},
    {"match-attach", "Say whether the modem may attach with a profile",
     [](CLI::App& app, PolicyOptions& options) {
         app.add_option("--id", options.id, "Index of the 3GPP profile on the modem")
             ->required()
             ->check(CLI::Range(0, 255))
             ->type_name("N");
         addProfileOptions(app, options.params);
     },
     [](const PolicyOptions& options) -> Step {
         return [=](Phone& phone) { return phone.matchAttach(options.id, options.params); };
     }},
    {"apply-apns", "Bring the modem's profiles in line with an operator's carrier list",
     [](CLI::App& app, PolicyOptions& options) {
         addOperatorOptions(app, options.source);
         app.add_flag("--3gpp2", options.also3gpp2,
                      "Take the entries for the 3GPP2 profiles as well");
     },
     [](const PolicyOptions& options) -> Step {
         return [options, list = readOperator(options.source)](Phone& phone) {
             phone.applyApns(options.source, list, options.also3gpp2);
             return true;
         };
     }},
    {"updates", "Whether the verbs that follow may rewrite profiles that they find",
     [](CLI::App& app, PolicyOptions& options) {
         addSwitchOption(app, "STATE", options.updates, "on or off; off at first");
     },
     [](const PolicyOptions& options) -> Step {
         return [=](Phone& phone) {
             phone.allowUpdates(options.updates);
             return true;
         };
     }},
};

}  // namespace

void PolicyVerbs::declare(CLI::App& app) {
    for (const auto& verb : kPolicyVerbs) {
        CLI::App* const subcommand = app.add_subcommand(verb.name, verb.summary);
        const auto options = std::make_shared<PolicyOptions>();
        verb.declare(*subcommand, *options);
        addLogOption(*subcommand, log);
        subcommand
            ->add_option("--factory", factory,
                         "What the modem boots with: its default profiles, or none")
            ->check(CLI::IsMember({"default", kNoFactory}))
            ->type_name("default|none");
        // At once, so that a verb may come again with other options.
        subcommand->immediate_callback()->callback([this, &verb, options] {
            steps.push_back(verb.make(*options));
            *options = {};
        });
    }
}

int PolicyVerbs::run(std::ostream& out) const {
    Report report(out);
    ModemAccess modem;
    Phone phone(report, modem);
    bool agreed = true;
    if (phone.start(log, factory != kNoFactory)) {
        for (const Step& step : steps) {
            agreed = step(phone) && agreed;
        }
        phone.releaseKeys();
    }
    report.countChecks();
    return agreed && report.checksFailed() == 0 ? kDone : kRefused;
}

}  // namespace zemctl
