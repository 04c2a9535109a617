// A profile made of any answer of a modem: read back, matched, changed and sent again.
#include <memory>
#include <optional>
#include <string>

#include "Input.h"
#include "Modem3gpp2Profile.h"
#include "Modem3gppProfile.h"
#include "Records.h"
#include "Wire.h"

namespace zem::fuzz {
namespace {

using Profile = std::shared_ptr<ModemProfile>;

constexpr unsigned int kKnownApnTypes = 0xFFF;
constexpr unsigned int kAllCriteria = 0x3F;
constexpr size_t kLongestApnName = WDS_APN_SIZE_V01 - 1;

Profile read(TechType tech, int index, const Settings& response) {
    if (tech == TechType::TECH_3GPP2) return std::make_shared<Modem3gpp2Profile>(index, response);
    return std::make_shared<Modem3gppProfile>(index, response);
}

// What is read is at most what the modem has room for.
void checkCapacities(const ModemProfile& profile) {
    const ProfileParams params = profile.get();
    require(params.getApnName().size() <= WDS_APN_SIZE_V01, "an APN is cut at its field");
    require(params.getUserName().size() <= WDS_CREDENTIAL_SIZE_V01, "a user name is cut");
    require(params.getPassword().size() <= WDS_CREDENTIAL_SIZE_V01, "a password is cut");
}

bool hasUnknownApnTypes(const ModemProfile& profile) {
    return (profile.getApnTypesMask() & ~uint64_t{kKnownApnTypes}) != 0;
}

// A profile is found by what it says of itself. Two things can be stored that no filter can ask
// for: APN types that the library has no name for, and an APN as long as its field.
void checkMatchesItself(const ModemProfile& profile) {
    if (profile.getApnName().size() > kLongestApnName) return;
    FilterProfileParams filter(profile.get());
    filter.setFilterByTechType(profile.getTechType());
    filter.setFilterByProfileId(profile.getProfileId());
    require(profile.match(filter) != hasUnknownApnTypes(profile),
            "a profile matches what it says of itself", profile.dump() + '\n' + filter.dump());
    filter.addFilterMatchCriteria(MATCH_APN_TYPES_SUBSET);
    require(profile.match(filter), "a profile holds the APN types that it names", profile.dump());
}

void checkFilters(Input& input, const ModemProfile& profile) {
    require(profile.match(FilterProfileParams()), "a filter that asks nothing matches all");
    FilterProfileParams filter = drawFilter(input);
    const bool strict = profile.match(filter);
    filter.addFilterMatchCriteria(input.number<uint8_t>());
    const bool wider = profile.match(filter);
    filter.addFilterMatchCriteria(kAllCriteria);
    require(!strict || wider, "a wider filter finds no less", filter.dump());
    require(!wider || profile.match(filter), "the widest filter finds no less", filter.dump());
    const bool otherTech =
        filter.hasFilterByTechType() && filter.getFilterByTechType() != profile.getTechType();
    require(!otherTech || !strict, "a filter for another technology finds nothing");
    filter.setFilterByProfileId(profile.getProfileId() + 1);
    require(!profile.match(filter), "a filter for another index finds nothing");
}

// What a profile must answer once it has been changed as params want it. False where the modem's
// fields cannot say it: a home type of "unknown" beside a roaming type means dual stack, and an
// override of the home type stays where nothing is known of roaming.
bool mayAskForHome(const ModemProfile& profile, const ProfileParams& params) {
    const auto* const dual = dynamic_cast<const Modem3gppProfile*>(&profile);
    if (!dual) return true;
    const bool roams = dual->hasLteRoamIPType() && dual->hasUmtsRoamIPType() &&
                       dual->getLteRoamIPType() == dual->getUmtsRoamIPType();
    return roams ? params.getHomeIPType() != IPType::UNKNOWN
                 : dual->getOverrideHomeIPType() == IPType::UNKNOWN;
}

// Applies differences until nothing changes any more. Home types that are unknown take a second
// round and a third.
void checkChanges(Input& input, ModemProfile& profile) {
    const bool is3gpp = profile.getTechType() == TechType::TECH_3GPP;
    ModifyProfileParams params;
    FilterProfileParams wanted;
    for (size_t count = input.upTo(8); count > 0; --count) {
        const Setting& setting = input.oneOf(kSettings);
        Input same = input;
        setting.set(params, input);
        if (is3gpp || !setting.only3gpp) setting.set(wanted, same);
    }
    constexpr int kMostRounds = 3;
    Profile diff = profile.diff(params);
    std::string last;
    for (int round = 0; diff && profile.dump() != last; ++round) {
        require(round < kMostRounds, "changes come to rest", profile.dump() + '\n' + params.dump());
        last = profile.dump();
        checkRequest(diff->constructModifyRequest());
        require(diff->getProfileId() == -1 && !diff->getIsPersistent() && !diff->getIsZemCreated(),
                "a difference is no profile of the modem");
        profile.apply(diff);
        diff = profile.diff(params);
    }
    const bool knownTypes = (params.getApnTypesMask() & ~kKnownApnTypes) == 0;
    require(!diff || !knownTypes, "a change that was made is no difference any more",
            profile.dump() + '\n' + params.dump());
    if (wanted.hasHomeIPType() && !mayAskForHome(profile, wanted)) return;
    if (hasUnknownApnTypes(profile)) wanted.addFilterMatchCriteria(MATCH_APN_TYPES_SUBSET);
    require(profile.match(wanted), "a changed profile is found by the change",
            profile.dump() + '\n' + wanted.dump());
}

// What a modem stores of a profile is read as the same profile again, however often.
void checkRoundTrip(const ModemProfile& profile) {
    const TechType tech = profile.getTechType();
    const int index = profile.getProfileId();
    const Create request = profile.constructAddRequest();
    checkRequest(request);
    const Profile once = read(tech, index, storedAs(request));
    const Profile twice = read(tech, index, storedAs(once->constructAddRequest()));
    require(once->dump() == twice->dump() && once->getIsPersistent() == twice->getIsPersistent(),
            "what was written reads back", once->dump() + '\n' + twice->dump());
    checkMatchesItself(*once);
}

}  // namespace
}  // namespace zem::fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace zem::fuzz;
    Input input(data, size);
    const auto tech = zem::TechType(input.flag());
    const int index = input.number<uint8_t>();
    const Settings response = drawResponse(input);
    const Profile profile = read(tech, index, response);
    const std::string before = profile->dump();
    const auto checkAll = [&] {
        checkCapacities(*profile);
        checkMatchesItself(*profile);
        checkFilters(input, *profile);
        checkRoundTrip(*profile);
        auto modify = profile->constructModifyRequest();
        checkRequest(modify);
        require(modify.profile.profile_index == index, "a profile's own index goes out");
    };
    checkAll();
    profile->apply(nullptr);
    require(profile->dump() == before, "reading and comparing changes nothing");
    for (size_t changes = 1 + input.upTo(3); changes > 0; --changes) checkChanges(input, *profile);
    if (input.flag()) {  // also that of the other technology
        const auto otherTech = zem::TechType(input.flag());
        profile->apply(read(otherTech, index, drawResponse(input)));
    }
    checkRoundTrip(*profile);
    return 0;
}
