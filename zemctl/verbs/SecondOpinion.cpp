#include "verbs/SecondOpinion.h"

#include <functional>
#include <map>

#include "output/Settings.h"
#include "output/Text.h"

namespace zemctl {

namespace {

using zem::IPType;
using zem::ProfileParams;
using zem::TechType;
using Fits = std::function<bool(const ProfileParams&)>;

enum class Compare { kEqual, kLoose };  // loose: one IP type contains the other

bool agree(IPType held, IPType asked, Compare compare) {
    const auto both = static_cast<uint32_t>(held) & static_cast<uint32_t>(asked);
    return held == asked || (compare == Compare::kLoose && (both == static_cast<uint32_t>(held) ||
                                                            both == static_cast<uint32_t>(asked)));
}

bool nameFits(const ProfileParams& profile, const ProfileParams& asked) {
    return !asked.hasApnName() || sameApnName(profile, asked);
}

bool homeFits(const ProfileParams& profile, const ProfileParams& asked, Compare compare) {
    return !asked.hasHomeIPType() ||
           (profile.hasHomeIPType() &&
            agree(profile.getHomeIPType(), asked.getHomeIPType(), compare));
}

// A profile without a roam IP type roams on its home IP type.
bool roamFits(const ProfileParams& profile, const ProfileParams& asked, Compare compare) {
    const IPType held = profile.hasRoamIPType() ? profile.getRoamIPType() : profile.getHomeIPType();
    return !asked.hasRoamIPType() || agree(held, asked.getRoamIPType(), compare);
}

// The library's own profiles serve the attach only when they were made for it.
bool mayAttach(const ProfileParams& profile) {
    return profile.getIsIAProfile() || !profile.getIsZemProfile();
}

bool any(const ProfileParams& /*profile*/) {
    return true;
}

// Stage by stage, what fits is looked at. One profile of a stage is taken without regard to the
// others, so a stage decides only when all of its profiles are usable.
Choice choose(const ModemView& view, TechType tech, const std::vector<Fits>& stages,
              const Fits& usable) {
    Choice choice;
    for (const Fits& fits : stages) {
        bool decided = false;
        bool unusable = false;
        for (const auto& [id, profile] : view.read) {
            if (id.first != tech || !fits(profile)) {
                continue;
            }
            if (usable(profile)) {
                choice.found.insert(id);
                decided = true;
            } else {
                unusable = true;
            }
        }
        if (decided && !unusable) {
            return choice;
        }
    }
    choice.created = true;
    return choice;
}

std::vector<ProfileId> ofClass(const ModemView& view, TechType tech, zem::ApnClass apnClass) {
    std::vector<ProfileId> ids;
    for (const auto& [id, profile] : view.read) {
        if (id.first == tech && profile.hasApnClass() && profile.getApnClass() == apnClass) {
            ids.push_back(id);
        }
    }
    return ids;
}

void checkClass(const ModemView& before, const ModemView& after, TechType tech,
                const ProfileParams& last, std::vector<std::string>& wrong) {
    const auto was = ofClass(before, tech, last.getApnClass());
    const auto is = ofClass(after, tech, last.getApnClass());
    const size_t expected = was.empty() ? 1 : was.size();
    if (is.size() != expected) {
        wrong.push_back(techTypeName(tech) + " class " + apnClassName(last.getApnClass()) + ": " +
                        counted(expected, "profile", "profiles") + " expected, there are " +
                        std::to_string(is.size()));
    }
    for (const ProfileId& id : is) {
        const ProfileParams& seen = after.read.at(id);
        ProfileParams asked = last;
        asked.setApnTypesMask(seen.getApnTypesMask());  // those are spread afterwards
        for (const std::string& difference : differences(asked, seen, tech)) {
            wrong.push_back(profileName(id) + ' ' + difference);
        }
    }
}

}  // namespace

Choice choiceForDataCall(const ModemView& view, TechType tech, const ProfileParams& asked,
                         bool updatesAllowed) {
    const auto named = [&](const ProfileParams& profile) {
        const bool userFits =
            tech == TechType::TECH_3GPP || !asked.hasUserName() ||
            (profile.hasUserName() && profile.getUserName() == asked.getUserName());
        return userFits && nameFits(profile, asked);
    };
    if (updatesAllowed) {
        return choose(view, tech, {named}, any);
    }
    return choose(view, tech,
                  {[&](const ProfileParams& profile) {
                       return named(profile) && homeFits(profile, asked, Compare::kEqual);
                   },
                   [&](const ProfileParams& profile) {
                       return named(profile) && homeFits(profile, asked, Compare::kLoose);
                   }},
                  any);
}

Choice choiceForEmergencyCall(const ModemView& view, const ProfileParams& asked) {
    const auto capable = [](const ProfileParams& profile) {
        return profile.getIsEmergencySupported();
    };
    return choose(
        view, TechType::TECH_3GPP,
        {[&](const ProfileParams& profile) { return capable(profile) && nameFits(profile, asked); },
         capable},
        any);
}

Choice choiceForAttach(const ModemView& view, const ProfileParams& asked, bool updatesAllowed) {
    const auto exact = [&](const ProfileParams& profile) {
        return nameFits(profile, asked) && homeFits(profile, asked, Compare::kEqual) &&
               roamFits(profile, asked, Compare::kEqual);
    };
    const auto loose = [&](const ProfileParams& profile) {
        return nameFits(profile, asked) &&
               (updatesAllowed ||
                (!profile.getIsZemProfile() && homeFits(profile, asked, Compare::kLoose) &&
                 roamFits(profile, asked, Compare::kLoose)));
    };
    const auto own = [](const ProfileParams& profile) { return profile.getIsIAProfile(); };
    const auto ownByName = [&](const ProfileParams& profile) {
        return profile.getIsIAProfile() && nameFits(profile, asked);
    };
    return choose(view, TechType::TECH_3GPP, {exact, loose, ownByName, own}, mayAttach);
}

bool fitsAttach(const ProfileParams& profile, const ProfileParams& asked, bool updatesAllowed) {
    const auto compare =
        updatesAllowed || profile.getIsZemProfile() ? Compare::kEqual : Compare::kLoose;
    const bool credentialsFit =
        (!asked.hasUserName() || asked.getUserName() == profile.getUserName()) &&
        (!asked.hasPassword() || asked.getPassword() == profile.getPassword()) &&
        (!asked.hasAuthType() || asked.getAuthType() == profile.getAuthType());
    return mayAttach(profile) && nameFits(profile, asked) && homeFits(profile, asked, compare) &&
           roamFits(profile, asked, compare) && credentialsFit;
}

ProfileParams expectedOfAttach(const ProfileParams& profile, const ProfileParams& asked,
                               bool updatesAllowed) {
    ProfileParams expected;
    const auto expect = [&expected](bool present, auto set, auto value) {
        if (present) (expected.*set)(value);
    };
    expect(asked.hasApnName(), &ProfileParams::setApnName, asked.getApnName());
    expect(asked.hasUserName(), &ProfileParams::setUserName, asked.getUserName());
    expect(asked.hasPassword(), &ProfileParams::setPassword, asked.getPassword());
    expect(asked.hasAuthType(), &ProfileParams::setAuthType, asked.getAuthType());
    expect(asked.hasApnTypesMask(), &ProfileParams::setApnTypesMask, asked.getApnTypesMask());
    expect(asked.hasMaxPdnsConnPerBlock(), &ProfileParams::setMaxPdnsConnPerBlock,
           asked.getMaxPdnsConnPerBlock());
    expect(asked.hasMaxPdnConnTimer(), &ProfileParams::setMaxPdnConnTimer,
           asked.getMaxPdnConnTimer());
    expect(asked.hasPdnReqWaitInterval(), &ProfileParams::setPdnReqWaitInterval,
           asked.getPdnReqWaitInterval());
    // A profile of the modem's own keeps its IP types.
    if (updatesAllowed || profile.getIsIAProfile()) {
        expect(asked.hasHomeIPType(), &ProfileParams::setHomeIPType, asked.getHomeIPType());
        expect(asked.hasRoamIPType(), &ProfileParams::setRoamIPType, asked.getRoamIPType());
    }
    return expected;
}

std::vector<std::string> wrongAfterList(const ModemView& before, const ModemView& after,
                                        const CarrierList& list, const std::set<TechType>& techs,
                                        bool updatesAllowed) {
    std::vector<std::string> wrong;
    std::map<zem::ApnClass, const ProfileParams*> lastOfClass;
    std::map<std::string, unsigned int> typesOfName;
    for (const CarrierEntry& entry : list.usable) {
        lastOfClass[entry.params.getApnClass()] = &entry.params;
        typesOfName[lowerCase(entry.params.getApnName())] |= entry.params.getApnTypesMask();
    }
    for (const TechType tech : techs) {
        for (const auto& [apnClass, params] : lastOfClass) {
            checkClass(before, after, tech, *params, wrong);
        }
    }
    std::map<std::pair<TechType, std::string>, unsigned int> served;
    for (const auto& [id, profile] : after.read) {
        const std::string name = lowerCase(profile.getApnName());
        const auto listed = typesOfName.find(name);
        if (listed != typesOfName.end()) {
            served[{id.first, name}] |= profile.getApnTypesMask();
            if (updatesAllowed && profile.getApnTypesMask() != listed->second) {
                wrong.push_back(profileName(id) + " serves " +
                                apnTypesText(profile.getApnTypesMask()) + ", not " +
                                apnTypesText(listed->second));
            }
        }
    }
    for (const auto& [place, types] : served) {
        if (const unsigned int missing = typesOfName[place.second] & ~types) {
            wrong.push_back(techTypeName(place.first) + ' ' + printable(place.second) +
                            ": no profile serves " + apnTypesText(missing));
        }
    }
    for (const FieldChange& change : changedFields(before.stored, after.stored)) {
        const auto profile = after.read.find(change.profile);
        const bool listed = profile != after.read.end() &&
                            (typesOfName.count(lowerCase(profile->second.getApnName())) != 0 ||
                             (techs.count(change.profile.first) != 0 &&
                              lastOfClass.count(profile->second.getApnClass()) != 0));
        if (!listed) {
            wrong.push_back(profileName(change.profile) + " is not in the list, but its " +
                            change.field + " has changed");
        }
    }
    return wrong;
}

}  // namespace zemctl
