#include "verbs/FilterQuestions.h"

#include <utility>

namespace zemctl {

namespace {

using zem::IPType;
using zem::ProfileParams;

bool contains(IPType whole, IPType part) {
    return (static_cast<uint32_t>(whole) & static_cast<uint32_t>(part)) ==
           static_cast<uint32_t>(part);
}

Question apnTypeQuestion(const zem::NamedValue<zem::ApnTypes>& type) {
    Question question{std::string("serves APN type ") + type.name, {}, {}};
    question.filter.setApnTypesMask(type.value);
    question.filter.addFilterMatchCriteria(zem::MATCH_APN_TYPES_SUBSET);
    question.expected = [bit = type.value](const ProfileParams& params) {
        return (params.getApnTypesMask() & bit) != 0;
    };
    return question;
}

Question apnClassQuestion(const zem::NamedValue<zem::ApnClass>& apnClass) {
    Question question{std::string("APN class is ") + apnClass.name, {}, {}};
    question.filter.setApnClass(apnClass.value);
    question.expected = [value = apnClass.value](const ProfileParams& params) {
        return params.getApnClass() == value;
    };
    return question;
}

Question homeTypeQuestion(const std::string& words, IPType type, unsigned int criteria,
                          std::function<bool(IPType)> expected) {
    Question question{words, {}, {}};
    question.filter.setHomeIPType(type);
    question.filter.addFilterMatchCriteria(criteria);
    question.expected = [expected = std::move(expected)](const ProfileParams& params) {
        return params.hasHomeIPType() && expected(params.getHomeIPType());
    };
    return question;
}

}  // namespace

bool isAttachProfile(const ProfileParams& params) {
    return (params.getApnTypesMask() & zem::APN_TYPE_IA) != 0;
}

std::vector<Question> filterQuestions() {
    std::vector<Question> questions;
    for (const auto& type : zem::kApnTypeNames) {
        questions.push_back(apnTypeQuestion(type));
    }
    for (const auto& apnClass : zem::kApnClassNames) {
        questions.push_back(apnClassQuestion(apnClass));
    }
    questions.push_back(homeTypeQuestion("home IP type is V4", IPType::V4, 0,
                                         [](IPType home) { return home == IPType::V4; }));
    questions.push_back(homeTypeQuestion("home IP type has V4", IPType::V4,
                                         zem::MATCH_HOME_IP_SUBSET,
                                         [](IPType home) { return contains(home, IPType::V4); }));
    questions.push_back(homeTypeQuestion("home IP type is within V6", IPType::V6,
                                         zem::MATCH_HOME_IP_SUPERSET,
                                         [](IPType home) { return contains(IPType::V6, home); }));
    Question roaming{"roam IP type has V6", {}, {}};
    roaming.filter.setRoamIPType(IPType::V6);
    roaming.filter.addFilterMatchCriteria(zem::MATCH_ROAM_IP_SUBSET);
    roaming.expected = [](const ProfileParams& params) {
        // A profile without a roam IP type roams on its home IP type.
        return contains(params.hasRoamIPType() ? params.getRoamIPType() : params.getHomeIPType(),
                        IPType::V6);
    };
    questions.push_back(std::move(roaming));
    Question attach{"made for the initial attach", {}, isAttachProfile};
    attach.filter.setFilterByIsIAProfile(true);
    questions.push_back(std::move(attach));
    return questions;
}

}  // namespace zemctl
