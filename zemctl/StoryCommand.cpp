#include "StoryCommand.h"

#include <algorithm>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "LibraryLog.h"
#include "ModemAccess.h"
#include "OperatorList.h"
#include "Phone.h"
#include "Report.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using zem::TechType;

struct Options {
    OperatorOptions source;
    std::string log;
};

// An APN that no carrier list has, so that its profile is a transient one.
constexpr const char* kPrivateApn = "office.example";

// The first entry in use that serves the type; null when there is none.
const ProfileParams* entryFor(const CarrierList& list, zem::ApnTypes type) {
    const auto entry =
        std::find_if(list.usable.begin(), list.usable.end(), [&](const CarrierEntry& candidate) {
            return (candidate.params.getApnTypesMask() & type) != 0 &&
                   !candidate.params.getIsApnDisabled();
        });
    return entry == list.usable.end() ? nullptr : &entry->params;
}

// Where to attach, and as whom; what the profile serves besides is the carrier list's business.
ProfileParams attachParams(const ProfileParams& entry) {
    ProfileParams params;
    params.setApnName(entry.getApnName());
    params.setHomeIPType(entry.getHomeIPType());
    params.setRoamIPType(entry.getRoamIPType());
    if (entry.hasUserName()) {
        params.setUserName(entry.getUserName());
    }
    if (entry.hasPassword()) {
        params.setPassword(entry.getPassword());
    }
    if (entry.hasAuthType()) {
        params.setAuthType(entry.getAuthType());
    }
    return params;
}

int tellStory(const Options& options, std::ostream& out) {
    const CarrierList list = readOperator(options.source);
    const ProfileParams* const internet = entryFor(list, zem::APN_TYPE_DEFAULT);
    if (!internet) {
        throw UsageError(options.source.file + ": no entry of operator " + options.source.plmn +
                         " serves the type 'default'");
    }
    const ProfileParams* const initial = entryFor(list, zem::APN_TYPE_IA);
    const ProfileParams* const emergency = entryFor(list, zem::APN_TYPE_EMERGENCY);
    const ProfileParams attach = attachParams(initial ? *initial : *internet);
    ProfileParams office;
    office.setApnName(kPrivateApn);
    office.setHomeIPType(zem::IPType::V4);

    Report report(out);
    ModemAccess modem;
    if (!modem.inProcess()) {
        throw UsageError("a story needs the software modem");
    }
    Phone phone(report, modem);
    if (phone.start(options.log, true)) {
        phone.applyApns(options.source, list, false);
        phone.applyApnsAgain(list, false);
        const auto attached = phone.attach(attach);
        phone.setupCall(TechType::TECH_3GPP, *internet);
        phone.setupCall(TechType::TECH_3GPP, office);
        phone.emergencyCall(emergency ? *emergency : ProfileParams());
        if (attached) {
            phone.changeBehind(*attached);
            report.check(phone.matchAttach(attached->second, attach), "it still serves the attach");
        }
        phone.restartModem();
        report.check(phone.attach(attach) == attached, "it is the profile of before the restart");
        const auto first = phone.setupCall(TechType::TECH_3GPP, office);
        report.check(phone.setupCall(TechType::TECH_3GPP, office) == first,
                     "both calls share one profile");
        phone.releaseKeys();
        phone.showSinceBoot();
    }
    report.countChecks();
    return report.checksFailed() == 0 ? kDone : kRefused;
}

}  // namespace

RunVerb declareStory(CLI::App& app) {
    auto options = std::make_shared<Options>();
    addOperatorOptions(app, options->source);
    addLogOption(app, options->log);
    return [options](std::ostream& out) { return tellStory(*options, out); };
}

}  // namespace zemctl
