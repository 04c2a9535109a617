#include "verbs/StoryCommand.h"

#include <algorithm>
#include <string>

#include "output/Report.h"
#include "session/ModemAccess.h"
#include "session/Session.h"
#include "verbs/OperatorList.h"
#include "verbs/Phone.h"

namespace zemctl {

namespace {

using zem::ProfileParams;
using zem::TechType;

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

int tellStory(const OperatorOptions& source, const CarrierList& list, Session& session) {
    const ProfileParams* const internet = entryFor(list, zem::APN_TYPE_DEFAULT);
    if (!internet) {
        throw UsageError(source.file + ": no entry of operator " + source.plmn +
                         " serves the type 'default'");
    }
    const ProfileParams* const initial = entryFor(list, zem::APN_TYPE_IA);
    const ProfileParams* const emergency = entryFor(list, zem::APN_TYPE_EMERGENCY);
    const ProfileParams attach = attachParams(initial ? *initial : *internet);
    ProfileParams office;
    office.setApnName(kPrivateApn);
    office.setHomeIPType(zem::IPType::V4);

    Report& report = session.report;
    report.number();
    ModemAccess modem;
    if (!modem.inProcess()) {
        throw UsageError("a story needs the software modem");
    }
    Phone phone(report, modem, session.keys);
    if (phone.start(session.logLevel())) {
        phone.applyApns(source, list, false);
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
        report.step("Release the keys, one after the other");
        phone.releaseKeys(session.keys.names());
        phone.showSinceBoot();
    }
    report.countChecks();
    return report.checksFailed() == 0 ? kDone : kRefused;
}

}  // namespace

Step prepareStory(const Given& given) {
    const OperatorOptions source = operatorOf(given);
    return [source, list = readOperator(source)](Session& session) {
        session.requireOwnModem();
        return tellStory(source, list, session);
    };
}

}  // namespace zemctl
